#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Ombry::Bench {

/// Where to, and what the server has to prove.
struct Target {
    std::uint16_t port = 0;
    std::string certificate;  ///< Base64 text of the DER certificate
    std::string pin;          ///< the same key as libcurl takes it
};

/// Whether a new connection proves the server's key anew.
enum class Handshake { Full, Resumed };

/// One of the clients that are compared. Each holds one connection that it keeps alive, checks the server
/// by its public key alone, leaves Nagle's algorithm off, and throws `std::runtime_error` if an exchange ends
/// with anything but 200 or 204.
class HttpClient {
public:
    virtual ~HttpClient() = default;
    /// Returns the number of body bytes.
    virtual std::uint64_t Get(const std::string& path) = 0;
    virtual void Post(const std::string& path, const std::string& body) = 0;
    /// A GET on a connection made for it. Beast and both of OpenSSL make a full handshake in either case.
    virtual void GetAnew(const std::string& path, Handshake handshake) = 0;
};

/// `ZephSorrelSyncHttpClient` over a `ZephSorrelSyncConnectionPool`, one client object for all requests.
std::unique_ptr<HttpClient> MakeOmbryClient(const Target& target);

/// One easy handle of libcurl for all requests.
std::unique_ptr<HttpClient> MakeCurlClient(const Target& target);

/// Boost.Beast over Boost.Asio's TLS stream, with blocking calls.
std::unique_ptr<HttpClient> MakeBeastClient(const Target& target);

/// OpenSSL on a blocking socket, which parses no answer but the first of each path: what nobody can undercut.
std::unique_ptr<HttpClient> MakeOpenSSLClient(const Target& target);

/// The same over a socket that is waited for and read as our client does: what the steps that bind it cost.
std::unique_ptr<HttpClient> MakeSteppedOpenSSLClient(const Target& target);

/// "ours", "libcurl", "Beast", "OpenSSL alone" or "OpenSSL in our steps"; throws `std::runtime_error` for
/// another name.
std::unique_ptr<HttpClient> MakeClient(const std::string& name, const Target& target);

}  // namespace Ombry::Bench
