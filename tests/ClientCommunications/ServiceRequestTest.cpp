#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/Impl/ServiceRequestFactory.h"
#include "ClientCommunications/Impl/SyncReaderAdapter.h"
#include "ClientCommunications/Impl/SyncStringReader.h"
#include "ClientCommunications/Impl/SyncStringWriter.h"
#include "ClientCommunications/Impl/SyncWriterAdapter.h"
#include "ClientCommunications/RootRequestMetaData.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/FreedMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using OmbryCommunications::Private::SyncReaderAdapter;
using ::testing::ElementsAre;

std::vector<std::string> HeaderLinesOf(const IServiceRequest& request) {
    std::vector<std::string> lines;
    request.ForEachHeader(
        [&](const std::string& name, const std::string& value) { lines.push_back(name + ": " + value); });
    return lines;
}

class ServiceRequestTest : public ::testing::Test {
protected:
    std::shared_ptr<IServiceRequest> request = CreateServiceRequest("PUT", "/path", "3");
};

TEST_F(ServiceRequestTest, BeginsWithItsDefaults) {
    EXPECT_EQ(request->GetMethod(), "PUT");
    EXPECT_EQ(request->GetPath(), "/path");
    EXPECT_THAT(HeaderLinesOf(*request), ElementsAre("Contract-Version: 3"));
    EXPECT_EQ(request->GetHeader("Contract-Version"), "3");
    EXPECT_EQ(request->GetBodyReader(), nullptr);
    EXPECT_EQ(request->GetAttemptTimeout().count(), 1'000'000'000);
    EXPECT_EQ(request->GetMaxRetries(), 2147483647);
}

TEST_F(ServiceRequestTest, AHeaderIsSetReplacedAndRemovedByItsExactName) {
    request->SetHeader("b", "1");
    request->SetHeader("B", "2");
    request->SetHeader("b", "3");
    EXPECT_THAT(HeaderLinesOf(*request), ElementsAre("B: 2", "Contract-Version: 3", "b: 3"));
    EXPECT_EQ(request->GetHeader("B"), "2");
    EXPECT_EQ(request->GetHeader("contract-version"), "") << "an absent header reads as empty";
    request->RemoveHeader("B");
    request->RemoveHeader("absent");
    EXPECT_THAT(HeaderLinesOf(*request), ElementsAre("Contract-Version: 3", "b: 3"));
}

TEST_F(ServiceRequestTest, AnEmptyCallbackFailsAtTheFirstHeaderOnly) {
    try {
        request->ForEachHeader(nullptr);
        FAIL();
    } catch (const std::bad_function_call& e) {
        EXPECT_STREQ(e.what(), "bad function call");
    }
    request->RemoveHeader("Contract-Version");
    request->ForEachHeader(nullptr);
}

TEST_F(ServiceRequestTest, KeepsWhatIsSet) {
    request->SetAttemptTimeout(Duration(5));
    request->SetMaxRetries(-1);
    EXPECT_EQ(request->GetAttemptTimeout().count(), 5);
    EXPECT_EQ(request->GetMaxRetries(), -1);
    const auto reader = std::make_shared<SyncStringReader>("x");
    request->SetBodyReader(reader);
    EXPECT_EQ(request->GetBodyReader(), reader);
    request->SetBodyReader(nullptr);
    EXPECT_EQ(request->GetBodyReader(), nullptr);
}

TEST_F(ServiceRequestTest, ABodyOfTextIsACopyInAReaderOfItsOwn) {
    std::string text = "hello";
    request->SetBody(text);
    text = "changed";
    const auto first = request->GetBodyReader();
    char bytes[10] = "";
    EXPECT_EQ(first->Read(bytes, sizeof bytes), 5u);
    EXPECT_STREQ(bytes, "hello");
    request->SetBody("again");
    EXPECT_NE(request->GetBodyReader(), first);
}

TEST_F(ServiceRequestTest, HeaderValuesAndTheBodyAreWipedWithTheRequest) {
    const std::string header = "a header value too long for a string object";
    const std::string body = "a body too long for a string object";
    for (const std::string& secret : {header, body}) {
        auto dying = CreateServiceRequest("PUT", "/path", "3");
        dying->SetHeader("Authorization", header);
        dying->SetHeader("X-Of-The-Caller", header);
        dying->SetBody(body);

        const FreedMemory freed(secret);
        dying.reset();

        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << secret;
    }
}

TEST_F(ServiceRequestTest, HeaderValuesAreWipedWhenTheyAreReplacedAndRemoved) {
    const std::string first = "the first value, too long for a string object";
    const std::string second = "the second value: far longer, so that the memory of the first is given back";
    for (const char* name : {"Authorization", "X-Of-The-Caller"}) {
        request->SetHeader(name, first);
        {
            const FreedMemory freed(first);
            request->SetHeader(name, second);
            EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << name;
        }
        const FreedMemory freed(second);
        request->RemoveHeader(name);
        request = CreateServiceRequest("GET", "/", "3");
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << name;
    }
}

TEST_F(ServiceRequestTest, HeaderMayBeSetToItselfFromAWalkThroughTheHeaders) {
    request->SetHeader("b", "1");
    request->ForEachHeader(
        [&](const std::string& name, const std::string& value) { request->SetHeader(name, value); });
    EXPECT_THAT(HeaderLinesOf(*request), ElementsAre("Contract-Version: 3", "b: 1"));
}

TEST_F(ServiceRequestTest, ABodySourceIsNotImplemented) {
    try {
        request->SetBodySource();
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Not implemented.");
    }
}

TEST_F(ServiceRequestTest, TheOverallLimitOf300SecondsStartsWhenTheTokenIsAskedFor) {
    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced(clock);
    clock.Advance(std::chrono::hours(1));
    const auto token = request->GetCancellationToken();
    clock.Advance(std::chrono::seconds(300) - Duration(1));
    const auto later = request->GetCancellationToken();
    EXPECT_FALSE(token.IsCancelled());
    clock.Advance(Duration(1));
    EXPECT_THROW(token.ThrowIfCancelled(), Cancellation::TimeoutException);
    EXPECT_FALSE(later.IsCancelled()) << "each token has its own limit";
}

TEST_F(ServiceRequestTest, TheTokenFollowsTheCallersAndTheOverallLimitComesFirst) {
    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced(clock);
    const auto callers = Cancellation::CreateCancellable();
    request->SetCancellationToken(callers);
    request->SetOverallTimeout(std::chrono::seconds(5));
    const auto token = request->GetCancellationToken();
    EXPECT_FALSE(token.IsCancelled());
    callers.Cancel();
    try {
        token.ThrowIfCancelled();
        FAIL();
    } catch (const Cancellation::OperationCancelledException& e) {
        EXPECT_STREQ(e.what(), "Operation cancelled.");
    }
    clock.Advance(std::chrono::seconds(5));
    EXPECT_THROW(token.ThrowIfCancelled(), Cancellation::TimeoutException);
}

// --- Its factory ---

class ServiceRequestFactoryTest : public ::testing::Test {
protected:
    FakeRandom random;
    Platform::Testing::Replace<Platform::IRandom> replaced{random};
    ServiceRequestFactory factory{"client id", "client name", "datacenter"};
};

TEST_F(ServiceRequestFactoryTest, ARequestSaysWhoSendsIt) {
    const auto request = factory.Create("GET", "/path", "2");
    EXPECT_EQ(request->GetMethod(), "GET");
    EXPECT_EQ(request->GetPath(), "/path");
    EXPECT_THAT(HeaderLinesOf(*request),
                ElementsAre("Contract-Version: 2", "Datacenter-Id: datacenter", "SF-Root-Attempt: 1",
                            "SF-Root-Correlation-Id: ClientToService", "SF-Source-Client-Id: client id",
                            "SF-Source-Client-Name: client name", "SF-Source-Datacenter-Id: datacenter"));
}

TEST_F(ServiceRequestFactoryTest, MetadataOfTheCallerGoesOutNormalized) {
    const auto request = factory.Create("GET", "/", "2", RootRequestMetaData::createInfrastructure("Type"));
    EXPECT_EQ(request->GetHeader("SF-Root-Request-Type"), "Type");
    EXPECT_EQ(request->GetHeader("SF-Root-Request-Is-Infrastructure"), "true");
    EXPECT_EQ(request->GetHeader("SF-Root-Attempt"), "1");
    EXPECT_EQ(request->GetHeader("SF-Root-Correlation-Id"), "ClientToService");
}

/// Metadata of somebody else's making, whose pairs have any name.
class ForeignMetaData : public IRootRequestMetaData {
public:
    bool HasValue(const std::string& key) const override { return key == "SF-Source-Client-Name"; }
    std::string GetValue(const std::string& key) const override {
        if (!HasValue(key)) throw std::out_of_range(key);
        return "other";
    }
    void ForEachValue(
        std::function<void(const std::string& key, const std::string& value)> callback) const override {
        callback("SF-Source-Client-Name", "other");
    }
};

TEST_F(ServiceRequestFactoryTest, MetadataIsPutOnLast) {
    const auto request = factory.Create("GET", "/", "2", std::make_shared<ForeignMetaData>());
    EXPECT_EQ(request->GetHeader("SF-Source-Client-Name"), "other");
    EXPECT_EQ(request->GetHeader("SF-Source-Client-Id"), "client id");
}

TEST_F(ServiceRequestFactoryTest, TheIdIsWipedWithTheLastRequestThatSharesIt) {
    const std::string id = "an id too long for a string object";
    auto dying = std::make_unique<ServiceRequestFactory>(id, "client name", "datacenter");
    auto request = dying->Create("GET", "/", "2");

    const FreedMemory freed(id);
    dying.reset();
    request.reset();

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST_F(ServiceRequestFactoryTest, EmptyNamesGoOutEmpty) {
    ServiceRequestFactory empty("", "", "");
    const auto lines = HeaderLinesOf(*empty.Create("GET", "/", "2"));
    for (const char* line :
         {"Datacenter-Id: ", "SF-Source-Client-Id: ", "SF-Source-Client-Name: ", "SF-Source-Datacenter-Id: "})
        EXPECT_THAT(lines, ::testing::Contains(line));
}

// --- Bodies ---

TEST(SyncStringReaderTest, ReadsItsTextAndRewinds) {
    SyncStringReader reader("hello");
    char bytes[10] = "";
    EXPECT_TRUE(reader.IsLengthKnown());
    EXPECT_EQ(reader.GetLength(), 5u);
    EXPECT_EQ(reader.Read(bytes, 2), 2u);
    EXPECT_EQ(std::string(bytes, 2), "he");
    EXPECT_EQ(reader.Read(bytes, 10), 3u);
    EXPECT_EQ(std::string(bytes, 3), "llo");
    EXPECT_EQ(reader.Read(bytes, 10), 0u);
    EXPECT_EQ(reader.GetLength(), 5u);
    reader.Rewind();
    EXPECT_EQ(reader.Read(bytes, 10), 5u);
    EXPECT_EQ(std::string(bytes, 5), "hello");
}

TEST(SyncStringWriterTest, CollectsAndStartsOver) {
    std::string text = "before";
    SyncStringWriter writer(text);
    writer.Write(" and", 4);
    EXPECT_EQ(text, "before and");
    const std::size_t capacity = text.capacity();
    writer.Reset();
    EXPECT_EQ(text, "");
    EXPECT_EQ(text.capacity(), capacity);
    writer.Write("a\0b", 3);
    writer.Finish();
    EXPECT_EQ(text, std::string("a\0b", 3));
}

class RecordingReader : public ISyncReader {
public:
    void Rewind() override { calls.push_back("Rewind"); }
    bool IsLengthKnown() override { return known; }
    std::uint64_t GetLength() override {
        calls.push_back("GetLength");
        return length;
    }
    std::size_t Read(void*, std::size_t size) override {
        calls.push_back("Read " + std::to_string(size));
        return gives;
    }

    std::vector<std::string> calls;
    bool known = true;
    std::uint64_t length = 0;
    std::size_t gives = 0;
};

TEST(SyncReaderAdapterTest, HasDataUnlessTheLengthIsKnownToBeZero) {
    RecordingReader reader;
    SyncReaderAdapter adapter(&reader);
    EXPECT_FALSE(adapter.HasData());
    reader.length = 1;
    EXPECT_TRUE(adapter.HasData());
    reader.known = false;
    reader.length = 0;
    reader.calls.clear();
    EXPECT_TRUE(adapter.HasData());
    EXPECT_THAT(reader.calls, ::testing::IsEmpty()) << "an unknown length is not asked for";
    SyncStringReader empty("");
    EXPECT_FALSE(SyncReaderAdapter(&empty).HasData());
}

TEST(SyncStringWriterTest, AResetKeepsTheRoomOfTheTextThatItForgets) {
    std::string text;
    SyncStringWriter writer(text);
    const std::string data(1000, 'x');
    writer.Write(data.data(), data.size());
    const std::size_t capacity = text.capacity();
    writer.Reset();
    EXPECT_EQ(text, "");
    EXPECT_EQ(text.capacity(), capacity);
}

TEST(SyncReaderAdapterTest, TheLengthIsAskedForBehindARewind) {
    RecordingReader reader;
    SyncReaderAdapter adapter(&reader);
    reader.length = 7;
    EXPECT_EQ(adapter.GetLength(), 7u);
    EXPECT_THAT(reader.calls, ElementsAre("Rewind", "GetLength"));
    reader.calls.clear();
    reader.known = false;
    EXPECT_EQ(adapter.GetLength(), 0u);
    EXPECT_THAT(reader.calls, ElementsAre("Rewind"));
}

TEST(SyncReaderAdapterTest, ALengthBeyond32BitsCountsAsUnknown) {
    RecordingReader reader;
    SyncReaderAdapter adapter(&reader);
    reader.length = 0xffffffff;
    EXPECT_EQ(adapter.GetLength(), 0xffffffffU);
    reader.length = 0x100000000;
    EXPECT_EQ(adapter.GetLength(), 0u);
    reader.length = 0x100000005;
    EXPECT_EQ(adapter.GetLength(), 0u);
}

TEST(SyncReaderAdapterTest, AReadSaysHowMuchAndWhetherThereWasAny) {
    RecordingReader reader;
    SyncReaderAdapter adapter(&reader);
    std::uint8_t bytes[8];
    std::uint32_t nBytes = 8;
    reader.gives = 3;
    EXPECT_TRUE(adapter.Read(bytes, &nBytes));
    EXPECT_EQ(nBytes, 3u);
    reader.gives = 0;
    EXPECT_FALSE(adapter.Read(bytes, &nBytes));
    EXPECT_EQ(nBytes, 0u);
    EXPECT_THAT(reader.calls, ElementsAre("Read 8", "Read 3"));
}

TEST(SyncWriterAdapterTest, ForwardsOneToOne) {
    class Recording : public ISyncWriter {
    public:
        void Reset() override { calls.push_back("Reset"); }
        void Write(const void* data, std::size_t size) override {
            calls.push_back("Write " + std::string(static_cast<const char*>(data), size));
        }
        void Finish() override { calls.push_back("Finish"); }
        std::vector<std::string> calls;
    };
    Recording writer;
    Private::SyncWriterAdapter adapter(writer);
    adapter.Begin();
    adapter.Write(reinterpret_cast<const std::uint8_t*>("ab"), 2);
    adapter.End();
    EXPECT_THAT(writer.calls, ElementsAre("Reset", "Write ab", "Finish"));
}

}  // namespace
}  // namespace Ombry::Tests
