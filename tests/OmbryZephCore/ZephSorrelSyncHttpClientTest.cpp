#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "tests/Fakes/ScriptedSockets.h"
#include "tests/OmbryZephCore/ReplacedAllocator.h"
#include "tests/OmbryZephCore/SyncHttpClientFixture.h"

#include <gmock/gmock.h>

#include <new>
#include <stdexcept>

namespace Ombry::Tests::SyncHttpClient {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

TEST_F(ZephSorrelSyncHttpClientTest, AGetTakesTheStepsInOrder) {
    world.exchanges = {FakeSyncConnection::Answer(200)};
    client.SetHeader("B", "2");
    client.SetHeader("A", "1");
    EXPECT_EQ(client.DoRequest("GET", "/path"), 0u);
    EXPECT_THAT(world.calls,
                ElementsAre("GetConnection", "EnsureConnected", "AddHeader A: 1", "AddHeader B: 2",
                            "SendRequest GET /path 0", "DoPendingIO", "ReleaseConnection"));
    EXPECT_EQ(world.asked.GetHost(), "host");
    EXPECT_EQ(world.asked.GetPort(), 8080);
    EXPECT_THAT(logger->Messages(), ElementsAre("sending GET to /path", "Got HTTP response code 200"));
    EXPECT_EQ(logger->Messages(1).size(), 2u);
}

TEST_F(ZephSorrelSyncHttpClientTest, AHeaderOfTheSameNameIsReplaced) {
    client.SetHeader("A", "1");
    client.SetHeader("A", "2");
    world.exchanges = {FakeSyncConnection::Answer(200)};
    client.DoRequest("GET", "/");
    EXPECT_EQ(world.calls[2], "AddHeader A: 2");
    EXPECT_EQ(world.calls[3], "SendRequest GET / 0");
}

struct JoinCase {
    const char* base;
    const char* path;
    const char* url;
};

class ZephSorrelSyncHttpClientUrlTest : public ::testing::TestWithParam<JoinCase> {};

TEST_P(ZephSorrelSyncHttpClientUrlTest, JoinsBaseAndPath) {
    FakeSyncConnection world;
    world.exchanges = {FakeSyncConnection::Answer(200)};
    ZephSorrelSyncHttpClient client(nullptr, false, ZephSorrelConnectionParameters("h", 1), &world);
    client.SetBasePath(GetParam().base);
    client.DoRequest("GET", GetParam().path);
    EXPECT_EQ(world.calls[2], std::string("SendRequest GET ") + GetParam().url + " 0")
        << GetParam().base << " + " << GetParam().path;
}

INSTANTIATE_TEST_SUITE_P(
    All, ZephSorrelSyncHttpClientUrlTest,
    ::testing::Values(JoinCase{"", "/a", "/a"}, JoinCase{"", "a", "/a"}, JoinCase{"/", "/a", "/a"},
                      JoinCase{"/", "", ""}, JoinCase{"", "", ""}, JoinCase{"/base", "/a", "/base/a"},
                      JoinCase{"/base", "a", "/base/a"}, JoinCase{"/base", "", "/base"},
                      JoinCase{"base", "a", "/base/a"}, JoinCase{"/base/", "/a", "/base/a"},
                      JoinCase{"/base//", "/a", "/base//a"}, JoinCase{"/base/", "", "/base"},
                      JoinCase{"//", "a", "//a"}, JoinCase{"base/", "?q", "/base/?q"}));

TEST_F(ZephSorrelSyncHttpClientTest, TheBasePathStaysForTheNextRequest) {
    client.SetBasePath("/base");
    client.DoRequest("GET", "a");
    client.DoRequest("GET", "b");
    EXPECT_THAT(world.calls, ::testing::Contains("SendRequest GET /base/b 0"));
}

struct StatusCase {
    std::uint32_t nStatus;
    std::uint32_t nResult;
};

class ZephSorrelSyncHttpClientStatusTest : public ::testing::TestWithParam<StatusCase> {};

TEST_P(ZephSorrelSyncHttpClientStatusTest, DecidesTheResultAndIsNeverRetried) {
    FakeSyncConnection world;
    world.exchanges = {FakeSyncConnection::Answer(GetParam().nStatus, "text")};
    Writer writer;
    ZephSorrelSyncHttpClient client(nullptr, false, ZephSorrelConnectionParameters("h", 1), &world);
    client.SetDataWriter(&writer);
    EXPECT_EQ(client.DoRequest("GET", "/"), GetParam().nResult);
    EXPECT_EQ(client.GetHttpStatus(), GetParam().nStatus);
    EXPECT_EQ(client.GetIOResult(), 0u);
    EXPECT_THAT(writer.calls, ElementsAre("Begin", "Write text", "End")) << "a failing status too";
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest GET / 0",
                                         "DoPendingIO", "ReleaseConnection"));
}

INSTANTIATE_TEST_SUITE_P(All, ZephSorrelSyncHttpClientStatusTest,
                         ::testing::Values(StatusCase{199, 108}, StatusCase{200, 0}, StatusCase{204, 0},
                                           StatusCase{299, 0}, StatusCase{300, 108}, StatusCase{404, 108},
                                           StatusCase{500, 108}, StatusCase{0, 108}));

TEST_F(ZephSorrelSyncHttpClientTest, AStreamedResponseGoesToTheWriterPieceByPiece) {
    Writer writer;
    client.SetDataWriter(&writer);
    world.responseHeaders = {{"B", "2"}, {"A", "1"}};
    world.exchanges = {[&](FakeSyncConnection& http) {
        http.request->OnRequestSent();
        EXPECT_EQ(http.response->OnResponseStart(201, 4), 0u);
        EXPECT_EQ(client.GetHttpStatus(), 201u);
        EXPECT_EQ(http.calls.back(), "ContinueReceive");
        EXPECT_EQ(http.response->OnResponseData(2, reinterpret_cast<const std::uint8_t*>("ab")), 0u);
        EXPECT_EQ(http.response->OnResponseData(2, reinterpret_cast<const std::uint8_t*>("cd")), 0u);
        EXPECT_EQ(http.response->OnResponseEnd(), 0u);
        return 0u;
    }};
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
    EXPECT_THAT(writer.calls, ElementsAre("Begin", "Write ab", "Write cd", "End"));
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "ContinueReceive"), 3)
        << "after the start and after each piece, not after the end";
    EXPECT_THAT(ResponseHeaders(), ElementsAre(Pair("A", "1"), Pair("B", "2")));
}

TEST_F(ZephSorrelSyncHttpClientTest, StatusAndHeadersAreThereWhenTheBodyBegins) {
    Writer writer;
    std::uint32_t nStatusAtBegin = 0;
    std::map<std::string, std::string> headersAtBegin;
    writer.onBegin = [&] {
        nStatusAtBegin = client.GetHttpStatus();
        headersAtBegin = ResponseHeaders();
    };
    const auto streamed = [](FakeSyncConnection& http) {
        http.request->OnRequestSent();
        EXPECT_EQ(http.response->OnResponseStart(404, 1), 0u);
        EXPECT_EQ(http.response->OnResponseEnd(), 0u);
        return 0u;
    };
    for (const auto& exchange :
         {FakeSyncConnection::Exchange(streamed), FakeSyncConnection::Answer(404, "x")}) {
        nStatusAtBegin = 0;
        headersAtBegin.clear();
        world.responseHeaders = {{"A", "1"}};
        world.exchanges = {exchange};
        client.SetDataWriter(&writer);
        EXPECT_EQ(client.DoRequest("GET", "/"), 108u);
        EXPECT_EQ(nStatusAtBegin, 404u);
        EXPECT_THAT(headersAtBegin, ElementsAre(Pair("A", "1")));
    }
}

TEST_F(ZephSorrelSyncHttpClientTest, AnnouncedLengthsReachTheWriterBehindItsBegin) {
    Writer writer;
    writer.onBegin = [&] { EXPECT_THAT(writer.expected, ::testing::IsEmpty()); };
    client.SetDataWriter(&writer);
    world.exchanges = {[](FakeSyncConnection& http) {
        http.request->OnRequestSent();
        EXPECT_EQ(http.response->OnResponseStart(200, 7), 0u);
        EXPECT_EQ(http.response->OnChunkAnnounced(3), 0u);
        EXPECT_EQ(http.response->OnResponseEnd(), 0u);
        return 0u;
    }};
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
    EXPECT_THAT(writer.expected, ElementsAre(7u, 3u));
}

TEST_F(ZephSorrelSyncHttpClientTest, ABodyThatComesWithItsHeadIsNotAnnounced) {
    Writer writer;
    client.SetDataWriter(&writer);
    world.exchanges = {FakeSyncConnection::Answer(200, "text")};
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
    EXPECT_THAT(writer.calls, ElementsAre("Begin", "Write text", "End"));
    EXPECT_THAT(writer.expected, ::testing::IsEmpty());
}

TEST_F(ZephSorrelSyncHttpClientTest, AChunkThatTheWriterDoesNotWantEndsTheExchangeInItsException) {
    class Refusing : public Writer {
        void Expect(std::uint32_t nBytes) override {
            if (nBytes == 3) throw std::runtime_error("too much");
        }
    };
    Refusing writer;
    client.SetDataWriter(&writer);
    world.exchanges = {[](FakeSyncConnection& http) {
        http.request->OnRequestSent();
        EXPECT_EQ(http.response->OnResponseStart(200, 0), 0u);
        EXPECT_NE(http.response->OnChunkAnnounced(3), 0u);
        http.response->OnResponseFailed();
        return 0u;
    }};
    EXPECT_THROW(client.DoRequest("GET", "/"), std::runtime_error);
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "DoPendingIO"), 1) << "and is not repeated";
}

TEST_F(ZephSorrelSyncHttpClientTest, AResponseWithoutAWriterIsReadAllTheSame) {
    world.exchanges = {[](FakeSyncConnection& http) {
        http.request->OnRequestSent();
        EXPECT_EQ(http.response->OnResponseStart(200, 1), 0u);
        EXPECT_EQ(http.response->OnChunkAnnounced(1), 0u);
        EXPECT_EQ(http.response->OnResponseData(1, reinterpret_cast<const std::uint8_t*>("a")), 0u);
        EXPECT_EQ(http.response->OnResponseEnd(), 0u);
        return 0u;
    }};
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "ContinueReceive"), 2);
}

TEST_F(ZephSorrelSyncHttpClientTest, ResponseHeadersComeInMapOrder) {
    world.responseHeaders = {{"B", "3"}, {"A", "2"}, {"b", "4"}};
    world.exchanges = {FakeSyncConnection::Answer(200)};
    client.DoRequest("GET", "/");
    std::vector<std::string> seen;
    client.ForEachResponseHeader(
        [&](const std::string& name, const std::string& value) { seen.push_back(name + "=" + value); });
    EXPECT_THAT(seen, ElementsAre("A=2", "B=3", "b=4"));
}

// --- Request bodies ---

TEST_F(ZephSorrelSyncHttpClientTest, ABodyOfKnownLengthIsSentInOnePieceOfItsSize) {
    Reader reader("hello");
    client.SetDataReader(&reader);
    world.exchanges = {AskForBody(2)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest POST / 5",
                                         "DoPendingIO", "WriteBody 5", "EndBody", "ReleaseConnection"));
    EXPECT_EQ(world.written, "hello");
    EXPECT_THAT(reader.rooms, ElementsAre(5u, 5u));
}

TEST_F(ZephSorrelSyncHttpClientTest, ABodyOfUnknownLengthIsSentChunkedInPiecesOfAMebibyte) {
    Reader reader(std::string(0x100000 + 1, 'x'), false);
    client.SetDataReader(&reader);
    world.exchanges = {AskForBody(3)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    EXPECT_THAT(world.calls,
                ElementsAre("GetConnection", "EnsureConnected", "SendRequest POST / chunked 0", "DoPendingIO",
                            "WriteBody 1048576", "WriteBody 1", "EndBody", "ReleaseConnection"));
    EXPECT_EQ(world.written, reader.text);
}

struct PieceCase {
    std::size_t size;
    std::uint32_t room;
};

class ZephSorrelSyncHttpClientPieceTest : public ::testing::TestWithParam<PieceCase> {};

TEST_P(ZephSorrelSyncHttpClientPieceTest, IsTheSmallerOfTheBodyAndAMebibyte) {
    FakeSyncConnection world;
    Reader reader(std::string(GetParam().size, 'x'));
    ZephSorrelSyncHttpClient client(nullptr, false, ZephSorrelConnectionParameters("h", 1), &world);
    client.SetDataReader(&reader);
    world.exchanges = {[](FakeSyncConnection& http) {
        http.body->OnReadyForBody();
        return FakeSyncConnection::Answer(200)(http);
    }};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    EXPECT_THAT(reader.rooms, ElementsAre(GetParam().room));
}

INSTANTIATE_TEST_SUITE_P(All, ZephSorrelSyncHttpClientPieceTest,
                         ::testing::Values(PieceCase{1, 1}, PieceCase{0xfffff, 0xfffff},
                                           PieceCase{0x100000, 0x100000}, PieceCase{0x100001, 0x100000}));

TEST_F(ZephSorrelSyncHttpClientTest, WithoutAReaderTheBodyEndsAtOnce) {
    world.exchanges = {AskForBody(1)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest POST / 0",
                                         "DoPendingIO", "EndBody", "ReleaseConnection"));
}

TEST_F(ZephSorrelSyncHttpClientTest, AReaderWithoutDataIsReadWithNoRoom) {
    Reader reader("");
    reader.hasData = false;
    client.SetDataReader(&reader);
    world.exchanges = {AskForBody(1)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest POST / 0",
                                         "DoPendingIO", "EndBody", "ReleaseConnection"));
    EXPECT_THAT(reader.rooms, ElementsAre(0u));
}

TEST_F(ZephSorrelSyncHttpClientTest, TheRoomOfAnEarlierBodyIsNotOfferedToAReaderWithoutData) {
    Reader earlier("hello");
    client.SetDataReader(&earlier);
    world.exchanges = {AskForBody(1), AskForBody(1)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    Reader reader("unannounced");
    reader.hasData = false;
    client.SetDataReader(&reader);
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    EXPECT_THAT(reader.rooms, ElementsAre(0u));
    EXPECT_EQ(world.written, "hello");
}

TEST_F(ZephSorrelSyncHttpClientTest, AFailedWriteOfTheBodyIsTheResultAndIsNotAskedForMore) {
    Reader reader("hello");
    client.SetDataReader(&reader);
    world.writeResults = {203};
    world.exchanges = {AskForBody(2)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 203u);
    EXPECT_EQ(reader.rooms.size(), 1u);
    EXPECT_TRUE(logger->Has(1, "Got request handling error code 203"));
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "Disconnect"), 1);
}

TEST_F(ZephSorrelSyncHttpClientTest, AFailedWriteOfTheBodyIsTheResultWithoutAnAnswerToo) {
    Reader reader("hello");
    client.SetDataReader(&reader);
    world.writeResults = {203};
    world.exchanges = {[](FakeSyncConnection& http) {
        http.body->OnReadyForBody();
        return 0u;
    }};
    EXPECT_EQ(client.DoRequest("POST", "/"), 203u);
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "Abandon"), 1) << "nothing is waited for";
}

TEST_F(ZephSorrelSyncHttpClientTest, AnAnswerThatFailedCountsMoreThanAFailedWriteOfTheBody) {
    Reader reader("hello");
    client.SetDataReader(&reader);
    world.writeResults = {203};
    world.exchanges = {[](FakeSyncConnection& http) {
                           http.body->OnReadyForBody();
                           http.response->OnResponseFailed();
                           return 0u;
                       },
                       FakeSyncConnection::Answer(200)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u) << "the connection broke, and the request is repeated";
}

TEST_F(ZephSorrelSyncHttpClientTest, ABodyForWhosePiecesThereIsNoMemoryIsNotSent) {
    Reader reader("hello");
    client.SetDataReader(&reader);
    const auto previous =
        ZephIOBuffer::ReplaceAllocator([](std::uint64_t) -> std::uint8_t* { return nullptr; });
    EXPECT_EQ(client.DoRequest("POST", "/"), 3u);
    ZephIOBuffer::ReplaceAllocator(previous);
    EXPECT_THAT(world.calls,
                ElementsAre("GetConnection", "EnsureConnected", "Disconnect", "ReleaseConnection"));
}

TEST_F(ZephSorrelSyncHttpClientTest, AFailedEndOfTheBodyIsTheResult) {
    world.endBodyResult = 7;
    world.exchanges = {AskForBody(1)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 7u);
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "Abandon"), 1);
}

// --- What holds for one request ---

TEST_F(ZephSorrelSyncHttpClientTest, TimeoutIsFifteenSecondsUnlessSetForOneRequest) {
    for (int i = 0; i < 3; ++i)
        world.exchanges.push_back(FakeSyncConnection::Answer(200));
    client.DoRequest("GET", "/");
    client.SetTimeout(40);
    client.DoRequest("GET", "/");
    client.DoRequest("GET", "/");
    EXPECT_THAT(world.timeouts, ElementsAre(15u, 40u, 15u));
}

TEST_F(ZephSorrelSyncHttpClientTest, TheTokenHoldsForOneRequest) {
    const auto token = Cancellation::CreateCancellable();
    token.Cancel();
    client.SetToken(token);
    client.DoRequest("GET", "/");
    EXPECT_TRUE(world.token.IsCancelled());
    client.DoRequest("GET", "/");
    EXPECT_FALSE(world.token.IsCancelled());
}

TEST_F(ZephSorrelSyncHttpClientTest, TheTokenOfARequestWithABodyFollowsTheCallers) {
    const auto token = Cancellation::CreateCancellable();
    Reader reader("x");
    client.SetToken(token);
    client.SetDataReader(&reader);
    world.exchanges = {[&](FakeSyncConnection& http) {
        EXPECT_FALSE(http.token.IsCancelled());
        token.Cancel();
        EXPECT_TRUE(http.token.IsCancelled());
        return 13u;
    }};
    EXPECT_EQ(client.DoRequest("POST", "/"), 11u);
}

TEST_F(ZephSorrelSyncHttpClientTest, HeadersReaderAndWriterHoldForOneRequestWhateverItsResult) {
    for (const bool connected : {true, false}) {
        Reader reader("x");
        Writer writer;
        client.SetHeader("A", "1");
        client.SetDataReader(&reader);
        client.SetDataWriter(&writer);
        if (!connected) world.ensureResults = {11};
        world.exchanges = {FakeSyncConnection::Answer(200)};
        client.DoRequest("POST", "/");
        writer.calls.clear();
        world.calls.clear();
        world.exchanges = {AskForBody(1)};
        EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
        EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest GET / 0",
                                             "DoPendingIO", "EndBody", "ReleaseConnection"));
        EXPECT_THAT(writer.calls, IsEmpty());
    }
}

TEST_F(ZephSorrelSyncHttpClientTest, SettingsAreResetWhenThePoolItselfThrows) {
    client.SetHeader("Authorization", "secret");
    world.onGetConnection = [] { throw std::runtime_error("no more connections"); };
    EXPECT_THROW(client.DoRequest("GET", "/"), std::runtime_error);
    world.onGetConnection = nullptr;
    world.calls.clear();
    world.exchanges = {FakeSyncConnection::Answer(200)};
    client.DoRequest("GET", "/");
    EXPECT_EQ(world.calls[2], "SendRequest GET / 0");
}

TEST_F(ZephSorrelSyncHttpClientTest, AConnectionGoesBackOnlyOnceWhenThePoolThrowsAtTheNextRequest) {
    world.exchanges = {FakeSyncConnection::Answer(200)};
    client.DoRequest("GET", "/");
    world.onGetConnection = [] { throw std::runtime_error("no more connections"); };
    EXPECT_THROW(client.DoRequest("GET", "/"), std::runtime_error);
    EXPECT_THAT(world.calls, Not(Contains("Disconnect")));
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "ReleaseConnection"), 1);
}

// --- Exceptions of the caller's own reader and writer ---

class ZephSorrelSyncHttpClientThrowTest : public ZephSorrelSyncHttpClientTest,
                                          public ::testing::WithParamInterface<const char*> {};

TEST_P(ZephSorrelSyncHttpClientThrowTest, AnExceptionOfTheWriterEndsTheExchangeAndIsThrownBehindIt) {
    const std::string where = GetParam();
    Writer writer;
    writer.throwsAt = where;
    client.SetDataWriter(&writer);
    bool left = false;
    world.exchanges = {[&](FakeSyncConnection& http) {
        http.request->OnRequestSent();
        std::uint32_t nResult = http.response->OnResponseStart(200, 1);
        EXPECT_EQ(nResult != 0, where == "Begin");
        if (nResult == 0)
            nResult = http.response->OnResponseData(1, reinterpret_cast<const std::uint8_t*>("x"));
        EXPECT_EQ(nResult != 0, where != "End");
        if (nResult == 0) nResult = http.response->OnResponseEnd();
        EXPECT_NE(nResult, 0u);
        left = true;
        return 0u;
    }};
    try {
        client.DoRequest("GET", "/");
        FAIL();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "of the caller");
    }
    EXPECT_TRUE(left) << "no exception crosses the stages";
    EXPECT_EQ(world.calls[world.calls.size() - 2], "Disconnect");
    EXPECT_EQ(world.calls.back(), "ReleaseConnection");
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "Reconnect"), 0);

    writer.throwsAt.clear();
    world.exchanges = {FakeSyncConnection::Answer(200)};
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u) << "the next request begins anew";
}

INSTANTIATE_TEST_SUITE_P(All, ZephSorrelSyncHttpClientThrowTest, ::testing::Values("Begin", "Write", "End"));

TEST_F(ZephSorrelSyncHttpClientTest, AnExceptionInACompleteResponseIsThrownBehindTheExchange) {
    Writer writer;
    writer.throwsAt = "Write";
    client.SetDataWriter(&writer);
    world.exchanges = {FakeSyncConnection::Answer(200, "x")};
    EXPECT_THROW(client.DoRequest("GET", "/"), std::runtime_error);
    EXPECT_THAT(writer.calls, ElementsAre("Begin", "Write x"));
}

TEST_F(ZephSorrelSyncHttpClientTest, AnExceptionOfTheReaderEndsTheWaitAndIsThrownBehindIt) {
    Reader reader("hello");
    reader.onRead = [] { throw std::out_of_range("of the reader"); };
    client.SetDataReader(&reader);
    world.exchanges = {[](FakeSyncConnection& http) {
        http.body->OnReadyForBody();
        http.body->OnReadyForBody();
        return 0u;
    }};
    EXPECT_THROW(client.DoRequest("POST", "/"), std::out_of_range);
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "Abandon"), 1);
    EXPECT_EQ(reader.rooms.size(), 1u) << "not asked again";
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "EndBody"), 0)
        << "half a body must not look like a whole one";
}

TEST_F(ZephSorrelSyncHttpClientTest, AnExceptionOfTheReaderDoesNotOutliveItsRequest) {
    Reader reader("hello");
    reader.onRead = [] { throw std::out_of_range("of the reader"); };
    client.SetDataReader(&reader);
    world.exchanges = {[](FakeSyncConnection& http) -> FakeSyncConnection::Code {
                           http.body->OnReadyForBody();
                           throw std::bad_alloc();
                       },
                       FakeSyncConnection::Answer(200)};
    EXPECT_THROW(client.DoRequest("POST", "/"), std::bad_alloc);
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
}

TEST_F(ZephSorrelSyncHttpClientTest, WithoutALoggerNothingIsLogged) {
    ZephSorrelSyncHttpClient silent(nullptr, true, ZephSorrelConnectionParameters("h", 1), &world);
    world.exchanges = {FakeSyncConnection::Answer(200)};
    EXPECT_EQ(silent.DoRequest("GET", "/"), 0u);
}

TEST(ZephSorrelSyncHttpClientOwnPoolTest, WithoutAPoolItMakesATrivialOne) {
    ZephSorrelSyncHttpClient client(nullptr, false, ZephSorrelConnectionParameters("", 1), nullptr);
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u) << "an empty host cannot be connected";
    EXPECT_EQ(client.GetIOResult(), 0u);
}

TEST(ZephSorrelSyncHttpClientOwnPoolTest, ItsConnectionLogsWhereAndAsMuchAsTheClient) {
    ScriptedSockets sockets;
    const Platform::Testing::Replace<Platform::ISockets> replaced(sockets);
    sockets.OnSend([&](ScriptedSockets::Handle handle, const std::string&) {
        sockets.Deliver(handle, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    });
    for (const bool bVerbose : {false, true}) {
        const auto logger = std::make_shared<RecordingLogger>();
        ZephSorrelSyncHttpClient client(logger, bVerbose, ZephSorrelConnectionParameters("host", 1), nullptr);
        EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
        EXPECT_EQ(logger->Has(0, "Initialization succeeded.  sessionid = 0"), bVerbose);
    }
}

TEST(ZephSorrelSyncHttpClientOwnPoolTest, APieceOfABodyThatFindsNoMemoryEndsTheExchangeWithoutAWait) {
    ScriptedSockets sockets;  // which answers nothing
    const Platform::Testing::Replace<Platform::ISockets> replaced(sockets);
    const ReplacedAllocator none([](std::uint64_t nBytes) -> std::uint8_t* {
        return nBytes > 0x100000 ? nullptr : new (std::nothrow) std::uint8_t[nBytes];
    });
    Reader reader(std::string(0x100000, 'x'), false);
    ZephSorrelSyncHttpClient client(nullptr, false, ZephSorrelConnectionParameters("host", 1), nullptr);
    client.SetDataReader(&reader);
    EXPECT_EQ(client.DoRequest("POST", "/"), eRC_OutOfMemory);
    EXPECT_EQ(client.GetIOResult(), 0u);
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

}  // namespace
}  // namespace Ombry::Tests::SyncHttpClient
