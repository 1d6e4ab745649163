#include "ClientCommunications/Impl/GuidText.h"
#include "ClientCommunications/Impl/RootAttempt.h"
#include "ClientCommunications/Impl/ScopedNewHeader.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/RootRequestMetaData.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/ForeignRequest.h"
#include "tests/Fakes/HeadersOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using ::testing::ElementsAre;
using ::testing::Pair;
using Lines = std::vector<std::string>;

Lines PairsOf(const IRootRequestMetaData& metaData) {
    Lines lines;
    metaData.ForEachValue(
        [&](const std::string& key, const std::string& value) { lines.push_back(key + ": " + value); });
    return lines;
}

class RootRequestMetaDataTest : public ::testing::Test {
protected:
    /// Metadata of these pairs, by way of a request.
    static std::shared_ptr<IRootRequestMetaData> With(
        const std::vector<std::pair<std::string, std::string>>& pairs) {
        const auto carrier = CreateServiceRequest("GET", "/", "1");
        for (const auto& [name, value] : pairs)
            carrier->SetHeader(name, value);
        return RootRequestMetaData::getFromRequest(carrier);
    }

    FakeRandom random;
    Platform::Testing::Replace<Platform::IRandom> replaced{random};
    std::shared_ptr<IServiceRequest> request = CreateServiceRequest("GET", "/", "1");
};

TEST_F(RootRequestMetaDataTest, CreateNamesTheKindOfOperation) {
    const auto metaData = RootRequestMetaData::create("FindServices");
    EXPECT_THAT(PairsOf(*metaData), ElementsAre("SF-Root-Request-Type: FindServices"));
    EXPECT_TRUE(metaData->HasValue("SF-Root-Request-Type"));
    EXPECT_FALSE(metaData->HasValue("sf-root-request-type"));
    EXPECT_EQ(metaData->GetValue("SF-Root-Request-Type"), "FindServices");
}

TEST_F(RootRequestMetaDataTest, CreateInfrastructureMarksBackgroundWork) {
    EXPECT_THAT(
        PairsOf(*RootRequestMetaData::createInfrastructure("UpdateJwtToken")),
        ElementsAre("SF-Root-Request-Is-Infrastructure: true", "SF-Root-Request-Type: UpdateJwtToken"));
}

TEST_F(RootRequestMetaDataTest, AnAbsentKeyThrows) {
    try {
        (void)RootRequestMetaData::create("x")->GetValue("absent");
        FAIL();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid map<K, T> key");
    }
}

TEST_F(RootRequestMetaDataTest, AnEmptyCallbackFailsAtTheFirstPair) {
    try {
        RootRequestMetaData::create("x")->ForEachValue(nullptr);
        FAIL();
    } catch (const std::bad_function_call& e) {
        EXPECT_STREQ(e.what(), "bad function call");
    }
}

TEST_F(RootRequestMetaDataTest, NormalizeOfNothingGivesTheFixedCorrelationAndTheFirstAttempt) {
    EXPECT_THAT(PairsOf(*RootRequestMetaData::normalize(nullptr)),
                ElementsAre("SF-Root-Attempt: 1", "SF-Root-Correlation-Id: ClientToService"));
}

TEST_F(RootRequestMetaDataTest, NormalizeReturnsTheSameObjectIfNothingIsMissing) {
    const auto given = With({{"SF-Root-Correlation-Id", "id"}, {"SF-Root-Attempt", "4"}});
    EXPECT_EQ(RootRequestMetaData::normalize(given), given);
    EXPECT_THAT(PairsOf(*given), ElementsAre("SF-Root-Attempt: 4", "SF-Root-Correlation-Id: id"));
}

TEST_F(RootRequestMetaDataTest, NormalizeOverwritesItsOwnGuidWithTheFixedTextAndGivesTheTypeNoDefault) {
    const auto given = RootRequestMetaData::create("Type");
    const auto result = RootRequestMetaData::normalize(given);
    EXPECT_NE(result, given);
    EXPECT_THAT(PairsOf(*result), ElementsAre("SF-Root-Attempt: 1", "SF-Root-Correlation-Id: ClientToService",
                                              "SF-Root-Request-Type: Type"));
    EXPECT_THAT(PairsOf(*given), ElementsAre("SF-Root-Request-Type: Type")) << "the argument stays";
    EXPECT_EQ(MakeGuidText(), FakeRandom::GuidText(2)) << "one identifier was drawn";
    RootRequestMetaData::normalize(nullptr);
    RootRequestMetaData::normalize(nullptr);
    EXPECT_EQ(MakeGuidText(), FakeRandom::GuidText(5)) << "one for each call";
}

TEST_F(RootRequestMetaDataTest, NormalizeAddsOnlyWhatIsMissing) {
    EXPECT_THAT(PairsOf(*RootRequestMetaData::normalize(With({{"SF-Root-Correlation-Id", "id"}}))),
                ElementsAre("SF-Root-Attempt: 1", "SF-Root-Correlation-Id: id"));
    EXPECT_THAT(PairsOf(*RootRequestMetaData::normalize(With({{"SF-Root-Attempt", "3"}}))),
                ElementsAre("SF-Root-Attempt: 3", "SF-Root-Correlation-Id: ClientToService"));
    EXPECT_EQ(MakeGuidText(), FakeRandom::GuidText(2)) << "drawn only for the second";
}

TEST_F(RootRequestMetaDataTest, AnEmptyValueIsThereAndIsNotFilledIn) {
    const auto given = With({{"SF-Root-Correlation-Id", ""}, {"SF-Root-Attempt", ""}});
    EXPECT_TRUE(given->HasValue("SF-Root-Attempt"));
    EXPECT_EQ(given->GetValue("SF-Root-Attempt"), "");
    EXPECT_EQ(RootRequestMetaData::normalize(given), given);
}

TEST_F(RootRequestMetaDataTest, AddToRequestSetsEachPairAndReplaces) {
    request->SetHeader("SF-Root-Request-Type", "old");
    RootRequestMetaData::addToRequest(request, RootRequestMetaData::createInfrastructure("new"));
    EXPECT_EQ(request->GetHeader("SF-Root-Request-Type"), "new");
    EXPECT_EQ(request->GetHeader("SF-Root-Request-Is-Infrastructure"), "true");
}

TEST_F(RootRequestMetaDataTest, GetFromRequestTakesTheRootHeadersAlone) {
    request->SetHeader("SF-Root-A", "1");
    request->SetHeader("SF-Root-", "2");
    request->SetHeader("SF-Root", "3");
    request->SetHeader("sf-root-b", "4");
    request->SetHeader("SF-RootX", "5");
    request->SetHeader("X-SF-Root-C", "6");
    EXPECT_THAT(PairsOf(*RootRequestMetaData::getFromRequest(request)),
                ElementsAre("SF-Root-: 2", "SF-Root-A: 1"));
}

TEST_F(RootRequestMetaDataTest, GetFromRequestWithoutRootHeadersIsNull) {
    request->SetHeader("SF-Root", "3");
    EXPECT_EQ(RootRequestMetaData::getFromRequest(request), nullptr);
}

TEST_F(RootRequestMetaDataTest, AGuidIsWrittenInLowerCaseWithAllItsZeros) {
    EXPECT_EQ(MakeGuidText(), "00000001-0203-4405-8607-08090a0b0c0d");
    EXPECT_EQ(MakeGuidText(), "00000002-0203-4405-8607-08090a0b0c0d");
}

/// Gives one GUID in whose every field another digit would show.
class RandomOfAllDigits : public FakeRandom {
public:
    Platform::Guid NewGuid() override {
        Platform::Guid guid;
        guid.data1 = 0xFEDCBA98;
        guid.data2 = 0xFEDC;
        guid.data3 = 0xFBA9;
        guid.data4 = {0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x1F};
        return guid;
    }
};

TEST_F(RootRequestMetaDataTest, EveryBitOfAGuidIsInItsText) {
    RandomOfAllDigits random;
    const Platform::Testing::Replace<Platform::IRandom> replaced(random);
    EXPECT_EQ(MakeGuidText(), "fedcba98-fedc-fba9-fedc-ba987654321f");
}

TEST_F(RootRequestMetaDataTest, WhatNobodyGaveIsPutOnARequestOfAnyClass) {
    for (const auto& any : {request, std::shared_ptr<IServiceRequest>(std::make_shared<ForeignRequest>())}) {
        RootRequestMetaData::addToRequest(any, RootRequestMetaData::normalize(nullptr));
        EXPECT_THAT(HeadersOf(*any), ElementsAre(Pair("Contract-Version", "1"), Pair("SF-Root-Attempt", "1"),
                                                 Pair("SF-Root-Correlation-Id", "ClientToService")));
    }
}

// --- Headers for a time ---

class ScopedNewHeaderTest : public RootRequestMetaDataTest {};

TEST_F(ScopedNewHeaderTest, AHeaderStandsForTheLifeOfTheGuard) {
    {
        const ScopedNewHeader guard(request, "A", "1");
        EXPECT_EQ(request->GetHeader("A"), "1");
    }
    EXPECT_EQ(request->GetHeader("A"), "");
    EXPECT_EQ(request.use_count(), 1);
}

TEST_F(ScopedNewHeaderTest, AHeaderThatIsThereStaysAndStaysBehind) {
    request->SetHeader("A", "old");
    {
        const ScopedNewHeader guard(request, "A", "new");
        EXPECT_EQ(request->GetHeader("A"), "old");
    }
    EXPECT_EQ(request->GetHeader("A"), "old");
}

TEST_F(ScopedNewHeaderTest, AHeaderWithAnEmptyValueIsReplacedAndRemovedAtTheEnd) {
    request->SetHeader("A", "");
    {
        const ScopedNewHeader guard(request, "A", "new");
        EXPECT_EQ(request->GetHeader("A"), "new");
    }
    int headers = 0;
    request->ForEachHeader([&](const std::string&, const std::string&) { ++headers; });
    EXPECT_EQ(headers, 1) << "only the contract version";
}

TEST_F(ScopedNewHeaderTest, WithoutARequestNothingHappens) {
    const ScopedNewHeader guard(nullptr, "A", "1");
}

TEST_F(ScopedNewHeaderTest, AKnownHeaderStandsForTheLifeOfItsGuardOnAnyRequest) {
    for (const auto& any : {request, std::shared_ptr<IServiceRequest>(std::make_shared<ForeignRequest>())}) {
        const std::string id = "id", other = "other";
        {
            const ScopedNewHeader lent(any, KnownHeader::DestinationServiceId, id);
            const ScopedNewHeader second(any, KnownHeader::DestinationServiceId, other);
            const ScopedNewHeader given(any, KnownHeader::RequestId, std::string("guid"));
            const ScopedNewHeader third(any, KnownHeader::RequestId, std::string("other"));
            EXPECT_THAT(HeadersOf(*any),
                        ElementsAre(Pair("Contract-Version", "1"), Pair("SF-Destination-Service-Id", "id"),
                                    Pair("SF-Request-Id", "guid")));
        }
        EXPECT_THAT(HeadersOf(*any), ElementsAre(Pair("Contract-Version", "1")));
        any->SetHeader("SF-Request-Id", "");
        {
            const ScopedNewHeader guard(any, KnownHeader::RequestId, id);
            EXPECT_EQ(any->GetHeader("SF-Request-Id"), "id");
        }
        EXPECT_THAT(HeadersOf(*any), ElementsAre(Pair("Contract-Version", "1")));
    }
    const ScopedNewHeader guard(nullptr, KnownHeader::RequestId, std::string("guid"));
}

TEST_F(ScopedNewHeaderTest, AnAttemptIsNumberedUnlessTheRequestWasBornWithANumber) {
    {
        const RootAttempt attempt(request, 3);
        EXPECT_EQ(request->GetHeader("SF-Root-Attempt"), "3");
    }
    EXPECT_EQ(request->GetHeader("SF-Root-Attempt"), "");
    RootRequestMetaData::addToRequest(request, RootRequestMetaData::normalize(nullptr));
    const RootAttempt attempt(request, 4);
    EXPECT_EQ(request->GetHeader("SF-Root-Attempt"), "1");
}

}  // namespace
}  // namespace Ombry::Tests
