#pragma once

#include <string>

#include "ClientCommunications/IServiceResponse.h"

namespace Ombry::ClientCommunications {

/// A response whose whole body is in memory.
class IStringServiceResponse : public IServiceResponse {
public:
    virtual std::string GetBody() const = 0;
};

}  // namespace Ombry::ClientCommunications
