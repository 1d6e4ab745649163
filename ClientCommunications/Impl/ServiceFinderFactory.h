#pragma once

#include "ClientCommunications/IKeyValueStorage.h"
#include "ClientCommunications/IServiceFinder.h"
#include "ClientCommunications/IServiceFinderFactory.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/IServiceRequestFactory.h"
#include "LibraryLogger/ILogger.h"

namespace Ombry::ClientCommunications {

/// Makes finders for the ways in which a service can be asked for. The parts go into the request path as they
/// are given, without escaping. Immutable.
class ServiceFinderFactory : public IServiceFinderFactory {
public:
    ServiceFinderFactory(std::shared_ptr<IServiceGateway> gateway,
                         std::shared_ptr<IServiceRequestFactory> requestFactory,
                         std::shared_ptr<IKeyValueStorage> cache,
                         std::shared_ptr<LibraryLogger::ILogger> logger);

    std::shared_ptr<IServiceFinder> CreateByUrl(const std::string& url) override;
    std::shared_ptr<IServiceFinder> CreateById(const std::string& id) override;
    std::shared_ptr<IServiceFinder> CreateByName(const std::string& name) override;
    std::shared_ptr<IServiceFinder> CreateByNameAndParentId(const std::string& name,
                                                            const std::string& parentId) override;
    std::shared_ptr<IServiceFinder> CreateByNameAndRole(const std::string& name,
                                                        const std::string& role) override;
    std::shared_ptr<IServiceFinder> CreateByNameNamespaceAndHost(const std::string& name,
                                                                 const std::string& serviceNamespace,
                                                                 const std::string& host) override;

private:
    std::shared_ptr<IServiceFinder> Create(const std::string& path) const;

    const std::shared_ptr<IServiceGateway> gateway;
    const std::shared_ptr<IServiceRequestFactory> requestFactory;
    const std::shared_ptr<IKeyValueStorage> cache;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
};

}  // namespace Ombry::ClientCommunications
