#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/ServiceFinder.h"
#include "ClientCommunications/Impl/ServiceRequestFactory.h"
#include "ClientCommunications/RootRequestMetaData.h"
#include "ObjectMapping/Serialization.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeService.h"
#include "tests/Fakes/MemoryKeyValueStorage.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using namespace std::chrono_literals;
using Cancellation::Token;
using Lines = std::vector<std::string>;

constexpr long long Now = 1'600'000'000;
const std::string Path = "/services/services/secure/name/some";

std::string Document(const std::vector<std::string>& local, const std::vector<std::string>& remote,
                     long long expiryTime, long long maxStaleTime) {
    FoundServicesDto dto;
    const auto fill = [](std::list<ServiceDto>& list, const std::vector<std::string>& ids) {
        for (const std::string& id : ids) {
            ServiceDto service;
            service.id = id;
            service.serviceName = "name of " + id;
            service.endpointUrl = "https://" + id;
            list.push_back(service);
        }
    };
    fill(dto.local, local);
    fill(dto.remote, remote);
    dto.expiryTime = expiryTime;
    dto.maxStaleTime = maxStaleTime;
    return ObjectMapping::SerializeObject(dto, nullptr);
}

/// The answer of a discovery service that leaves the times to its headers.
const char* const Answer =
    R"({"expiryTime":1,"maxStaleTime":2,"local":[{"id":"new","serviceName":"n","endpointUrl":"u"}]})";

class ServiceFinderTest : public testing::Test {
protected:
    ServiceFinder Make(std::shared_ptr<IKeyValueStorage> storage) {
        return ServiceFinder(gateway, std::make_shared<ServiceRequestFactory>("id", "client", "dc"),
                             std::move(storage), logger, Path);
    }

    ServiceFinder Make() { return Make(cache); }

    FoundServicesDto Stored() const {
        FoundServicesDto dto;
        ObjectMapping::DeserializeObject(dto, cache->Values().at(Path), nullptr, true);
        return dto;
    }

    /// Each line as its level and its text.
    Lines Log() const {
        Lines lines;
        for (const auto& entry : logger->Entries()) {
            lines.push_back(std::to_string(entry.level) + " " + entry.message);
            const bool isList =
                entry.message.starts_with("Loaded ") || entry.message.find(" at ") != std::string::npos;
            EXPECT_EQ(entry.function, isList
                                          ? "Ombry::ClientCommunications::ServiceFinder::TraceFoundServices"
                                          : "Ombry::ClientCommunications::ServiceFinder::Find");
            EXPECT_EQ(entry.file, SourcePath("ClientCommunications/Impl/ServiceFinder.cpp"));
        }
        return lines;
    }

    template <class Exception>
    static std::string WhatOf(const std::function<void()>& operation) {
        try {
            operation();
        } catch (const Exception& failure) {
            return failure.what();
        }
        return "nothing thrown";
    }

    FakeClock clock{TimePoint(Duration(SecondsToTicks(Now)))};
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
    std::shared_ptr<ScriptedGateway> gateway = std::make_shared<ScriptedGateway>();
    std::shared_ptr<MemoryKeyValueStorage> cache = std::make_shared<MemoryKeyValueStorage>();
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
};

TEST_F(ServiceFinderTest, AFreshCopyNeedsNoCall) {
    cache->Put(Path, Document({"a"}, {"b"}, Now + 1, 0));
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"a", "b"}));
    EXPECT_TRUE(gateway->calls.empty());
    EXPECT_EQ(cache->Operations(), (Lines{"get " + Path}));
    EXPECT_EQ(Log(), (Lines{"0 Returning cached result for " + Path, "0 Loaded from cache for " + Path,
                            "0 local name of a at https://a", "0 remote name of b at https://b"}));
}

TEST_F(ServiceFinderTest, AFreshCopyOfNothingIsAnAnswerToo) {
    cache->Put(Path, Document({}, {}, Now + 1, 0));
    EXPECT_TRUE(Make().Find(Token())->GetAll().empty());
    EXPECT_EQ(Log(), (Lines{"0 Returning cached result for " + Path,
                            "3 Loaded zero services from cache for " + Path}));
}

TEST_F(ServiceFinderTest, ACopyThatLacksKeysIsReadWithTheDefaults) {
    cache->Put(Path, R"({"local":[{"id":"a"}]})");
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"a"}));  // fresh for 300 seconds from now
    EXPECT_TRUE(gateway->calls.empty());
    cache->Put(Path, R"({"expiryTime":1599395500,"local":[{"id":"b"}]})");
    gateway->Throw(CommunicationsError("down"));
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"b"}));  // stale for 604,500 seconds
    cache->Put(Path, R"({"expiryTime":1599395499,"local":[{"id":"c"}]})");
    gateway->Throw(CommunicationsError("down"));
    EXPECT_THROW(Make().Find(Token()), CommunicationsError);
}

TEST_F(ServiceFinderTest, ACopyThatExpiresThisSecondIsStale) {
    cache->Put(Path, Document({"a"}, {}, Now, 100));
    gateway->Answer(200, Answer);
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"new"}));
    EXPECT_EQ(gateway->calls.size(), 1u);
}

TEST_F(ServiceFinderTest, WithoutACopyTheCallHasTheFullBudget) {
    gateway->Answer(200, Answer, {{"Cache-Control", "max-age=60, stale-while-revalidate=120"}});
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"new"}));
    ASSERT_EQ(gateway->calls.size(), 1u);
    const auto& call = gateway->calls[0];
    EXPECT_FALSE(call.streamed);
    EXPECT_EQ(call.method, "GET");
    EXPECT_EQ(call.path, Path);
    EXPECT_EQ(call.body, "");
    EXPECT_EQ(call.headers, (std::map<std::string, std::string>{
                                {"Contract-Version", "1"},
                                {"Datacenter-Id", "dc"},
                                {"SF-Root-Attempt", "1"},
                                {"SF-Root-Correlation-Id", "ClientToService"},
                                {"SF-Root-Request-Type", "FindServices"},
                                {"SF-Source-Client-Id", "id"},
                                {"SF-Source-Client-Name", "client"},
                                {"SF-Source-Datacenter-Id", "dc"},
                            }));
    EXPECT_EQ(call.maxRetries, 2147483647);
    EXPECT_EQ(call.attemptTimeout, Duration(1'000'000'000));
    clock.Advance(300s - Duration(1));
    EXPECT_FALSE(call.requestToken.IsCancelled());
    clock.Advance(Duration(1));
    EXPECT_TRUE(call.requestToken.IsCancelled());
}

TEST_F(ServiceFinderTest, WithAStaleCopyTheCallIsCheap) {
    cache->Put(Path, Document({"a"}, {}, Now - 1, 100));
    gateway->Answer(200, Answer);
    Make().Find(Token());
    ASSERT_EQ(gateway->calls.size(), 1u);
    const auto& call = gateway->calls[0];
    EXPECT_EQ(call.maxRetries, 0);
    EXPECT_EQ(call.attemptTimeout, Duration(60'000'000));
    clock.Advance(Duration(59'999'999));
    EXPECT_FALSE(call.requestToken.IsCancelled());
    clock.Advance(Duration(1));
    EXPECT_TRUE(call.requestToken.IsCancelled());
}

TEST_F(ServiceFinderTest, TheCallersTokenTravelsInTheRequestAndTheCallsOwnIsDefault) {
    gateway->Answer(200, Answer);
    const Token token = Cancellation::CreateCancellable();
    Make().Find(token);
    EXPECT_FALSE(gateway->calls[0].requestToken.IsCancelled());
    token.Cancel();
    EXPECT_TRUE(gateway->calls[0].requestToken.IsCancelled());
    EXPECT_FALSE(gateway->calls[0].token.IsCancelled());
}

TEST_F(ServiceFinderTest, MetadataOfTheCallerTakesThePlaceOfItsOwn) {
    gateway->Answer(200, Answer);
    Make().Find(RootRequestMetaData::createInfrastructure("Other"), Token());
    EXPECT_EQ(gateway->calls[0].headers.at("SF-Root-Request-Type"), "Other");
    EXPECT_EQ(gateway->calls[0].headers.at("SF-Root-Request-Is-Infrastructure"), "true");
}

TEST_F(ServiceFinderTest, AStaleCopyServesUntilTheLastSecondOfItsStaleTime) {
    cache->Put(Path, Document({"a"}, {}, Now - 100, 100));
    gateway->Throw(CommunicationsError("down"));
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"a"}));
    EXPECT_EQ(cache->Operations(), (Lines{"get " + Path}));
    EXPECT_EQ(Log(), (Lines{"4 Caught exception: down", "0 Returning cached result."}));
}

TEST_F(ServiceFinderTest, ATooOldCopyIsDeletedAndTheCallHasTheFullBudget) {
    cache->Put(Path, Document({"a"}, {}, Now - 101, 100));
    gateway->Throw(CommunicationsError("down"));
    EXPECT_EQ(WhatOf<CommunicationsError>([&] { Make().Find(Token()); }), "down");
    EXPECT_EQ(gateway->calls[0].maxRetries, 2147483647);
    EXPECT_EQ(gateway->calls[0].attemptTimeout, Duration(1'000'000'000));
    EXPECT_EQ(cache->Operations(), (Lines{"get " + Path, "remove " + Path}));
    EXPECT_EQ(Log(), (Lines{"0 Removing cached result older than maximum age.", "4 Caught exception: down"}));
}

TEST_F(ServiceFinderTest, AgesBeyondTheRangeSaturate) {
    constexpr long long most = std::numeric_limits<long long>::max();
    cache->Put(Path, Document({"a"}, {}, Now - 1, most));
    gateway->Throw(CommunicationsError("down"));
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"a"}));
}

TEST_F(ServiceFinderTest, AnHttpErrorFallsBackOnTheCopy) {
    cache->Put(Path, Document({"a"}, {}, Now - 1, 100));
    gateway->Answer(300, "page");
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"a"}));
    EXPECT_EQ(Log(), (Lines{"4 HTTP error 300: page", "0 Returning cached result.",
                            "0 Loaded from cache for " + Path, "0 local name of a at https://a"}));
    EXPECT_EQ(cache->Operations(), (Lines{"get " + Path}));
}

TEST_F(ServiceFinderTest, AnHttpErrorWithoutACopyIsTheCallers) {
    gateway->Answer(503, "out of\norder");
    EXPECT_EQ(WhatOf<std::runtime_error>([&] { Make().Find(Token()); }), "HTTP error 503: out of\norder");
    EXPECT_EQ(Log(), (Lines{"4 HTTP error 503: out of\norder",
                            "4 Caught exception: HTTP error 503: out of\norder"}));
    EXPECT_EQ(cache->Operations(), (Lines{"get " + Path}));
}

TEST_F(ServiceFinderTest, AStatusBelow300IsAnAnswer) {
    gateway->Answer(299, Answer);
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"new"}));
}

TEST_F(ServiceFinderTest, AnAnswerIsStoredWithTheTimesOfItsCacheControl) {
    gateway->Answer(200, Answer, {{"Cache-Control", "max-age=60, stale-while-revalidate=120"}});
    Make().Find(Token());
    EXPECT_EQ(Stored().expiryTime, Now + 60);
    EXPECT_EQ(Stored().maxStaleTime, 120);
    EXPECT_EQ(Stored().local.front().id, "new");
    EXPECT_EQ(cache->Operations(), (Lines{"get " + Path, "set " + Path}));
    EXPECT_EQ(Log(),
              (Lines{"0 Storing result in cache.", "0 Loaded from SSDS for " + Path, "0 local n at u"}));
}

TEST_F(ServiceFinderTest, WithoutCacheControlTheDefaultsOrTheDocumentsOwnTimesAreStored) {
    gateway->Answer(200, "{}");
    gateway->Answer(200, Answer);
    Make().Find(Token());
    EXPECT_EQ(Stored().expiryTime, Now + 300);
    EXPECT_EQ(Stored().maxStaleTime, 604'500);
    cache->RemoveByKey(Path);
    Make().Find(Token());
    EXPECT_EQ(Stored().expiryTime, 1);
    EXPECT_EQ(Stored().maxStaleTime, 2);
}

TEST_F(ServiceFinderTest, NothingOfTheStaleCopyIsLeftInTheAnswerThatReplacesIt) {
    cache->Put(Path, Document({"a"}, {"b"}, Now - 1, 100));
    gateway->Answer(200, "{}");
    EXPECT_TRUE(Make().Find(Token())->GetAll().empty());
    EXPECT_EQ(Stored().expiryTime, Now + 300);
    EXPECT_EQ(Stored().maxStaleTime, 604'500);
    EXPECT_TRUE(Stored().local.empty());
    EXPECT_TRUE(Stored().remote.empty());
}

TEST_F(ServiceFinderTest, AnAnswerOfNothingIsReturnedAndStored) {
    gateway->Answer(200, R"({"local":[],"remote":[]})");
    EXPECT_TRUE(Make().Find(Token())->GetAll().empty());
    EXPECT_EQ(Log(), (Lines{"0 Storing result in cache.", "3 Loaded zero services from SSDS for " + Path}));
    EXPECT_TRUE(Stored().local.empty());
}

TEST_F(ServiceFinderTest, ARemoteListAloneIsTracedToo) {
    gateway->Answer(200, R"({"remote":[{"id":"r","serviceName":"n","endpointUrl":"u"}]})");
    EXPECT_EQ(Ids(Make(nullptr).Find(Token())->GetRemote()), (Lines{"r"}));
    EXPECT_EQ(Log(), (Lines{"0 Loaded from SSDS for " + Path, "0 remote n at u"}));
}

TEST_F(ServiceFinderTest, WithoutACacheNothingIsStoredAndCacheControlIsNotRead) {
    gateway->Answer(200, Answer, {{"Cache-Control", "short"}});
    gateway->Answer(200, Answer);
    ServiceFinder finder = Make(nullptr);
    EXPECT_EQ(Ids(finder.Find(Token())->GetAll()), (Lines{"new"}));
    finder.Find(Token());
    EXPECT_EQ(gateway->calls.size(), 2u);
    EXPECT_FALSE(logger->Has(0, "Storing result in cache."));
}

TEST_F(ServiceFinderTest, ATooShortCacheControlFailsAGoodAnswer) {
    gateway->Answer(200, Answer, {{"Cache-Control", "no-cache"}});
    EXPECT_EQ(WhatOf<std::out_of_range>([&] { Make().Find(Token()); }), "invalid string position");
    EXPECT_EQ(Log(), (Lines{"0 Storing result in cache.", "4 Caught exception: invalid string position"}));
    EXPECT_TRUE(cache->Values().empty());
}

TEST_F(ServiceFinderTest, ATooShortCacheControlFallsBackOnTheCopyAlthoughTheAnswerIsGood) {
    cache->Put(Path, Document({"a"}, {}, Now - 1, 100));
    gateway->Answer(200, Answer, {{"Cache-Control", "no-cache"}});
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"a"}));
}

TEST_F(ServiceFinderTest, AFailedCacheWriteFailsAGoodAnswer) {
    cache->FailSetting(std::make_exception_ptr(std::runtime_error("disk full")));
    gateway->Answer(200, Answer);
    EXPECT_EQ(WhatOf<std::runtime_error>([&] { Make().Find(Token()); }), "disk full");
    EXPECT_EQ(Log(), (Lines{"0 Storing result in cache.", "4 Caught exception: disk full"}));
}

TEST_F(ServiceFinderTest, AFailedCacheWriteFallsBackOnTheCopyAlthoughTheAnswerIsGood) {
    cache->Put(Path, Document({"a"}, {}, Now - 1, 100));
    cache->FailSetting(std::make_exception_ptr(std::runtime_error("disk full")));
    gateway->Answer(200, Answer);
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"a"}));
    EXPECT_EQ(Log(), (Lines{"0 Storing result in cache.", "4 Caught exception: disk full",
                            "0 Returning cached result."}));
}

TEST_F(ServiceFinderTest, AnAnswerThatIsNoDocumentFallsBackOnTheCopy) {
    cache->Put(Path, Document({"a"}, {}, Now - 1, 100));
    gateway->Answer(200, "<html>");
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"a"}));
    EXPECT_EQ(logger->Messages(0), (Lines{"Returning cached result."}));
}

TEST_F(ServiceFinderTest, AnAnswerThatIsNoDocumentWithoutACopyIsTheCallers) {
    gateway->Answer(200, "");
    EXPECT_THROW(Make().Find(Token()), std::runtime_error);
    EXPECT_EQ(cache->Operations(), (Lines{"get " + Path}));
}

TEST_F(ServiceFinderTest, ACancelledCallFallsBackOnTheCopyToo) {
    cache->Put(Path, Document({"a"}, {}, Now - 1, 100));
    gateway->Throw(Cancellation::OperationCancelledException());
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"a"}));
}

TEST_F(ServiceFinderTest, ACopyThatCannotBeReadFailsEveryFindUntilItIsDeleted) {
    cache->Put(Path, "{\"expiryTime\":");
    const std::string expected =
        "ERROR: Parse failed at offset 14 due to error 'Invalid value.' (near '{\"expiryTime\":') "
        "serialization_='{\"expiryTime\":'";
    EXPECT_EQ(WhatOf<std::runtime_error>([&] { Make().Find(Token()); }), expected);
    EXPECT_EQ(WhatOf<std::runtime_error>([&] { Make().Find(Token()); }), expected);
    EXPECT_TRUE(gateway->calls.empty());
    EXPECT_TRUE(Log().empty());
    cache->RemoveByKey(Path);
    gateway->Answer(200, Answer);
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"new"}));
}

/// A storage whose folder is gone.
class BrokenStorage : public MemoryKeyValueStorage {
public:
    explicit BrokenStorage(std::string brokenOperation) : brokenOperation(std::move(brokenOperation)) {}

    std::string GetByKey(const std::string& key) override {
        if (brokenOperation == "get") throw std::runtime_error("no get");
        return MemoryKeyValueStorage::GetByKey(key);
    }
    void RemoveByKey(const std::string& key) override {
        if (brokenOperation == "remove") throw std::runtime_error("no remove");
        MemoryKeyValueStorage::RemoveByKey(key);
    }

private:
    const std::string brokenOperation;
};

TEST_F(ServiceFinderTest, AStorageThatFailsBeforeTheCallIsTheCallersWithoutALineOrACall) {
    for (const std::string operation : {"get", "remove"}) {
        const auto broken = std::make_shared<BrokenStorage>(operation);
        broken->Put(Path, Document({"a"}, {}, Now - 101, 100));
        EXPECT_EQ(WhatOf<std::runtime_error>([&] { Make(broken).Find(Token()); }), "no " + operation);
    }
    EXPECT_TRUE(gateway->calls.empty());
    EXPECT_EQ(Log(), (Lines{"0 Removing cached result older than maximum age."}));
}

TEST_F(ServiceFinderTest, ARequestThatCannotBeMadeFallsBackOnTheCopyToo) {
    class NoRequests : public IServiceRequestFactory {
    public:
        std::shared_ptr<IServiceRequest> Create(const std::string&, const std::string&, const std::string&,
                                                std::shared_ptr<IRootRequestMetaData>) override {
            throw std::runtime_error("no request");
        }
        std::shared_ptr<IServiceRequest> Create(const std::string&, const std::string&,
                                                const std::string&) override {
            throw std::logic_error("the root of the call is missing");
        }
    };
    cache->Put(Path, Document({"a"}, {}, Now - 1, 100));
    ServiceFinder finder(gateway, std::make_shared<NoRequests>(), cache, logger, Path);
    EXPECT_EQ(Ids(finder.Find(Token())->GetAll()), (Lines{"a"}));
    EXPECT_EQ(Log(), (Lines{"4 Caught exception: no request", "0 Returning cached result."}));
}

TEST_F(ServiceFinderTest, AStoredAnswerServesTheNextFinderUntilItExpires) {
    gateway->Answer(200, Answer, {{"Cache-Control", "max-age=60, stale-while-revalidate=120"}});
    gateway->Answer(200, "{}");
    Make().Find(Token());
    clock.Advance(60s - Duration(1));
    EXPECT_EQ(Ids(Make().Find(Token())->GetAll()), (Lines{"new"}));
    EXPECT_EQ(gateway->calls.size(), 1u);
    clock.Advance(Duration(1));
    EXPECT_TRUE(Make().Find(Token())->GetAll().empty());
}

TEST_F(ServiceFinderTest, WithoutALoggerItWorksTheSame) {
    ServiceFinder finder(gateway, std::make_shared<ServiceRequestFactory>("id", "client", "dc"), cache,
                         nullptr, Path);
    gateway->Answer(200, "{}");
    EXPECT_TRUE(finder.Find(Token())->GetAll().empty());
    EXPECT_TRUE(finder.Find(Token()));  // the fresh copy
    EXPECT_EQ(gateway->calls.size(), 1u);
}

}  // namespace
}  // namespace Ombry::Tests
