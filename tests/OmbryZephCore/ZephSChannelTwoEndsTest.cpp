#include "OmbryZephCore/ZephSChannelConnection.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ToySecurityProvider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephSChannelConnection;
using testing::IsEmpty;

/// A client and a server joined through memory; the parameter is how many bytes travel at a time.
class SChannelTwoEndsTest : public testing::TestWithParam<std::int32_t> {
protected:
    struct End {
        std::unique_ptr<ZephSChannelConnection> connection;
        std::string toSend{};
        std::string received{};
        bool failed = false;
    };

    void SetUp() override {
        ASSERT_EQ(server.connection->InitializeAsServer(nullptr), 0);
        ASSERT_EQ(client.connection->InitializeAsClient(nullptr, "server.example"), 0);
    }

    void TearDown() override {
        client.connection.reset();
        server.connection.reset();
        EXPECT_THAT(provider.books.Faults(), IsEmpty());
    }

    /// Moves one fragment of ciphertext. True if a byte travelled.
    bool Carry(End& from, End& to) {
        std::string bytes(static_cast<std::size_t>(GetParam()), '\0');
        auto* data = reinterpret_cast<std::uint8_t*>(bytes.data());
        const std::int32_t count = from.connection->extract_ciphertext(data, GetParam());
        from.failed |= count < 0;
        for (std::int32_t done = 0; done < count;) {
            const std::int32_t taken = to.connection->inject_ciphertext(data + done, count - done);
            to.failed |= taken < 0;
            if (taken < 0) return false;
            done += taken;
            Use(to);
        }
        return count > 0;
    }

    /// Lets one end read what it can and write what it has.
    bool Use(End& end) {
        bool moved = false;
        for (std::int32_t count = 1; count > 0;) {
            std::uint8_t bytes[7];
            count = end.connection->read_plaintext(bytes, sizeof bytes);
            end.failed |= count < 0;
            if (count > 0)
                end.received.append(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(count));
            moved |= count > 0;
        }
        if (end.toSend.empty()) return moved;
        const std::int32_t count =
            end.connection->write_plaintext(reinterpret_cast<const std::uint8_t*>(end.toSend.data()),
                                            static_cast<std::int32_t>(end.toSend.size()));
        end.failed |= count < 0;
        end.toSend.erase(0, static_cast<std::size_t>(std::max(count, 0)));
        return moved || count > 0;
    }

    void RunUntilQuiet() {
        for (bool moved = true; moved && !client.failed && !server.failed;) {
            moved = Use(client);
            moved |= Use(server);
            moved |= Carry(client, server);
            moved |= Carry(server, client);
        }
    }

    static std::string Text(std::size_t length) {
        std::string text;
        for (std::size_t n = 0; n < length; ++n)
            text += static_cast<char>(n * 7 + n / 251);
        return text;
    }

    ToySecurityProvider provider;
    Platform::Testing::Replace<Platform::ISecurityProvider> replaced{provider};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>(1);
    End client{std::make_unique<ZephSChannelConnection>(logger)};
    End server{std::make_unique<ZephSChannelConnection>(logger)};
};

TEST_P(SChannelTwoEndsTest, DataPassesBothWays) {
    client.toSend = Text(1000);
    server.toSend = Text(777);
    RunUntilQuiet();
    EXPECT_EQ(server.received, Text(1000));
    EXPECT_EQ(client.received, Text(777));
    EXPECT_EQ(provider.handshakes, 2);
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_P(SChannelTwoEndsTest, BothEndsOnlyWantCiphertextWhenAllWasUsed) {
    client.toSend = "ping";
    RunUntilQuiet();
    EXPECT_EQ(server.received, "ping");
    EXPECT_TRUE(client.connection->WantsCiphertext());
    EXPECT_TRUE(server.connection->WantsCiphertext());
    EXPECT_FALSE(client.connection->IsShuttingDown());
}

TEST_P(SChannelTwoEndsTest, AClientCanRenegotiateBetweenItsData) {
    client.toSend = "before ";
    RunUntilQuiet();
    ASSERT_EQ(client.connection->request_renegotiate(), 1);
    client.toSend = "after";
    server.toSend = "answer";
    RunUntilQuiet();
    EXPECT_EQ(server.received, "before after");
    EXPECT_EQ(client.received, "answer");
    EXPECT_EQ(provider.handshakes, 4);
}

TEST_P(SChannelTwoEndsTest, AServerCanAskForARenegotiation) {
    client.toSend = "before ";
    RunUntilQuiet();
    ASSERT_EQ(server.connection->request_renegotiate(), 1);
    RunUntilQuiet();
    client.toSend = "after";
    server.toSend = "answer";
    RunUntilQuiet();
    EXPECT_EQ(server.received, "before after");
    EXPECT_EQ(client.received, "answer");
    EXPECT_EQ(provider.handshakes, 4);
}

TEST_P(SChannelTwoEndsTest, EachHandshakeAsksTheValidatorOnce) {
    int asked = 0;
    client.connection->SetValidator([&](Platform::CertificateContextPointer*) { return ++asked > 0; });
    RunUntilQuiet();
    EXPECT_EQ(asked, 1);
    client.connection->request_renegotiate();
    RunUntilQuiet();
    EXPECT_EQ(asked, 2);
}

TEST_P(SChannelTwoEndsTest, ARefusedServerReceivesNoPlaintext) {
    client.connection->SetValidator([](Platform::CertificateContextPointer*) { return false; });
    client.toSend = "secret";
    RunUntilQuiet();
    EXPECT_TRUE(client.failed);
    EXPECT_EQ(client.toSend, "secret");
    EXPECT_EQ(server.received, "");
    EXPECT_TRUE(logger->Has(3, "Certificate validation returned failure.  Connection will be closed."));
}

TEST_P(SChannelTwoEndsTest, ACloseReachesTheOtherEndAndIsAnswered) {
    client.toSend = "last";
    RunUntilQuiet();
    EXPECT_EQ(client.connection->shutdown(true), 0);
    while (Carry(client, server)) {
    }
    EXPECT_EQ(server.received, "last");
    EXPECT_TRUE(server.connection->IsShuttingDown());
    EXPECT_EQ(server.connection->shutdown(true), 1);
    std::int32_t result = 0;
    std::uint8_t byte = 0;
    while (server.connection->extract_ciphertext(&byte, 1) == 1) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(client.connection->inject_ciphertext(&byte, 1), 1);
        result = client.connection->shutdown(true);
    }
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(client.connection->IsShutdownComplete());
    EXPECT_EQ(client.connection->extract_unprocessed_ciphertext(&byte, 1), 0);
}

TEST_P(SChannelTwoEndsTest, AByteThatIsChangedOnTheWayIsFatal) {
    RunUntilQuiet();
    client.toSend = "payload";
    Use(client);
    std::string record(100, '\0');
    auto* data = reinterpret_cast<std::uint8_t*>(record.data());
    const std::int32_t count = client.connection->extract_ciphertext(data, 100);
    ASSERT_EQ(count, 3 + 7 + 1);
    data[5] = static_cast<std::uint8_t>(data[5] ^ 1);
    ASSERT_EQ(server.connection->inject_ciphertext(data, count), count);
    Use(server);
    EXPECT_TRUE(server.failed);
    EXPECT_EQ(server.received, "");
    EXPECT_TRUE(logger->Has(4, "DecryptMessage failed with error -2146893008"));
}

INSTANTIATE_TEST_SUITE_P(Fragments, SChannelTwoEndsTest, testing::Values(1, 2, 3, 5, 16, 64, 1000));

}  // namespace
}  // namespace Ombry::Tests
