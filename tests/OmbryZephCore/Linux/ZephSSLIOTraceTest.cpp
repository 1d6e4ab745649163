#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "tests/Fakes/AllocationCount.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <optional>
#include <string>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;

// On Linux alone: what links the tests for Windows loses how to unwind the standard library's own code, in
// which some of these allocations fail.
TEST(ZephSSLIOTraceTest, WhereThereIsNoMemoryForATraceTheProcessGoesOn) {
    class Wanting : public LibraryLogger::ILogger {
        bool IsEnabled(int) override { return true; }
        void Log(const char*, int, const char*, int, const std::string&) override {}
    };
    ScriptedSockets sockets;
    const Platform::Testing::Replace<Platform::ISockets> replaced(sockets);
    bool failed = true;
    for (std::size_t n = 1; failed; ++n) {
        std::optional<ZephSorrelSyncHttpClient> client;
        client.emplace(std::make_shared<Wanting>(), true, ZephSorrelConnectionParameters("host", 1), nullptr);
        sockets.OnSend([&](ScriptedSockets::Handle handle, const std::string&) {
            sockets.Deliver(handle, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        });
        const FailingAllocation failing(n);
        try {
            const std::uint32_t nResult = client->DoRequest("GET", "/");
            EXPECT_TRUE(nResult == 0 || failing.Failed()) << n;
        } catch (const std::bad_alloc&) {
        }
        client.reset();
        failed = failing.Failed();
        sockets.ClearCalls();
    }
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

}  // namespace
}  // namespace Ombry::Tests
