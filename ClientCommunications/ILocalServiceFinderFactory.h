#pragma once

#include <memory>
#include <string>

#include "ClientCommunications/IServiceFinder.h"

namespace Ombry::ClientCommunications {

/// Finds a service through the component of this machine that it belongs to.
class ILocalServiceFinderFactory : public Interface {
public:
    virtual std::shared_ptr<IServiceFinder> Create(const std::string& componentName,
                                                   const std::string& serviceName) = 0;
};

}  // namespace Ombry::ClientCommunications
