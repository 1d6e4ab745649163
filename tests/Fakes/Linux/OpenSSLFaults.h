#pragma once

#include <string>

namespace Ombry::Tests {

/// While it lives, one call of the calling thread to a function of the TLS library fails: so many pass, the
/// next one fails and leaves that many errors in the queue, with the reasons 1, 2 and so on.
/// `OpenSSLFaults.cpp` says which functions can fail. One at a time.
class OpenSSLFault {
public:
    explicit OpenSSLFault(const std::string& function, int passing = 0, int errors = 1);
    ~OpenSSLFault();
    OpenSSLFault(const OpenSSLFault&) = delete;
    OpenSSLFault& operator=(const OpenSSLFault&) = delete;

    /// Whether the call has come.
    bool Happened() const;
};

/// While it lives, the TLS library names these two as the platform's certificate authorities.
class DefaultAuthorities {
public:
    DefaultAuthorities(const std::string& file, const std::string& directory);
    ~DefaultAuthorities();
    DefaultAuthorities(const DefaultAuthorities&) = delete;
    DefaultAuthorities& operator=(const DefaultAuthorities&) = delete;
};

}  // namespace Ombry::Tests
