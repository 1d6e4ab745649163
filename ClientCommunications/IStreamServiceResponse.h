#pragma once

#include "ClientCommunications/IServiceResponse.h"

#include <string>

namespace Ombry::ClientCommunications {

/// A response whose good body went to the caller's writer; `GetBody` holds only that of a status of 300 or
/// above.
class IStreamServiceResponse : public IServiceResponse {
public:
    /// The body of a status of 300 or above; empty otherwise.
    virtual std::string GetBody() const = 0;
};

}  // namespace Ombry::ClientCommunications
