#pragma once

#include "Platform/Result.h"

// Whatever needs a header of the system's comes here first: the others count on this one, and on what it is
// told.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#define SECURITY_WIN32

#include <windows.h>

namespace Ombry::Platform::Windows {

/// The failure of the call that this thread made last. Some of the system's numbers have the highest bit set;
/// they keep their bits, and are negative.
inline Result LastError() {
    return Result::Failure(static_cast<int>(GetLastError()));
}

}  // namespace Ombry::Platform::Windows
