#pragma once

#include "ClientCommunications/ISyncReader.h"
#include "OmbryZephCore/ZephSyncDataIf.h"

namespace OmbryCommunications::Private {

/// Shows a reader to the network core as the source of a request body. Lives on the stack of one call; owns
/// nothing.
class SyncReaderAdapter : public OmbryZephCore::ZephSyncDataReaderIf {
public:
    explicit SyncReaderAdapter(Ombry::ClientCommunications::ISyncReader* reader) : reader(reader) {}

    bool HasData() override { return !reader->IsLengthKnown() || reader->GetLength() != 0; }

    /// Rewinds, so that each attempt sends the body from its beginning. A length that does not fit in 32 bits
    /// counts as unknown, and the body travels in chunks.
    std::uint32_t GetLength() override;
    bool Read(std::uint8_t* pBuffer, std::uint32_t* pnBytes) override;

private:
    Ombry::ClientCommunications::ISyncReader* reader;
};

}  // namespace OmbryCommunications::Private
