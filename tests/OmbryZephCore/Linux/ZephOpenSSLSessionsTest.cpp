// What is kept of TLS sessions, and when a connection resumes one.

#include "OmbryZephCore/ZephOpenSSLSessions.h"
#include "OmbryZephCore/ZephWindowsCertificateValidation.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"

#include <gtest/gtest.h>

#include <thread>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephCertificateValidator;
using OmbryZephCore::ZephOpenSSLClientContext;
using OmbryZephCore::ZephOpenSSLConnection;
using OmbryZephCore::ZephOpenSSLSessions;
using OmbryZephCore::ZephWindowsCertificateValidation::CheckPublicKeyCallback;

using ServerContext = std::shared_ptr<SSL_CTX>;

struct Meeting {
    bool established = false;
    bool resumed = false;
    std::string received;  ///< by the server
};

/// One connection to a server of the context: handshake, a few bytes, what `last` does to the server's end,
/// and a close.
Meeting Meet(const ServerContext& servers, const std::string& scope,
             const ZephCertificateValidator& validator = {}, bool manualValidation = true) {
    const auto logger = std::make_shared<RecordingLogger>();
    ZephOpenSSLClientContext context(logger);
    if (context.Initialize(manualValidation) != 0) throw std::runtime_error("no client context");
    ZephOpenSSLConnection client(logger);
    if (client.InitializeAsClient(context, "server.test", scope) != 0) throw std::runtime_error("no session");
    client.SetValidator(validator);
    TlsServerEnd server(servers);
    Meeting meeting;
    bool failed = false;
    const auto exchange = [&] {
        for (bool moved = true; moved && !failed;) {
            const std::string out = Extract(client);
            server.Put(out);
            const std::string in = server.Take();
            failed = Inject(client, in) < 0;
            moved = !out.empty() || !in.empty();
        }
    };
    exchange();
    meeting.established = !failed && Write(client, "data") == 4;
    exchange();
    server.Close();  // one that was not closed is not resumed out of the server's memory
    if (!failed) exchange();
    std::int32_t read = 0;
    if (!failed) Read(client, read);
    meeting.resumed = SSL_session_reused(server.Get()) == 1;
    meeting.received = server.received;
    return meeting;
}

ServerContext Servers(int version, const TestCertificate& certificate = SelfSigned()) {
    return MakeTlsServerContext(ServerOf(version, certificate));
}

ZephCertificateValidator Trusting(const TestCertificate& certificate) {
    return CheckPublicKeyCallback(Base64Of(DerOf(certificate)));
}

/// A scope that no other test uses.
std::string NewScope() {
    static int number = 0;
    return "scope " + std::to_string(++number);
}

bool Holds(const std::string& scope) {
    return ZephOpenSSLSessions::Shared().Take(scope) != nullptr;
}

class ZephOpenSSLSessionsTest : public ::testing::TestWithParam<ProtocolVersion> {
protected:
    static int Version() { return GetParam().number; }
    const std::string scope = NewScope();
};
INSTANTIATE_TEST_SUITE_P(Versions, ZephOpenSSLSessionsTest, ::testing::ValuesIn(AllVersions()),
                         [](const auto& version) { return std::string(version.param.name); });

TEST_P(ZephOpenSSLSessionsTest, TheNextConnectionsOfTheScopeResume) {
    const ServerContext servers = Servers(Version());
    EXPECT_FALSE(Meet(servers, scope, Trusting(SelfSigned())).resumed);
    for (int i = 0; i < 3; ++i) {
        const Meeting next = Meet(servers, scope, Trusting(SelfSigned()));
        EXPECT_TRUE(next.established);
        EXPECT_TRUE(next.resumed);
        EXPECT_EQ(next.received, "data");
    }
}

TEST_P(ZephOpenSSLSessionsTest, WithoutTicketsTheServersOwnMemoryServes) {
    const ServerContext servers = Servers(Version());
    SSL_CTX_set_options(servers.get(), SSL_OP_NO_TICKET);
    Meet(servers, scope);
    EXPECT_TRUE(Meet(servers, scope).resumed);
}

TEST_P(ZephOpenSSLSessionsTest, AnotherScopeResumesNothing_NorDoesNone) {
    const ServerContext servers = Servers(Version());
    Meet(servers, scope);
    EXPECT_FALSE(Meet(servers, NewScope()).resumed);
    EXPECT_FALSE(Meet(servers, "").resumed);
    EXPECT_FALSE(Meet(servers, "").resumed);
    EXPECT_FALSE(Holds(""));
}

TEST_P(ZephOpenSSLSessionsTest, WhereTheLibraryJudgesTheChainNothingIsResumed) {
    const TemporaryPemFile authority(TestAuthority());
    ZephOpenSSLClientContext::ReplaceAuthorities(authority.Path());
    const ServerContext servers = Servers(Version(), MakeCertificate(SignedByAuthority()));
    for (int i = 0; i < 2; ++i) {
        const Meeting meeting = Meet(servers, scope, {}, false);
        EXPECT_TRUE(meeting.established);
        EXPECT_FALSE(meeting.resumed);
    }
    ZephOpenSSLClientContext::ReplaceAuthorities("");
    EXPECT_FALSE(Holds(scope));
}

TEST_P(ZephOpenSSLSessionsTest, AResumedServerIsJudgedByTheCertificateOfItsSession) {
    const ServerContext servers = Servers(Version());
    std::vector<std::string> shown;
    bool accepts = true;
    const ZephCertificateValidator validator = [&](Platform::CertificateContextPointer* context) {
        shown.emplace_back(reinterpret_cast<const char*>((*context)->encoded), (*context)->encodedLength);
        return accepts;
    };
    EXPECT_TRUE(Meet(servers, scope, validator).established);
    accepts = false;
    const Meeting refused = Meet(servers, scope, validator);
    EXPECT_TRUE(refused.resumed);
    EXPECT_FALSE(refused.established);
    EXPECT_EQ(refused.received, "");
    const std::string certificate = DerOf(SelfSigned());
    EXPECT_EQ(shown, (std::vector{certificate, certificate}));
}

TEST_P(ZephOpenSSLSessionsTest, AServerThatIsRefusedLeavesNothing) {
    EXPECT_FALSE(Meet(Servers(Version()), scope, [](auto*) { return false; }).established);
    EXPECT_FALSE(Holds(scope));
}

TEST_P(ZephOpenSSLSessionsTest, AServerThatIsRefusedForgetsWhatWasOffered) {
    const ServerContext servers = Servers(Version());
    Meet(servers, scope);
    ASSERT_FALSE(Meet(servers, scope, [](auto*) { return false; }).established);
    EXPECT_FALSE(Holds(scope));
}

TEST_P(ZephOpenSSLSessionsTest, AServerThatForgotTheSessionCostsAFullHandshakeAndNoError) {
    Meet(Servers(Version()), scope, Trusting(SelfSigned()));
    const ServerContext restarted = Servers(Version());
    const Meeting full = Meet(restarted, scope, Trusting(SelfSigned()));
    EXPECT_TRUE(full.established);
    EXPECT_FALSE(full.resumed);
    EXPECT_EQ(full.received, "data");
    EXPECT_TRUE(Meet(restarted, scope, Trusting(SelfSigned())).resumed);
}

TEST_P(ZephOpenSSLSessionsTest, AServerWithAnotherKeyIsRefusedBeforeAByteOfARequest) {
    Meet(Servers(Version()), scope, Trusting(SelfSigned()));
    CertificateRecipe other;
    other.key = KeyNamed("rsa2048-other");
    TlsServerRecipe recipe = ServerOf(Version(), MakeCertificate(other));
    recipe.key = other.key;
    const Meeting meeting = Meet(MakeTlsServerContext(recipe), scope, Trusting(SelfSigned()));
    EXPECT_FALSE(meeting.established);
    EXPECT_EQ(meeting.received, "");
}

TEST_P(ZephOpenSSLSessionsTest, ARenewedCertificateWithTheSameKeyIsAccepted) {
    Meet(Servers(Version()), scope, Trusting(SelfSigned()));
    CertificateRecipe renewed;
    renewed.serial = 2;
    const ServerContext servers = Servers(Version(), MakeCertificate(renewed));
    EXPECT_TRUE(Meet(servers, scope, Trusting(SelfSigned())).established);
    EXPECT_TRUE(Meet(servers, scope, Trusting(SelfSigned())).resumed);
}

TEST_P(ZephOpenSSLSessionsTest, AHandshakeThatFailsForgetsWhatWasOffered) {
    const ServerContext servers = Servers(Version());
    Meet(servers, scope);
    Meet(servers, scope);
    const auto logger = std::make_shared<RecordingLogger>();
    ZephOpenSSLClientContext context(logger);
    ASSERT_EQ(context.Initialize(true), 0u);
    ZephOpenSSLConnection client(logger);
    ASSERT_EQ(client.InitializeAsClient(context, "server.test", scope), 0);
    EXPECT_EQ(Inject(client, "this is no TLS at all"), -1);
    EXPECT_FALSE(Holds(scope));
}

TEST_P(ZephOpenSSLSessionsTest, ASessionIsNotOfferedPastItsLife) {
    FakeClock clock;
    const Platform::Testing::Replace<Platform::IClock> replaced(clock);
    const ServerContext servers = Servers(Version());
    SSL_CTX_set_timeout(servers.get(), 100);
    Meet(servers, scope);
    clock.Advance(std::chrono::seconds(99));
    ZephOpenSSLSessions::Session session = ZephOpenSSLSessions::Shared().Take(scope);
    ASSERT_NE(session, nullptr);
    ZephOpenSSLSessions::Shared().Keep(scope, *session);
    clock.Advance(std::chrono::seconds(SSL_SESSION_get_timeout(session.get())));
    EXPECT_FALSE(Holds(scope));
}

TEST_P(ZephOpenSSLSessionsTest, AScopeKeepsFourTickets_OrTheLatestSessionBeforeThere) {
    const ServerContext servers = Servers(Version());
    SSL_CTX_set_num_tickets(servers.get(), 6);
    Meet(servers, scope);
    int held = 0;
    while (held < 10 && Holds(scope))
        ++held;
    EXPECT_EQ(held, Version() < TLS1_3_VERSION ? 10 : 4)
        << "a session of TLS 1.2 stays, a ticket is used once";
}

TEST_P(ZephOpenSSLSessionsTest, ScopesUsedLongestAgoGo) {
    const ServerContext servers = Servers(Version());
    Meet(servers, scope);
    const ZephOpenSSLSessions::Session session = ZephOpenSSLSessions::Shared().Take(scope);
    ASSERT_NE(session, nullptr);
    ZephOpenSSLSessions few;
    const auto name = [](std::size_t i) { return std::to_string(i); };
    for (std::size_t i = 0; i < ZephOpenSSLSessions::MostScopes; ++i)
        few.Keep(name(i), *session);
    few.Keep(name(0), *session);
    EXPECT_NE(few.Take(name(1)), nullptr);
    few.Keep("one more", *session);
    EXPECT_EQ(few.Take(name(2)), nullptr);
    EXPECT_NE(few.Take(name(0)), nullptr);
    EXPECT_NE(few.Take(name(3)), nullptr);
    EXPECT_NE(few.Take("one more"), nullptr);
}

TEST(ZephOpenSSLTicketsTest, OfTooManyInAScopeTheOldestGoesAndTheLatestIsOfferedFirst) {
    const std::string scope = NewScope();
    Meet(Servers(TLS1_3_VERSION), scope);
    const ZephOpenSSLSessions::Session first = ZephOpenSSLSessions::Shared().Take(scope);
    ASSERT_NE(first, nullptr);
    ZephOpenSSLSessions few;
    std::vector<ZephOpenSSLSessions::Session> kept;
    for (std::size_t i = 0; i <= ZephOpenSSLSessions::MostOfAScope; ++i) {
        kept.emplace_back(SSL_SESSION_dup(first.get()));
        few.Keep("a", *kept.back());
    }
    for (std::size_t i = ZephOpenSSLSessions::MostOfAScope; i > 0; --i)
        EXPECT_EQ(few.Take("a"), kept[i]) << i;
    EXPECT_EQ(few.Take("a"), nullptr);
}

TEST(ZephOpenSSLTicketsTest, ManyThreadsShareAScope) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        const std::string scope = NewScope();
        const ServerContext servers = Servers(version);
        Meet(servers, scope, Trusting(SelfSigned()));
        std::vector<Meeting> meetings(100);
        std::vector<std::thread> threads;
        for (Meeting& meeting : meetings)
            threads.emplace_back([&] { meeting = Meet(servers, scope, Trusting(SelfSigned())); });
        for (std::thread& thread : threads)
            thread.join();
        for (const Meeting& meeting : meetings) {
            EXPECT_TRUE(meeting.established);
            EXPECT_EQ(meeting.received, "data");
        }
    }
}

TEST(ZephOpenSSLTicketsTest, AnAlertOfTheServerSpoilsTheSessionThatWasKeptBefore) {
    const std::string scope = NewScope();
    ZephOpenSSLTestPair pair(ServerOf(TLS1_2_VERSION));
    ASSERT_EQ(pair.client.InitializeAsClient(pair.context, "server.test", scope), 0);
    ASSERT_TRUE(pair.Handshake());
    EXPECT_TRUE(Holds(scope));
    ASSERT_EQ(Write(pair.client, "data"), 4);
    std::string record = Extract(pair.client);
    record.back() ^= 1;
    pair.server.Put(record);
    Inject(pair.client, pair.server.Take());
    std::int32_t result = 0;
    Read(pair.client, result);
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(Holds(scope));
}

TEST(ZephOpenSSLTicketsTest, WhatBreaksBehindAHandshakeSaysNothingAgainstTheOtherTickets) {
    const std::string scope = NewScope();
    ZephOpenSSLTestPair pair(ServerOf(TLS1_3_VERSION));
    ASSERT_EQ(pair.client.InitializeAsClient(pair.context, "server.test", scope), 0);
    ASSERT_TRUE(pair.Handshake());
    std::int32_t result = 0;
    Read(pair.client, result);  // the tickets
    pair.server.Write("data");
    std::string record = pair.server.Take();
    record.back() ^= 1;
    Inject(pair.client, record);
    Read(pair.client, result);
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(Holds(scope));
}

TEST(ZephOpenSSLTicketsTest, ATicketWithoutALifeIsNotKept) {
    const std::string scope = NewScope();
    const ServerContext servers = Servers(TLS1_3_VERSION);
    long life = 0;
    const auto grant = [](SSL* session, void* seconds) {
        SSL_SESSION_set_timeout(SSL_get_session(session), *static_cast<long*>(seconds));
        return 1;
    };
    SSL_CTX_set_session_ticket_cb(servers.get(), grant, nullptr, &life);
    EXPECT_TRUE(Meet(servers, scope).established);
    EXPECT_FALSE(Holds(scope));
    life = 60;
    EXPECT_TRUE(Meet(servers, scope).established);
    EXPECT_TRUE(Holds(scope));
}

}  // namespace
}  // namespace Ombry::Tests
