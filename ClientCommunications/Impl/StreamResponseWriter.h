#pragma once

#include "ClientCommunications/ISyncWriter.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "OmbryZephCore/ZephSyncDataIf.h"

#include <string>

namespace Ombry::ClientCommunications {

/// The sink of a stream call: the body of a status below 300 goes to the caller's writer, that of any other
/// is kept here, up to `MaxBodyInMemory`, so that an error page never reaches the writer. Lives on the stack
/// of one call; owns neither argument.
class StreamResponseWriter : public OmbryZephCore::ZephSyncDataWriterIf {
public:
    StreamResponseWriter(const OmbryZephCore::ZephSorrelSyncHttpClient& client, ISyncWriter& writer)
        : client(client), writer(writer) {}

    void Begin() override;
    void Expect(std::uint32_t nBytes) override;
    void Write(const std::uint8_t* pData, std::uint32_t nBytes) override;
    void End() override;

    const std::string& GetErrorBody() const { return errorBody; }

private:
    bool IsGood() const { return client.GetHttpStatus() < 300; }

    const OmbryZephCore::ZephSorrelSyncHttpClient& client;
    ISyncWriter& writer;
    std::string errorBody;
};

}  // namespace Ombry::ClientCommunications
