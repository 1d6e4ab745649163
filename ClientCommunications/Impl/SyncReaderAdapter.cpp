#include "ClientCommunications/Impl/SyncReaderAdapter.h"

#include <limits>

namespace OmbryCommunications::Private {

std::uint32_t SyncReaderAdapter::GetLength() {
    reader->Rewind();
    if (!reader->IsLengthKnown()) return 0;
    const std::uint64_t length = reader->GetLength();
    return length > std::numeric_limits<std::uint32_t>::max() ? 0 : static_cast<std::uint32_t>(length);
}

bool SyncReaderAdapter::Read(std::uint8_t* pBuffer, std::uint32_t* pnBytes) {
    *pnBytes =
        static_cast<std::uint32_t>(reader->Read(pBuffer, *pnBytes));  // never more than the room offered
    return *pnBytes != 0;
}

}  // namespace OmbryCommunications::Private
