#include "OmbryZephCore/ZephOpenSSLClientConnectionManager.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSSLIO.h"
#include "tests/Fakes/ScriptedLowerLayer.h"
#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::size_t Unlimited = 1 << 20;

/// The stage over the engine, joined through memory with a server; and the stage above it.
class SecureStream : public OmbryZephCore::ZephIOCompletionHandlerIf,
                     public OmbryZephCore::ZephSSLNotifierIf {
public:
    explicit SecureStream(const TlsServerRecipe& recipe) : recipe(recipe) {
        NewServer();
        manager.Initialize("server.test", true, [this](auto*) {
            ++validations;
            return accept;
        });
        ssl.Initialize(&manager, &lower, &scheduler, 7, this, &scheduler, nullptr);
        ssl.RegisterIOCompletionHandler(this);
        ssl.SetClearTextGuard(true);
    }
    ~SecureStream() override {
        ssl.UnRegisterIOCompletionHandler();
        ssl.Terminate();
    }

    void NewServer() { server = std::make_unique<TlsServerEnd>(recipe); }

    /// Moves ciphertext both ways until nothing moves.
    void Pump(std::size_t chunk = Unlimited) {
        for (bool moved = true; moved;) {
            moved = false;
            scheduler.RunTasks();
            if (lower.pWrite != nullptr) {
                const std::string sent = lower.CompleteWrite(static_cast<std::uint32_t>(chunk));
                wire += sent;
                server->Put(sent);
                moved = true;
            }
            toClient += server->Take();
            if (lower.pRead != nullptr && !toClient.empty()) {
                toClient.erase(0, lower.CompleteRead(toClient.substr(0, chunk)));
                moved = true;
            }
            if (answersClose && server->sawClose) {
                answersClose = false;
                server->Close();
                toClient += server->Take();
                NewServer();
            }
            scheduler.RunTasks();
        }
    }

    std::uint32_t Read(std::uint32_t nBytes = 65536) { return ssl.StartRead(nBytes, buffer.data()); }
    std::uint32_t Write(const std::string& bytes) {
        request = bytes;
        return ssl.StartWrite(static_cast<std::uint32_t>(request.size()), Bytes(request));
    }

    /// Writes everything, a completion at a time.
    void WriteAll(const std::string& bytes, std::size_t chunk = Unlimited) {
        for (std::size_t sent = 0; sent < bytes.size();) {
            written = 0;
            ASSERT_EQ(Write(bytes.substr(sent)), 0u);
            Pump(chunk);
            ASSERT_GT(written, 0u);
            sent += written;
        }
    }

    std::string ReadSome(std::size_t chunk = Unlimited) {
        received.clear();
        EXPECT_EQ(Read(), 0u);
        Pump(chunk);
        return received;
    }

    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override {
        if (nTaskType == OmbryZephCore::TaskTypeWrite && bSuccess) written += nBytes;
        if (nTaskType == OmbryZephCore::TaskTypeRead && bSuccess && nBytes > 0) {
            received.append(reinterpret_cast<const char*>(buffer.data()), nBytes);
            return;
        }
        if (nTaskType == OmbryZephCore::TaskTypeWrite && bSuccess) return;
        events.push_back(std::string(nTaskType == 0 ? "read" : "write") + (bSuccess ? " ok 0" : " failed"));
    }
    void AbortTask(std::uint32_t nTaskType) override {
        events.push_back("abort " + std::to_string(nTaskType));
    }
    void OnDrained() override { events.push_back("drained"); }
    void OnSSLStopped() override { events.push_back("stopped"); }
    void OnSSLFatalError() override { events.push_back("fatal"); }

    TlsServerRecipe recipe;
    std::unique_ptr<TlsServerEnd> server;
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    OmbryZephCore::ZephOpenSSLClientConnectionManager manager{logger, false};
    ScriptedLowerLayer lower;
    ScriptedScheduler scheduler;
    OmbryZephCore::ZephSSLIO ssl{logger};
    std::string toClient;
    std::string wire;  ///< everything that the stage ever sent
    std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(65536);
    std::string request;
    std::string received;
    std::size_t written = 0;
    std::vector<std::string> events;  ///< all but transfers that moved bytes
    int validations = 0;
    bool accept = true;
    bool answersClose = false;  ///< the server answers the next close, and another takes its place
};

class ZephSSLIOWithOpenSSLTest : public testing::TestWithParam<ProtocolVersion> {
protected:
    bool HasRenegotiation() const { return GetParam().number != TLS1_3_VERSION; }
    SecureStream stream{ServerOf(GetParam().number)};
};

INSTANTIATE_TEST_SUITE_P(Versions, ZephSSLIOWithOpenSSLTest, testing::ValuesIn(AllVersions()),
                         [](const auto& info) { return info.param.name; });

std::string MegabyteToSend() {
    std::string bytes(1 << 20, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 131 + i / 257);
    return bytes;
}

TEST_P(ZephSSLIOWithOpenSSLTest, HandshakeGoesThroughWithoutAReadOrAWriteAndLeavesNothingPending) {
    ASSERT_EQ(stream.ssl.StartSSL(), 0u);
    stream.Pump();
    EXPECT_TRUE(stream.server->Ready());
    EXPECT_EQ(stream.validations, 1);
    EXPECT_EQ(stream.lower.pRead, nullptr)
        << "a read that nobody asked for would keep the stream busy for ever";
    EXPECT_EQ(stream.lower.pWrite, nullptr);
    EXPECT_THAT(stream.events, IsEmpty());
}

TEST_P(ZephSSLIOWithOpenSSLTest, RequestAndAnswerAreExchangedAndNothingStaysPending) {
    stream.ssl.StartSSL();
    stream.WriteAll("GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(stream.server->received, "GET / HTTP/1.1\r\n\r\n");
    stream.server->Write("HTTP/1.1 200 OK\r\n\r\n");
    std::string answer;
    while (answer.size() < 19)
        answer += stream.ReadSome();
    EXPECT_EQ(answer, "HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ(stream.lower.pRead, nullptr);
    EXPECT_EQ(stream.lower.pWrite, nullptr);
    EXPECT_EQ(stream.wire.find("GET /"), std::string::npos);
    EXPECT_THAT(stream.events, IsEmpty());
}

TEST_P(ZephSSLIOWithOpenSSLTest, EverythingWorksOneByteAtATime) {
    stream.ssl.StartSSL();
    stream.Pump(1);
    ASSERT_TRUE(stream.server->Ready());
    stream.WriteAll("request", 1);
    EXPECT_EQ(stream.server->received, "request");
    stream.server->Write("answer");
    std::string answer;
    while (answer.size() < 6)
        answer += stream.ReadSome(1);
    EXPECT_EQ(answer, "answer");
}

TEST_P(ZephSSLIOWithOpenSSLTest, OneMebibyteArrivesWholeBothWays) {
    const std::string bytes = MegabyteToSend();
    stream.ssl.StartSSL();
    stream.WriteAll(bytes);
    EXPECT_TRUE(stream.server->received == bytes);
    stream.server->Write(bytes);
    std::string answer;
    while (answer.size() < bytes.size()) {
        const std::string some = stream.ReadSome(5000);
        ASSERT_FALSE(some.empty());
        answer += some;
    }
    EXPECT_TRUE(answer == bytes);
    EXPECT_EQ(stream.lower.zeroTransfers, 0);
    EXPECT_EQ(stream.lower.doubleTransfers, 0);
}

TEST_P(ZephSSLIOWithOpenSSLTest, RefusedServerFailsTheOpenRequestAndGetsNoByteOfIt) {
    stream.accept = false;
    stream.ssl.StartSSL();
    stream.Write("Authorization: secret");
    stream.Pump();
    EXPECT_THAT(stream.events, ElementsAre("write failed"));
    EXPECT_EQ(stream.server->received, "");
    EXPECT_THAT(stream.wire, Not(HasSubstr("secret")));
}

TEST_P(ZephSSLIOWithOpenSSLTest, ForgedCloseDuringTheHandshakeNeverLetsTheRequestOutInClear) {
    stream.ssl.SetClearTextGuard(false);  // the engine alone has to hold
    stream.ssl.StartSSL();
    stream.Write("Authorization: secret");
    stream.toClient = std::string("\x15\x03\x03\x00\x02\x01\x00", 7);
    stream.Pump();
    EXPECT_THAT(stream.events, ElementsAre("write failed"));
    EXPECT_THAT(stream.wire, Not(HasSubstr("secret")));
}

TEST_P(ZephSSLIOWithOpenSSLTest, CloseInTheMiddleOfARequestNeverLetsTheRestOutInClear) {
    stream.ssl.StartSSL();
    stream.Pump();
    std::string secret;
    while (secret.size() < 100000)
        secret += "secret ";
    ASSERT_EQ(stream.Read(), 0u);
    // The lower layer sends nothing yet, so that at last a write stays open of which the engine took nothing.
    do {
        stream.written = 0;
        ASSERT_EQ(stream.Write(secret), 0u);
        stream.scheduler.RunTasks();
        ASSERT_LT(stream.written, secret.size());
    } while (stream.written != 0);
    stream.server->Close();
    stream.toClient += stream.server->Take() + "bytes of a man in the middle";
    ASSERT_NE(stream.lower.pRead, nullptr);
    stream.toClient.erase(0, stream.lower.CompleteRead(stream.toClient));
    EXPECT_EQ(stream.toClient, "");
    stream.Pump();
    EXPECT_THAT(stream.events, ElementsAre("stopped", "read ok 0", "write failed"));
    EXPECT_EQ(stream.received, "") << "nothing from behind the close";
    EXPECT_THAT(stream.wire, Not(HasSubstr("secret")));
    EXPECT_EQ(stream.Write("secret"), OmbryZephCore::eRC_IO_ConnectionFailed);
    stream.events.clear();
    EXPECT_EQ(stream.Read(), 0u);
    stream.Pump();
    EXPECT_THAT(stream.events, ElementsAre("read ok 0"));
    EXPECT_THAT(stream.wire, Not(HasSubstr("secret")));
}

TEST_P(ZephSSLIOWithOpenSSLTest, ChangedAnswerFailsTheReadAndDeliversNothing) {
    stream.ssl.StartSSL();
    stream.Pump();
    stream.toClient.clear();
    ASSERT_EQ(stream.Read(), 0u);
    stream.Pump();
    stream.server->Write("answer");
    stream.toClient = stream.server->Take();
    stream.toClient.back() = static_cast<char>(stream.toClient.back() ^ 1);
    stream.received.clear();
    stream.Pump();
    if (stream.events.empty()) {
        // TLS 1.0 parts a record in two, and the first part was sound.
        ASSERT_EQ(stream.Read(), OmbryZephCore::eRC_Fail);
    } else {
        EXPECT_THAT(stream.events, ElementsAre("read failed"));
    }
    EXPECT_NE(stream.received, "answer");
    EXPECT_NE(stream.Write("secret"), 0u);
}

TEST_P(ZephSSLIOWithOpenSSLTest, RenegotiationDuringAReadGoesThroughAndIsValidatedAgain) {
    if (!HasRenegotiation()) return;
    stream.ssl.StartSSL();
    stream.Pump();
    ASSERT_EQ(stream.Read(), 0u);
    stream.server->Renegotiate();
    stream.Pump();
    EXPECT_EQ(stream.validations, 2);
    stream.server->Write("answer");
    stream.Pump();
    while (stream.received.size() < 6) {
        ASSERT_EQ(stream.Read(), 0u);
        stream.Pump();
    }
    EXPECT_EQ(stream.received, "answer");
    stream.WriteAll("next request");
    EXPECT_EQ(stream.server->received, "next request");
    EXPECT_THAT(stream.events, IsEmpty());
}

TEST_P(ZephSSLIOWithOpenSSLTest, RenegotiationThatIsRefusedFailsTheOpenRead) {
    if (!HasRenegotiation()) return;
    stream.ssl.StartSSL();
    stream.Pump();
    stream.accept = false;
    ASSERT_EQ(stream.Read(), 0u);
    stream.server->Renegotiate();
    stream.Pump();
    EXPECT_EQ(stream.validations, 2);
    EXPECT_THAT(stream.events, ElementsAre("read failed"));
}

TEST_P(ZephSSLIOWithOpenSSLTest, KeyUpdatesDoNotStallTheStream) {
    if (GetParam().number != TLS1_3_VERSION) return;
    stream.ssl.StartSSL();
    stream.Pump();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(SSL_key_update(stream.server->Get(), SSL_KEY_UPDATE_REQUESTED), 1);
        stream.server->Write("answer");
        EXPECT_EQ(stream.ReadSome(), "answer");
        stream.server->received.clear();
        stream.WriteAll("request");
        EXPECT_EQ(stream.server->received, "request");
    }
    EXPECT_FALSE(stream.server->failed);
}

TEST_P(ZephSSLIOWithOpenSSLTest, StopThatWaitsEndsWithThePeersClose) {
    stream.ssl.StartSSL();
    stream.Pump();
    EXPECT_EQ(stream.ssl.StopSSL(true), 0u);
    stream.Pump();
    EXPECT_TRUE(stream.server->sawClose);
    EXPECT_THAT(stream.events, IsEmpty());
    stream.server->Close();
    stream.Pump();
    EXPECT_THAT(stream.events, ElementsAre("stopped"));
}

TEST_P(ZephSSLIOWithOpenSSLTest, StopWithoutWaitingSendsItsCloseAndEnds) {
    stream.ssl.StartSSL();
    stream.Pump();
    EXPECT_EQ(stream.ssl.StopSSL(false), 0u);
    stream.Pump();
    EXPECT_TRUE(stream.server->sawClose);
    EXPECT_THAT(stream.events, ElementsAre("stopped"));
}

TEST_P(ZephSSLIOWithOpenSSLTest, StartDuringAStopBeginsANewSessionOnTheSameChannel) {
    stream.ssl.StartSSL();
    stream.WriteAll("first session");
    ASSERT_EQ(stream.server->received, "first session");
    stream.ReadSome(Unlimited);  // leaves a read open that takes any tickets
    stream.answersClose = true;
    EXPECT_EQ(stream.ssl.StopSSL(true), 0u);
    EXPECT_EQ(stream.ssl.StartSSL(), 0u);
    stream.Pump();
    EXPECT_TRUE(stream.server->Ready()) << "the second server";
    EXPECT_EQ(stream.validations, 2);
    EXPECT_THAT(stream.events, ElementsAre("stopped"));
    stream.WriteAll("second session");
    EXPECT_EQ(stream.server->received, "second session");
}

}  // namespace
}  // namespace Ombry::Tests
