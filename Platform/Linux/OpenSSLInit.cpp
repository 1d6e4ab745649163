#include "Platform/Linux/OpenSSLInit.h"

#include <openssl/crypto.h>

namespace Ombry::Platform {

void InitializeOpenSSL() noexcept {
    static const int started =
        OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT, nullptr);
    static_cast<void>(started);  // a library that did not start fails every later call by itself
}

}  // namespace Ombry::Platform
