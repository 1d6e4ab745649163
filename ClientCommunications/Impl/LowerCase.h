#pragma once

#include <algorithm>
#include <string>

namespace Ombry::ClientCommunications {

/// ASCII letters alone, whatever the locale: what is compared and sent does not depend on where it runs.
constexpr char LowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return LowerCase(c); });
    return text;
}

}  // namespace Ombry::ClientCommunications
