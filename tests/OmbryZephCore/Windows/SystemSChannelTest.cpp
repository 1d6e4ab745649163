#include "OmbryZephCore/ZephSChannelClientConnectionManager.h"
#include "OmbryZephCore/ZephSSLManagerProvider.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephSSLConnectionIf;
using testing::HasSubstr;
using testing::IsEmpty;

/// A whole record with a ServerHello that is too short to be one (RFC 5246, section 7.4.1.3).
const std::string NoHandshake(
    "\x16\x03\x03\x00\x08\x02\x00\x00\x04"
    "none",
    13);

/// The engine that the product has here, on the system's own provider. No peer: what comes out first, and
/// what becomes of answers that are none.
class SystemSChannelTest : public testing::Test {
protected:
    ~SystemSChannelTest() override {
        if (connection) manager->ReleaseConnection(connection);
    }

    ZephSSLConnectionIf& Connect(const std::string& targetName = "server.test") {
        EXPECT_EQ(manager->Initialize(targetName, true, {}), 0u);
        connection = manager->GetConnection();
        EXPECT_NE(connection, nullptr);
        return *connection;
    }

    static std::string Extract(ZephSSLConnectionIf& connection) {
        std::string bytes(8096, '\0');
        const std::int32_t count =
            connection.extract_ciphertext(reinterpret_cast<std::uint8_t*>(bytes.data()), 8096);
        bytes.resize(static_cast<std::size_t>(std::max(count, 0)));
        return bytes;
    }

    static std::int32_t Inject(ZephSSLConnectionIf& connection, const std::string& bytes) {
        return connection.inject_ciphertext(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                            static_cast<std::int32_t>(bytes.size()));
    }

    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    const std::unique_ptr<OmbryZephCore::ZephSSLInitializableManagerIf> manager =
        OmbryZephCore::ZephSSLManagerProvider().MakeManager(logger, false);
    ZephSSLConnectionIf* connection = nullptr;
};

TEST_F(SystemSChannelTest, ProductComposesIt) {
    EXPECT_NE(dynamic_cast<OmbryZephCore::ZephSChannelClientConnectionManager*>(manager.get()), nullptr);
}

TEST_F(SystemSChannelTest, FirstFlightGreetsTheServerByItsName) {
    ZephSSLConnectionIf& started = Connect();
    const std::string flight = Extract(started);
    ASSERT_GT(flight.size(), 9u);
    EXPECT_EQ(flight[0], 0x16);  // a handshake record of version 3.x (RFC 5246, section 6.2.1)
    EXPECT_EQ(flight[1], 3);
    const std::size_t length =
        std::size_t{static_cast<std::uint8_t>(flight[3])} << 8 | static_cast<std::uint8_t>(flight[4]);
    EXPECT_EQ(flight.size(), 5 + length);
    EXPECT_EQ(flight[5], 1);  // with a ClientHello in it (section 7.4)
    EXPECT_THAT(flight, HasSubstr("server.test"));
    EXPECT_EQ(Extract(started), "");
    EXPECT_TRUE(started.WantsCiphertext());
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(SystemSChannelTest, AnswerIsAwaitedUntilItsRecordIsWhole) {
    ZephSSLConnectionIf& started = Connect();
    Extract(started);
    for (const char byte : std::string("\x16\x03\x03\x40", 4)) {
        EXPECT_EQ(Inject(started, std::string(1, byte)), 1);
        EXPECT_TRUE(started.WantsCiphertext());
    }
    std::uint8_t plain[16];
    EXPECT_EQ(started.read_plaintext(plain, sizeof plain), 0);
    EXPECT_EQ(started.write_plaintext(plain, sizeof plain), 0);
}

TEST_F(SystemSChannelTest, AnswerThatMakesNoSenseFailsTheHandshake) {
    ZephSSLConnectionIf& started = Connect();
    Extract(started);
    EXPECT_EQ(Inject(started, NoHandshake), -1);
    EXPECT_THAT(logger->Messages(4),
                testing::Contains(HasSubstr("InitializeSecurityContextA failed with error -")));
}

TEST_F(SystemSChannelTest, AlertOfTheServerFailsTheHandshake) {
    ZephSSLConnectionIf& started = Connect();
    Extract(started);
    EXPECT_EQ(Inject(started, std::string("\x15\x03\x03\x00\x02\x02\x28", 7)), -1);  // handshake_failure
}

TEST_F(SystemSChannelTest, ConnectionsOfOneManagerAreApart) {
    ZephSSLConnectionIf& first = Connect();
    ZephSSLConnectionIf* const second = manager->GetConnection();
    ASSERT_NE(second, nullptr);
    Extract(first);
    EXPECT_EQ(Inject(first, NoHandshake), -1);
    EXPECT_THAT(Extract(*second), HasSubstr("server.test"));
    manager->ReleaseConnection(second);
}

}  // namespace
}  // namespace Ombry::Tests
