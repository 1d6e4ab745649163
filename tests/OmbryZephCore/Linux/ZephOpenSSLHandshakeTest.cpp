#include "OmbryZephCore/ZephOpenSSLClientConnectionManager.h"
#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <set>

namespace Ombry::Tests {
namespace {

class ZephOpenSSLHandshakeTest : public testing::TestWithParam<ProtocolVersion> {};

INSTANTIATE_TEST_SUITE_P(Versions, ZephOpenSSLHandshakeTest, testing::ValuesIn(AllVersions()),
                         [](const auto& info) { return info.param.name; });

TEST_P(ZephOpenSSLHandshakeTest, CompletesByInjectAndExtractAloneAndNeedsNothingAfterwards) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
    ASSERT_EQ(pair.started, 0);
    EXPECT_TRUE(pair.client.WantsCiphertext());
    EXPECT_TRUE(pair.client.IsOutputBlocked());

    ASSERT_TRUE(pair.Exchange());

    EXPECT_TRUE(pair.server.Ready());
    EXPECT_EQ(SSL_version(pair.server.Get()), GetParam().number);
    EXPECT_FALSE(pair.client.WantsCiphertext()) << "an idle session must not keep a read pending";
    EXPECT_FALSE(pair.client.IsOutputBlocked());
    EXPECT_FALSE(pair.client.IsShuttingDown());
    EXPECT_TRUE(pair.logger->Messages().empty());
}

TEST_P(ZephOpenSSLHandshakeTest, CompletesOneByteAtATimeBothWays) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
    ASSERT_TRUE(pair.Handshake(1));
    ASSERT_EQ(Write(pair.client, "ping"), 4);
    pair.server.Write("pong");
    std::int32_t result = -1;
    std::string got;
    ASSERT_TRUE(pair.Exchange(1));
    got = Read(pair.client, result);
    EXPECT_EQ(got, "pong");
    EXPECT_EQ(pair.server.received, "ping");
}

TEST_P(ZephOpenSSLHandshakeTest, WaitsWithHalfARecordAndGoesOnWithTheRest) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
    pair.server.Put(Extract(pair.client));
    const std::string flight = pair.server.Take();
    const std::size_t half = Records(flight)[0].size() / 2;

    EXPECT_EQ(Inject(pair.client, flight.substr(0, half)), static_cast<std::int32_t>(half));
    EXPECT_TRUE(pair.client.WantsCiphertext());
    EXPECT_FALSE(pair.client.IsOutputBlocked());
    EXPECT_EQ(Write(pair.client, "too early"), 0);
    std::int32_t result = -1;
    EXPECT_EQ(Read(pair.client, result), "");
    EXPECT_EQ(result, 0);

    ASSERT_EQ(Inject(pair.client, flight.substr(half)), static_cast<std::int32_t>(flight.size() - half));
    EXPECT_TRUE(pair.Handshake());
}

TEST_P(ZephOpenSSLHandshakeTest, EcCertificateIsTakenToo) {
    CertificateRecipe recipe;
    recipe.key = KeyNamed("ec256");
    TlsServerRecipe server = ServerOf(GetParam().number, MakeCertificate(recipe));
    server.key = recipe.key;
    ZephOpenSSLTestPair pair(server);
    EXPECT_TRUE(pair.Handshake());
}

TEST_P(ZephOpenSSLHandshakeTest, NoClientCertificateIsSentWhenTheServerAsksForOne) {
    TlsServerRecipe recipe = ServerOf(GetParam().number);
    recipe.asksForClientCertificate = true;
    ZephOpenSSLTestPair pair(recipe);
    ASSERT_TRUE(pair.Handshake());
    EXPECT_EQ(SSL_get0_peer_certificate(pair.server.Get()), nullptr);
}

TEST_P(ZephOpenSSLHandshakeTest, CloseAlertInClearBeforeTheEndIsAFailureAndNoClose) {
    const std::string close("\x15\x03\x03\x00\x02\x01\x00", 7);
    // After no record of the server, after the first, and so on to the last but one.
    ZephOpenSSLTestPair whole(ServerOf(GetParam().number));
    whole.server.Put(Extract(whole.client));
    const std::size_t count = Records(whole.server.Take()).size();
    ASSERT_GE(count, 3u);
    for (std::size_t before = 0; before < count; ++before) {
        SCOPED_TRACE(before);
        ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
        pair.server.Put(Extract(pair.client));
        const auto records = Records(pair.server.Take());
        for (std::size_t i = 0; i < before; ++i)
            ASSERT_GT(Inject(pair.client, records[i]), 0);

        EXPECT_EQ(Inject(pair.client, close), -1);

        EXPECT_FALSE(pair.client.IsShuttingDown());
        EXPECT_FALSE(pair.client.IsShutdownComplete());
        EXPECT_EQ(Write(pair.client, "secret"), -1);
        EXPECT_EQ(pair.client.shutdown(false), -1);
    }
}

TEST_P(ZephOpenSSLHandshakeTest, CloseAlertBetweenTheServersFlightAndItsAnswerToOursIsAFailure) {
    if (GetParam().number == TLS1_3_VERSION)
        return;  // there the client is done after the server's one flight
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
    pair.server.Put(Extract(pair.client));
    Inject(pair.client, pair.server.Take());
    const std::string finished = Extract(pair.client);
    ASSERT_FALSE(finished.empty());
    EXPECT_EQ(Inject(pair.client, std::string("\x15\x03\x03\x00\x02\x01\x00", 7)), -1);
    EXPECT_FALSE(pair.client.IsShuttingDown());
}

TEST_P(ZephOpenSSLHandshakeTest, WarningThatIsNoCloseIsPassedOver) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
    EXPECT_EQ(Inject(pair.client, std::string("\x15\x03\x03\x00\x02\x01\x5a", 7)), 7);  // user_canceled
    EXPECT_TRUE(pair.client.WantsCiphertext());
    EXPECT_FALSE(pair.client.IsShuttingDown());
    EXPECT_TRUE(pair.Handshake());
}

TEST_P(ZephOpenSSLHandshakeTest, FatalAlertIsAFailureAndNoClose) {
    ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
    EXPECT_EQ(Inject(pair.client, std::string("\x15\x03\x03\x00\x02\x02\x28", 7)), -1);
    EXPECT_FALSE(pair.client.IsShuttingDown());
    const auto errors = pair.logger->Messages(4);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].find("SSL_do_handshake failed: "), 0u) << errors[0];
    EXPECT_NE(errors[0].find("handshake failure"), std::string::npos) << errors[0];
}

TEST_P(ZephOpenSSLHandshakeTest, EveryRecordOfTheServersHandshakeIsProtectedAgainstAChange) {
    // Keeps the shape of the loop below: the number of flights and records of an undisturbed handshake.
    for (std::size_t flight = 0; flight < 2; ++flight) {
        for (std::size_t record = 0;; ++record) {
            bool more = true;
            for (const double where : {0.0, 0.2, 0.5, 0.8, 1.0}) {
                ZephOpenSSLTestPair pair(ServerOf(GetParam().number));
                pair.server.Put(Extract(pair.client));
                if (flight == 1) {
                    if (GetParam().number == TLS1_3_VERSION) return;  // it has one flight
                    ASSERT_GT(Inject(pair.client, pair.server.Take()), 0);
                    pair.server.Put(Extract(pair.client));
                }
                auto records = Records(pair.server.Take());
                if (record >= records.size()) {
                    more = false;
                    break;
                }
                std::string& changed = records[record];
                const auto at = 5 + static_cast<std::size_t>(where * static_cast<double>(changed.size() - 6));
                changed[at] = static_cast<char>(changed[at] ^ 0x01);
                std::string all;
                for (const std::string& each : records)
                    all += each;

                SCOPED_TRACE(testing::Message()
                             << "flight " << flight << " record " << record << " byte " << at);
                Inject(pair.client, all);
                pair.Exchange();
                EXPECT_LE(Write(pair.client, "secret"), 0);
                EXPECT_FALSE(pair.client.IsShuttingDown());
                EXPECT_EQ(pair.server.received, "");
            }
            if (!more) break;
        }
    }
}

TEST_P(ZephOpenSSLHandshakeTest, ForgedSignatureFailsBeforeTheValidatorIsAsked) {
    TlsServerRecipe recipe = ServerOf(GetParam().number);
    recipe.key = ForgedKey(KeyNamed("rsa2048"), KeyNamed("rsa2048-attacker"));
    recipe.ciphers = "ECDHE:DHE:@SECLEVEL=0";  // suites in which the server signs
    ZephOpenSSLTestPair pair(recipe);
    int asked = 0;
    pair.client.SetValidator([&](auto*) { return ++asked > 0; });
    EXPECT_FALSE(pair.Handshake());
    EXPECT_EQ(Write(pair.client, "secret"), -1);
    EXPECT_EQ(asked, 0);
}

TEST_P(ZephOpenSSLHandshakeTest, LaterSessionsOfTheSameServerAreNotResumedWithoutAScope) {
    const auto context = MakeTlsServerContext(ServerOf(GetParam().number));
    OmbryZephCore::ZephOpenSSLClientConnectionManager manager(nullptr, false);
    int asked = 0;
    ASSERT_EQ(manager.Initialize("server.test", true, [&](auto*) { return ++asked > 0; }), 0u);
    for (int i = 1; i <= 3; ++i) {
        TlsServerEnd server(context);
        OmbryZephCore::ZephSSLConnectionIf* const client = manager.GetConnection();
        ASSERT_NE(client, nullptr);
        const auto exchange = [&] {
            for (int round = 0; round < 4; ++round) {
                server.Put(Extract(*client));
                Inject(*client, server.Take());
            }
        };
        exchange();
        server.Write("x");
        exchange();
        std::int32_t result = 0;
        ASSERT_EQ(Read(*client, result), "x");  // any ticket was processed
        EXPECT_EQ(SSL_session_reused(server.Get()), 0) << i;
        EXPECT_EQ(asked, i);
        client->shutdown(false);
        exchange();
        manager.ReleaseConnection(client);
    }
}

TEST(ZephOpenSSLTicketTest, AnswerBehindSessionTicketsIsReadByTheFirstCall) {
    ZephOpenSSLTestPair pair(ServerOf(TLS1_3_VERSION));
    pair.server.Put(Extract(pair.client));
    Inject(pair.client, pair.server.Take());
    pair.server.Put(Extract(pair.client));
    pair.server.Write("answer");
    Inject(pair.client, pair.server.Take());  // two tickets and the answer
    EXPECT_FALSE(pair.client.WantsCiphertext());
    std::int32_t result = 0;
    EXPECT_EQ(Read(pair.client, result), "answer");
}

// --- what is offered and what is refused ---

struct Hello {
    int version = 0;
    std::vector<int> ciphers;
    std::string raw;
};

Hello ParseHello(const std::string& record) {
    const auto byte = [&](std::size_t i) {
        return static_cast<int>(static_cast<std::uint8_t>(record.at(i)));
    };
    Hello hello;
    hello.raw = record;
    hello.version = byte(9) * 256 + byte(10);
    std::size_t at = 43;
    at += 1 + static_cast<std::size_t>(byte(at));
    const int length = byte(at) * 256 + byte(at + 1);
    at += 2;
    for (int i = 0; i < length; i += 2, at += 2)
        hello.ciphers.push_back(byte(at) * 256 + byte(at + 1));
    return hello;
}

TEST(ZephOpenSSLClientHelloTest, OffersOnlyStrongAuthenticatedSuites) {
    ZephOpenSSLTestPair pair(ServerOf(0));
    const Hello hello = ParseHello(Extract(pair.client));
    EXPECT_EQ(hello.version, 0x0303);
    std::set<int> offered;
    const char* const forbidden[] = {"NULL", "anon",     "EXPORT", "RC4",  "3DES",  "DES_CBC", "MD5", "PSK",
                                     "SRP",  "CAMELLIA", "ARIA",   "SEED", "CCM_8", "DSS",     "IDEA"};
    for (const int id : hello.ciphers) {
        if (id == 0x00FF) continue;  // the renegotiation signal
        offered.insert(id);
        const unsigned char wire[2] = {static_cast<unsigned char>(id >> 8), static_cast<unsigned char>(id)};
        const SSL_CIPHER* cipher = SSL_CIPHER_find(pair.server.Get(), wire);
        ASSERT_NE(cipher, nullptr) << id;
        EXPECT_GE(SSL_CIPHER_get_bits(cipher, nullptr), 128) << SSL_CIPHER_standard_name(cipher);
        const std::string name = SSL_CIPHER_standard_name(cipher);
        for (const char* word : forbidden)
            EXPECT_EQ(name.find(word), std::string::npos) << name;
    }
    for (const int wanted :
         {0x1301, 0x1302, 0x1303, 0xC02B, 0xC02C, 0xC02F, 0xC030, 0xC013, 0xC014, 0x009C, 0x002F}) {
        EXPECT_TRUE(offered.count(wanted)) << std::hex << wanted;
    }
    for (const int never :
         {0x0000, 0x0001, 0x0002, 0x0003, 0x0004, 0x0005, 0x0006, 0x0008, 0x0009, 0x000A, 0x0014, 0x0016,
          0x0018, 0x0034, 0x003A, 0x003B, 0xC007, 0xC008, 0xC011, 0xC012, 0xC018, 0xC0A0, 0xC0A2, 0xC0AE}) {
        EXPECT_FALSE(offered.count(never)) << std::hex << never;
    }
}

class ZephOpenSSLRefusedSuiteTest : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Suites, ZephOpenSSLRefusedSuiteTest,
                         testing::Values("NULL-SHA256", "NULL-SHA", "NULL-MD5", "ECDHE-RSA-NULL-SHA",
                                         "ADH-AES128-SHA", "ADH-AES256-GCM-SHA384", "AECDH-AES128-SHA",
                                         "AES128-CCM8", "ECDHE-ECDSA-AES128-CCM8", "CAMELLIA128-SHA",
                                         "ARIA128-GCM-SHA256"));

TEST_P(ZephOpenSSLRefusedSuiteTest, ServerThatHasNothingElseIsRefused) {
    TlsServerRecipe recipe = ServerOf(TLS1_2_VERSION);
    recipe.ciphers = std::string(GetParam()) + ":@SECLEVEL=0";
    ZephOpenSSLTestPair pair(recipe);
    EXPECT_FALSE(pair.Handshake());
    EXPECT_EQ(Write(pair.client, "secret"), -1);
}

std::string ServerHello(int version, int cipher) {
    std::string body;
    body += static_cast<char>(version >> 8);
    body += static_cast<char>(version);
    body += std::string(32, 'R');
    body += '\0';  // no session id
    body += static_cast<char>(cipher >> 8);
    body += static_cast<char>(cipher);
    body += '\0';                                            // no compression
    body += std::string("\x00\x05\xff\x01\x00\x01\x00", 7);  // secure renegotiation
    const std::string head = {'\x02', '\0', '\0', static_cast<char>(body.size())};
    const std::string message = head + body;
    return std::string{'\x16', static_cast<char>(version >> 8), static_cast<char>(version), '\0',
                       static_cast<char>(message.size())} +
           message;
}

TEST(ZephOpenSSLServerHelloTest, SuiteOfEarlierDaysIsRefusedAtOnce) {
    const auto answer = [](int version, int cipher) {
        ZephOpenSSLTestPair pair(ServerOf(0));
        Extract(pair.client);
        return Inject(pair.client, ServerHello(version, cipher));
    };
    ASSERT_GT(answer(0x0303, 0xC02F), 0) << "the hello itself is well formed";
    ASSERT_GT(answer(0x0301, 0xC013), 0);
    EXPECT_EQ(answer(0x0303, 0x0005), -1) << "RC4";
    EXPECT_EQ(answer(0x0303, 0x000A), -1) << "3DES";
    EXPECT_EQ(answer(0x0303, 0x0001), -1) << "NULL";
    EXPECT_EQ(answer(0x0301, 0x0003), -1) << "export";
    EXPECT_EQ(answer(0x0303, 0x0034), -1) << "anonymous";
}

TEST(ZephOpenSSLServerHelloTest, VersionBelowTls10IsRefused) {
    for (const int version : {0x0300, 0x0200, 0x0002}) {
        ZephOpenSSLTestPair pair(ServerOf(0));
        Extract(pair.client);
        EXPECT_EQ(Inject(pair.client, ServerHello(version, 0xC013)), -1) << version;
    }
}

TEST(ZephOpenSSLServerHelloTest, DowngradeThatTheServerDidNotMeanIsRefused) {
    // A server that can do TLS 1.3 marks the random bytes of a lower answer (RFC 8446, section 4.1.3).
    std::string hello = ServerHello(0x0303, 0xC02F);
    hello.replace(5 + 4 + 2 + 24, 8, std::string("DOWNGRD\x01", 8));
    ZephOpenSSLTestPair pair(ServerOf(0));
    Extract(pair.client);
    EXPECT_EQ(Inject(pair.client, hello), -1);
}

TEST(ZephOpenSSLServerHelloTest, ClearTextInsteadOfTlsIsRefused) {
    ZephOpenSSLTestPair pair(ServerOf(0));
    Extract(pair.client);
    EXPECT_EQ(Inject(pair.client, "HTTP/1.1 400 Bad Request\r\n\r\n"), -1);
    EXPECT_FALSE(pair.client.IsShuttingDown());
}

// --- server name ---

TEST(ZephOpenSSLServerNameIndicationTest, SentForNamesAndNotForAddresses) {
    const struct {
        std::string target;
        std::string sent;
    } cases[] = {{"server.test", "server.test"},
                 {"server.test.", "server.test"},
                 {"", ""},
                 {"127.0.0.1", ""},
                 {"::1", ""},
                 {"[::1]", ""},
                 {"fe80::1%eth0", ""},
                 {"localhost", "localhost"},
                 {std::string(255, 'a'), std::string(255, 'a')},
                 {std::string(256, 'a'), ""},
                 {std::string("good.test\0.evil", 15), ""}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.target);
        ZephOpenSSLTestPair pair(ServerOf(TLS1_2_VERSION), each.target);
        ASSERT_EQ(pair.started, 0);
        ASSERT_TRUE(pair.Handshake());
        EXPECT_EQ(pair.server.ServerName(), each.sent);
    }
}

}  // namespace
}  // namespace Ombry::Tests
