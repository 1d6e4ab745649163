#include "ClientCommunications/Impl/StreamResponseWriter.h"

namespace Ombry::ClientCommunications {

void StreamResponseWriter::Begin() {
    if (IsGood()) writer.Reset();
}

void StreamResponseWriter::Write(const std::uint8_t* pData, std::uint32_t nBytes) {
    if (IsGood()) {
        writer.Write(pData, nBytes);
    } else {
        errorBody.append(reinterpret_cast<const char*>(pData), nBytes);
    }
}

void StreamResponseWriter::End() {
    if (IsGood()) writer.Finish();
}

}  // namespace Ombry::ClientCommunications
