#pragma once

#include "ClientCommunications/ILocalServiceLookup.h"
#include "ClientCommunications/INamedStorage.h"

#include <memory>
#include <string>

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

}  // namespace Ombry::ClientCommunications
