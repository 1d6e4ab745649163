#pragma once

#include <cstddef>
#include <cstdint>

#include "ClientCommunications/Interface.h"

namespace Ombry::ClientCommunications {

/// Source of a request body. It must be rewindable: each attempt reads it from the beginning.
class ISyncReader : public Interface {
public:
    virtual void Rewind() = 0;
    virtual bool IsLengthKnown() = 0;
    /// Bytes of the whole body; asked only if the length is known.
    virtual std::uint64_t GetLength() = 0;
    /// Stores at most `size` bytes and returns how many; 0 at the end.
    virtual std::size_t Read(void* buffer, std::size_t size) = 0;
};

}  // namespace Ombry::ClientCommunications
