#pragma once

#include <memory>
#include <string>

#include "ClientCommunications/IServiceFinder.h"

namespace Ombry::ClientCommunications {

class IServiceFinderFactory : public Interface {
public:
    virtual std::shared_ptr<IServiceFinder> CreateByUrl(const std::string& url) = 0;
    virtual std::shared_ptr<IServiceFinder> CreateById(const std::string& id) = 0;
    virtual std::shared_ptr<IServiceFinder> CreateByName(const std::string& name) = 0;
    virtual std::shared_ptr<IServiceFinder> CreateByNameAndParentId(const std::string& name,
                                                                    const std::string& parentId) = 0;
    virtual std::shared_ptr<IServiceFinder> CreateByNameAndRole(const std::string& name,
                                                                const std::string& role) = 0;
    virtual std::shared_ptr<IServiceFinder> CreateByNameNamespaceAndHost(const std::string& name,
                                                                         const std::string& serviceNamespace,
                                                                         const std::string& host) = 0;
};

}  // namespace Ombry::ClientCommunications
