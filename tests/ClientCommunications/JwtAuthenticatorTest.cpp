#include "ObjectMapping/Serialization.h"
#include "tests/ClientCommunications/JwtAuthenticatorFixture.h"
#include "tests/Fakes/FailingThreads.h"
#include "tests/Fakes/ForeignRequest.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <system_error>
#include <thread>

namespace Ombry::Tests {
namespace {

using ClientCommunications::JwtCachedToken;
using ClientCommunications::OAuth2Token;
using Texts = std::vector<std::string>;
using Pairs = std::map<std::string, std::string>;

/// What `action` throws; "" if it does not.
template <class Action>
std::string Failure(Action action) {
    try {
        action();
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return "";
}

class JwtAuthenticatorTest : public JwtAuthenticatorFixture {
protected:
    /// Puts a token of service "a" on the disk and uses it when the file has long been as it is.
    void UseSettled(JwtAuthenticator& authenticator, const std::string& accessToken) {
        PutEntry("a", accessToken, clock.Now(), 3600);
        clock.Advance(std::chrono::seconds(5));
        EXPECT_EQ(Use(authenticator, "a"), "Bearer " + accessToken);
        files.ClearOperations();
    }

    /// The log since the thread began to wait.
    std::vector<RecordingLogger::Entry> Log() const {
        auto entries = logger->Entries();
        EXPECT_EQ(entries.at(0).message, "Thread starting");
        entries.erase(entries.begin());
        return entries;
    }
};

TEST_F(JwtAuthenticatorTest, ThreadThatCannotStartFailsTheConstruction) {
    const FailingThreads threads(1);
    EXPECT_THROW(Make(), std::system_error);
    EXPECT_EQ(threads.Count(), 1u);
    EXPECT_EQ(logger->Entries().size(), 0u);
}

TEST_F(JwtAuthenticatorTest, FirstUseAsksForATokenAndStoresIt) {
    const auto authenticator = MakeWaiting();

    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer token-1");

    EXPECT_EQ(client->ServiceNames(), Texts{"v1-auth"});
    EXPECT_EQ(Stored("v1-auth"), Entry("v1-auth", "token-1", clock.Now(), 3600));
    ASSERT_EQ(Log().size(), 1u);
    EXPECT_EQ(Log()[0].message, "Using fresh token for v1-auth");
    EXPECT_EQ(Log()[0].level, 0);
    EXPECT_EQ(Log()[0].function,
              "Ombry::ClientCommunications::JwtAuthenticator::internalAddFreshAuthentication");
}

TEST_F(JwtAuthenticatorTest, EntryOnTheDiskIsPlainJson) {
    clock.SetNow(TimePoint(Duration(16'566'788'961'234'567)));
    const auto authenticator = MakeWaiting();

    Use(*authenticator, "a");

    EXPECT_EQ(files.Content("/cache/aa_token/ypeBEsobvcr6wjGzmiPcTaeG7!gUfE5yuYB3ha!uSLs=-p"),
              "{\n"
              "    \"lastRefreshed\": \"2022-07-01T12:34:56.1234567Z\",\n"
              "    \"token\": {\n"
              "        \"token_type\": \"bearer\",\n"
              "        \"access_token\": \"token-1\",\n"
              "        \"expires_in\": 3600,\n"
              "        \"scope\": \"all\"\n"
              "    },\n"
              "    \"servicename\": \"a\"\n"
              "}");
    EXPECT_EQ(files.Contents().size(), 1u);
}

TEST_F(JwtAuthenticatorTest, TokenIsStoredBeforeTheRequestHasIt) {
    const auto authenticator = MakeWaiting();
    const Request request = MakeRequest();
    client->AnswerWith([&](const auto&, auto) {
        EXPECT_EQ(Stored("a"), std::nullopt);
        EXPECT_EQ(request->GetHeader("Authorization"), "");
        return FakeOAuth2Client::Token("new", 60);
    });
    files.Decide([&](const FileOperation& operation) -> std::optional<int> {
        if (operation.name == "Rename") {
            EXPECT_EQ(client->Calls().size(), 1u);
            EXPECT_EQ(request->GetHeader("Authorization"), "");
        }
        return std::nullopt;
    });

    authenticator->AddAuthentication(request, MakeService("a"), {});

    EXPECT_EQ(request->GetHeader("Authorization"), "Bearer new");
    files.Decide({});
    client->AnswerWith({});
}

TEST_F(JwtAuthenticatorTest, CachedTokenIsPutOnARequestOfAnotherClassToo) {
    PutEntry("a", "cached", clock.Now(), 3600);
    const auto authenticator = MakeWaiting();
    const auto foreign = std::make_shared<ForeignRequest>();

    authenticator->AddAuthentication(foreign, MakeService("a"), {});

    EXPECT_EQ(foreign->GetHeader("Authorization"), "Bearer cached");
}

TEST_F(JwtAuthenticatorTest, ACallThatWaitsForTheDiskHoldsUpNoOtherService) {
    PutEntry("a", "token-a", clock.Now(), 3600);
    PutEntry("b", "token-b", clock.Now(), 3600);
    const auto authenticator = MakeWaiting();

    EXPECT_TRUE(IsServedBeside(*authenticator, [&] { Use(*authenticator, "a"); }));
}

/// Keeps with each line the "Authorization" header that a request had by then.
class WatchingLogger : public RecordingLogger {
public:
    explicit WatchingLogger(std::shared_ptr<ClientCommunications::IServiceRequest> request)
        : request(std::move(request)) {}

    void Log(const char* file, int line, const char* function, int level,
             const std::string& message) override {
        const std::string header = level == 0 ? request->GetHeader("Authorization") : "";
        RecordingLogger::Log(file, line, function, level, message + " [" + header + "]");
    }

private:
    const std::shared_ptr<ClientCommunications::IServiceRequest> request;
};

TEST_F(JwtAuthenticatorTest, FreshTokenIsToldOfBeforeAndACachedOneAfterTheRequestHasIt) {
    const Request request = MakeRequest();
    logger = std::make_shared<WatchingLogger>(request);
    const auto authenticator = MakeWaiting();
    const auto service = MakeService("a");

    authenticator->AddAuthentication(request, service, {});
    request->RemoveHeader("Authorization");
    authenticator->AddAuthentication(request, service, {});
    request->RemoveHeader("Authorization");
    authenticator->AddFreshAuthentication(request, service, {});

    EXPECT_EQ(logger->Messages(), (Texts{"Thread starting []", "Using fresh token for a []",
                                         "Using cached token for a [Bearer token-1]",
                                         "Using recently cached token for a [Bearer token-1]"}));
}

TEST_F(JwtAuthenticatorTest, SecondUseTakesTheTokenFromTheCache) {
    const auto authenticator = MakeWaiting();
    Use(*authenticator, "v1-auth");
    logger->Clear();

    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer token-1");

    EXPECT_EQ(client->Calls().size(), 1u);
    ASSERT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries()[0].message, "Using cached token for v1-auth");
    EXPECT_EQ(logger->Entries()[0].level, 0);
    EXPECT_EQ(logger->Entries()[0].function,
              "Ombry::ClientCommunications::JwtAuthenticator::AddAuthentication");
}

TEST_F(JwtAuthenticatorTest, TokenOutlivesTheProcess) {
    Use(*MakeWaiting(), "v1-auth");

    EXPECT_EQ(Use(*Make(), "v1-auth"), "Bearer token-1");
    EXPECT_EQ(UseFresh(*Make(), "v1-auth"), "Bearer token-1");
}

TEST_F(JwtAuthenticatorTest, EntryThatAnotherProcessReplacedOrRemovedCountsAtOnce) {
    const auto authenticator = MakeWaiting();
    Use(*authenticator, "v1-auth");

    PutEntry("v1-auth", "theirs", clock.Now(), 3600);
    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer theirs");
    PutEntry("v1-auth", "token-1", clock.Now(), 3600);
    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer token-1");
    EXPECT_EQ(client->Calls().size(), 1u);

    EXPECT_TRUE(files.Remove(PathOf("v1-auth") + "-p"));
    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer token-2");
    EXPECT_EQ(client->Calls().size(), 2u);
}

TEST_F(JwtAuthenticatorTest, EntryThatIsAsItWasIsNotReadAgain) {
    const auto authenticator = MakeWaiting();
    UseSettled(*authenticator, "first");

    EXPECT_EQ(Use(*authenticator, "a"), "Bearer first");
    EXPECT_EQ(UseFresh(*authenticator, "a"), "Bearer first");

    EXPECT_EQ(files.Texts(), (Texts{"State " + PathOf("a") + "-p", "State " + PathOf("a") + "-p"}));
}

TEST_F(JwtAuthenticatorTest, EntryThatWasReplacedOrRemovedLongAfterItWasReadCountsAtOnce) {
    const auto authenticator = MakeWaiting();
    UseSettled(*authenticator, "first");

    PutEntry("a", "other", clock.Now(), 3600);  // as long as the first
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer other");
    PutEntry("a", "third", clock.Now(), 3600);  // at the very time of the second
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer third");
    UseSettled(*authenticator, "fourth");
    files.Put(PathOf("a") + "-p", "{");
    EXPECT_NE(Failure([&] { Use(*authenticator, "a"); }), "");
    UseSettled(*authenticator, "fifth");
    files.PutLink(PathOf("a") + "-p");
    EXPECT_EQ(client->Calls().size(), 0u);
    client->AnswerWith([](const auto&, auto) -> OAuth2Token { throw std::runtime_error("no token"); });
    EXPECT_EQ(Failure([&] { Use(*authenticator, "a"); }), "no token");
    EXPECT_TRUE(files.Remove(PathOf("a") + "-p"));
    EXPECT_EQ(Failure([&] { Use(*authenticator, "a"); }), "no token");
}

TEST_F(JwtAuthenticatorTest, EntryThatMayNoLongerBeReadIsNoToken) {
    const auto authenticator = MakeWaiting();
    UseSettled(*authenticator, "first");
    PutEntry("a", "first", clock.Now(), 3600);
    files.FailEvery("Read", 13);

    EXPECT_EQ(Use(*authenticator, "a"), "Bearer token-1");
}

TEST_F(JwtAuthenticatorTest, EntryOfTheSameTimeCountsAfterTheClockWasSetBack) {
    const auto authenticator = MakeWaiting();
    const TimePoint start = clock.Now();
    UseSettled(*authenticator, "first");
    clock.SetNow(start);
    PutEntry("a", "other", start, 3600);

    EXPECT_EQ(Use(*authenticator, "a"), "Bearer other");
}

TEST_F(JwtAuthenticatorTest, EntryThatWasReadBeforeExpiresAllTheSame) {
    const auto authenticator = MakeWaiting();
    PutEntry("v1-auth", "old", clock.Now(), 60);
    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer old");
    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer old");

    clock.Advance(std::chrono::seconds(60));
    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer old");
    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer old");
    clock.Advance(Tick);
    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer token-1");
}

TEST_F(JwtAuthenticatorTest, EntryThatIsNoJsonFailsAfterAGoodOneWasRead) {
    const auto authenticator = MakeWaiting();
    Use(*authenticator, "v1-auth");
    files.Put(PathOf("v1-auth") + "-p", "{");

    EXPECT_NE(Failure([&] { Use(*authenticator, "v1-auth"); }), "");
    EXPECT_NE(Failure([&] { Use(*authenticator, "v1-auth"); }), "");
    PutEntry("v1-auth", "token-1", clock.Now(), 3600);
    EXPECT_EQ(Use(*authenticator, "v1-auth"), "Bearer token-1");
}

// --- What stays in memory ---

TEST_F(JwtAuthenticatorTest, ReadingAnEntryLeavesNoTokenInFreedMemory) {
    const std::string token = "a token too long for a string object";
    const auto authenticator = MakeWaiting();
    PutEntry("a", token, clock.Now(), 3600);

    const FreedMemory freed(token);
    const std::string header = Use(*authenticator, "a");

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_EQ(header, "Bearer " + token);
}

TEST_F(JwtAuthenticatorTest, TokenThatAnotherReplacedIsWipedWithTheTextOfItsEntry) {
    const std::string token = "a token too long for a string object";
    const auto authenticator = MakeWaiting();
    UseSettled(*authenticator, token);
    PutEntry("a", "other", clock.Now(), 3600);

    const FreedMemory freed(token);
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer other");

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST_F(JwtAuthenticatorTest, TokenThatExpiredIsForgottenAndWiped) {
    const std::string token = "a token too long for a string object";
    const auto authenticator = MakeWaiting();
    UseSettled(*authenticator, token);
    clock.Advance(std::chrono::hours(1));
    client->AnswerWith([](const auto&, auto) -> OAuth2Token { throw std::runtime_error("no token"); });
    files.FailEvery("Remove", 13);  // the copy on the disk, which is not looked for, stays

    const FreedMemory freed(token);
    EXPECT_EQ(Failure([&] { Use(*authenticator, "a"); }), "no token");

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    files.ClearOperations();
    EXPECT_EQ(Failure([&] { Use(*authenticator, "a"); }), "no token");
    EXPECT_EQ(files.Texts().at(1), "Read " + PathOf("a") + "-p") << "memory holds it no longer";
}

TEST_F(JwtAuthenticatorTest, TokenWhoseEntryWasRemovedIsForgottenAndWiped) {
    const std::string token = "a token too long for a string object";
    const auto authenticator = MakeWaiting();
    const TimePoint start = clock.Now();
    UseSettled(*authenticator, token);
    EXPECT_TRUE(files.Remove(PathOf("a") + "-p"));
    client->AnswerWith([](const auto&, auto) -> OAuth2Token { throw std::runtime_error("no token"); });
    {
        const FreedMemory freed(token);
        EXPECT_EQ(Failure([&] { Use(*authenticator, "a"); }), "no token");
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    }
    // The same state of the file, with another token: who still knew the first would not read again.
    const TimePoint now = clock.Now();
    const std::string other(token.size(), 'o');
    clock.SetNow(start);
    PutEntry("a", other, start, 3600);
    clock.SetNow(now);
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer " + other);
}

TEST_F(JwtAuthenticatorTest, EndLeavesNoTokenBehind) {
    const std::string token = "a token too long for a string object";
    auto authenticator = MakeWaiting();
    UseSettled(*authenticator, token);

    const FreedMemory freed(token);
    authenticator.reset();

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST_F(JwtAuthenticatorTest, TokenOnARequestIsTheOnlyCopyThatACallLeaves) {
    const std::string token = "a token too long for a string object";
    const auto authenticator = MakeWaiting();
    UseSettled(*authenticator, token);
    const Request request = MakeRequest();
    const auto service = MakeService("a");

    const FreedMemory freed(token);
    authenticator->AddAuthentication(request, service, {});

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_EQ(request->GetHeader("Authorization"), "Bearer " + token);
}

TEST_F(JwtAuthenticatorTest, FreshTokenIsLeftInItsEntryAndOnTheRequestAlone) {
    const std::string token = "a token too long for a string object";
    client->AnswerWith([&](const auto&, auto) { return FakeOAuth2Client::Token(token, 3600); });
    const TemporaryDirectory directory;
    const Platform::Testing::Replace<Platform::IFiles> onDisk(Platform::Production<Platform::IFiles>());
    const auto authenticator =
        std::make_unique<JwtAuthenticator>(client, directory.Path(), FreshnessLimit, logger);
    const Request request = MakeRequest();
    const auto service = MakeService("a");

    const FreedMemory freed(token);
    authenticator->AddAuthentication(request, service, {});

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_EQ(request->GetHeader("Authorization"), "Bearer " + token);
}

TEST_F(JwtAuthenticatorTest, EachServiceHasATokenOfItsOwn) {
    const auto authenticator = MakeWaiting();
    Use(*authenticator, "a");

    EXPECT_EQ(Use(*authenticator, "b"), "Bearer token-2");

    EXPECT_EQ(Use(*authenticator, "a"), "Bearer token-1");
    EXPECT_EQ(client->ServiceNames(), (Texts{"a", "b"}));
}

TEST_F(JwtAuthenticatorTest, RootOfTheRequestAndTheCallersTokenGoWithTheCall) {
    const auto authenticator = MakeWaiting();
    const Request request = MakeRequest();
    request->SetHeader("SF-Root-Request-Type", "Import");
    request->SetHeader("SF-Root-Correlation-Id", "1234");
    request->SetHeader("Other", "x");
    const Cancellation::Token cancelled = Cancellation::CreateCancellable();
    cancelled.Cancel();

    EXPECT_THROW(authenticator->AddAuthentication(request, MakeService("a"), cancelled),
                 Cancellation::OperationCancelledException);
    authenticator->AddFreshAuthentication(MakeRequest(), MakeService("b"), {});

    const auto calls = client->Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].metaData,
              (Pairs{{"SF-Root-Correlation-Id", "1234"}, {"SF-Root-Request-Type", "Import"}}));
    EXPECT_TRUE(calls[0].cancelled);
    EXPECT_EQ(calls[1].metaData, std::nullopt);
    EXPECT_FALSE(calls[1].cancelled);
}

TEST_F(JwtAuthenticatorTest, EarlierAuthorizationIsReplaced) {
    const auto authenticator = MakeWaiting();
    const Request request = MakeRequest();
    request->SetHeader("Authorization", "Bearer old");

    authenticator->AddAuthentication(request, MakeService("a"), {});

    EXPECT_EQ(request->GetHeader("Authorization"), "Bearer token-1");
}

TEST_F(JwtAuthenticatorTest, EntryIsGoodToTheTickOfItsExpiryAndNoLonger) {
    struct Case {
        Duration age;
        unsigned long expiresIn;
        bool good;
    };
    const std::vector<Case> cases = {
        {std::chrono::seconds(60), 60, true},
        {std::chrono::seconds(60) + Tick, 60, false},
        {std::chrono::seconds(60) - Tick, 60, true},
        {Duration(0), 0, true},  // the first tick after it is the first that is too late
        {Tick, 0, false},
        {-Tick, 0, true},
        {std::chrono::hours(24 * 365 * 100), 4294967295, true},
    };
    const auto authenticator = MakeWaiting();
    for (const Case& one : cases) {
        PutEntry("a", "stored", clock.Now() - one.age, one.expiresIn);
        files.ClearOperations();
        const std::size_t before = client->Calls().size();

        const std::string header = Use(*authenticator, "a");

        EXPECT_EQ(header == "Bearer stored", one.good) << one.age.count() << " " << one.expiresIn;
        EXPECT_EQ(client->Calls().size(), before + (one.good ? 0 : 1)) << one.age.count();
    }
}

TEST_F(JwtAuthenticatorTest, ExpiredEntryIsDroppedEvenIfNoNewTokenCanBeHad) {
    const auto authenticator = MakeWaiting();
    PutEntry("a", "stored", clock.Now() - Tick, 0);
    PutEntry("b", "stored", clock.Now() - Tick, 0);
    client->AnswerWith([](const auto&, auto) -> OAuth2Token { throw std::runtime_error("no token"); });

    EXPECT_EQ(Failure([&] { Use(*authenticator, "a"); }), "no token");
    EXPECT_EQ(Failure([&] { UseFresh(*authenticator, "b"); }), "no token");

    EXPECT_EQ(files.Contents(), Pairs{});
}

TEST_F(JwtAuthenticatorTest, ExpiryThatNoClockReachesIsKept) {
    JwtCachedToken token;
    token.lastRefreshed = clock.Now();
    token.token.expiresIn = std::numeric_limits<unsigned long>::max();

    // Where the type has 32 bits, the longest life that it can say ends after 136 years.
    const bool isShort = sizeof token.token.expiresIn == 4;
    EXPECT_EQ(token.IsExpired(TimePoint::max()), isShort);
    EXPECT_FALSE(token.IsExpired(SaturatingAdd(clock.Now(), std::chrono::hours(24 * 365 * 100))));
}

TEST_F(JwtAuthenticatorTest, EntryExpiresAheadOfItsTokenByTheTimeThatAskingTook) {
    const auto authenticator = MakeWaiting();
    const TimePoint before = clock.Now();
    client->AnswerWith([this, before](const auto&, auto) {
        clock.SetNow(before + std::chrono::seconds(5));
        return FakeOAuth2Client::Token("slow", 3600);
    });

    Use(*authenticator, "a");

    EXPECT_EQ(Stored("a"), Entry("a", "slow", before, 3600));
}

TEST_F(JwtAuthenticatorTest, EntryThatIsNoJsonFailsTheCallAndStays) {
    const auto authenticator = MakeWaiting();
    for (const std::string& bad :
         {std::string("x"), std::string("{\"lastRefreshed\": \"yesterday\", \"token\": {}}"),
          Entry("a", "t", clock.Now(), 60).substr(0, 40)}) {
        files.Put(PathOf("a") + "-p", bad);

        EXPECT_NE(Failure([&] { Use(*authenticator, "a"); }), "") << bad;
        EXPECT_NE(Failure([&] { UseFresh(*authenticator, "a"); }), "") << bad;
        EXPECT_EQ(Stored("a"), bad);
    }
    EXPECT_EQ(client->Calls().size(), 0u);
    files.Put(PathOf("a") + "-p", "{\"lastRefreshed\": \"yesterday\", \"token\": {}}");
    EXPECT_EQ(Failure([&] { Use(*authenticator, "a"); }),
              "Unrecognized datetime format 'yesterday' (tag: 'lastRefreshed')");
    files.Put(PathOf("a") + "-p", "");  // so that the thread's last pass finds nothing to judge
}

TEST_F(JwtAuthenticatorTest, EntryWithoutServiceNameServes) {
    const auto authenticator = MakeWaiting();
    files.Put(PathOf("a") + "-p", "{\"lastRefreshed\": \"" + ObjectMapping::FormatDateTime(clock.Now()) +
                                      "\", \"token\": {\"access_token\": \"old\", \"expires_in\": 5}}");

    EXPECT_EQ(Use(*authenticator, "a"), "Bearer old");
}

TEST_F(JwtAuthenticatorTest, CachedTokenDeclaresTimeAndTokenRequiredAndTheNameOptional) {
    const std::string time = "\"lastRefreshed\": \"2022-07-01T12:34:56Z\"";
    const std::string access =
        "\"token\": {\"token_type\": \"\", \"access_token\": \"t\", \"expires_in\": 5, \"scope\": \"\"}";
    const auto read = [](const std::string& text) {
        JwtCachedToken token;
        token.serviceName = "from before";
        ObjectMapping::DeserializeObject(token, text, nullptr, true);
        return token.token.accessToken + token.serviceName;
    };

    EXPECT_EQ(read("{" + time + ", " + access + ", \"servicename\": \"name\"}"), "tname");
    EXPECT_EQ(read("{" + time + ", " + access + "}"), "t");
    EXPECT_EQ(read("{" + time + ", " + access + ", \"servicename\": null}"), "t");
    for (const std::string& bad :
         {"{" + time + "}", "{" + access + "}", "{\"lastRefreshed\": null, " + access + "}",
          "{" + time + ", \"token\": null}"}) {
        EXPECT_NE(Failure([&] { read(bad); }), "") << bad;
    }
}

TEST_F(JwtAuthenticatorTest, EntryWithoutTokenOrTimeIsNoToken) {
    const auto authenticator = MakeWaiting();
    files.Put(PathOf("a") + "-p",
              "{\"lastRefreshed\": \"" + ObjectMapping::FormatDateTime(clock.Now()) + "\"}");
    files.Put(PathOf("b") + "-p", "{\"token\": {\"access_token\": \"t\", \"expires_in\": 5}}");

    EXPECT_EQ(Use(*authenticator, "a"), "Bearer token-1");
    EXPECT_EQ(Use(*authenticator, "b"), "Bearer token-2");
}

TEST_F(JwtAuthenticatorTest, EmptyAccessTokenIsSentAndAskedForAgain) {
    const auto authenticator = MakeWaiting();
    client->AnswerWith([](const auto&, auto) { return FakeOAuth2Client::Token("", 3600); });

    EXPECT_EQ(Use(*authenticator, "a"), "Bearer ");
    EXPECT_EQ(UseFresh(*authenticator, "a"), "Bearer ");
    EXPECT_EQ(client->Calls().size(), 2u);
}

TEST_F(JwtAuthenticatorTest, TokenYoungerThanTheLimitCountsAsFresh) {
    struct Case {
        Duration age;
        bool fresh;
    };
    const auto authenticator = MakeWaiting();
    for (const Case& one : std::vector<Case>{{Duration(0), true},
                                             {FreshnessLimit - Tick, true},
                                             {FreshnessLimit, false},
                                             {FreshnessLimit + Tick, false}}) {
        PutEntry("a", "stored", clock.Now() - one.age, 3600);
        logger->Clear();

        const std::string header = UseFresh(*authenticator, "a");

        EXPECT_EQ(header == "Bearer stored", one.fresh) << one.age.count();
        ASSERT_EQ(logger->Entries().size(), 1u);
        EXPECT_EQ(logger->Entries()[0].level, 0);
        if (one.fresh) {
            EXPECT_EQ(logger->Entries()[0].message, "Using recently cached token for a");
            EXPECT_EQ(logger->Entries()[0].function,
                      "Ombry::ClientCommunications::JwtAuthenticator::AddFreshAuthentication");
        } else {
            EXPECT_EQ(logger->Entries()[0].message, "Using fresh token for a");
        }
    }
    EXPECT_EQ(client->Calls().size(), 2u);
}

TEST_F(JwtAuthenticatorTest, TokenFromTheFutureCountsAsFreshAfterTheClockWasSetBack) {
    const auto authenticator = MakeWaiting();
    PutEntry("a", "stored", clock.Now() + std::chrono::hours(1000), 0);

    EXPECT_EQ(UseFresh(*authenticator, "a"), "Bearer stored");
    EXPECT_EQ(client->Calls().size(), 0u);
}

TEST_F(JwtAuthenticatorTest, YoungTokenThatHasExpiredIsNotFresh) {
    const auto authenticator = MakeWaiting();
    PutEntry("a", "stored", clock.Now() - std::chrono::seconds(5), 4);

    EXPECT_EQ(UseFresh(*authenticator, "a"), "Bearer token-1");
}

TEST_F(JwtAuthenticatorTest, RefusedTwiceWithinTheLimitAsksOnce) {
    const auto authenticator = MakeWaiting();

    EXPECT_EQ(UseFresh(*authenticator, "a"), "Bearer token-1");
    EXPECT_EQ(UseFresh(*authenticator, "a"), "Bearer token-1");
    EXPECT_EQ(client->Calls().size(), 1u);

    clock.Advance(FreshnessLimit);
    EXPECT_EQ(UseFresh(*authenticator, "a"), "Bearer token-2");
    EXPECT_EQ(Stored("a"), Entry("a", "token-2", clock.Now(), 3600));
}

TEST_F(JwtAuthenticatorTest, NoLimitMakesEveryTokenStale) {
    JwtAuthenticator authenticator(client, Directory, Duration(0), nullptr);
    PutEntry("a", "stored", clock.Now(), 3600);

    EXPECT_EQ(UseFresh(authenticator, "a"), "Bearer token-1");
}

TEST_F(JwtAuthenticatorTest, FailedCallLeavesCacheAndRequestAsTheyWere) {
    const auto authenticator = MakeWaiting();
    PutEntry("a", "stored", clock.Now() - FreshnessLimit, 3600);
    client->AnswerWith(
        [](const auto&, auto) -> OAuth2Token { throw Cancellation::TimeoutException("too slow"); });
    const Request request = MakeRequest();

    EXPECT_THROW(authenticator->AddFreshAuthentication(request, MakeService("a"), {}),
                 Cancellation::TimeoutException);
    EXPECT_EQ(Failure([&] { Use(*authenticator, "b"); }), "too slow");

    EXPECT_EQ(Stored("a"), Entry("a", "stored", clock.Now() - FreshnessLimit, 3600));
    EXPECT_EQ(files.Contents().size(), 1u);
    EXPECT_EQ(request->GetHeader("Authorization"), "");
    EXPECT_EQ(Log().size(), 0u);
}

TEST_F(JwtAuthenticatorTest, TokenThatCannotBeStoredIsNotUsed) {
    const auto authenticator = MakeWaiting();
    files.FailEvery("BeginReplace", 28);
    const Request request = MakeRequest();

    EXPECT_EQ(Failure([&] { authenticator->AddAuthentication(request, MakeService("a"), {}); }),
              "Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" + PathOf("a") +
                  "-s' for write.");
    EXPECT_EQ(request->GetHeader("Authorization"), "");
}

TEST_F(JwtAuthenticatorTest, WorksWithoutALogger) {
    logger.reset();
    const auto authenticator = MakeWaiting();

    EXPECT_EQ(Use(*authenticator, "a"), "Bearer token-1");
    EXPECT_EQ(Use(*authenticator, "a"), "Bearer token-1");
    RunPass(1);
    EXPECT_EQ(client->Calls().size(), 2u);
}

TEST_F(JwtAuthenticatorTest, CachedTokenIsResetToItsDefaults) {
    JwtCachedToken token;
    token.lastRefreshed = clock.Now();
    token.token = FakeOAuth2Client::Token("a", 5);
    token.serviceName = "b";

    token.Reset();

    EXPECT_EQ(token.lastRefreshed, TimePoint());
    EXPECT_EQ(ObjectMapping::SerializeObject(token, nullptr),
              "{\n"
              "    \"lastRefreshed\": \"1970-01-01T00:00:00.0000000Z\",\n"
              "    \"token\": {\n"
              "        \"token_type\": \"\",\n"
              "        \"access_token\": \"\",\n"
              "        \"expires_in\": 0,\n"
              "        \"scope\": \"\"\n"
              "    },\n"
              "    \"servicename\": \"\"\n"
              "}");
}

TEST_F(JwtAuthenticatorTest, ManyCallersShareTheTokensWhileTheThreadRefreshesThem) {
    client->SetExpiresIn(4294967295);
    const auto authenticator = MakeWaiting();
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 6; ++caller) {
        callers.emplace_back([&, caller] {
            for (int i = 0; i < 40; ++i) {
                const std::string name = "service-" + std::to_string((caller + i) % 3);
                const std::string header =
                    i % 4 == 0 ? UseFresh(*authenticator, name) : Use(*authenticator, name);
                EXPECT_EQ(header.rfind("Bearer token-", 0), 0u);
            }
        });
    }
    for (std::size_t pass = 1; pass <= 3; ++pass)
        RunPass(pass);
    for (std::thread& caller : callers)
        caller.join();

    EXPECT_EQ(files.Contents().size(), 3u);
}

}  // namespace
}  // namespace Ombry::Tests
