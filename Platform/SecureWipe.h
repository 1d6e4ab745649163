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

/// Puts a value into the place of a secret, which it wipes; `held` and `value` may be one. `std::bad_alloc`
/// leaves `held` as it was.
inline void ReplaceSecret(std::string& held, const std::string& value) {
    if (&held == &value) return;
    if (held.empty()) {
        held = value;
        return;
    }
    std::string fresh = value;
    held.swap(fresh);
    SecureWipe(fresh);
}

/// Wipes a string that held a secret when the scope is left.
class ScopedWipe {
public:
    explicit ScopedWipe(std::string& text) : text(text) {}
    ~ScopedWipe() { SecureWipe(text); }
    ScopedWipe(const ScopedWipe&) = delete;
    ScopedWipe& operator=(const ScopedWipe&) = delete;

private:
    std::string& text;
};

}  // namespace Ombry::Platform
