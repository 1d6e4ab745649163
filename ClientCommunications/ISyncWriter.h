#pragma once

#include <cstddef>

#include "ClientCommunications/Interface.h"

namespace Ombry::ClientCommunications {

/// Sink of a response body. `Reset` begins a body, anew if an attempt before it failed.
class ISyncWriter : public Interface {
public:
    virtual void Reset() = 0;
    virtual void Write(const void* data, std::size_t size) = 0;
    virtual void Finish() = 0;
};

}  // namespace Ombry::ClientCommunications
