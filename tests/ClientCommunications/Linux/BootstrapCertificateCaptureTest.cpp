#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "OmbryZephCore/ZephSSLManagerProvider.h"
#include "OmbryZephCore/ZephSocketConnector.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FaultyCertificates.h"
#include "tests/Fakes/HeldPort.h"
#include "tests/Fakes/Linux/MemoryServer.h"
#include "tests/Fakes/LoopbackPeer.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gmock/gmock.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <thread>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using OmbryZephCore::ZephIOBuffer;
using OmbryZephCore::ZephSorrelConnectionParameters;
using testing::ElementsAre;
using testing::IsEmpty;

std::string TextOf(ZephIOBuffer& buffer) {
    if (buffer.GetLength() == 0) return "";
    return std::string(reinterpret_cast<const char*>(buffer.GetData()), buffer.GetLength());
}

TlsServerRecipe Showing(const CertificateRecipe& recipe) {
    TlsServerRecipe server;
    server.certificate = MakeCertificate(recipe);
    server.key = recipe.key;
    return server;
}

class BootstrapCertificateCaptureTest : public testing::Test {
protected:
    std::string Capture() { return getCertificateByConnecting(buffer, logger, connection, false); }

    std::string FailureOfCapture() {
        try {
            Capture();
            return "no failure";
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
    }

    /// The server answers no request: it is only asked to shake hands.
    void Serve(const std::optional<TlsServerRecipe>& recipe) {
        server.emplace(
            sockets, [](const std::string&) { return "HTTP/1.1 500 Unexpected\r\n\r\n"; }, recipe);
    }

    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    ScriptedSockets sockets;
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    std::optional<MemoryServer> server;
    const std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    ZephIOBuffer buffer{4096, 0x1000000};
    ZephSorrelConnectionParameters connection{"server.test", 8181};
};

TEST_F(BootstrapCertificateCaptureTest, GivesTheServersCertificateAsDerAndAsBase64WithoutLineBreaks) {
    const TlsServerRecipe recipe = Showing({});
    Serve(recipe);

    const std::string text = Capture();

    EXPECT_EQ(TextOf(buffer), DerOf(recipe.certificate));
    EXPECT_EQ(text, Base64Of(DerOf(recipe.certificate)));
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
    EXPECT_THAT(server->serverNames, ElementsAre("server.test"));
    EXPECT_THAT(server->requests, IsEmpty());
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    EXPECT_EQ(sockets.LibraryReferences(), 0);
}

TEST_F(BootstrapCertificateCaptureTest, AcceptsEveryCertificateSinceThisIsTheMomentOfFirstTrust) {
    CertificateRecipe expired, future, wrongName, unsignedByKnown, elliptic;
    expired.validFromSeconds = -200000;
    expired.validToSeconds = -100000;
    future.validFromSeconds = 100000;
    future.validToSeconds = 200000;
    wrongName.commonName = "somebody.else";
    wrongName.alternativeNames = "DNS:somebody.else";
    unsignedByKnown = SignedByAuthority();
    elliptic.key = KeyNamed("ec256");
    for (const CertificateRecipe& recipe : {expired, future, wrongName, unsignedByKnown, elliptic}) {
        const TlsServerRecipe shown = Showing(recipe);
        Serve(shown);
        EXPECT_EQ(Capture(), Base64Of(DerOf(shown.certificate)));
        EXPECT_EQ(TextOf(buffer), DerOf(shown.certificate));
    }
}

TEST_F(BootstrapCertificateCaptureTest, WorksWithEveryProtocolVersion) {
    for (const int version : {TLS1_VERSION, TLS1_1_VERSION, TLS1_2_VERSION, TLS1_3_VERSION}) {
        TlsServerRecipe recipe = Showing({});
        recipe.version = version;
        Serve(recipe);
        EXPECT_EQ(Capture(), Base64Of(DerOf(recipe.certificate))) << version;
    }
}

TEST_F(BootstrapCertificateCaptureTest, ReplacesWhatTheBufferHeld) {
    ASSERT_EQ(buffer.SetLength(10000), 0u);
    const TlsServerRecipe recipe = Showing({});
    Serve(recipe);
    Capture();
    EXPECT_EQ(TextOf(buffer), DerOf(recipe.certificate));
}

TEST_F(BootstrapCertificateCaptureTest, ConnectsToTheHostAndPortOfTheConnection) {
    Serve(Showing({}));
    Capture();
    const std::vector<std::string> calls = sockets.Calls();
    EXPECT_TRUE(std::any_of(calls.begin(), calls.end(), [](const std::string& call) {
        return call.starts_with("GetAddressInfo(server.test, 8181, ");
    }));
    EXPECT_EQ(sockets.CallsOf("Connect"), 1u);
}

TEST_F(BootstrapCertificateCaptureTest, AConnectionThatCannotBeMadeNamesHostPortAndCode) {
    ScriptedSockets::ConnectScript refused;
    refused.error = 111;
    sockets.OnConnect("server.test:8181", refused);

    EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 1");
    EXPECT_EQ(buffer.GetLength(), 0u);
    EXPECT_EQ(sockets.OpenSockets(), 0u);
    // The failure has a mere number: why each address failed stands in the log alone.
    const std::vector<std::string> messages = logger->Messages();
    ASSERT_FALSE(messages.empty());
    EXPECT_EQ(messages.back(), "Failed to connect to server 'server.test:8181'");
}

TEST_F(BootstrapCertificateCaptureTest, TheConnectionsOwnTimeLimitHoldsForConnecting) {
    ScriptedSockets::ConnectScript silent;
    silent.writable = false;
    sockets.OnConnect("server.test:8181", silent);
    for (const std::uint32_t seconds : {3u, 7u}) {
        std::int64_t waited = 0;
        sockets.OnIdle([&](std::int64_t milliseconds) {
            waited += milliseconds;
            clock.Advance(std::chrono::milliseconds(milliseconds));
        });
        connection.SetConnectTimeout(seconds);
        EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 1");
        EXPECT_EQ(waited, seconds * 1000);
    }
}

TEST_F(BootstrapCertificateCaptureTest, ACertificateThatCannotBeKeptCountsAsNotSeen) {
    const TlsServerRecipe recipe = Showing({});
    Serve(recipe);
    FaultyCertificates certificates;
    const Platform::Testing::Replace<Platform::ICertificates> scope(certificates);
    for (const int n : {1, 2}) {
        certificates.calls.clear();
        certificates.Fail("BinaryToBase64", 99, n);
        EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 11") << n;
    }
    // The buffer for the certificate is the only one of its size.
    ZephIOBuffer empty(7777, 0x1000000);
    const auto previous = ZephIOBuffer::ReplaceAllocator([](std::uint64_t bytes) -> std::uint8_t* {
        return bytes == 7777 ? nullptr : new std::uint8_t[bytes];
    });
    std::string failure = "no failure";
    try {
        getCertificateByConnecting(empty, logger, connection, false);
    } catch (const std::runtime_error& thrown) {
        failure = thrown.what();
    }
    ZephIOBuffer::ReplaceAllocator(previous);
    EXPECT_EQ(failure, "Unable to connect to server.test:8181 due to error 11");
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

/// Cannot make ready for TLS, as where memory lacks for what all connections of a process share.
class NoContexts : public OmbryZephCore::ZephSSLManagerProviderIf {
public:
    static constexpr std::uint32_t Error = 5;

    std::unique_ptr<OmbryZephCore::ZephSSLInitializableManagerIf> MakeManager(
        const std::shared_ptr<LibraryLogger::ILogger>&, bool) override {
        class Manager : public OmbryZephCore::ZephSSLInitializableManagerIf {
        public:
            std::uint32_t Initialize(const std::string&, bool,
                                     const OmbryZephCore::ZephCertificateValidator&) override {
                return Error;
            }
            OmbryZephCore::ZephSSLConnectionIf* GetConnection() override { return nullptr; }
            void ReleaseConnection(OmbryZephCore::ZephSSLConnectionIf*) override {}
        };
        return std::make_unique<Manager>();
    }
};

TEST_F(BootstrapCertificateCaptureTest, AnEngineThatCannotBeMadeReadyIsAskedForNoHandshake) {
    NoContexts none;
    const Platform::Testing::Replace<OmbryZephCore::ZephSSLManagerProviderIf> scope(none);
    OmbryZephCore::ZephSocketConnector connector(logger);
    ASSERT_EQ(connector.Connect("server.test", 8181, 3, nullptr, 0), 0u);
    std::string text;
    EXPECT_EQ(captureCertificate(connector, "server.test", 15, {}, logger, false, buffer, text),
              NoContexts::Error);
    connector.Close();

    EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 11");
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(BootstrapCertificateCaptureTest, VerboseTracesTheTransfersAndTheRecords) {
    const auto linesBy = [&](bool verbose, const std::string& className) {
        Serve(Showing({}));
        logger->Clear();
        getCertificateByConnecting(buffer, logger, connection, verbose);
        std::size_t lines = 0;
        for (const RecordingLogger::Entry& entry : logger->Entries()) {
            if (entry.level == 0 && entry.function.find("::" + className + "::") != std::string::npos) {
                ++lines;
            }
        }
        return lines;
    };
    for (const std::string className : {"ZephIOTaskManager_Sync", "ZephSSLIO", "ZephOpenSSLConnection"}) {
        EXPECT_GT(linesBy(true, className), linesBy(false, className)) << className;
    }
}

TEST_F(BootstrapCertificateCaptureTest, AConnectThatNobodyAnswersIsGivenUpAfterThreeSeconds) {
    ScriptedSockets::ConnectScript unanswered;
    unanswered.writable = false;
    sockets.OnConnect("server.test:8181", unanswered);
    std::int64_t waited = 0;
    sockets.OnIdle([&](std::int64_t milliseconds) { waited += milliseconds; });

    EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 1");
    EXPECT_EQ(waited, 3000);
}

TEST_F(BootstrapCertificateCaptureTest, ASilentServerIsGivenUpAfterFifteenSecondsWithCode13) {
    std::int64_t waited = 0;
    sockets.OnIdle([&](std::int64_t milliseconds) {
        waited += milliseconds;
        clock.Advance(std::chrono::milliseconds(milliseconds));
    });

    EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 13");
    EXPECT_EQ(waited, 15000);
    EXPECT_EQ(buffer.GetLength(), 0u);
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(BootstrapCertificateCaptureTest, ASlowServerHasFifteenSecondsForEachAnswer) {
    const TlsServerRecipe recipe = Showing({});
    TlsServerEnd end(recipe);
    ScriptedSockets::Handle handle = 0;
    int silent = 0;
    sockets.OnSend([&](ScriptedSockets::Handle from, const std::string& bytes) {
        handle = from;
        end.Put(bytes);
    });
    sockets.OnIdle([&](std::int64_t milliseconds) {
        clock.Advance(std::chrono::milliseconds(milliseconds));
        // A piece of the answer every fourteen seconds.
        if (++silent % 14 == 0) sockets.Deliver(handle, end.Take(500));
    });

    EXPECT_EQ(Capture(), Base64Of(DerOf(recipe.certificate)));
    EXPECT_GT(silent, 28);
}

TEST_F(BootstrapCertificateCaptureTest, PlainHttpOnThePortIsAFailedConnectionAndNoCertificate) {
    Serve(std::nullopt);
    EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 11");
    EXPECT_EQ(buffer.GetLength(), 0u);
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(BootstrapCertificateCaptureTest, APeerThatClosesOrResetsIsAFailedConnection) {
    sockets.OnSend([&](ScriptedSockets::Handle handle, const std::string&) { sockets.CloseByPeer(handle); });
    EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 11");
    sockets.OnSend([&](ScriptedSockets::Handle handle, const std::string&) { sockets.Break(handle, 104); });
    EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 11");
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(BootstrapCertificateCaptureTest, AServerWithoutASharedCipherShowsNoCertificate) {
    TlsServerRecipe recipe = Showing({});
    recipe.version = TLS1_2_VERSION;
    recipe.ciphers = "eNULL:@SECLEVEL=0";
    Serve(recipe);
    EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 11");
}

TEST_F(BootstrapCertificateCaptureTest, ACertificateThatCannotBeWrittenAsTextCountsAsNotSeen) {
    for (const int n : {1, 2}) {
        FaultyCertificates certificates;
        certificates.Fail("BinaryToBase64", 99, n);
        const Platform::Testing::Replace<Platform::ICertificates> scope(certificates);
        Serve(Showing({}));
        EXPECT_EQ(FailureOfCapture(), "Unable to connect to server.test:8181 due to error 11") << n;
        EXPECT_EQ(std::count(certificates.calls.begin(), certificates.calls.end(), "BinaryToBase64"), n);
    }
}

TEST_F(BootstrapCertificateCaptureTest, WhicheverSocketCallFailsThereIsTheCertificateOrAFailureThatSaysSo) {
    const TlsServerRecipe recipe = Showing({});
    const std::string expected = Base64Of(DerOf(recipe.certificate));
    std::size_t total = 0;
    {
        Serve(recipe);
        Capture();
        total = sockets.Calls().size();
    }
    for (std::size_t n = 1; n <= total; ++n) {
        ScriptedSockets failing;
        const Platform::Testing::Replace<Platform::ISockets> scope(failing);
        const MemoryServer peer(
            failing, [](const std::string&) { return ""; }, recipe);
        failing.FailNthCall(n, 104);
        failing.OnIdle(
            [&](std::int64_t milliseconds) { clock.Advance(std::chrono::milliseconds(milliseconds)); });
        ZephIOBuffer taken;
        try {
            EXPECT_EQ(getCertificateByConnecting(taken, nullptr, connection, false), expected) << n;
        } catch (const std::runtime_error& failure) {
            EXPECT_EQ(std::string(failure.what()).find("Unable to connect to server.test:8181 due to error "),
                      0u)
                << n;
        }
        EXPECT_EQ(failing.OpenSockets(), 0u) << n;
    }
}

TEST_F(BootstrapCertificateCaptureTest, OneByteAtATimeIsEnough) {
    const TlsServerRecipe recipe = Showing({});
    Serve(recipe);
    sockets.SetNextHandle(100);
    TlsServerEnd end(recipe);
    sockets.OnSend([&](ScriptedSockets::Handle handle, const std::string& bytes) {
        sockets.SetMostPerCall(handle, 1, 1);
        end.Put(bytes);
        sockets.Deliver(handle, end.Take());
    });
    EXPECT_EQ(Capture(), Base64Of(DerOf(recipe.certificate)));
}

// --- a real server on loopback ---

/// Shakes hands with one client, by the TLS library over a real socket.
class OneHandshake {
public:
    explicit OneHandshake(const TlsServerRecipe& recipe) : thread([this, recipe] { Serve(recipe); }) {}
    ~OneHandshake() { thread.join(); }
    std::uint16_t Port() const { return listener.Port(); }

private:
    void Serve(const TlsServerRecipe& recipe) {
        LoopbackPeer peer = listener.Accept();
        TlsServerEnd end(recipe);
        for (;;) {
            const std::string byte = peer.Receive(1);
            if (byte.empty()) return;
            end.Put(byte);
            const std::string answer = end.Take();
            if (!answer.empty() && !peer.Send(answer)) return;
        }
    }

    LoopbackListener listener;
    std::thread thread;  // last: started when the listener stands
};

std::string CaptureFrom(std::uint16_t port, ZephIOBuffer& buffer) {
    ZephSorrelConnectionParameters connection("127.0.0.1", port);
    return getCertificateByConnecting(buffer, nullptr, connection, false);
}

TEST(BootstrapCertificateLoopbackTest, CapturesFromRealServersWithExpiredAndSelfSignedCertificates) {
    CertificateRecipe expired;
    expired.validFromSeconds = -200000;
    expired.validToSeconds = -100000;
    for (const CertificateRecipe& recipe : {CertificateRecipe(), expired}) {
        const TlsServerRecipe shown = Showing(recipe);
        const OneHandshake server(shown);
        ZephIOBuffer buffer;
        EXPECT_EQ(CaptureFrom(server.Port(), buffer), Base64Of(DerOf(shown.certificate)));
        EXPECT_EQ(TextOf(buffer), DerOf(shown.certificate));
    }
}

TEST(BootstrapCertificateLoopbackTest, APortThatRefusesIsNamedInTheFailure) {
    const HeldPort port;
    ZephIOBuffer buffer;
    try {
        CaptureFrom(port.Port(), buffer);
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_EQ(failure.what(), "Unable to connect to 127.0.0.1:" + port.Text() + " due to error 1");
    }
}

}  // namespace
}  // namespace Ombry::Tests
