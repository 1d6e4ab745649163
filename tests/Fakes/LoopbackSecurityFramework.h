#pragma once

#include "tests/Fakes/FakeSecurityFramework.h"

#include <string>
#include <vector>

namespace Ombry::Tests {

/// A whole Security Framework service behind one address on loopback, for tests of what goes out and in which
/// order.
class LoopbackSecurityFramework : public FakeSecurityFramework {
public:
    LoopbackSecurityFramework()
        : server(
              LoopbackServer::AnsweringWith([this](const std::string& request) { return Answer(request); })) {
        url = server.Url();
    }

    /// For each request "METHOD target AUTHORIZATION", and its body behind that if there is one.
    std::vector<std::string> Summaries() const {
        std::vector<std::string> summaries;
        for (const std::string& request : server.Requests())
            summaries.push_back(Summary(request));
        return summaries;
    }

private:
    static std::string Summary(const std::string& request) {
        const std::string body = request.substr(request.find("\r\n\r\n") + 4);
        return request.substr(0, request.find(" HTTP/1.1")) + " " + HeaderOf(request, "Authorization") +
               (body.empty() ? "" : " " + body);
    }

public:
    LoopbackServer server;  // last: its threads end before what they use
};

}  // namespace Ombry::Tests
