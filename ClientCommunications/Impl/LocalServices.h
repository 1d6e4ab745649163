#pragma once

#include "ClientCommunications/ILocalServices.h"
#include "ClientCommunications/IStorage.h"

namespace Ombry::ClientCommunications {

/// Reads the local records of enrolled services. Throws what the storage throws, and `std::runtime_error` for
/// a record that cannot be read or lacks a key.
class LocalServiceLookup : public ILocalServiceLookup {
public:
    explicit LocalServiceLookup(std::shared_ptr<INamedStorage> storage) : storage(std::move(storage)) {}
    std::string Lookup(const std::string& name) override;

private:
    const std::shared_ptr<INamedStorage> storage;
};

class LocalServiceFinderFactory : public ILocalServiceFinderFactory {
public:
    LocalServiceFinderFactory(std::shared_ptr<ILocalServiceLookup> lookup,
                              std::shared_ptr<IServiceFinderFactory> finderFactory)
        : lookup(std::move(lookup)), finderFactory(std::move(finderFactory)) {}
    std::shared_ptr<IServiceFinder> Create(const std::string& componentName,
                                           const std::string& serviceName) override;

private:
    const std::shared_ptr<ILocalServiceLookup> lookup;
    const std::shared_ptr<IServiceFinderFactory> finderFactory;
};

class AaSigningCertificateFinder : public IAaSigningCertificateFinder {
public:
    explicit AaSigningCertificateFinder(std::shared_ptr<IServiceFinder> finder) : finder(std::move(finder)) {}
    std::list<std::string> GetCertificates() override;

private:
    const std::shared_ptr<IServiceFinder> finder;
};

}  // namespace Ombry::ClientCommunications
