// Any text decodes without a failure into at most three bytes for each four characters begun. What was
// encoded decodes to itself, and text behind the sign that ends it changes nothing.

#include "ClientCommunications/Impl/Base64.h"
#include "fuzz/Require.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using Ombry::ClientCommunications::Base64Decode;
using Ombry::ClientCommunications::Base64Encode;
using Ombry::Fuzz::Require;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string decoded = Base64Decode(text);
    Require(decoded.size() <= (size + 3) / 4 * 3);
    Require(decoded.empty() == text.empty());

    const std::string encoded = Base64Encode(text);
    Require(encoded.size() == (size + 2) / 3 * 4);
    Require(encoded.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=") ==
            std::string::npos);
    Require(Base64Decode(encoded) == text);
    if (encoded.ends_with('=')) Require(Base64Decode(encoded + text) == text);
    return 0;
}
