// What the whole client does with TLS alone, against servers on loopback.

#include "tests/OmbryZephCore/Linux/LoopbackRecipe.h"
#include "tests/OmbryZephCore/SyncHttpClientLoopbackFixture.h"

#include <gmock/gmock.h>

#include <malloc.h>

namespace Ombry::Tests {
namespace {

using std::chrono::seconds;

class SyncHttpClientTlsLoopbackTest : public SyncHttpClientLoopbackTest {};
INSTANTIATE_TEST_SUITE_P(Tls, SyncHttpClientTlsLoopbackTest, ::testing::Values(true));

TEST_P(SyncHttpClientTlsLoopbackTest, AnotherKeyThanTheRegisteredOneIsRefusedBeforeAnythingIsSent) {
    CertificateRecipe other;
    other.key = KeyNamed("rsa2048-other");
    TlsServerRecipe recipe;
    recipe.certificate = MakeCertificate(other);
    recipe.key = other.key;
    server.emplace(LoopbackServer::Answering(LoopbackServer::Response("stolen")), recipe);
    EXPECT_EQ(Get().nResult, 11u);
    EXPECT_THAT(server->Requests(), ::testing::IsEmpty());
    EXPECT_EQ(server->Connections(), 2u);
}

TEST_P(SyncHttpClientTlsLoopbackTest, ASessionIsResumedByConnectionsOfTheSameParametersAlone) {
    Serve([](Connection& connection) {
        connection.ReadRequest();
        std::string handshake;
        Capture(connection, [&](SSL* end) { handshake = SSL_session_reused(end) == 1 ? "resumed" : "full"; });
        connection.Send(LoopbackServer::Response(handshake, "200 OK", "Connection: close\r\n"));
    });
    const auto get = [&](const ZephSorrelConnectionParameters& params) {
        ZephSorrelSyncHttpClient client(logger, false, params, &pool);
        Text text;
        client.SetDataWriter(&text);
        EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
        return text.text;
    };
    const ZephSorrelConnectionParameters params = Params();
    EXPECT_EQ(get(params), "full");
    EXPECT_EQ(get(params), "resumed");

    std::vector<ZephSorrelConnectionParameters> others(5, params);
    others[0].SetCertificateValidation({ValidateNothing, ""});
    others[1].SetCertificateValidation({ValidateByPublicKey, LoopbackTls::Certificate() + "\n"});
    others[2].SetConnectTimeout(params.GetConnectTimeout() + 1);
    others[3].SetBindAddress("127.0.0.1");
    others[4].SetHost("localhost");
    for (std::size_t i = 0; i < others.size(); ++i) {
        EXPECT_EQ(get(others[i]), "full") << i;
        EXPECT_EQ(get(others[i]), i == 0 ? "full" : "resumed") << i;
    }
    EXPECT_EQ(get(params), "resumed");
}

TEST_P(SyncHttpClientTlsLoopbackTest, WithoutValidationAnyCertificateWill) {
    server.emplace(LoopbackServer::Answering(LoopbackServer::Response("x")), LoopbackRecipe());
    ZephSorrelConnectionParameters params = Params();
    params.SetCertificateValidation({ValidateNothing, ""});
    ZephSorrelSyncHttpClient client(logger, false, params, &pool);
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
}

TEST_P(SyncHttpClientTlsLoopbackTest, PlainHttpOnTheTlsPortIsAFailure) {
    server.emplace([](Connection& connection) {
        connection.ReadBytes(1);
        connection.Send("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    });
    EXPECT_EQ(Get().nResult, 11u);
    EXPECT_EQ(server->Connections(), 2u);
}

TEST_P(SyncHttpClientTlsLoopbackTest, AServerThatIsSilentInTheHandshakeTimesOut) {
    server.emplace([&](Connection& connection) {
        connection.ReadBytes(1);
        sockets.BeSilent([&] { clock.Advance(seconds(5)); });
        connection.AwaitClose();
    });
    const Outcome outcome = Get();
    EXPECT_EQ(outcome.nResult, 11u);
    EXPECT_EQ(outcome.nIOResult, 13u);
    EXPECT_EQ(server->Connections(), 1u);
}

TEST_P(SyncHttpClientTlsLoopbackTest, ABodyUntilCloseThatIsCutWithoutACloseAlertIsAFailure) {
    Serve([](Connection& connection) {
        connection.ReadRequest();
        connection.Send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nhalf of it");
        connection.Close(false);
    });
    EXPECT_EQ(Get().nResult, 11u);
}

TEST_P(SyncHttpClientTlsLoopbackTest, BytesInClearTextBehindTheCloseAlertNeverReachTheBody) {
    Serve([](Connection& connection) {
        connection.ReadRequest();
        connection.Send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nsafe");
        connection.SendCloseAlert();
        connection.SendRaw(" and forged");
    });
    const Outcome outcome = Get();
    EXPECT_EQ(outcome.nResult, 0u);
    EXPECT_EQ(outcome.body, "safe");
}

TEST_P(SyncHttpClientTlsLoopbackTest, AServerMayRenegotiateInTheMiddleOfItsAnswer) {
    TlsServerRecipe recipe = LoopbackRecipe();
    recipe.version = TLS1_2_VERSION;
    server.emplace(
        [](Connection& connection) {
            const auto askForAHandshake = [](SSL* end) {
                SSL_renegotiate(end);
                SSL_do_handshake(end);
            };
            while (!connection.ReadRequest().empty()) {
                connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 13\r\n\r\none, ");
                const std::string request = Capture(connection, askForAHandshake);
                connection.SendRaw(request + connection.Encode("two, "));
                connection.AwaitReadable();  // the client has begun its handshake
                connection.Send("six");
            }
        },
        recipe);
    Body body("question", true);
    EXPECT_EQ(Get().body, "one, two, six");
    EXPECT_EQ(Request("POST", "/", &body).body, "one, two, six");
    EXPECT_EQ(Get().body, "one, two, six");
    EXPECT_EQ(server->Requests().size(), 3u) << "none was asked twice";
    EXPECT_EQ(server->Connections(), 1u);
}

class SyncHttpClientPlainLoopbackTest : public SyncHttpClientLoopbackTest {};
INSTANTIATE_TEST_SUITE_P(Plain, SyncHttpClientPlainLoopbackTest, ::testing::Values(false));

TEST_P(SyncHttpClientPlainLoopbackTest, TlsOnThePlainPortIsAFailure) {
    server.emplace(LoopbackServer::Answering(LoopbackServer::Response("x")), LoopbackRecipe());
    EXPECT_EQ(Get().nResult, 11u);
    EXPECT_EQ(server->Connections(), 2u);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The sanitizers have an allocator of their own, which does not tell the C library what is in use.
TEST_P(SyncHttpClientTlsLoopbackTest, AScanTakesTheRecordBuffersOfAConnectionThatRests) {
    Serve(LoopbackServer::Answering(LoopbackServer::Response("x")));
    pool.Start(300, 300);
    clock.AwaitWaits(1);
    ASSERT_EQ(Get().nResult, 0u);
    ASSERT_EQ(Get().nResult, 0u);
    const std::size_t before = mallinfo2().uordblks;
    clock.Advance(seconds(300));
    clock.AwaitWaits(2);
    EXPECT_LT(mallinfo2().uordblks + 70'000, before) << "those of the library, the engine and both stages";
    EXPECT_EQ(Get().body, "x");
    EXPECT_EQ(server->Connections(), 1u) << "the connection itself stays";
}
#endif

}  // namespace
}  // namespace Ombry::Tests
