#include "Platform/SecureWipe.h"

#include <string.h>

namespace Ombry::Platform {

void SecureWipe(void* memory, std::size_t length) noexcept {
    if (length != 0) explicit_bzero(memory, length);
}

}  // namespace Ombry::Platform
