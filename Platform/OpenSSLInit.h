#pragma once

namespace Ombry::Platform {

/// Starts OpenSSL without its configuration file, so that neither an environment variable nor a file of the
/// system changes what the program promises. Whoever uses OpenSSL calls this before its first call; calls
/// after the first cost nothing. Any thread may call it.
void InitializeOpenSSL() noexcept;

}  // namespace Ombry::Platform
