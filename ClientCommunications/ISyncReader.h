#pragma once

#include "ClientCommunications/Interface.h"

#include <cstddef>
#include <cstdint>

namespace Ombry::ClientCommunications {

/// Source of a request body, implemented by who calls. It must be rewindable: each attempt reads it from the
/// beginning. Called on the thread of the call; what it throws ends the call and reaches the caller.
class ISyncReader : public Interface {
public:
    /// Back to the beginning; called before each attempt.
    virtual void Rewind() = 0;
    /// False, or a length of 2^32 bytes and more: the body goes out in chunks.
    virtual bool IsLengthKnown() = 0;
    /// Bytes of the whole body; asked only if the length is known.
    virtual std::uint64_t GetLength() = 0;
    /// Stores at most `size` bytes and returns how many; 0 at the end.
    virtual std::size_t Read(void* buffer, std::size_t size) = 0;
};

}  // namespace Ombry::ClientCommunications
