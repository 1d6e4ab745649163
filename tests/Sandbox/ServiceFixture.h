#pragma once

#include "Sandbox/Service.h"
#include "tests/Fakes/LoopbackPeer.h"
#include "tests/Sandbox/CallsFixture.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>

namespace Ombry::Tests::SandboxService {

/// Between two looks at a connection or of a stop.
constexpr auto HangUpInterval = std::chrono::milliseconds(100);

/// The service in this process, asked over loopback.
class SandboxServiceTest : public SandboxCallsTest {
protected:
    SandboxServiceTest() { testing::internal::CaptureStderr(); }
    ~SandboxServiceTest() override {
        Stop();
        testing::internal::GetCapturedStderr();
    }

    void Start(const Words& words = {}) {
        TakeOptions(words);
        askedBasePath = options.basePath;
        service = std::make_unique<Sandbox::Service>(options, identity, state);
        port = service->Bind();
        thread = std::thread([this] { service->Serve(); });
    }

    /// Calls `meanwhile` over and over until the service has stopped.
    void Stop(const std::function<void()>& meanwhile = [] {}) {
        if (!thread.joinable()) return;
        auto stopped = std::async(std::launch::async, [this] { service->Stop(); });
        // Its rounds are as long as this clock says.
        while (stopped.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
            meanwhile();
            clock.Advance(std::chrono::milliseconds(100));
        }
        thread.join();
    }

    Answer Ask(const Question& question) override {
        httplib::Client client(options.address, port);
        client.set_read_timeout(120);
        httplib::Request request = RequestOf(question);
        request.path = askedBasePath + question.path;
        const httplib::Result result = client.send(request);
        return result ? Answer{result->status, result->body, result->headers} : Answer{};
    }

    /// How often a thread of the service has waited for this long; the heart-beat of the service waits as
    /// well.
    std::size_t CountOfWaits(Duration length) {
        const std::vector<Duration> waits = clock.Waits();
        return static_cast<std::size_t>(std::count(waits.begin(), waits.end(), length));
    }
    void AwaitWaits(Duration length, std::size_t count) {
        for (std::size_t all = count; CountOfWaits(length) < count; ++all)
            clock.AwaitWaits(all);
    }

    /// A connection that this test writes to itself, from 127.0.0.`host` and this port, if any.
    LoopbackPeer Connect(std::uint32_t host = 1, int from = 0) {
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const auto end = [](std::uint32_t number, int ofPort) {
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl((127u << 24) + number);
            address.sin_port = htons(static_cast<std::uint16_t>(ofPort));
            return address;
        };
        const sockaddr_in own = end(host, from), other = end(1, port);
        EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
        EXPECT_EQ(connect(descriptor, reinterpret_cast<const sockaddr*>(&other), sizeof other), 0);
        sockaddr_in bound{};
        socklen_t length = sizeof bound;
        EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&bound), &length), 0);
        lastFrom = ntohs(bound.sin_port);
        return LoopbackPeer(descriptor);
    }
    /// The status line of an answer to these bytes, and all that follows on the connection.
    std::string Raw(const std::string& bytes) {
        LoopbackPeer peer = Connect();
        peer.Send(bytes);
        return peer.Receive(1 << 20);
    }

    /// What `Ask` puts before each path. The service reads its options as long as it runs.
    std::string askedBasePath;
    std::unique_ptr<Sandbox::Service> service;
    int port = 0;
    int lastFrom = 0;  ///< the port that the last connection was made from
    std::thread thread;
};

inline std::string RequestFor(const std::string& path) {
    return "GET /b" + path + " HTTP/1.1\r\nConnection: close\r\n\r\n";
}

/// One of each, as somebody asks who knows nothing, and what the answer is where datacenters need a token.
inline std::vector<std::pair<Question, int>> EveryCall() {
    return {
        {{.path = Datacenters}, 401},
        {{.method = "POST", .path = UserTokens}, 401},
        {{.method = "POST", .path = ClientTokens}, 401},
        {{.method = "POST", .path = Clients}, 401},
        {{.method = "DELETE", .path = "/v1/auth/clients"}, 401},
        {{.method = "DELETE", .path = "/v1/auth/clients/x"}, 401},
        {{.method = "POST", .path = Services}, 401},
        {{.method = "DELETE", .path = Services + "/x"}, 401},
        {{.path = "/services/services/nonsecure/name/ssds"}, 200},
        {{.path = "/services/service/secure/id/x"}, 401},
        {{.method = "POST", .path = "/sandbox/faults"}, 401},
    };
}

}  // namespace Ombry::Tests::SandboxService
