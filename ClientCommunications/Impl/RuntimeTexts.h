#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Ombry::ClientCommunications {

// The standard library of the platform that the system was designed on words some failures in its own way,
// and users and scripts know those words. They are produced here, by hand, so that they read the same
// everywhere.

/// "bad function call", for an empty callable at the moment of its first call.
class BadFunctionCall : public std::bad_function_call {
public:
    const char* what() const noexcept override { return "bad function call"; }
};

/// Throws `std::out_of_range` with "invalid map<K, T> key".
[[noreturn]] void ThrowInvalidMapKey();

/// Throws `std::out_of_range` with "invalid string position".
[[noreturn]] void ThrowInvalidStringPosition();

/// Throws `std::filesystem::filesystem_error` for "create_directories", with the error number of the system.
[[noreturn]] void ThrowCreateDirectoriesFailed(const std::string& path, int error);

/// A decimal number by the rules of `std::stoul` with a 32-bit result: leading white space and a sign are
/// taken, a negative number wraps, text behind the digits is ignored. Throws `std::invalid_argument` with
/// "invalid stoul argument" or `std::out_of_range` with "stoul argument out of range".
std::uint32_t ParseUnsigned32(const std::string& text);

/// Calls `callback` with each pair; an empty callback fails only once there is a pair.
template <class Pairs, class Callback>
void ForEachPair(const Pairs& pairs, const Callback& callback) {
    for (const auto& [first, second] : pairs) {
        if (!callback) throw BadFunctionCall();
        callback(first, second);
    }
}

}  // namespace Ombry::ClientCommunications
