#pragma once

#include "ClientCommunications/Impl/JwtAuthenticator.h"
#include "ClientCommunications/Impl/KeyHash.h"
#include "ClientCommunications/Impl/Service.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ObjectMapping/DateTime.h"
#include "tests/Fakes/DrawnSeeds.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeOAuth2Client.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/ObservedThread.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>

namespace Ombry::Tests {

/// An authenticator over memory. Its thread is held in a wait until a test moves the clock.
class JwtAuthenticatorFixture : public testing::Test {
protected:
    using JwtAuthenticator = ClientCommunications::JwtAuthenticator;
    using Request = std::shared_ptr<ClientCommunications::IServiceRequest>;

    static constexpr Duration FreshnessLimit = std::chrono::seconds(10);
    static constexpr Duration LongestWait = std::chrono::minutes(720);
    static constexpr Duration Tick = Duration(1);
    static inline const std::string Directory = "/cache/aa_token";

    static std::uint32_t SeedOfWait(int minutes) { return SeedThatDraws(0, 720, minutes); }

    static Request MakeRequest() { return ClientCommunications::CreateServiceRequest("GET", "/path", "1"); }

    static std::shared_ptr<ClientCommunications::IService> MakeService(const std::string& name) {
        ClientCommunications::ServiceDto dto;
        dto.serviceName = name;
        return std::make_shared<ClientCommunications::Service>(dto);
    }

    static std::string PathOf(const std::string& serviceName) {
        std::string name = ClientCommunications::getSHA256HashBase64Encoded(serviceName);
        std::replace(name.begin(), name.end(), '/', '!');
        return Directory + "/" + name;
    }

    /// An entry as it lies on the disk.
    static std::string Entry(const std::string& serviceName, const std::string& accessToken,
                             TimePoint lastRefreshed, unsigned long expiresIn) {
        return "{\n"
               "    \"lastRefreshed\": \"" +
               ObjectMapping::FormatDateTime(lastRefreshed) +
               "\",\n"
               "    \"token\": {\n"
               "        \"token_type\": \"bearer\",\n"
               "        \"access_token\": \"" +
               accessToken +
               "\",\n"
               "        \"expires_in\": " +
               std::to_string(expiresIn) +
               ",\n"
               "        \"scope\": \"all\"\n"
               "    },\n"
               "    \"servicename\": \"" +
               serviceName +
               "\"\n"
               "}";
    }

    void PutEntry(const std::string& serviceName, const std::string& accessToken, TimePoint lastRefreshed,
                  unsigned long expiresIn) {
        files.Put(PathOf(serviceName) + "-p", Entry(serviceName, accessToken, lastRefreshed, expiresIn));
    }

    std::optional<std::string> Stored(const std::string& serviceName) const {
        return files.Content(PathOf(serviceName) + "-p");
    }

    std::unique_ptr<JwtAuthenticator> Make() {
        return std::make_unique<JwtAuthenticator>(client, Directory, FreshnessLimit, logger);
    }

    /// One whose thread waits, so that a test has the files and the token service for itself.
    std::unique_ptr<JwtAuthenticator> MakeWaiting() {
        auto authenticator = Make();
        clock.AwaitWaits(1);
        return authenticator;
    }

    /// The "Authorization" header that a call to `serviceName` gets.
    std::string Use(JwtAuthenticator& authenticator, const std::string& serviceName) {
        const Request request = MakeRequest();
        authenticator.AddAuthentication(request, MakeService(serviceName), {});
        return request->GetHeader("Authorization");
    }

    std::string UseFresh(JwtAuthenticator& authenticator, const std::string& serviceName) {
        const Request request = MakeRequest();
        EXPECT_TRUE(authenticator.AddFreshAuthentication(request, MakeService(serviceName), {}));
        return request->GetHeader("Authorization");
    }

    /// Ends the n-th wait of the thread, counted from 1, and blocks until the next has begun.
    void RunPass(std::size_t n) {
        clock.AwaitWaits(n);
        clock.Advance(LongestWait);
        clock.AwaitWaits(n + 1);
    }

    /// Whether a call to service "b" gets its token, "token-b", while `touch` is held in its first operation
    /// on the file of service "a".
    bool IsServedBeside(JwtAuthenticator& authenticator, const std::function<void()>& touch) {
        std::atomic<bool> held{false}, letGo{false}, served{false};
        files.Decide([&](const FileOperation& operation) -> std::optional<int> {
            if (!operation.path.starts_with(PathOf("a"))) return std::nullopt;
            held = true;
            while (!letGo)
                std::this_thread::yield();
            return std::nullopt;
        });
        ObservedThread holding(touch);
        EXPECT_TRUE(EndsUnaided(held));
        ObservedThread other([&] { served = Use(authenticator, "b") == "Bearer token-b"; });
        const bool servedUnaided = EndsUnaided(served);
        letGo = true;
        holding.Join();
        other.Join();
        files.Decide({});
        return servedUnaided;
    }

    FakeClock clock;
    FakeRandom random{SeedOfWait(100)};
    MemoryFiles files;
    std::shared_ptr<FakeOAuth2Client> client = std::make_shared<FakeOAuth2Client>();
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    const Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
    const Platform::Testing::Replace<Platform::IFiles> replacedFiles{files};
};

}  // namespace Ombry::Tests
