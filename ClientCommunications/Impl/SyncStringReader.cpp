#include "ClientCommunications/Impl/SyncStringReader.h"

#include <algorithm>
#include <cstring>

namespace Ombry::ClientCommunications {

std::size_t SyncStringReader::Read(void* buffer, std::size_t size) {
    const std::size_t count = std::min(size, text.size() - position);
    if (count > 0) std::memcpy(buffer, text.data() + position, count);
    position += count;
    return count;
}

}  // namespace Ombry::ClientCommunications
