#pragma once

namespace Ombry::Platform {

/// Starts OpenSSL without its configuration file, so that neither an environment variable nor a file of the
/// system changes what the program promises, and without its clean-up when the process ends, which would pull
/// it from under threads and connections that are still alive. Whoever uses OpenSSL calls this before its
/// first call; calls after the first cost nothing. Any thread may call it. In a program that starts OpenSSL
/// by itself before, it is too late for either.
void InitializeOpenSSL() noexcept;

}  // namespace Ombry::Platform
