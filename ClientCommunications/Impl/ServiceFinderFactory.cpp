#include "ClientCommunications/Impl/ServiceFinderFactory.h"

#include "ClientCommunications/Impl/EndpointPaths.h"
#include "ClientCommunications/Impl/ServiceFinder.h"
#include "ClientCommunications/Impl/ServiceFinderByUrl.h"

namespace Ombry::ClientCommunications {

ServiceFinderFactory::ServiceFinderFactory(std::shared_ptr<IServiceGateway> gateway,
                                           std::shared_ptr<IServiceRequestFactory> requestFactory,
                                           std::shared_ptr<IKeyValueStorage> cache,
                                           std::shared_ptr<LibraryLogger::ILogger> logger)
    : gateway(std::move(gateway)),
      requestFactory(std::move(requestFactory)),
      cache(std::move(cache)),
      logger(std::move(logger)) {}

std::shared_ptr<IServiceFinder> ServiceFinderFactory::Create(const std::string& path) const {
    return std::make_shared<ServiceFinder>(gateway, requestFactory, cache, logger, path);
}

std::shared_ptr<IServiceFinder> ServiceFinderFactory::CreateByUrl(const std::string& url) {
    return std::make_shared<ServiceFinderByUrl>(url);
}

std::shared_ptr<IServiceFinder> ServiceFinderFactory::CreateById(const std::string& id) {
    return Create(EndpointPaths::DiscoveryById + id);
}

std::shared_ptr<IServiceFinder> ServiceFinderFactory::CreateByName(const std::string& name) {
    return Create(EndpointPaths::DiscoveryByName + name);
}

std::shared_ptr<IServiceFinder> ServiceFinderFactory::CreateByNameAndParentId(const std::string& name,
                                                                              const std::string& parentId) {
    return Create(EndpointPaths::DiscoveryByName + name + "/parent-id/" + parentId);
}

std::shared_ptr<IServiceFinder> ServiceFinderFactory::CreateByNameAndRole(const std::string& name,
                                                                          const std::string& role) {
    return Create(EndpointPaths::DiscoveryByName + name + "/role/" + role);
}

std::shared_ptr<IServiceFinder> ServiceFinderFactory::CreateByNameNamespaceAndHost(
    const std::string& name, const std::string& serviceNamespace, const std::string& host) {
    return Create(EndpointPaths::DiscoveryByName + name + "/namespace/" + serviceNamespace + "/host/" + host);
}

}  // namespace Ombry::ClientCommunications
