#include "OmbryZephCore/ZephHttpClientSocketSyncConnection.h"
#include "OmbryZephCore/ZephSSLManagerProvider.h"
#include "tests/Fakes/FakeSSLConnection.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSockets.h"
#include "tests/OmbryZephCore/HttpConnectionFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

/// Engines of a fake, with a journal of what the assembly asks of their managers.
class EngineProvider : public ZephSSLManagerProviderIf {
public:
    std::unique_ptr<ZephSSLInitializableManagerIf> MakeManager(
        const std::shared_ptr<LibraryLogger::ILogger>& logger, bool bVerbose) override {
        class Manager : public ZephSSLInitializableManagerIf {
        public:
            explicit Manager(EngineProvider& provider) : provider(provider) {}
            ~Manager() override { provider.journal.push_back("manager deleted"); }
            std::uint32_t Initialize(const std::string& targetName, bool bManualValidation,
                                     const ZephCertificateValidator& validator) override {
                provider.journal.push_back("Initialize " + targetName +
                                           (bManualValidation ? " manual" : " platform") +
                                           (validator ? " pinned" : ""));
                return 0;
            }
            void SetSessionScope(const std::string& scope) override { provider.scopes.push_back(scope); }
            ZephSSLConnectionIf* GetConnection() override {
                provider.journal.push_back("GetConnection");
                if (provider.onGetConnection) provider.onGetConnection();
                return provider.engine;
            }
            void ReleaseConnection(ZephSSLConnectionIf* pEngine) override {
                provider.journal.push_back(pEngine == provider.engine ? "ReleaseConnection" : "release?");
            }

        private:
            EngineProvider& provider;
        };
        journal.push_back(bVerbose ? "make verbose" : "make");
        loggerOfLast = logger;
        return std::make_unique<Manager>(*this);
    }

    std::vector<std::string> journal;
    std::vector<std::string> scopes;
    ZephSSLConnectionIf* engine = nullptr;
    std::function<void()> onGetConnection;
    std::shared_ptr<LibraryLogger::ILogger> loggerOfLast;
};

class ZephHttpClientSocketSyncConnectionTest : public ::testing::Test {
protected:
    // Whoever waits for an answer must outlive the stack.
    ~ZephHttpClientSocketSyncConnectionTest() override { connection.reset(); }

    static ZephSorrelConnectionParameters Params(const std::string& host = "host", std::uint16_t nPort = 80) {
        return ZephSorrelConnectionParameters(host, nPort);
    }
    static ZephSorrelConnectionParameters Secure() { return Params().SetUseSSL(true); }

    /// Sends a GET and runs until nothing is pending.
    std::uint32_t Get() {
        ZephHttpClientConnection& http = connection->GetHttpConnection();
        const std::uint32_t nResult =
            http.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
        if (nResult != 0) return nResult;
        return connection->GetSyncIOController().DoPendingIO(15, Cancellation::Token());
    }

    void AnswerWith(const std::string& response) {
        sockets.OnSend([this, response](ScriptedSockets::Handle handle, const std::string&) {
            sockets.Deliver(handle, response);
        });
    }

    /// The peer of a plain connection takes TLS up, puts it down again inside, and answers in clear text.
    void TakeTlsUpAndPutItDown(ScriptedSockets::Handle handle) {
        engine.wants = true;
        engine.output = "hello";
        engine.onShutdown = [this, handle] {
            engine.shutdownComplete = true;
            sockets.Deliver(handle, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
        };
        sockets.OnSend([this, handle](ScriptedSockets::Handle, const std::string& sent) {
            if (sent == "hello") {
                sockets.Deliver(handle, "ciphertext");
                engine.plaintext = "HTTP/1.1 101 Switching\r\nUpgrade: other\r\n\r\n";
            } else {
                sockets.Deliver(handle, "HTTP/1.1 101 Switching\r\nUpgrade: TLS/1.0\r\n\r\n");
            }
        });
    }

    /// The value of the Host header of the first request, to this host.
    std::string HostHeaderFor(const std::string& host, std::uint16_t nPort) {
        EXPECT_EQ(connection->Connect(Params(host, nPort)), 0u);
        const ScriptedSockets::Handle handle = next++;
        AnswerWith("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        EXPECT_EQ(Get(), 0u);
        const std::string sent = sockets.Sent(handle);
        const std::size_t begin = sent.find("Host: ") + 6;
        return sent.substr(begin, sent.find("\r\n", begin) - begin);
    }

    ScriptedSockets sockets;
    FakeSSLConnection engine;
    EngineProvider provider;
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    Platform::Testing::Replace<ZephSSLManagerProviderIf> replacedProvider{provider};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    std::optional<ZephHttpClientSocketSyncConnection> connection{std::in_place, logger, false};
    ScriptedSockets::Handle next = 100;
    std::vector<std::string> log;
    RecordingExchange exchange{log, connection->GetHttpConnection()};
};

TEST_F(ZephHttpClientSocketSyncConnectionTest, BeginsDown) {
    EXPECT_FALSE(connection->IsConnected());
    EXPECT_FALSE(connection->GetHttpConnection().IsOpen());
    connection->Disconnect();
    connection->Disconnect();
    EXPECT_EQ(sockets.Calls().size(), 0u);
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, ConnectsAndCarriesAnExchange) {
    EXPECT_EQ(connection->Connect(Params()), 0u);
    EXPECT_TRUE(connection->IsConnected());
    AnswerWith("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    EXPECT_EQ(Get(), 0u);
    EXPECT_THAT(log, ElementsAre("RequestSent", "Complete 200 ok"));
    EXPECT_EQ(sockets.Sent(100), "GET / HTTP/1.1\r\nHost: host:80\r\nContent-Length: 0\r\n\r\n");
    EXPECT_TRUE(connection->IsConnected());
    EXPECT_FALSE(connection->GetSyncIOController().HasPendingIO()) << "idle means that nothing is pending";
    EXPECT_THAT(provider.journal, IsEmpty()) << "a plain connection never asks for an engine";
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, WithItsHttpStageClosedItCountsAsDown) {
    EXPECT_EQ(connection->Connect(Params()), 0u);
    connection->GetHttpConnection().Close();
    EXPECT_FALSE(connection->IsConnected());
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AnEmptyHostIsAnInvalidArgumentThatTakesTheStackDown) {
    EXPECT_EQ(connection->Connect(Params()), 0u);
    EXPECT_EQ(connection->Connect(Params("")), 5u);
    EXPECT_FALSE(connection->IsConnected());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, ResultsOfTheConnectorAreItsResults) {
    sockets.FailNthCall("GetAddressInfo", 1, -2);
    EXPECT_EQ(connection->Connect(Params()), 14u);
    sockets.FailNthCall("Connect", 1, 111);
    EXPECT_EQ(connection->Connect(Params()), 1u);
    EXPECT_THAT(logger->Messages(3), Contains("Failed to connect to host:80.  Last error = 111"));
    EXPECT_FALSE(connection->IsConnected());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, TheConnectTimeOutAndTheBindAddressReachTheConnector) {
    ZephSorrelConnectionParameters params = Params();
    params.SetConnectTimeout(7).SetBindAddress("192.0.2.9").SetBindPort(4711);
    EXPECT_EQ(connection->Connect(params), 0u);
    EXPECT_THAT(sockets.Calls(), Contains("Bind(100, 192.0.2.9:4711)"));
    EXPECT_THAT(sockets.Calls(), Contains("Select(-, {100}, {100}, 7000)"));
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, WithoutABindAddressNothingIsBound) {
    EXPECT_EQ(connection->Connect(Params()), 0u);
    EXPECT_EQ(sockets.CallsOf("Bind"), 0u);
    EXPECT_THAT(sockets.Calls(), Contains("Select(-, {100}, {100}, 3000)"));
}

struct HostCase {
    const char* host;
    std::uint16_t nPort;
    const char* value;
};

class ZephHttpClientSocketSyncConnectionHostTest : public ZephHttpClientSocketSyncConnectionTest,
                                                   public ::testing::WithParamInterface<HostCase> {};

TEST_P(ZephHttpClientSocketSyncConnectionHostTest, IsWrittenWithItsPortAndWithoutAZone) {
    EXPECT_EQ(HostHeaderFor(GetParam().host, GetParam().nPort), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    All, ZephHttpClientSocketSyncConnectionHostTest,
    ::testing::Values(HostCase{"host", 80, "host:80"}, HostCase{"host", 443, "host:443"},
                      HostCase{"host", 0, "host:0"}, HostCase{"host", 65535, "host:65535"},
                      HostCase{"192.0.2.1", 8080, "192.0.2.1:8080"}, HostCase{"::1", 80, "[::1]:80"},
                      HostCase{"[::1]", 80, "[::1]:80"}, HostCase{"fe80::1%eth0", 80, "[fe80::1]:80"},
                      HostCase{"[fe80::1%eth0]", 80, "[fe80::1]:80"},
                      HostCase{"fe80::1%a%b", 80, "[fe80::1%a]:80"}, HostCase{"a%b", 80, "a%b:80"},
                      HostCase{"a:b]%c]d", 80, "[a:b]]:80"}, HostCase{"[a]%b", 80, "[a]%b:80"}));

TEST_F(ZephHttpClientSocketSyncConnectionTest, DisconnectLeavesNothingOpenPendingOrRegistered) {
    EXPECT_EQ(connection->Connect(Params()), 0u);
    connection->GetHttpConnection().SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    EXPECT_TRUE(connection->GetSyncIOController().HasPendingIO());
    connection->Disconnect();
    EXPECT_FALSE(connection->IsConnected());
    EXPECT_FALSE(connection->GetHttpConnection().IsOpen());
    EXPECT_FALSE(connection->GetSyncIOController().HasPendingIO());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_THAT(log, ElementsAre("RequestSent", "ResponseFailed"));
    EXPECT_EQ(connection->GetSyncIOController().DoPendingIO(1, Cancellation::Token()), 0u);
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, ASecondConnectReplacesAStackWithAnExchangeUnderWay) {
    EXPECT_EQ(connection->Connect(Params()), 0u);
    connection->GetHttpConnection().SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    EXPECT_EQ(connection->Connect(Params("other")), 0u);
    EXPECT_THAT(log, ElementsAre("RequestSent", "ResponseFailed"));
    EXPECT_FALSE(sockets.IsOpen(100));
    EXPECT_FALSE(connection->GetSyncIOController().HasPendingIO());
    log.clear();
    AnswerWith("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    EXPECT_EQ(Get(), 0u);
    EXPECT_THAT(log, ElementsAre("RequestSent", "Complete 200 ok"));
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, ANewSocketWithTheNumberOfTheOldIsServed) {
    for (int i = 0; i < 3; ++i) {
        sockets.SetNextHandle(100);
        EXPECT_EQ(connection->Connect(Params()), 0u);
        log.clear();
        AnswerWith("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
        EXPECT_EQ(Get(), 0u);
        EXPECT_THAT(log, ElementsAre("RequestSent", "Complete 200 ok"));
        connection->Disconnect();
    }
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AFailureTakesTheStackDownFromATaskAndNotFromTheCompletion) {
    EXPECT_EQ(connection->Connect(Params()), 0u);
    bool connectedInside = false;
    sockets.OnSend([this](ScriptedSockets::Handle handle, const std::string&) {
        sockets.Deliver(handle, "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\n1");
    });
    exchange.failing = "Complete";
    exchange.onEnded = [&] { connectedInside = connection->IsConnected(); };
    EXPECT_EQ(Get(), 0u);
    EXPECT_TRUE(connectedInside);
    EXPECT_FALSE(connection->IsConnected()) << "down when the wait is over";
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AResetFailsTheExchangeAndTakesTheStackDown) {
    EXPECT_EQ(connection->Connect(Params()), 0u);
    sockets.Break(100, 104);
    EXPECT_EQ(Get(), 0u);
    EXPECT_THAT(log, ElementsAre("RequestFailed", "ResponseFailed"));
    EXPECT_FALSE(connection->IsConnected());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_EQ(connection->Connect(Params()), 0u);
    EXPECT_TRUE(connection->IsConnected());
}

// --- TLS ---

TEST_F(ZephHttpClientSocketSyncConnectionTest, ASecureConnectionStartsTlsInsideConnectAndSendsThroughIt) {
    provider.engine = &engine;
    engine.output = "client hello";
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    EXPECT_THAT(provider.journal, ElementsAre("make", "Initialize host platform", "GetConnection"));
    EXPECT_EQ(provider.loggerOfLast, logger);
    EXPECT_TRUE(connection->IsConnected());
    EXPECT_EQ(sockets.Sent(100), "") << "nothing moves before the wait";
    engine.onWritePlaintext = [this] { engine.output = ", request"; };
    sockets.OnSend([this](ScriptedSockets::Handle handle, const std::string& bytes) {
        if (!bytes.ends_with(", request")) return;
        sockets.Deliver(handle, "ciphertext");
        engine.plaintext = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
    });
    EXPECT_EQ(Get(), 0u);
    EXPECT_EQ(sockets.Sent(100), "client hello, request");
    EXPECT_EQ(engine.written, "GET / HTTP/1.1\r\nHost: host:80\r\nContent-Length: 0\r\n\r\n");
    EXPECT_THAT(log, ElementsAre("RequestSent", "Complete 200 ok"));
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, EachConnectMakesAManagerAnewAndEachDisconnectDeletesIt) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    connection->Disconnect();
    EXPECT_THAT(provider.journal,
                ElementsAre("make", "Initialize host platform", "GetConnection", "ReleaseConnection",
                            "manager deleted", "make", "Initialize host platform", "GetConnection",
                            "ReleaseConnection", "manager deleted"));
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, ItsEndGivesTheEngineBackBeforeItsManagerGoes) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    provider.journal.clear();
    connection.reset();
    EXPECT_THAT(provider.journal, ElementsAre("ReleaseConnection", "manager deleted"));
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

struct RuleCase {
    std::int32_t nMode;
    const char* line;
};

class ZephHttpClientSocketSyncConnectionRuleTest : public ZephHttpClientSocketSyncConnectionTest,
                                                   public ::testing::WithParamInterface<RuleCase> {};

TEST_P(ZephHttpClientSocketSyncConnectionRuleTest, ReachesTheEngine) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Secure().SetCertificateValidation({GetParam().nMode, "AAAA"})), 0u);
    EXPECT_EQ(provider.journal[1], GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(All, ZephHttpClientSocketSyncConnectionRuleTest,
                         ::testing::Values(RuleCase{0, "Initialize host manual"},
                                           RuleCase{1, "Initialize host platform"},
                                           RuleCase{2, "Initialize host manual pinned"}));

TEST_F(ZephHttpClientSocketSyncConnectionTest, TlsSessionsAreSharedByEqualParametersAndByNoOthers) {
    provider.engine = &engine;
    const auto pinned = [](const std::string& host, const std::string& bindAddress,
                           const std::string& certificate, std::uint16_t nPort = 80) {
        return Params(host, nPort)
            .SetUseSSL(true)
            .SetBindAddress(bindAddress)
            .SetCertificateValidation({ValidateByPublicKey, certificate});
    };
    const std::vector<ZephSorrelConnectionParameters> different = {
        pinned("a", "b", "cAAAA"),
        pinned("ab", "c", "AAAA"),  // the same letters, cut elsewhere
        pinned("a", "bc", "AAAA"),
        pinned("a", "b", "cAAAB"),
        pinned("a", "d", "cAAAA"),
        pinned("d", "b", "cAAAA"),
        pinned("a", "b", "cAAAA", 81),
        pinned("a", "b", "cAAAA").SetBindPort(80),
        pinned("a", "b", "cAAAA").SetConnectTimeout(80),
    };
    for (int i = 0; i < 2; ++i) {
        for (const ZephSorrelConnectionParameters& params : different)
            EXPECT_EQ(connection->Connect(params), 0u);
    }
    const auto second = provider.scopes.begin() + static_cast<std::ptrdiff_t>(different.size());
    EXPECT_EQ(std::vector(provider.scopes.begin(), second), std::vector(second, provider.scopes.end()));
    EXPECT_EQ(std::set<std::string>(provider.scopes.begin(), second).size(), different.size());
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, WithoutAnEngineConnectSucceedsAndTheExchangeFails) {
    EXPECT_EQ(connection->Connect(Secure()), 0u) << "the result of the start of TLS is not looked at";
    EXPECT_TRUE(connection->IsConnected());
    EXPECT_EQ(Get(), 0u);
    EXPECT_THAT(log, ElementsAre("RequestSent", "ResponseFailed"));
    EXPECT_EQ(sockets.Sent(100), "") << "nothing travels in clear text";
    EXPECT_FALSE(connection->IsConnected()) << "the task that was scheduled took the stack down";
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AConnectCancelsTheTaskThatWouldTakeTheStackDown) {
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    EXPECT_TRUE(connection->GetSyncIOController().HasPendingIO()) << "TLS failed and asks to go down";
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    EXPECT_EQ(connection->GetSyncIOController().HasPendingIO(), false);
    EXPECT_TRUE(connection->IsConnected());
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, ADisconnectCancelsTheTaskThatWouldTakeTheStackDown) {
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    connection->Disconnect();
    EXPECT_FALSE(connection->GetSyncIOController().HasPendingIO());
    EXPECT_EQ(connection->Connect(Params()), 0u);
    EXPECT_EQ(connection->GetSyncIOController().DoPendingIO(15, Cancellation::Token()), 0u);
    EXPECT_TRUE(connection->IsConnected());
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, TwoFatalErrorsScheduleOneTask) {
    connection.emplace(logger, true);
    EXPECT_EQ(connection->Connect(Params()), 0u);
    RecordingExchange second(log, connection->GetHttpConnection());
    connection->GetHttpConnection().SendRequest("GET", "/", false, &second, &second, nullptr, false, 0);
    // The wait fails both the read and the write.
    sockets.FailNthCall("Select", 1, 22);
    EXPECT_EQ(connection->GetSyncIOController().DoPendingIO(15, Cancellation::Token()), 0u);
    const auto messages = logger->Messages(0);
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                            [](const std::string& m) { return m.starts_with("Scheduling user task"); }),
              1);
    EXPECT_FALSE(connection->IsConnected());
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AfterTlsEndedNothingTravelsInClearText) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    engine.shuttingDown = true;
    engine.shutdownComplete = true;
    engine.shutdownResults = {1, 1};
    sockets.Deliver(100, "close alert");
    EXPECT_EQ(Get(), 11u);
    EXPECT_EQ(sockets.Sent(100), "");
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AnUpgradeToTlsStartsTheEngineOnThePlainConnection) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Params()), 0u);
    AnswerWith("HTTP/1.1 101 Switching\r\nUpgrade: TLS/1.0\r\n\r\n");
    sockets.OnIdle([this](std::int64_t) { sockets.CloseByPeer(100); });
    EXPECT_EQ(Get(), 0u);
    EXPECT_THAT(provider.journal, Contains("GetConnection"));
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, APlainConnectionThatTookTlsUpAndPutItDownGoesOnInClearText) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Params()), 0u);
    TakeTlsUpAndPutItDown(100);
    EXPECT_EQ(Get(), 0u);
    EXPECT_THAT(log, ElementsAre("RequestSent", "Complete 200 ok"));
    EXPECT_THAT(provider.journal, Contains("ReleaseConnection"));
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, WhetherTlsIsOnIsWhatTheParametersOrTheServerAskedForLast) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Params()), 0u);
    EXPECT_FALSE(connection->IsSSLEnabled());
    TakeTlsUpAndPutItDown(100);
    std::vector<bool> meanwhile;
    engine.onReadPlaintext = [&] { meanwhile.push_back(connection->IsSSLEnabled()); };
    EXPECT_EQ(Get(), 0u);
    EXPECT_THAT(meanwhile, AllOf(Not(IsEmpty()), Each(true)));
    EXPECT_FALSE(connection->IsSSLEnabled());
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    EXPECT_TRUE(connection->IsSSLEnabled());
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, APlainConnectionDoesNotInheritTheSecrecyOfTheOneBefore) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    EXPECT_EQ(connection->Connect(Params()), 0u);
    TakeTlsUpAndPutItDown(101);
    EXPECT_EQ(Get(), 0u);
    EXPECT_THAT(log, ElementsAre("RequestSent", "Complete 200 ok"));
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AChangeToAnotherProtocolStopsTlsAndWaitsForThePeer) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    engine.output = "hello";
    engine.wants = true;
    engine.onWritePlaintext = [this] { engine.output = "request"; };
    sockets.OnSend([this](ScriptedSockets::Handle handle, const std::string& bytes) {
        if (!bytes.ends_with("request")) return;
        sockets.OnSend(nullptr);
        sockets.Deliver(handle, "ciphertext");
        engine.plaintext = "HTTP/1.1 101 Switching\r\nUpgrade: other\r\n\r\n";
    });
    sockets.OnIdle([this](std::int64_t) { sockets.CloseByPeer(100); });
    EXPECT_EQ(Get(), 0u);
    EXPECT_THAT(engine.waits, Contains(true));
    EXPECT_FALSE(connection->IsConnected());
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, VerbosityReachesTheStagesAndTheEngine) {
    provider.engine = &engine;
    connection.emplace(logger, true);
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    EXPECT_EQ(provider.journal.front(), "make verbose");
    EXPECT_THAT(engine.verbose, Contains(true));
    const auto messages = logger->Messages(0);
    EXPECT_THAT(messages, Contains("Initialization succeeded.  sessionid = 0")) << "the TLS stage";
    connection->GetHttpConnection().SendRequest("GET", "/", false, nullptr, nullptr, nullptr, false, 0);
    EXPECT_THAT(logger->Messages(0), Contains(::testing::StartsWith("Scheduling user task")))
        << "the reactor";
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AtRestTheHttpStageHoldsNoMemory) {
    EXPECT_EQ(connection->Connect(Params()), 0u);
    AnswerWith("HTTP/1.1 204 N\r\n\r\n");
    EXPECT_EQ(Get(), 0u);
    connection->ReleaseIdleMemory();
    const ReplacedAllocator counted(&CountAllocation);
    allocationsCounted = 0;
    EXPECT_EQ(Get(), 0u);
    EXPECT_EQ(allocationsCounted, 2);
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AtRestTheEngineIsToldToHoldNoMemory) {
    provider.engine = &engine;
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    connection->ReleaseIdleMemory();
    EXPECT_EQ(engine.idleReleases, 1);
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AnAllocationThatFailsTakesEverythingBackDown) {
    {
        const ReplacedAllocator refused(&RefuseEveryAllocation);
        EXPECT_EQ(connection->Connect(Params()), 3u);
    }
    EXPECT_FALSE(connection->IsConnected());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    sockets.SetNextHandle(100);
    EXPECT_EQ(connection->Connect(Params()), 0u) << "the number of the closed socket is free again";
    EXPECT_TRUE(connection->IsConnected());
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, ASocketStageThatCannotBeSetUpLeavesNoSocketOpen) {
    auto& manager = dynamic_cast<ZephIOTaskManagerIf&>(connection->GetSyncIOController());
    EXPECT_EQ(manager.RegisterForIOCompletion(100, &connection->GetHttpConnection()), 0u);
    EXPECT_EQ(connection->Connect(Secure()), eRC_IO_HandleAlreadyRegistered);
    EXPECT_FALSE(connection->IsConnected());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_THAT(provider.journal, IsEmpty()) << "no TLS over a socket that nobody serves";
    EXPECT_EQ(connection->Connect(Params()), 0u);
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AnHttpStageThatCannotBeSetUpTakesEverythingBackDown) {
    provider.engine = &engine;
    engine.wants = true;
    // The first read of the handshake, which the HTTP stage sets going, finds its handle gone.
    auto& manager = dynamic_cast<ZephIOTaskManagerIf&>(connection->GetSyncIOController());
    provider.onGetConnection = [&] { EXPECT_EQ(manager.UnRegisterForIOCompletion(100), 1u); };
    EXPECT_EQ(connection->Connect(Secure()), eRC_IO_HandleNotRegistered);
    EXPECT_FALSE(connection->IsConnected());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_THAT(provider.journal, ElementsAre("make", "Initialize host platform", "GetConnection",
                                              "ReleaseConnection", "manager deleted"));
    provider.onGetConnection = nullptr;
    EXPECT_EQ(connection->Connect(Secure()), 0u);
    EXPECT_TRUE(connection->IsConnected());
}

TEST_F(ZephHttpClientSocketSyncConnectionTest, AnyFailingSocketCallLeavesAStackThatConnectsAgain) {
    for (std::size_t n = 1; n < 25; ++n) {
        sockets.ClearCalls();
        log.clear();
        sockets.FailNthCall(n, 5);
        if (connection->Connect(Params()) == 0) {
            AnswerWith("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
            Get();
            sockets.OnSend(nullptr);
        }
        connection->Disconnect();
        EXPECT_EQ(sockets.OpenSockets(), 0u) << n;
        EXPECT_FALSE(connection->GetSyncIOController().HasPendingIO()) << n;
        sockets.ClearCalls();
        EXPECT_EQ(connection->Connect(Params()), 0u) << n;
        connection->Disconnect();
    }
}

}  // namespace
}  // namespace Ombry::Tests
