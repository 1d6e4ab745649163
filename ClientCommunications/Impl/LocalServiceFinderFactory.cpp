#include "ClientCommunications/Impl/LocalServiceFinderFactory.h"

namespace Ombry::ClientCommunications {

std::shared_ptr<IServiceFinder> LocalServiceFinderFactory::Create(const std::string& componentName,
                                                                  const std::string& serviceName) {
    const std::string parentId = lookup->Lookup(componentName);
    return finderFactory->CreateByNameAndParentId(serviceName, parentId);
}

}  // namespace Ombry::ClientCommunications
