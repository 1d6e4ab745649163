#pragma once

#include "ClientCommunications/IServiceFinder.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Finds a service through the component of this machine that it belongs to. May be called from several
/// threads at once.
class ILocalServiceFinderFactory : public Interface {
public:
    /// A finder of the services of that name whose parent is the enrolled service `componentName` of the
    /// acting client. `std::runtime_error` if this machine has no record of that, or one that does not fit.
    virtual std::shared_ptr<IServiceFinder> Create(const std::string& componentName,
                                                   const std::string& serviceName) = 0;
};

}  // namespace Ombry::ClientCommunications
