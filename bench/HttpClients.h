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

/// One of the two clients that are compared. Both hold one connection that they keep alive, check the server
/// by its public key alone, leave Nagle's algorithm off, and throw `std::runtime_error` if an exchange ends
/// with anything but 200 or 204.
class HttpClient {
public:
    virtual ~HttpClient() = default;
    /// Returns the number of body bytes.
    virtual std::uint64_t Get(const std::string& path) = 0;
    virtual void Post(const std::string& path, const std::string& body) = 0;
    /// A GET on a connection made for it, without a session to resume.
    virtual void GetAnew(const std::string& path) = 0;
};

/// `ZephSorrelSyncHttpClient` over a `ZephSorrelSyncConnectionPool`, one client object for all requests.
std::unique_ptr<HttpClient> MakeOmbryClient(const Target& target);

/// One easy handle of libcurl for all requests.
std::unique_ptr<HttpClient> MakeCurlClient(const Target& target);

}  // namespace Ombry::Bench
