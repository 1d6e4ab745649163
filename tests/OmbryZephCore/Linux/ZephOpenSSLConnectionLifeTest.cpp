#include "tests/OmbryZephCore/Linux/ZephOpenSSLTestPair.h"
#include "tests/OmbryZephCore/ReplacedAllocator.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <functional>

namespace Ombry::Tests {
namespace {

void ExpectNoSession(OmbryZephCore::ZephOpenSSLConnection& connection) {
    std::uint8_t byte = 0;
    EXPECT_EQ(connection.extract_unprocessed_ciphertext(&byte, 1), 0);
    EXPECT_FALSE(connection.WantsCiphertext());
    EXPECT_FALSE(connection.IsOutputBlocked());
    EXPECT_FALSE(connection.IsShutdownComplete());
    EXPECT_FALSE(connection.IsShuttingDown());
}

TEST(ZephOpenSSLConnectionLifeTest, EachOperationWithoutASessionFails) {
    using OmbryZephCore::ZephOpenSSLConnection;
    std::uint8_t byte = 0;
    const std::vector<std::function<std::int32_t(ZephOpenSSLConnection&)>> operations = {
        [&](ZephOpenSSLConnection& c) { return c.inject_ciphertext(&byte, 1); },
        [&](ZephOpenSSLConnection& c) { return c.extract_ciphertext(&byte, 1); },
        [&](ZephOpenSSLConnection& c) { return c.read_plaintext(&byte, 1); },
        [&](ZephOpenSSLConnection& c) { return c.write_plaintext(&byte, 1); },
        [&](ZephOpenSSLConnection& c) { return c.request_renegotiate(); },
        [&](ZephOpenSSLConnection& c) { return c.shutdown(true); }};
    for (std::size_t i = 0; i < operations.size(); ++i) {
        SCOPED_TRACE(i);
        const auto logger = std::make_shared<RecordingLogger>();
        ZephOpenSSLConnection connection(logger);
        ExpectNoSession(connection);
        EXPECT_EQ(operations[i](connection), -1);
        ExpectNoSession(connection);
        EXPECT_TRUE(logger->Messages().empty());
    }
}

TEST(ZephOpenSSLConnectionLifeTest, WithoutASessionThereIsNoMemoryToGiveBackAndNothingToTrust) {
    OmbryZephCore::ZephOpenSSLConnection connection(nullptr);
    connection.ReleaseIdleMemory();
    ExpectNoSession(connection);
    EXPECT_TRUE(connection.HasUnread()) << "nobody may use it again";
}

TEST(ZephOpenSSLConnectionLifeTest, AtRestItHoldsNeitherBufferAndGoesOnAllTheSame) {
    ZephOpenSSLTestPair pair(ServerOf(TLS1_3_VERSION));
    ASSERT_TRUE(pair.Handshake());
    std::int32_t result = 0;
    Read(pair.client, result);  // the tickets
    pair.client.ReleaseIdleMemory();
    pair.server.Write("pong");
    const ReplacedAllocator counted(&CountAllocation);
    allocationsCounted = 0;
    Inject(pair.client, pair.server.Take());
    EXPECT_EQ(allocationsCounted, 1);
    EXPECT_EQ(Write(pair.client, "ping"), 4);
    EXPECT_EQ(allocationsCounted, 2);
    EXPECT_EQ(Read(pair.client, result), "pong");
    pair.server.Put(Extract(pair.client));
    EXPECT_EQ(pair.server.received, "ping");
}

TEST(ZephOpenSSLConnectionLifeTest, FailedSecondStartLeavesNothingOfTheFirstSession) {
    ZephOpenSSLTestPair pair(ServerOf(TLS1_2_VERSION));
    ASSERT_TRUE(pair.Handshake());
    std::int32_t result = 0;
    Read(pair.client, result);
    pair.server.Close();
    Inject(pair.client, pair.server.Take() + "CLEAR");
    Write(pair.client, "waits to be sent");
    pair.client.shutdown(true);
    const OmbryZephCore::ZephOpenSSLClientContext none(nullptr);
    EXPECT_EQ(pair.client.InitializeAsClient(none, "server.test"), -1);
    ExpectNoSession(pair.client);
    EXPECT_EQ(Write(pair.client, "x"), -1);

    ASSERT_EQ(pair.client.InitializeAsClient(pair.context, "server.test"), 0);
    ASSERT_TRUE(pair.client.WantsCiphertext());
    EXPECT_EQ(pair.client.InitializeAsClient(none, "server.test"), -1);
    ExpectNoSession(pair.client);
}

TEST(ZephOpenSSLConnectionLifeTest, UninitialisedContextMakesNoSession) {
    auto logger = std::make_shared<RecordingLogger>();
    const OmbryZephCore::ZephOpenSSLClientContext context(logger);
    OmbryZephCore::ZephOpenSSLConnection connection(logger);
    EXPECT_EQ(connection.InitializeAsClient(context, "server.test"), -1);
    EXPECT_EQ(Write(connection, "x"), -1);
}

TEST(ZephOpenSSLConnectionLifeTest, InitializeAgainStartsAfresh) {
    ZephOpenSSLTestPair pair(ServerOf(TLS1_2_VERSION));
    ASSERT_EQ(Inject(pair.client, "HTTP/1.1 400 Bad Request\r\n"), -1);
    ASSERT_EQ(pair.client.InitializeAsClient(pair.context, "server.test"), 0);
    EXPECT_TRUE(pair.Handshake());
    std::int32_t result = -1;
    pair.server.Close();
    Inject(pair.client, pair.server.Take());
    Read(pair.client, result);
    pair.client.shutdown(true);
    ASSERT_TRUE(pair.client.IsShutdownComplete());
    ASSERT_EQ(pair.client.InitializeAsClient(pair.context, "server.test"), 0);
    EXPECT_FALSE(pair.client.IsShuttingDown());
    EXPECT_FALSE(pair.client.IsShutdownComplete());
    EXPECT_TRUE(pair.client.WantsCiphertext());
}

TEST(ZephOpenSSLConnectionLifeTest, NeedsNoLogger) {
    ZephOpenSSLTestPair pair(ServerOf(TLS1_2_VERSION));
    OmbryZephCore::ZephOpenSSLConnection client(nullptr);
    client.SetVerbose(true);
    ASSERT_EQ(client.InitializeAsClient(pair.context, "server.test"), 0);
    pair.server.Put(Extract(client));
    EXPECT_GT(Inject(client, pair.server.Take()), 0);
    EXPECT_EQ(Inject(client, "no record"), -1);
}

}  // namespace
}  // namespace Ombry::Tests
