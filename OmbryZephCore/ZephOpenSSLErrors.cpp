#include "OmbryZephCore/ZephOpenSSLErrors.h"

#include <openssl/err.h>

#include <array>

namespace OmbryZephCore {

std::string TakeOpenSSLErrors() {
    std::string text;
    while (const unsigned long error = ERR_get_error()) {
        std::array<char, 256> line{};
        ERR_error_string_n(error, line.data(), line.size());
        if (!text.empty()) text += "; ";
        text += line.data();
    }
    return text.empty() ? "no error recorded" : text;
}

}  // namespace OmbryZephCore
