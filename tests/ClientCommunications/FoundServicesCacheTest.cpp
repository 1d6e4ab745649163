#include "ClientCommunications/Impl/FoundServices.h"
#include "ClientCommunications/Impl/FoundServicesCache.h"
#include "ClientCommunications/Impl/SSDFoundServicesCache.h"
#include "ClientCommunications/Impl/SafeFileStorage.h"
#include "ClientCommunications/Impl/Service.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

namespace Ombry::Tests {
namespace {

using ClientCommunications::FoundServices;
using ClientCommunications::FoundServicesCache;
using ClientCommunications::FoundServicesDto;
using ClientCommunications::IFoundServices;
using ClientCommunications::ServiceDto;
using ClientCommunications::SSDFoundServicesCache;
using Texts = std::vector<std::string>;

/// One blob in memory.
class MemoryStorage : public ClientCommunications::IStorage {
public:
    std::string Load() override { return text; }
    void Save(const std::string& data) override {
        if (onSave) onSave();
        text = data;
        ++saves;
    }

    std::string text;
    int saves = 0;
    std::function<void()> onSave;
};

ServiceDto MakeDto(const std::string& url, const std::string& certificate = "") {
    ServiceDto dto;
    dto.endpointUrl = url;
    dto.endpointCert = certificate;
    return dto;
}

std::shared_ptr<IFoundServices> MakeFoundServices(const std::list<ServiceDto>& local,
                                                  const std::list<ServiceDto>& remote = {}) {
    FoundServicesDto dto;
    dto.local = local;
    dto.remote = remote;
    return std::make_shared<FoundServices>(dto);
}

Texts Urls(const std::list<std::shared_ptr<ClientCommunications::IService>>& services) {
    Texts urls;
    for (const auto& service : services)
        urls.push_back(service->GetEndpointUrl());
    std::sort(urls.begin(), urls.end());
    return urls;
}

/// A stored document with services of these URLs and certificates in the local list.
std::string StoredDocument(const std::vector<std::pair<std::string, std::string>>& services) {
    std::string text = "{\"expiryTime\": 1700000000, \"maxStaleTime\": 604500, \"local\": [";
    for (std::size_t i = 0; i < services.size(); ++i) {
        text += std::string(i == 0 ? "" : ",") +
                "{\"id\": \"i\", \"serviceName\": \"s\", \"endpointUrl\": \"" + services[i].first +
                "\", \"endpointCert\": \"" + services[i].second + "\"}";
    }
    return text + "], \"remote\": []}";
}

class FoundServicesCacheTest : public testing::Test {
protected:
    FakeClock clock;
    FakeRandom random;
    std::shared_ptr<MemoryStorage> storage = std::make_shared<MemoryStorage>();
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    const Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
};

TEST_F(FoundServicesCacheTest, NoFileIsAnEmptySetDueInFiveMinutes) {
    FoundServicesCache cache(storage, logger);

    EXPECT_EQ(cache.GetFoundServices()->GetAll().size(), 0u);
    EXPECT_EQ(cache.GetNextRefreshTime(), clock.Now() + std::chrono::seconds(300));
    EXPECT_EQ(storage->saves, 0);
}

TEST_F(FoundServicesCacheTest, FileIsRead) {
    storage->text =
        "{\"expiryTime\": 1700000000, \"local\": [{\"endpointUrl\": \"l\"}],"
        " \"remote\": [{\"endpointUrl\": \"r\"}, {\"endpointUrl\": \"s\"}]}";
    FoundServicesCache cache(storage, logger);

    EXPECT_EQ(Urls(cache.GetFoundServices()->GetLocal()), Texts{"l"});
    EXPECT_EQ(Urls(cache.GetFoundServices()->GetRemote()), (Texts{"r", "s"}));
    EXPECT_EQ(cache.GetNextRefreshTime(), TimePoint(std::chrono::seconds(1700000000)));
}

TEST_F(FoundServicesCacheTest, TimeBeyondTheRangeStopsAtItsEnd) {
    storage->text = "{\"expiryTime\": 9223372036854775807}";
    EXPECT_EQ(FoundServicesCache(storage, logger).GetNextRefreshTime(), TimePoint::max());
    storage->text = "{\"expiryTime\": -9223372036854775808}";
    EXPECT_EQ(FoundServicesCache(storage, logger).GetNextRefreshTime(), TimePoint::min());
}

TEST_F(FoundServicesCacheTest, FileThatIsNoJsonFailsEveryLaterStart) {
    storage->text = "{\"expiryTime\": 17";
    for (int start = 0; start < 2; ++start) {
        try {
            SSDFoundServicesCache cache(MakeFoundServices({MakeDto("u", "c")}), storage, logger);
            ADD_FAILURE();
        } catch (const std::runtime_error& failure) {
            EXPECT_EQ(std::string(failure.what()).rfind("ERROR: Parse failed at offset ", 0), 0u)
                << failure.what();
        }
    }
    EXPECT_EQ(storage->saves, 0);
}

TEST_F(FoundServicesCacheTest, SavedFileHoldsEveryField) {
    FoundServicesCache cache(storage, logger);
    ServiceDto local;
    local.serviceHostname = "host";
    local.serviceNamespace = "space";
    local.id = "id";
    local.serviceName = "v1-service";
    local.endpointUrl = "https://host:1";
    local.endpointCert = "Y2VydA==";
    ServiceDto::Property property;
    property.key = "k";
    property.value = "v";
    local.properties.push_back(property);
    const auto services = MakeFoundServices({local}, {MakeDto("https://far")});
    const TimePoint next(Duration(16'000'000'009'999'999));

    cache.Save(services, next);

    const std::string expected =
        "{\n"
        "    \"expiryTime\": 1600000000,\n"
        "    \"maxStaleTime\": 604500,\n"
        "    \"local\": [\n"
        "        {\n"
        "            \"serviceHostname\": \"host\",\n"
        "            \"serviceNamespace\": \"space\",\n"
        "            \"id\": \"id\",\n"
        "            \"serviceName\": \"v1-service\",\n"
        "            \"endpointUrl\": \"https://host:1\",\n"
        "            \"endpointCert\": \"Y2VydA==\",\n"
        "            \"properties\": [\n"
        "                {\n"
        "                    \"key\": \"k\",\n"
        "                    \"value\": \"v\"\n"
        "                }\n"
        "            ]\n"
        "        }\n"
        "    ],\n"
        "    \"remote\": [\n"
        "        {\n"
        "            \"serviceHostname\": \"\",\n"
        "            \"serviceNamespace\": \"\",\n"
        "            \"id\": \"\",\n"
        "            \"serviceName\": \"\",\n"
        "            \"endpointUrl\": \"https://far\",\n"
        "            \"endpointCert\": \"\",\n"
        "            \"properties\": []\n"
        "        }\n"
        "    ]\n"
        "}";
    EXPECT_EQ(storage->text, expected);
    EXPECT_EQ(cache.GetFoundServices(), services);
    EXPECT_EQ(cache.GetNextRefreshTime(), next);  // memory keeps what the file cuts to seconds
    ASSERT_EQ(logger->Entries().size(), 1u);
    EXPECT_EQ(logger->Entries()[0].message, "Found: " + expected);
    EXPECT_EQ(logger->Entries()[0].level, 1);
    EXPECT_EQ(logger->Entries()[0].function, "Ombry::ClientCommunications::FoundServicesCache::Save");
    EXPECT_EQ(logger->Entries()[0].file, SourcePath("ClientCommunications/Impl/FoundServicesCache.cpp"));
}

TEST_F(FoundServicesCacheTest, ServicesAreSavedInTheOrderInWhichTheyAreGiven) {
    class Ordered : public FoundServices {
    public:
        using FoundServices::FoundServices;
        std::list<std::shared_ptr<ClientCommunications::IService>> GetLocal() const override {
            return {std::make_shared<ClientCommunications::Service>(MakeDto("z")),
                    std::make_shared<ClientCommunications::Service>(MakeDto("a")),
                    std::make_shared<ClientCommunications::Service>(MakeDto("m"))};
        }
    };
    FoundServicesCache(storage, logger).Save(std::make_shared<Ordered>(), TimePoint());

    const auto z = storage->text.find("\"z\"");
    const auto a = storage->text.find("\"a\"");
    const auto m = storage->text.find("\"m\"");
    EXPECT_LT(z, a);
    EXPECT_LT(a, m);
    EXPECT_NE(m, std::string::npos);
}

TEST_F(FoundServicesCacheTest, WhatWasSavedIsReadByTheNextProcess) {
    FoundServicesCache(storage, logger)
        .Save(MakeFoundServices({MakeDto("a", "c"), MakeDto("b")}, {MakeDto("r")}),
              TimePoint(std::chrono::seconds(7)));
    FoundServicesCache next(storage, logger);

    EXPECT_EQ(Urls(next.GetFoundServices()->GetLocal()), (Texts{"a", "b"}));
    EXPECT_EQ(Urls(next.GetFoundServices()->GetRemote()), Texts{"r"});
    EXPECT_EQ(next.GetNextRefreshTime(), TimePoint(std::chrono::seconds(7)));
}

TEST_F(FoundServicesCacheTest, FailedWriteLeavesTheMemoryAsItWas) {
    FoundServicesCache cache(storage, logger);
    const auto before = cache.GetFoundServices();
    const TimePoint due = cache.GetNextRefreshTime();
    storage->onSave = [] { throw std::runtime_error("disk is full"); };

    EXPECT_THROW(cache.Save(MakeFoundServices({MakeDto("u")}), TimePoint()), std::runtime_error);

    EXPECT_EQ(cache.GetFoundServices(), before);
    EXPECT_EQ(cache.GetNextRefreshTime(), due);
    EXPECT_EQ(logger->Messages(1).size(), 1u);  // told before it is written
}

TEST_F(FoundServicesCacheTest, ReadersGoOnWhileTheFileIsWritten) {
    FoundServicesCache cache(storage, logger);
    const auto before = cache.GetFoundServices();
    storage->onSave = [&] {
        std::thread([&] { EXPECT_EQ(cache.GetFoundServices(), before); }).join();
        std::thread([&] { cache.GetNextRefreshTime(); }).join();
    };

    cache.Save(MakeFoundServices({MakeDto("u")}), TimePoint());

    EXPECT_EQ(storage->saves, 1);
}

TEST_F(FoundServicesCacheTest, ReadersGoOnWhileAnOldSetIsTakenApart) {
    class Asking : public FoundServices {
    public:
        explicit Asking(std::function<void()> ask) : ask(std::move(ask)) {}
        ~Asking() override { ask(); }

    private:
        const std::function<void()> ask;
    };
    FoundServicesCache cache(storage, logger);
    const auto following = MakeFoundServices({MakeDto("u")});
    std::shared_ptr<IFoundServices> seen;
    cache.Save(std::make_shared<Asking>([&] { seen = cache.GetFoundServices(); }), TimePoint());

    cache.Save(following, TimePoint());

    EXPECT_EQ(seen, following);
}

TEST_F(FoundServicesCacheTest, ReadersKeepTheSetThatTheyHave) {
    FoundServicesCache cache(storage, logger);
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                const auto held = cache.GetFoundServices();
                cache.GetNextRefreshTime();
                EXPECT_LE(held->GetAll().size(), 1u);
            }
        });
    }
    for (int i = 0; i < 50; ++i)
        cache.Save(MakeFoundServices({MakeDto("u" + std::to_string(i))}), TimePoint(Duration(i)));
    for (std::thread& reader : readers)
        reader.join();
}

TEST_F(FoundServicesCacheTest, EmptyAnswerIsSavedThoughItLeavesNoInstance) {
    SSDFoundServicesCache cache(MakeFoundServices({MakeDto("u", "c")}), storage, logger);

    cache.Save(MakeFoundServices({}), TimePoint(std::chrono::seconds(1700000000)));

    EXPECT_EQ(cache.GetFoundServices()->GetAll().size(), 0u);
    EXPECT_EQ(FoundServicesCache(storage, logger).GetFoundServices()->GetAll().size(), 0u);
    // The seeds come back with the next start.
    SSDFoundServicesCache next(MakeFoundServices({MakeDto("u", "c")}), storage, logger);
    EXPECT_EQ(Urls(next.GetFoundServices()->GetAll()), Texts{"u"});
}

TEST_F(FoundServicesCacheTest, SeedsAreSavedWhereNothingWas) {
    const auto seeds = MakeFoundServices({MakeDto("a", "1"), MakeDto("b", "2")});
    SSDFoundServicesCache cache(seeds, storage, logger);

    EXPECT_EQ(cache.GetFoundServices(), seeds);
    EXPECT_EQ(cache.GetNextRefreshTime(), TimePoint());
    EXPECT_EQ(storage->saves, 1);
    EXPECT_EQ(storage->text.rfind("{\n    \"expiryTime\": 0,\n    \"maxStaleTime\": 604500,\n", 0), 0u);
    EXPECT_EQ(Urls(FoundServicesCache(storage, logger).GetFoundServices()->GetLocal()), (Texts{"a", "b"}));
    const auto entries = logger->Entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(
        entries[0].message,
        "Either the cache doesn't exist or the existing cache doesn't contain seed nodes.  Seeding cache.");
    EXPECT_EQ(entries[0].level, 2);
    EXPECT_EQ(entries[0].function,
              "Ombry::ClientCommunications::SSDFoundServicesCache::SSDFoundServicesCache");
    EXPECT_EQ(entries[1].level, 1);
}

TEST_F(FoundServicesCacheTest, CacheKeepsWhatItHasIfASeedIsInItWithItsCertificate) {
    using Services = std::vector<std::pair<std::string, std::string>>;
    struct Case {
        const char* name;
        Services cached;
        Services seeds;
        bool kept;
    };
    const std::vector<Case> cases = {
        {"nothing cached", {}, {{"a", "1"}}, false},
        {"the seed", {{"a", "1"}}, {{"a", "1"}}, true},
        {"another certificate", {{"a", "2"}}, {{"a", "1"}}, false},
        {"no certificate any more", {{"a", ""}}, {{"a", "1"}}, false},
        {"no certificate yet", {{"a", ""}}, {{"a", ""}}, true},
        {"strangers alone", {{"b", "1"}, {"c", "1"}}, {{"a", "1"}}, false},
        {"seed among strangers", {{"b", "9"}, {"a", "1"}, {"c", "8"}}, {{"a", "1"}}, true},
        {"one of two seeds", {{"a", "1"}}, {{"a", "1"}, {"b", "2"}}, true},
        {"one of two changed", {{"a", "1"}, {"b", "3"}}, {{"a", "1"}, {"b", "2"}}, false},
        {"the other changed", {{"b", "3"}, {"a", "1"}}, {{"b", "2"}, {"a", "1"}}, false},
        {"seed twice, once changed", {{"a", "1"}, {"a", "2"}}, {{"a", "1"}}, false},
        {"other case in the address", {{"A", "1"}}, {{"a", "1"}}, false},
        {"no seeds", {{"a", "1"}}, {}, false},
    };
    for (const Case& one : cases) {
        storage->text = StoredDocument(one.cached);
        storage->saves = 0;
        logger->Clear();
        std::list<ServiceDto> seeds;
        for (const auto& [url, certificate] : one.seeds)
            seeds.push_back(MakeDto(url, certificate));

        SSDFoundServicesCache cache(MakeFoundServices(seeds), storage, logger);

        EXPECT_EQ(storage->saves, one.kept ? 0 : 1) << one.name;
        EXPECT_EQ(logger->Messages(2).size(), one.kept ? 0u : 1u) << one.name;
        EXPECT_EQ(cache.GetNextRefreshTime(),
                  one.kept ? TimePoint(std::chrono::seconds(1700000000)) : TimePoint())
            << one.name;
        EXPECT_EQ(cache.GetFoundServices()->GetAll().size(), one.kept ? one.cached.size() : one.seeds.size())
            << one.name;
    }
}

TEST_F(FoundServicesCacheTest, RemoteServicesCountAmongSeedsAndCached) {
    storage->text = "{\"expiryTime\": 5, \"remote\": [{\"endpointUrl\": \"a\", \"endpointCert\": \"1\"}]}";
    SSDFoundServicesCache cache(MakeFoundServices({}, {MakeDto("a", "1")}), storage, logger);

    EXPECT_EQ(storage->saves, 0);
}

TEST_F(FoundServicesCacheTest, SeedsThatCannotBeWrittenFailTheStart) {
    storage->onSave = [] { throw std::runtime_error("disk is full"); };

    EXPECT_THROW(SSDFoundServicesCache(MakeFoundServices({MakeDto("a", "1")}), storage, logger),
                 std::runtime_error);
}

TEST_F(FoundServicesCacheTest, FileOnTheDiskIsTheCommittedHalfOfAPair) {
    MemoryFiles files;
    const Platform::Testing::Replace<Platform::IFiles> replaced(files);
    const auto file =
        std::make_shared<ClientCommunications::SafeFileStorage>("/cache/v1-service.cache", false);
    SSDFoundServicesCache cache(MakeFoundServices({MakeDto("a", "1")}), file, nullptr);

    ASSERT_EQ(files.Contents().size(), 1u);
    EXPECT_EQ(files.Contents().begin()->first, "/cache/v1-service.cache-p");
    EXPECT_EQ(Urls(FoundServicesCache(file, nullptr).GetFoundServices()->GetAll()), Texts{"a"});
}

}  // namespace
}  // namespace Ombry::Tests
