#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephOpenSSLClientConnectionManager.h"
#include "OmbryZephCore/ZephOpenSSLErrors.h"
#include "tests/Fakes/Linux/OpenSSLFaults.h"
#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephOpenSSLClientConnectionManager;
using OmbryZephCore::ZephOpenSSLClientContext;
using testing::ElementsAre;
using testing::IsEmpty;

std::uint32_t UserError(int reason) {
    return static_cast<std::uint32_t>(ERR_PACK(ERR_LIB_USER, 0, reason));
}

/// What the library says of an error that a fault leaves.
std::string TextOf(int reason) {
    char text[256];
    ERR_error_string_n(UserError(reason), text, sizeof text);
    return text;
}

std::string BothErrors() {
    return TextOf(1) + "; " + TextOf(2);
}

// --- the queue as a text ---

TEST(ZephOpenSSLErrorsTest, EveryErrorIsTakenOldestFirst) {
    ERR_clear_error();
    ERR_raise(ERR_LIB_USER, 1);
    ERR_raise(ERR_LIB_USER, 2);
    EXPECT_EQ(OmbryZephCore::TakeOpenSSLErrors(), BothErrors());
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST(ZephOpenSSLErrorsTest, EmptyQueueIsSaidInWords) {
    ERR_clear_error();
    EXPECT_EQ(OmbryZephCore::TakeOpenSSLErrors(), "no error recorded");
}

// --- the shared context ---

class ZephOpenSSLContextFaultTest : public testing::TestWithParam<const char*> {
protected:
    // Every context of the kind that verifies is made anew after this.
    ZephOpenSSLContextFaultTest() { ZephOpenSSLClientContext::ReplaceAuthorities(""); }

    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    ZephOpenSSLClientContext context{logger};
};

INSTANTIATE_TEST_SUITE_P(Steps, ZephOpenSSLContextFaultTest,
                         testing::Values("SSL_CTX_new", "SSL_CTX_set_min_proto_version",
                                         "SSL_CTX_set_max_proto_version", "SSL_CTX_set_cipher_list",
                                         "SSL_CTX_set1_sigalgs_list", "SSL_CTX_set_ciphersuites"));

TEST_P(ZephOpenSSLContextFaultTest, FailureGivesTheOldestErrorsNumberAndNoContext) {
    {
        const OpenSSLFault fault(GetParam(), 0, 2);
        EXPECT_EQ(context.Initialize(false), UserError(1));
        EXPECT_TRUE(fault.Happened());
    }
    EXPECT_EQ(context.Get(), nullptr);
    EXPECT_THAT(logger->Messages(4), ElementsAre("Cannot make a TLS client context: " + BothErrors()));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries()[0].function, "OmbryZephCore::ZephOpenSSLClientContext::Initialize");
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_P(ZephOpenSSLContextFaultTest, FailureIsNotRememberedAndTheNextInitializeMakesTheContext) {
    {
        const OpenSSLFault fault(GetParam());
        ASSERT_NE(context.Initialize(false), 0u);
    }
    EXPECT_EQ(context.Initialize(false), 0u);
    EXPECT_NE(context.Get(), nullptr);
}

TEST_P(ZephOpenSSLContextFaultTest, FailureWithoutAnErrorIsStillOneWhateverTheThreadLeftBefore) {
    ERR_raise(ERR_LIB_USER, 77);
    const OpenSSLFault fault(GetParam(), 0, 0);
    EXPECT_EQ(context.Initialize(false), 1u);
    EXPECT_THAT(logger->Messages(4), ElementsAre("Cannot make a TLS client context: no error recorded"));
}

TEST_P(ZephOpenSSLContextFaultTest, ManagerReturnsTheNumberAndGivesNoConnection) {
    ZephOpenSSLClientConnectionManager manager(logger, false);
    const OpenSSLFault fault(GetParam());
    EXPECT_EQ(manager.Initialize("server.test", false, {}), UserError(1));
    EXPECT_EQ(logger->Messages(4).size(), 1u) << "the cause stands in the log";
    EXPECT_EQ(manager.GetConnection(), nullptr);
}

TEST_P(ZephOpenSSLContextFaultTest, FailedSecondInitializeTakesTheFirstContextAway) {
    ASSERT_EQ(context.Initialize(true), 0u);
    const OpenSSLFault fault(GetParam());
    EXPECT_NE(context.Initialize(false), 0u);
    EXPECT_EQ(context.Get(), nullptr);
}

// --- the start of a session ---

struct StartStep {
    const char* function;
    int passing;
};

class ZephOpenSSLStartFaultTest : public testing::TestWithParam<StartStep> {};

INSTANTIATE_TEST_SUITE_P(Steps, ZephOpenSSLStartFaultTest,
                         testing::Values(StartStep{"SSL_new", 0}, StartStep{"BIO_new", 0},
                                         StartStep{"BIO_new", 1}, StartStep{"SSL_set_ex_data", 0},
                                         StartStep{"SSL_set_tlsext_host_name", 0},
                                         StartStep{"SSL_set1_host", 0}),
                         [](const auto& info) {
                             return info.param.function + std::to_string(info.param.passing);
                         });

TEST_P(ZephOpenSSLStartFaultTest, FailureIsLoggedOnceAndSendsNothing) {
    const auto logger = std::make_shared<RecordingLogger>();
    ZephOpenSSLClientContext context(logger);
    ASSERT_EQ(context.Initialize(false), 0u);
    OmbryZephCore::ZephOpenSSLConnection client(logger);
    {
        ERR_raise(ERR_LIB_USER, 77);  // somebody else's, and no part of the text
        const OpenSSLFault fault(GetParam().function, GetParam().passing, 2);
        EXPECT_EQ(client.InitializeAsClient(context, "server.test"), -1);
        EXPECT_TRUE(fault.Happened());
    }
    EXPECT_THAT(logger->Messages(4), ElementsAre("Starting a TLS session failed: " + BothErrors()));
    EXPECT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries()[0].function, "OmbryZephCore::ZephOpenSSLConnection::Fail");
    std::uint8_t byte = 0;
    EXPECT_EQ(client.extract_ciphertext(&byte, 1), -1);
    EXPECT_EQ(Inject(client, "x"), -1);
    EXPECT_EQ(client.shutdown(false), -1);
    EXPECT_EQ(client.InitializeAsClient(context, "server.test"), 0) << "a later start is not hindered";
    EXPECT_NE(Extract(client), "");
}

TEST_P(ZephOpenSSLStartFaultTest, ManagerGivesNoConnection) {
    ZephOpenSSLClientConnectionManager manager(nullptr, false);
    ASSERT_EQ(manager.Initialize("server.test", false, {}), 0u);
    {
        const OpenSSLFault fault(GetParam().function, GetParam().passing);
        EXPECT_EQ(manager.GetConnection(), nullptr);
    }
    auto* const client = manager.GetConnection();
    EXPECT_NE(client, nullptr);
    manager.ReleaseConnection(client);
}

// --- a session ---

class ZephOpenSSLSessionFaultTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(pair.Handshake());
        ERR_raise(ERR_LIB_USER, 77);  // somebody else's, and no part of any text
    }

    void ExpectFailedWith(const std::string& operation) {
        EXPECT_THAT(pair.logger->Messages(), ElementsAre(operation + " failed: " + TextOf(1)));
        EXPECT_THAT(pair.logger->Messages(4).size(), 1u);
        EXPECT_EQ(Write(pair.client, "more"), -1);
        EXPECT_FALSE(pair.client.IsShuttingDown());
    }

    ZephOpenSSLTestPair pair{ServerOf(TLS1_2_VERSION)};
};

TEST_F(ZephOpenSSLSessionFaultTest, CiphertextThatCannotBeKeptIsAFailure) {
    const auto previous =
        OmbryZephCore::ZephIOBuffer::ReplaceAllocator([](std::uint64_t) -> std::uint8_t* { return nullptr; });
    EXPECT_EQ(Inject(pair.client, std::string(100'000, 'x')), -1);
    OmbryZephCore::ZephIOBuffer::ReplaceAllocator(previous);
    EXPECT_THAT(pair.logger->Messages(4), ElementsAre("Taking ciphertext failed: no error recorded"));
    EXPECT_EQ(Write(pair.client, "more"), -1);
    EXPECT_FALSE(pair.client.IsShuttingDown());
}

TEST_F(ZephOpenSSLSessionFaultTest, PlaintextThatCannotBeEncryptedIsAFailure) {
    const OpenSSLFault fault("SSL_write_ex");
    EXPECT_EQ(Write(pair.client, "x"), -1);
    ExpectFailedWith("SSL_write_ex");
}

// Also where it is known without a question to the library that there is nothing to read.
TEST_F(ZephOpenSSLSessionFaultTest, FailedWriteFailsTheReadBehindOneThatFoundNothing) {
    std::int32_t result = -1;
    Read(pair.client, result);
    ASSERT_EQ(result, 0);
    const OpenSSLFault fault("SSL_write_ex");
    ASSERT_EQ(Write(pair.client, "x"), -1);
    Read(pair.client, result);
    EXPECT_EQ(result, -1);
}

TEST_F(ZephOpenSSLSessionFaultTest, WriteThatWaitsForThePeerTakesNothingAndWantsInput) {
    std::int32_t result = -1;
    Read(pair.client, result);  // leaves the library waiting for input
    Inject(pair.client, "");
    ASSERT_FALSE(pair.client.WantsCiphertext());
    {
        const OpenSSLFault fault("SSL_write_ex", 0, 0);
        EXPECT_EQ(Write(pair.client, "x"), 0);
        EXPECT_TRUE(fault.Happened());
    }
    EXPECT_TRUE(pair.client.WantsCiphertext());
    EXPECT_THAT(pair.logger->Messages(), IsEmpty());
    EXPECT_EQ(Write(pair.client, "x"), 1);
}

TEST_F(ZephOpenSSLSessionFaultTest, CiphertextThatCannotBeDecryptedIsAFailureAndNoClose) {
    const OpenSSLFault fault("SSL_read_ex");
    std::int32_t result = 0;
    EXPECT_EQ(Read(pair.client, result), "");
    EXPECT_EQ(result, -1);
    ExpectFailedWith("SSL_read_ex");
}

TEST_F(ZephOpenSSLSessionFaultTest, EndThatThePeerDidNotAnnounceIsAFailureAndNoClose) {
    ERR_clear_error();  // of a read only the last error is known to be its own, and this one leaves none
    const OpenSSLFault fault("SSL_read_ex", 0, 0);
    std::int32_t result = 0;
    EXPECT_EQ(Read(pair.client, result), "");
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(pair.client.IsShuttingDown());
    EXPECT_THAT(pair.logger->Messages(), ElementsAre("SSL_read_ex failed: no error recorded"));
}

TEST_F(ZephOpenSSLSessionFaultTest, WaitForThePeersCloseEndsWithAnyFailure) {
    for (const int errors : {0, 1}) {
        ZephOpenSSLTestPair fresh(ServerOf(TLS1_2_VERSION));
        ASSERT_TRUE(fresh.Handshake());
        const OpenSSLFault fault("SSL_read_ex", 0, errors);
        EXPECT_EQ(fresh.client.shutdown(true), -1) << errors;
        EXPECT_FALSE(fresh.client.IsShutdownComplete());
    }
}

TEST(ZephOpenSSLHandshakeFaultTest, HandshakeThatBreaksOffIsAFailureAndNoClose) {
    ZephOpenSSLTestPair pair(ServerOf(TLS1_2_VERSION));
    const OpenSSLFault fault("SSL_do_handshake");
    EXPECT_EQ(Inject(pair.client, ""), -1);
    EXPECT_THAT(pair.logger->Messages(4), ElementsAre("SSL_do_handshake failed: " + TextOf(1)));
    EXPECT_FALSE(pair.client.IsShuttingDown());
    EXPECT_EQ(Write(pair.client, "secret"), -1);
}

TEST(ZephOpenSSLHandshakeFaultTest, HandshakeThatCannotBeginFailsTheStart) {
    const auto logger = std::make_shared<RecordingLogger>();
    ZephOpenSSLClientContext context(logger);
    ASSERT_EQ(context.Initialize(true), 0u);
    OmbryZephCore::ZephOpenSSLConnection client(logger);
    const OpenSSLFault fault("SSL_do_handshake");
    EXPECT_EQ(client.InitializeAsClient(context, "server.test"), -1);
    EXPECT_THAT(logger->Messages(), ElementsAre("SSL_do_handshake failed: " + TextOf(1)));
    std::uint8_t byte = 0;
    EXPECT_EQ(client.extract_ciphertext(&byte, 1), -1);
}

TEST(ZephOpenSSLHandshakeFaultTest, ExtractionCarriesTheHandshakeOnToo) {
    ZephOpenSSLTestPair pair(ServerOf(TLS1_2_VERSION));
    const OpenSSLFault fault("SSL_do_handshake");
    std::uint8_t byte = 0;
    EXPECT_EQ(pair.client.extract_ciphertext(&byte, 1), -1);
    EXPECT_THAT(pair.logger->Messages(4), ElementsAre("SSL_do_handshake failed: " + TextOf(1)));
}

TEST_F(ZephOpenSSLSessionFaultTest, LibraryIsAskedAgainOnlyAfterNewInput) {
    std::int32_t result = -1;
    Read(pair.client, result);
    ASSERT_EQ(result, 0);
    const OpenSSLFault fault("SSL_read_ex");
    Read(pair.client, result);
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(fault.Happened());
    EXPECT_TRUE(pair.client.WantsCiphertext());
    Inject(pair.client, "x");
    Read(pair.client, result);
    EXPECT_TRUE(fault.Happened());
}

TEST_F(ZephOpenSSLSessionFaultTest, RenegotiationThatCannotBeginIsAFailure) {
    const OpenSSLFault fault("SSL_renegotiate");
    EXPECT_EQ(pair.client.request_renegotiate(), -1);
    ExpectFailedWith("SSL_renegotiate");
}

TEST_F(ZephOpenSSLSessionFaultTest, RenegotiationThatFailsAtItsFirstStepIsAFailure) {
    const OpenSSLFault fault("SSL_peek_ex");
    EXPECT_EQ(pair.client.request_renegotiate(), -1);
    ExpectFailedWith("Renegotiation");
}

TEST_F(ZephOpenSSLSessionFaultTest, CloseThatCannotBeMadeIsAFailure) {
    const OpenSSLFault fault("SSL_shutdown");
    EXPECT_EQ(pair.client.shutdown(false), -1);
    ExpectFailedWith("SSL_shutdown");
    EXPECT_FALSE(pair.client.IsShutdownComplete());
}

class ZephOpenSSLValidationFaultTest : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Steps, ZephOpenSSLValidationFaultTest,
                         testing::Values("SSL_get0_peer_certificate", "i2d_X509"));

TEST_P(ZephOpenSSLValidationFaultTest, ServerWhoseCertificateCannotBeHadIsRefusedUnseen) {
    ZephOpenSSLTestPair pair(ServerOf(TLS1_2_VERSION));
    int asked = 0;
    pair.client.SetValidator([&](auto*) { return ++asked > 0; });
    {
        const OpenSSLFault fault(GetParam(), 0, 0);
        EXPECT_FALSE(pair.Exchange());
        EXPECT_TRUE(fault.Happened());
    }
    EXPECT_EQ(asked, 0);
    EXPECT_THAT(pair.logger->Messages(3),
                ElementsAre("Certificate validation returned failure.  Connection will be closed."));
    EXPECT_THAT(pair.logger->Messages(4), IsEmpty());
    EXPECT_EQ(Write(pair.client, "secret"), -1);
}

}  // namespace
}  // namespace Ombry::Tests
