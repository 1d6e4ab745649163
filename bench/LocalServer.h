#pragma once

#include "bench/Measurement.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace Ombry::Bench {

/// nginx over TLS on loopback, in one process, with a certificate made for it. It keeps connections alive and
/// writes no log.
///
///   GET  /small      a file of 200 bytes
///   GET  /size-N     a file of that size, one of `Sizes`
///   GET  /large      a file of 100 MB
///   GET  /length     how many bytes the request had, in digits
///   POST /submit     reads the body and answers 204
class LocalServer {
public:
    static constexpr std::uint64_t LargeBytes = 100'000'000;
    static constexpr std::array<std::uint64_t, 7> Sizes{200,    1'000,   4'000,    16'000,
                                                        64'000, 256'000, 1'000'000};

    LocalServer();

    std::uint16_t Port() const { return port; }
    /// Base64 text of the DER certificate, as the validation by public key takes it.
    const std::string& Certificate() const { return certificate; }
    /// SHA-256 of the public key in the form that libcurl takes.
    const std::string& PublicKeyPin() const { return pin; }

private:
    TemporaryFolder folder;
    std::uint16_t port;
    std::string certificate;
    std::string pin;
    std::unique_ptr<Background> process;
};

/// SHA-256 of the public key of a certificate in a PEM file, in the form that libcurl takes.
std::string PublicKeyPinOf(const std::string& certificateFile);

/// A port of the loopback address that nobody listened on a moment ago.
std::uint16_t FreePort();

/// Waits until somebody listens; throws `std::runtime_error` if that takes too long.
void WaitForPort(std::uint16_t port);

}  // namespace Ombry::Bench
