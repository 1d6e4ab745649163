#include "ClientCommunications/Impl/GuidText.h"

#include "Platform/IRandom.h"

namespace Ombry::ClientCommunications {
namespace {

/// Appends the digits of a number, most significant first.
void AppendHex(std::string& text, std::uint32_t number, int digits) {
    while (digits-- > 0)
        text += "0123456789abcdef"[number >> (4 * digits) & 15];
}

}  // namespace

std::string MakeGuidText() {
    const Platform::Guid guid = Platform::Random().NewGuid();
    std::string text;
    text.reserve(36);
    AppendHex(text, guid.data1, 8);
    text += '-';
    AppendHex(text, guid.data2, 4);
    text += '-';
    AppendHex(text, guid.data3, 4);
    text += '-';
    for (std::size_t i = 0; i < guid.data4.size(); ++i) {
        if (i == 2) text += '-';
        AppendHex(text, guid.data4[i], 2);
    }
    return text;
}

}  // namespace Ombry::ClientCommunications
