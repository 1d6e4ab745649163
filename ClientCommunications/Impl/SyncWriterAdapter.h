#pragma once

#include "ClientCommunications/ISyncWriter.h"
#include "OmbryZephCore/ZephSyncDataIf.h"

namespace Ombry::ClientCommunications::Private {

/// Shows a writer to the network core as the sink of a response body. Lives on the stack of one call; owns
/// nothing.
class SyncWriterAdapter : public OmbryZephCore::ZephSyncDataWriterIf {
public:
    explicit SyncWriterAdapter(ISyncWriter& writer) : writer(writer) {}

    void Begin() override { writer.Reset(); }
    void Write(const std::uint8_t* pData, std::uint32_t nBytes) override { writer.Write(pData, nBytes); }
    void End() override { writer.Finish(); }

private:
    ISyncWriter& writer;
};

}  // namespace Ombry::ClientCommunications::Private
