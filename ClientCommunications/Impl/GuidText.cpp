#include "ClientCommunications/Impl/GuidText.h"

#include "Platform/IRandom.h"

namespace Ombry::ClientCommunications {
namespace {

// Writes the digits of a number, most significant first; what comes behind them.
char* WriteHex(char* to, std::uint32_t number, int digits) {
    while (digits-- > 0)
        *to++ = "0123456789abcdef"[number >> (4 * digits) & 15];
    return to;
}

}  // namespace

std::string MakeGuidText() {
    const Platform::Guid guid = Platform::Random().NewGuid();
    std::string text(36, '-');
    char* to = WriteHex(text.data(), guid.data1, 8) + 1;
    to = WriteHex(to, guid.data2, 4) + 1;
    to = WriteHex(to, guid.data3, 4) + 1;
    for (std::size_t i = 0; i < guid.data4.size(); ++i) {
        if (i == 2) ++to;
        to = WriteHex(to, guid.data4[i], 2);
    }
    return text;
}

}  // namespace Ombry::ClientCommunications
