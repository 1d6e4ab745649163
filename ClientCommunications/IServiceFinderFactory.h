#pragma once

#include "ClientCommunications/IServiceFinder.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Makes finders; nothing is called before their `Find`. May be called from several threads at once, and may
/// outlive the facade. The arguments go into the path of the call to discovery as they stand; nothing is
/// encoded or checked.
class IServiceFinderFactory : public Interface {
public:
    /// The service at that base URL, as the one local server, without discovery and without a certificate to
    /// check.
    virtual std::shared_ptr<IServiceFinder> CreateByUrl(const std::string& url) = 0;
    /// The service with that id.
    virtual std::shared_ptr<IServiceFinder> CreateById(const std::string& id) = 0;
    /// All services of that name.
    virtual std::shared_ptr<IServiceFinder> CreateByName(const std::string& name) = 0;
    /// Those of them that belong to the service with that id.
    virtual std::shared_ptr<IServiceFinder> CreateByNameAndParentId(const std::string& name,
                                                                    const std::string& parentId) = 0;
    /// Those of them that have the role.
    virtual std::shared_ptr<IServiceFinder> CreateByNameAndRole(const std::string& name,
                                                                const std::string& role) = 0;
    /// Those of them that were enrolled in that namespace for that host.
    virtual std::shared_ptr<IServiceFinder> CreateByNameNamespaceAndHost(const std::string& name,
                                                                         const std::string& serviceNamespace,
                                                                         const std::string& host) = 0;
};

}  // namespace Ombry::ClientCommunications
