#pragma once

#include <cstdint>
#include <string>

namespace Ombry::Platform {

/// The number of a failure in decimal, as the systems count: some of their numbers fill all 32 bits.
inline std::string ErrorNumber(int error) {
    return std::to_string(static_cast<std::uint32_t>(error));
}

}  // namespace Ombry::Platform
