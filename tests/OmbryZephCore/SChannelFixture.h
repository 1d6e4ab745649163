#pragma once

#include "OmbryZephCore/ZephSChannelConnection.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSecurityProvider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

namespace Ombry::Tests {

/// A connection on a scripted provider; at the end everything that was handed out must have come back.
class SChannelFixture : public testing::Test {
protected:
    using Step = ScriptedSecurityProvider::Step;
    using Decryption = ScriptedSecurityProvider::Decryption;

    ~SChannelFixture() override {
        connection.reset();
        EXPECT_THAT(provider.books.Faults(), testing::IsEmpty());
    }

    std::int32_t Inject(const std::string& bytes) {
        return connection->inject_ciphertext(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                             static_cast<std::int32_t>(bytes.size()));
    }

    std::int32_t Write(const std::string& bytes) {
        return connection->write_plaintext(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                           static_cast<std::int32_t>(bytes.size()));
    }

    /// The count and the bytes.
    std::pair<std::int32_t, std::string> Read(std::int32_t most = 1000) {
        return Take(most, &OmbryZephCore::ZephSChannelConnection::read_plaintext);
    }

    std::pair<std::int32_t, std::string> Extract(std::int32_t most = 1000) {
        return Take(most, &OmbryZephCore::ZephSChannelConnection::extract_ciphertext);
    }

    std::pair<std::int32_t, std::string> ExtractUnprocessed(std::int32_t most = 1000) {
        return Take(most, &OmbryZephCore::ZephSChannelConnection::extract_unprocessed_ciphertext);
    }

    /// Sends a first flight, and waits for the server's.
    void StartClient(const std::string& flight = "hello") {
        provider.steps = {{Platform::SecIContinueNeeded, flight}};
        ASSERT_EQ(connection->InitializeAsClient(&credentials, "server.example"), 0);
    }

    /// A session that is ready, with nothing left to send, nothing logged and no calls noted.
    void Connect() {
        StartClient();
        provider.steps = {{Platform::SecEOk}};
        ASSERT_EQ(Inject("server"), 6);
        ASSERT_EQ(Extract().second, "hello");
        Forget();
    }

    /// The same as a server.
    void ConnectAsServer() {
        ASSERT_EQ(connection->InitializeAsServer(&credentials), 0);
        provider.steps = {{Platform::SecEOk}};
        ASSERT_EQ(Inject("client"), 6);
        Forget();
    }

    void Forget() {
        logger->Clear();
        provider.calls.clear();
        provider.stepCalls.clear();
        provider.decryptInputs.clear();
    }

    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    ScriptedSecurityProvider provider;
    Platform::Testing::Replace<Platform::ISecurityProvider> replaced{provider};
    Platform::CredHandle credentials{3, 4};
    std::unique_ptr<OmbryZephCore::ZephSChannelConnection> connection =
        std::make_unique<OmbryZephCore::ZephSChannelConnection>(logger);

private:
    std::pair<std::int32_t, std::string> Take(
        std::int32_t most,
        std::int32_t (OmbryZephCore::ZephSChannelConnection::*operation)(std::uint8_t*, std::int32_t)) {
        std::string bytes(static_cast<std::size_t>(std::max(most, 1)), '?');
        const std::int32_t count =
            ((*connection).*operation)(reinterpret_cast<std::uint8_t*>(bytes.data()), most);
        bytes.resize(static_cast<std::size_t>(std::max(count, 0)));
        return {count, bytes};
    }
};

}  // namespace Ombry::Tests
