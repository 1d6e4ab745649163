#include "Platform/SecureWipe.h"

#include <windows.h>

namespace Ombry::Platform {

void SecureWipe(void* memory, std::size_t length) noexcept {
    if (length != 0) SecureZeroMemory(memory, length);
}

}  // namespace Ombry::Platform
