#pragma once

#include "Platform/IClock.h"
#include "tests/Fakes/FakeSecurityFramework.h"
#include "tests/Fakes/Linux/MemoryServer.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <chrono>
#include <optional>

namespace Ombry::Tests {

/// A whole Security Framework service in memory, on the threads of its clients: whatever host and port is
/// connected to, it answers. A wait that nothing ends makes time pass. The sockets are in force while it
/// lives.
class MemorySecurityFramework : public FakeSecurityFramework {
public:
    explicit MemorySecurityFramework(const std::optional<TlsServerRecipe>& tls = std::nullopt)
        : server(
              sockets, [this](const std::string& request) { return Answer(request); }, tls) {
        url = tls ? "https://service" : "http://service";
        sockets.OnIdle([](std::int64_t milliseconds) {
            Platform::Clock().Sleep(std::chrono::milliseconds(milliseconds));
        });
    }

    ScriptedSockets sockets;
    MemoryServer server;

private:
    const Platform::Testing::Replace<Platform::ISockets> replaced{sockets};
};

}  // namespace Ombry::Tests
