#include "ClientCommunications/Impl/FoundServices.h"
#include "ObjectMapping/Serialization.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/FakeService.h"
#include "tests/Fakes/FreedMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <optional>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using Order = std::vector<std::string>;

/// Counts up from one seed word to the next.
class CountingRandom : public FakeRandom {
public:
    std::uint32_t SeedWord() override { return ++draws; }
    std::atomic<std::uint32_t> draws{0};
};

class FoundServicesTest : public testing::Test {
protected:
    CountingRandom random;
    Platform::Testing::Replace<Platform::IRandom> replaced{random};
};

const Order Ten{"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"};

Order Sorted(Order order) {
    std::sort(order.begin(), order.end());
    return order;
}

TEST_F(FoundServicesTest, ANewSetIsEmpty) {
    const FoundServices found;
    EXPECT_TRUE(found.GetLocal().empty());
    EXPECT_TRUE(found.GetRemote().empty());
    EXPECT_TRUE(found.GetAll().empty());
}

TEST_F(FoundServicesTest, TakesTheRecordsOfADocumentOverInsteadOfCopyingThem) {
    const std::string certificate(1000, 'c');
    FoundServicesDto dto;
    for (std::list<ServiceDto>* const list : {&dto.local, &dto.remote}) {
        list->emplace_back().endpointCert = certificate;
        list->emplace_back().endpointCert = certificate;
    }
    std::optional<FoundServices> found;
    {
        // A copy shows as an original that is freed.
        const FreedMemory freed(certificate);
        found.emplace(std::move(dto));
        dto = FoundServicesDto();
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    }
    for (const auto& service : found->GetAll())
        EXPECT_EQ(service->GetEndpointCertificate(), certificate);
    EXPECT_EQ(found->GetAll().size(), 4u);
}

TEST_F(FoundServicesTest, EachReadingIsAPermutationInANewOrder) {
    FoundServices found;
    found.AddLocal(MakeServices(Ten));
    found.AddRemote(MakeServices(Ten));
    const Order first = Ids(found.GetLocal());
    const Order second = Ids(found.GetLocal());
    const Order third = Ids(found.GetRemote());
    EXPECT_EQ(Sorted(first), Ten);
    EXPECT_EQ(Sorted(second), Ten);
    EXPECT_EQ(Sorted(third), Ten);
    EXPECT_NE(first, second);
    EXPECT_NE(second, third);
    EXPECT_EQ(random.draws, 3u);
}

TEST_F(FoundServicesTest, TheStoredOrderNeverChanges) {
    FoundServices found;
    found.AddLocal(MakeServices(Ten));
    found.AddRemote(MakeServices(Ten));
    const Order local = Ids(found.GetLocal());
    random.draws = 0;  // the same seed over the same stored order gives the same result
    EXPECT_EQ(Ids(found.GetLocal()), local);
    const Order remote = Ids(found.GetRemote());
    random.draws = 1;
    EXPECT_EQ(Ids(found.GetRemote()), remote);
}

TEST_F(FoundServicesTest, WhatIsAddedStandsBehindWhatWasThere) {
    // One seed over one stored order gives one result.
    const auto read = [this](const FoundServices& found) {
        random.draws = 0;
        Order order = Ids(found.GetLocal());
        const Order remote = Ids(found.GetRemote());
        order.insert(order.end(), remote.begin(), remote.end());
        return order;
    };
    FoundServices atOnce;
    atOnce.AddLocal(MakeServices(Ten));
    atOnce.AddRemote(MakeServices(Ten));
    FoundServices byAndBy;
    const auto add = [&](auto one) {
        byAndBy.AddLocal(one);
        byAndBy.AddRemote(one);
    };
    add(MakeServices({"0", "1"}));
    add(MakeService("2"));
    add(MakeServices({"3", "4", "5", "6", "7", "8"}));
    add(MakeService("9"));
    EXPECT_EQ(read(byAndBy), read(atOnce));
}

TEST_F(FoundServicesTest, BothPartsOfAllComeInANewOrderEachTime) {
    FoundServices found;
    found.AddLocal(MakeServices(Ten));
    found.AddRemote(MakeServices(Ten));
    const Order first = Ids(found.GetAll());
    const Order second = Ids(found.GetAll());
    EXPECT_FALSE(std::equal(first.begin(), first.begin() + 10, second.begin()));
    EXPECT_FALSE(std::equal(first.begin() + 10, first.end(), second.begin() + 10));
    EXPECT_FALSE(std::equal(first.begin(), first.begin() + 10, first.begin() + 10));
    EXPECT_EQ(random.draws, 4u);
}

TEST_F(FoundServicesTest, EveryServiceComesFirstInSomeReading) {
    FoundServices found;
    found.AddLocal(MakeServices({"a", "b", "c"}));
    std::map<std::string, int> first;
    for (int i = 0; i < 300; ++i)
        ++first[found.GetLocal().front()->GetId()];
    EXPECT_GT(first["a"], 50);
    EXPECT_GT(first["b"], 50);
    EXPECT_GT(first["c"], 50);
}

TEST_F(FoundServicesTest, AllIsTheLocalServicesThenTheRemoteOnes) {
    FoundServices found;
    found.AddLocal(MakeServices({"l1", "l2", "l3"}));
    found.AddRemote(MakeServices({"r1", "r2", "r3"}));
    const Order all = Ids(found.GetAll());
    ASSERT_EQ(all.size(), 6u);
    EXPECT_EQ(Sorted({all.begin(), all.begin() + 3}), (Order{"l1", "l2", "l3"}));
    EXPECT_EQ(Sorted({all.begin() + 3, all.end()}), (Order{"r1", "r2", "r3"}));
}

TEST_F(FoundServicesTest, ServicesAreAppendedSinglyAndAsLists) {
    FoundServices found;
    found.AddLocal(MakeService("l1"));
    found.AddLocal(MakeServices({"l2", "l3"}));
    found.AddLocal(MakeService("l4"));
    found.AddRemote(MakeService("r1"));
    found.AddRemote(MakeServices({"r2"}));
    EXPECT_EQ(Sorted(Ids(found.GetLocal())), (Order{"l1", "l2", "l3", "l4"}));
    EXPECT_EQ(Sorted(Ids(found.GetRemote())), (Order{"r1", "r2"}));
}

TEST_F(FoundServicesTest, CopyFromReplacesBothLists) {
    FoundServices found;
    found.AddLocal(MakeService("old"));
    found.AddRemote(MakeService("old"));
    const auto other = std::make_shared<FoundServices>();
    other->AddLocal(MakeServices({"l1", "l2"}));
    other->AddRemote(MakeServices({"r1", "r2"}));
    found.CopyFrom(other);
    EXPECT_EQ(Sorted(Ids(found.GetLocal())), (Order{"l1", "l2"}));
    EXPECT_EQ(Sorted(Ids(found.GetRemote())), (Order{"r1", "r2"}));
    EXPECT_EQ(other->GetAll().size(), 4u);
}

TEST_F(FoundServicesTest, ADocumentBecomesServices) {
    FoundServicesDto dto;
    dto.local.resize(1);
    dto.local.front().id = "l";
    dto.local.front().endpointCert = "Y2VydA==";
    dto.remote.resize(1);
    dto.remote.front().id = "r";
    const FoundServices found(dto);
    ASSERT_EQ(Ids(found.GetAll()), (Order{"l", "r"}));
    EXPECT_EQ(found.GetLocal().front()->GetEndpointCertificate(), "Y2VydA==");
}

class FoundServicesDtoTest : public testing::Test {
protected:
    FakeClock clock{TimePoint(Duration(SecondsToTicks(1000) + 9'999'999))};
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
};

FoundServicesDto ReadDocument(const std::string& text, bool strict = false) {
    FoundServicesDto dto;
    ObjectMapping::DeserializeObject(dto, text, nullptr, strict);
    return dto;
}

TEST_F(FoundServicesDtoTest, ANewDocumentIsFreshFor300SecondsOfWholeSeconds) {
    const FoundServicesDto dto;
    EXPECT_EQ(dto.expiryTime, 1300);
    EXPECT_EQ(dto.maxStaleTime, 604'500);
    EXPECT_TRUE(dto.local.empty());
    EXPECT_TRUE(dto.remote.empty());
}

TEST_F(FoundServicesDtoTest, DefaultsStandForMissingAndNullKeys) {
    for (const char* text : {"{}", R"({"maxStaleTime":null,"local":null,"remote":null})"}) {
        SCOPED_TRACE(text);
        const FoundServicesDto dto = ReadDocument(text);
        EXPECT_EQ(dto.expiryTime, 1300);
        EXPECT_EQ(dto.maxStaleTime, 604'500);
        EXPECT_TRUE(dto.local.empty());
        EXPECT_TRUE(dto.remote.empty());
    }
}

TEST_F(FoundServicesDtoTest, OnlyTheExpiryIsRequired) {
    EXPECT_THROW(ReadDocument("{}", true), std::runtime_error);
    EXPECT_EQ(ReadDocument(R"({"expiryTime":5})", true).expiryTime, 5);
    EXPECT_THROW(ReadDocument(R"({"expiryTime":null})"), std::runtime_error);
}

TEST_F(FoundServicesDtoTest, ANullAmongTheServicesIsAFailure) {
    EXPECT_THROW(ReadDocument(R"({"local":[null]})"), std::runtime_error);
    EXPECT_THROW(ReadDocument(R"({"remote":[null]})"), std::runtime_error);
}

TEST_F(FoundServicesDtoTest, TimesAreRead) {
    const FoundServicesDto dto = ReadDocument(R"({"expiryTime":9223372036854775807,"maxStaleTime":0})");
    EXPECT_EQ(dto.expiryTime, 9223372036854775807);
    EXPECT_EQ(dto.maxStaleTime, 0);
    EXPECT_EQ(ReadDocument(R"({"maxStaleTime":7.0})").maxStaleTime, 7);
}

TEST_F(FoundServicesDtoTest, KeysAreWrittenInTheirOrder) {
    FoundServicesDto dto;
    dto.remote.resize(1);
    dto.remote.front().id = "r";
    std::string text = ObjectMapping::SerializeObject(dto, nullptr);
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; });
    EXPECT_EQ(text, R"({"expiryTime":1300,"maxStaleTime":604500,"local":[],"remote":[{"serviceHostname":"",)"
                    R"("serviceNamespace":"","id":"r","serviceName":"","endpointUrl":"","endpointCert":"",)"
                    R"("properties":[]}]})");
}

TEST_F(FoundServicesDtoTest, ResetRestoresTheDefaultsOfNow) {
    FoundServicesDto dto = ReadDocument(R"({"expiryTime":1,"maxStaleTime":2})");
    dto.local.resize(2);
    clock.Advance(std::chrono::seconds(50));
    dto.Reset();
    EXPECT_EQ(dto.expiryTime, 1350);
    EXPECT_EQ(dto.maxStaleTime, 604'500);
    EXPECT_TRUE(dto.local.empty());
}

}  // namespace
}  // namespace Ombry::Tests
