#pragma once

#include <cstddef>
#include <string>

namespace Ombry::Platform {

/// Overwrites memory that held a secret, by a call that the optimiser cannot remove.
void SecureWipe(void* memory, std::size_t length) noexcept;

/// Overwrites the characters of a string in place; the length stays.
inline void SecureWipe(std::string& text) noexcept {
    SecureWipe(text.data(), text.size());
}

}  // namespace Ombry::Platform
