#include "ClientCommunications/Impl/BodyLimit.h"
#include "ClientCommunications/Impl/Service.h"
#include "ClientCommunications/Impl/ServiceResponse.h"
#include "ClientCommunications/Impl/StreamResponseWriter.h"
#include "ClientCommunications/Impl/SyncStringWriter.h"
#include "tests/Fakes/FakeSyncConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using ::testing::ElementsAre;

class ServiceResponseTest : public ::testing::Test {
protected:
    /// Runs one exchange, so that the client has something to tell.
    void Answer(std::uint32_t nStatus, std::vector<std::pair<std::string, std::string>> headers = {}) {
        world.responseHeaders = std::move(headers);
        world.exchanges = {FakeSyncConnection::Answer(nStatus)};
        client.DoRequest("GET", "/");
    }
    ServiceResponse Response() { return ServiceResponse(client, service); }

    FakeSyncConnection world;
    OmbryZephCore::ZephSorrelSyncHttpClient client{
        nullptr, false, OmbryZephCore::ZephSorrelConnectionParameters("h", 1), &world};
    std::shared_ptr<IService> service = std::make_shared<Service>(ServiceDto());
};

TEST_F(ServiceResponseTest, TellsStatusAndService) {
    Answer(404);
    EXPECT_EQ(Response().GetStatusCode(), 404);
    EXPECT_EQ(Response().GetService(), service);
}

TEST_F(ServiceResponseTest, AStatusThatIsTooGreatForAnIntIsTheGreatestAndNotASmallOne) {
    constexpr int greatest = std::numeric_limits<int>::max();
    for (std::uint32_t nStatus : {2147483647U, 2147483648U, 3000000000U, 4294967295U}) {
        Answer(nStatus);
        EXPECT_EQ(Response().GetStatusCode(), greatest) << nStatus;
    }
}

TEST_F(ServiceResponseTest, FindsHeadersInAnyCase) {
    Answer(200, {{"Content-Type", "text/plain"}});
    for (const char* name : {"Content-Type", "content-type", "CONTENT-TYPE"}) {
        EXPECT_TRUE(Response().HasHeader(name));
        EXPECT_EQ(Response().GetHeader(name), "text/plain");
    }
    EXPECT_FALSE(Response().HasHeader("Content-Typ"));
    EXPECT_FALSE(Response().HasHeader("Content-Type2"));
}

TEST_F(ServiceResponseTest, AnAbsentHeaderThrowsUnlikeThatOfARequest) {
    Answer(200, {{"A", "1"}});
    try {
        (void)Response().GetHeader("B");
        FAIL();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid map<K, T> key");
    }
}

TEST_F(ServiceResponseTest, OfARepeatedHeaderTheFirstStaysWithItsNameAsItWasSent) {
    Answer(200, {{"set-THING", "second"}, {"Set-Thing", "first"}});
    std::vector<std::string> lines;
    Response().ForEachHeader(
        [&](const std::string& name, const std::string& value) { lines.push_back(name + ": " + value); });
    EXPECT_THAT(lines, ElementsAre("Set-Thing: first")) << "the client tells them in byte order";
    EXPECT_EQ(Response().GetHeader("SET-thing"), "first");
}

TEST_F(ServiceResponseTest, VisitsHeadersInTheOrderThatIgnoresCaseWithAPrefixFirst) {
    Answer(200, {{"b", "1"}, {"C", "2"}, {"A", "3"}, {"ab", "4"}, {"a-b", "5"}});
    std::vector<std::string> names;
    Response().ForEachHeader([&](const std::string& name, const std::string&) { names.push_back(name); });
    EXPECT_THAT(names, ElementsAre("A", "a-b", "ab", "b", "C"));
}

TEST_F(ServiceResponseTest, NamesAreOrderedByTheirBytesAndOnlyLettersOfAsciiHaveACase) {
    const HeaderNameLess less;
    EXPECT_TRUE(less("z", "\xc3\xa4"));
    EXPECT_FALSE(less("\xc3\xa4", "z"));
    EXPECT_TRUE(less("\xc3\x84", "\xc3\xa4"));
    EXPECT_FALSE(less("A", "a") || less("a", "A"));
    EXPECT_TRUE(less("_", "a") && less("_", "A"));
    EXPECT_TRUE(less("", "a") && less("a", "ab") && !less("ab", "A"));
}

TEST_F(ServiceResponseTest, AnEmptyCallbackFailsAtTheFirstHeaderOnly) {
    Answer(200);
    Response().ForEachHeader(nullptr);
    Answer(200, {{"A", "1"}});
    try {
        Response().ForEachHeader(nullptr);
        FAIL();
    } catch (const std::bad_function_call& e) {
        EXPECT_STREQ(e.what(), "bad function call");
    }
}

TEST_F(ServiceResponseTest, StaysWhenTheClientGoesOn) {
    Answer(201, {{"A", "1"}});
    const StringServiceResponse response(client, service, "body");
    Answer(500);
    EXPECT_EQ(response.GetStatusCode(), 201);
    EXPECT_EQ(response.GetHeader("a"), "1");
    EXPECT_TRUE(response.HasHeader("a"));
    EXPECT_EQ(response.GetBody(), "body");
    EXPECT_EQ(response.GetService(), service);
    std::string seen;
    response.ForEachHeader([&](const std::string& name, const std::string& value) { seen = name + value; });
    EXPECT_EQ(seen, "A1");
}

TEST_F(ServiceResponseTest, OfAClientThatIsDoneTheHeadersAreTaken) {
    Answer(201, {{"A", "1"}});
    const StringServiceResponse response(std::move(client), service, "body");
    EXPECT_EQ(response.GetStatusCode(), 201);
    EXPECT_EQ(response.GetHeader("a"), "1");
    client.ForEachResponseHeader([](const std::string& name, const std::string&) { ADD_FAILURE() << name; });
}

TEST_F(ServiceResponseTest, AStreamResponseHoldsTheBodyOfTheError) {
    Answer(500);
    EXPECT_EQ(StreamServiceResponse(client, service, "error page").GetBody(), "error page");
}

struct WriterCase {
    std::uint32_t nStatus;
    bool good;
};

class StreamResponseWriterTest : public ServiceResponseTest,
                                 public ::testing::WithParamInterface<WriterCase> {};

TEST_P(StreamResponseWriterTest, SplitsAt300AndNotAt200) {
    class Recording : public ISyncWriter {
    public:
        void Reset() override { calls.push_back("Reset"); }
        void Write(const void* data, std::size_t size) override {
            calls.push_back("Write " + std::string(static_cast<const char*>(data), size));
        }
        void Finish() override { calls.push_back("Finish"); }
        std::vector<std::string> calls;
    };
    Answer(GetParam().nStatus);
    Recording recording;
    StreamResponseWriter writer(client, recording);
    writer.Begin();
    writer.Write(reinterpret_cast<const std::uint8_t*>("ab"), 2);
    writer.Write(reinterpret_cast<const std::uint8_t*>("c"), 1);
    writer.End();
    if (GetParam().good) {
        EXPECT_THAT(recording.calls, ElementsAre("Reset", "Write ab", "Write c", "Finish"));
        EXPECT_EQ(writer.GetErrorBody(), "");
    } else {
        EXPECT_THAT(recording.calls, ::testing::IsEmpty());
        EXPECT_EQ(writer.GetErrorBody(), "abc");
    }
}

// An exchange that breaks off is repeated, with an answer of its own.
TEST_P(StreamResponseWriterTest, AnErrorPageGoesOnInTheNextOneAndIsNoPartOfAGoodAnswer) {
    class Ignoring : public ISyncWriter {
    public:
        void Reset() override {}
        void Write(const void*, std::size_t) override {}
        void Finish() override {}
    };
    Ignoring ignoring;
    StreamResponseWriter writer(client, ignoring);
    Answer(404);
    writer.Begin();
    writer.Write(reinterpret_cast<const std::uint8_t*>("ab"), 2);
    Answer(GetParam().nStatus);
    writer.Begin();
    writer.Write(reinterpret_cast<const std::uint8_t*>("c"), 1);
    writer.End();
    EXPECT_EQ(writer.GetErrorBody(), GetParam().good ? "" : "abc");
}

TEST_P(StreamResponseWriterTest, HoldsAnErrorOf256MiBAndHandsOnWhatIsGoodWithoutALimit) {
    class Counting : public ISyncWriter {
    public:
        void Reset() override {}
        void Write(const void*, std::size_t size) override { bytes += size; }
        void Finish() override {}
        std::uint64_t bytes = 0;
    };
    Answer(GetParam().nStatus);
    Counting counting;
    StreamResponseWriter writer(client, counting);
    writer.Begin();
    writer.Write(reinterpret_cast<const std::uint8_t*>("x"), 1);
    if (GetParam().good) {
        EXPECT_NO_THROW(writer.Expect(0xFFFFFFFF));
        EXPECT_NO_THROW(writer.Write(nullptr, 0xFFFFFFFF));
        EXPECT_EQ(counting.bytes, 0x100000000U);
    } else {
        EXPECT_NO_THROW(writer.Expect(0x0FFFFFFF));
        EXPECT_THROW(writer.Expect(0x10000000), BodyTooLong);
        EXPECT_THROW(writer.Write(nullptr, 0x10000000), BodyTooLong);
        EXPECT_EQ(writer.GetErrorBody(), "x");
    }
}

INSTANTIATE_TEST_SUITE_P(All, StreamResponseWriterTest,
                         ::testing::Values(WriterCase{0, true}, WriterCase{199, true}, WriterCase{200, true},
                                           WriterCase{299, true}, WriterCase{300, false},
                                           WriterCase{404, false}, WriterCase{500, false}));

}  // namespace
}  // namespace Ombry::Tests
