#pragma once

#include "tests/Fakes/LoopbackServer.h"

#include <atomic>
#include <functional>
#include <optional>
#include <string>

namespace Ombry::Tests {

/// The value of a header of a request as it came over the wire; "-" if it is absent.
inline std::string HeaderOf(const std::string& request, const std::string& name) {
    const std::size_t at = request.find("\r\n" + name + ": ");
    if (at == std::string::npos) return "-";
    const std::size_t begin = at + name.size() + 4;
    return request.substr(begin, request.find("\r\n", begin) - begin);
}

/// What a whole Security Framework service answers, whatever brings the requests: it discovers itself for
/// every name, as service "s" with the id "i", hands out "token-1", "token-2" and so on, and grants every
/// enrolment and every deletion. "/refused" is answered with 401, "/busy" with 503. A test may have the first
/// word through `first`. Any thread may ask.
class FakeSecurityFramework {
public:
    std::string Answer(const std::string& request) {
        if (first) {
            if (const auto answer = first(request)) return *answer;
        }
        if (request.starts_with("GET /services/")) return LoopbackServer::Response(Found());
        if (request.find("/servicetokens HTTP") != std::string::npos) {
            return LoopbackServer::Response("{\"token_type\": \"bearer\", \"access_token\": \"token-" +
                                            std::to_string(++tokens) +
                                            "\", \"expires_in\": 3600, \"scope\": \"\"}");
        }
        if (request.starts_with("GET /refused ")) return LoopbackServer::Response("", "401 Unauthorized");
        if (request.starts_with("GET /busy ")) return LoopbackServer::Response("", "503 Unavailable");
        if (request.starts_with("POST ")) return LoopbackServer::Response("", "201 Created");
        if (request.starts_with("DELETE /v1/auth/")) return "HTTP/1.1 204 No Content\r\n\r\n";
        return LoopbackServer::Response("done");
    }

    // Set before the first request:
    std::string url;  ///< its own address
    /// What a request is answered with, unless it is nothing; called on whatever thread brings the request.
    std::function<std::optional<std::string>(const std::string& request)> first;
    std::string partner;  ///< address of a second instance, with the id "j"

private:
    std::string Found() const {
        const std::string other =
            partner.empty() ? "" : ", {\"id\": \"j\", \"endpointUrl\": \"" + partner + "\"}";
        return "{\"expiryTime\": 1600000300, \"local\": [{\"serviceHostname\": \"h\", "
               "\"serviceNamespace\": \"n\", \"id\": \"i\", \"serviceName\": \"s\", \"endpointUrl\": \"" +
               url +
               "\", \"endpointCert\": \"\", \"properties\": "
               "[{\"key\": \"AaSigningCert\", \"value\": \"signer\"}]}" +
               other + "], \"remote\": []}";
    }

    std::atomic<int> tokens{0};
};

}  // namespace Ombry::Tests
