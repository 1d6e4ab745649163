#include "ClientCommunications/Impl/StreamResponseWriter.h"

#include "ClientCommunications/Impl/BodyLimit.h"

namespace Ombry::ClientCommunications {

void StreamResponseWriter::Begin() {
    if (!IsGood()) return;
    errorBody.clear();  // of an exchange that broke off, and was repeated
    writer.Reset();
}

void StreamResponseWriter::Expect(std::uint32_t nBytes) {
    if (!IsGood()) RequireRoomForBody(errorBody.size(), nBytes);
}

void StreamResponseWriter::Write(const std::uint8_t* pData, std::uint32_t nBytes) {
    if (IsGood()) {
        writer.Write(pData, nBytes);
    } else {
        RequireRoomForBody(errorBody.size(), nBytes);
        errorBody.append(reinterpret_cast<const char*>(pData), nBytes);
    }
}

void StreamResponseWriter::End() {
    if (IsGood()) writer.Finish();
}

}  // namespace Ombry::ClientCommunications
