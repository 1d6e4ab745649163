#pragma once

#include "ClientCommunications/Interface.h"

#include <cstddef>

namespace Ombry::ClientCommunications {

/// Sink of a response body, implemented by who calls. It sees good bodies only (status below 300). Called on
/// the thread of the call; what it throws ends the call and reaches the caller.
class ISyncWriter : public Interface {
public:
    /// Begins a body. If an attempt before it broke off, what that one wrote is worth nothing.
    virtual void Reset() = 0;
    /// The next `size` bytes; valid during the call.
    virtual void Write(const void* data, std::size_t size) = 0;
    /// The body is whole.
    virtual void Finish() = 0;
};

}  // namespace Ombry::ClientCommunications
