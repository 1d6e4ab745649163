#pragma once

#include "ClientCommunications/IServiceResponse.h"

#include <string>

namespace Ombry::ClientCommunications {

/// A response whose whole body is in memory.
class IStringServiceResponse : public IServiceResponse {
public:
    /// The body, byte for byte; empty if there was none.
    virtual std::string GetBody() const = 0;
};

}  // namespace Ombry::ClientCommunications
