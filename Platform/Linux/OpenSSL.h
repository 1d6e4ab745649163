#pragma once

#include "Platform/Linux/OpenSSLInit.h"
#include "Platform/Result.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <cerrno>
#include <memory>

namespace Ombry::Platform::Linux {

template <auto Free>
struct Freer {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};

template <class T, auto Free>
using Owned = std::unique_ptr<T, Freer<Free>>;

/// The failure to report for an OpenSSL call that failed. Its queue of errors is emptied: an entry that
/// stayed would be taken for the error of whatever TLS call this thread makes next.
inline Result OpenSSLFailure(int error = EIO) {
    ERR_clear_error();
    return Result::Failure(error);
}

}  // namespace Ombry::Platform::Linux
