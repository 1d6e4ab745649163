// Requests that fail, and the one repetition that some of them get.

#include "tests/OmbryZephCore/SyncHttpClientFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests::SyncHttpClient {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

TEST_F(ZephSorrelSyncHttpClientTest, ABrokenExchangeIsRepeatedOnceOnANewConnection) {
    Writer writer;
    client.SetDataWriter(&writer);
    client.SetHeader("A", "1");
    world.exchanges = {FakeSyncConnection::Break(), FakeSyncConnection::Answer(200, "late")};
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "AddHeader A: 1",
                                         "SendRequest GET / 0", "DoPendingIO", "Reconnect", "AddHeader A: 1",
                                         "SendRequest GET / 0", "DoPendingIO", "ReleaseConnection"));
    EXPECT_THAT(writer.calls, ElementsAre("Begin", "Write late", "End"));
    EXPECT_THAT(logger->Messages(), ElementsAre("sending GET to /", "Got request handling error code 11",
                                                "sending GET to /", "Got HTTP response code 200"));
}

TEST_F(ZephSorrelSyncHttpClientTest, TheSecondFailureIsTheLast) {
    world.exchanges = {FakeSyncConnection::Break(), FakeSyncConnection::Break(),
                       FakeSyncConnection::Answer(200)};
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u);
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest GET / 0",
                                         "DoPendingIO", "Reconnect", "SendRequest GET / 0", "DoPendingIO",
                                         "Disconnect", "ReleaseConnection"));
    EXPECT_EQ(client.GetIOResult(), 0u);
}

TEST_F(ZephSorrelSyncHttpClientTest, APostIsRepeatedTooFromTheBeginningOfItsBody) {
    Reader reader("hello");
    client.SetDataReader(&reader);
    world.exchanges = {[](FakeSyncConnection& http) {
                           http.body->OnReadyForBody();
                           return FakeSyncConnection::Break()(http);
                       },
                       AskForBody(2)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    EXPECT_EQ(world.written, "hellohello");
}

TEST_F(ZephSorrelSyncHttpClientTest, TheLengthOfTheFirstPassStaysWhenTheReaderHasNoDataInTheSecond) {
    Reader reader("hello");
    client.SetDataReader(&reader);
    world.exchanges = {[&](FakeSyncConnection& http) {
                           reader.hasData = false;
                           return FakeSyncConnection::Break()(http);
                       },
                       FakeSyncConnection::Answer(200)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "SendRequest POST / 5"), 2);
}

TEST_F(ZephSorrelSyncHttpClientTest, ALengthThatIsKnownOnlyInTheSecondPassEndsTheChunkedCoding) {
    Reader reader("hello", false);
    client.SetDataReader(&reader);
    world.exchanges = {[&](FakeSyncConnection& http) {
                           reader.lengthKnown = true;
                           return FakeSyncConnection::Break()(http);
                       },
                       FakeSyncConnection::Answer(200)};
    EXPECT_EQ(client.DoRequest("POST", "/"), 0u);
    EXPECT_THAT(world.calls, Contains("SendRequest POST / chunked 0"));
    EXPECT_THAT(world.calls, Contains("SendRequest POST / 5"));
}

TEST_F(ZephSorrelSyncHttpClientTest, ATimeOutIsNeverRepeated) {
    world.exchanges = {FakeSyncConnection::Return(13), FakeSyncConnection::Answer(200)};
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u);
    EXPECT_EQ(client.GetIOResult(), 13u);
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest GET / 0",
                                         "DoPendingIO", "Disconnect", "ReleaseConnection"));
    EXPECT_THAT(logger->Messages(),
                ElementsAre("sending GET to /", "Communications failed with IO error code 13"));
    EXPECT_EQ(logger->Messages(1).size(), 2u);
}

TEST_F(ZephSorrelSyncHttpClientTest, ATimeOutCountsEvenIfTheHandlersHeardOfAFailure) {
    world.exchanges = {[](FakeSyncConnection& http) {
        http.response->OnResponseFailed();
        return 13u;
    }};
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u);
    EXPECT_EQ(client.GetIOResult(), 13u);
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "Reconnect"), 0);
}

TEST_F(ZephSorrelSyncHttpClientTest, ATimeOutOfTheLastRequestDoesNotCountInTheNext) {
    world.exchanges = {FakeSyncConnection::Return(13), FakeSyncConnection::Answer(200)};
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u);
    world.sendResults = {11};
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
    world.exchanges = {FakeSyncConnection::Return(13)};
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u);
    world.sendResults = {3};
    EXPECT_EQ(client.DoRequest("GET", "/"), 3u);
    EXPECT_EQ(client.GetIOResult(), 0u);
}

TEST_F(ZephSorrelSyncHttpClientTest, AnotherIOErrorIsRepeated) {
    world.exchanges = {FakeSyncConnection::Return(1), FakeSyncConnection::Answer(200)};
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
    EXPECT_TRUE(logger->Has(1, "Communications failed with IO error code 1"));
    EXPECT_EQ(client.GetIOResult(), 0u);
}

TEST_F(ZephSorrelSyncHttpClientTest, ARequestThatCannotBeSentBecauseTheConnectionBrokeIsRepeated) {
    world.sendResults = {11, 0};
    world.exchanges = {FakeSyncConnection::Answer(200)};
    EXPECT_EQ(client.DoRequest("GET", "/"), 0u);
    EXPECT_THAT(world.calls,
                ElementsAre("GetConnection", "EnsureConnected", "SendRequest GET / 0", "Reconnect",
                            "SendRequest GET / 0", "DoPendingIO", "ReleaseConnection"));
}

TEST_F(ZephSorrelSyncHttpClientTest, AnotherFailureToSendIsTheResultAndCutsTheConnection) {
    world.sendResults = {203};
    EXPECT_EQ(client.DoRequest("GET", "/"), 203u);
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest GET / 0",
                                         "Disconnect", "ReleaseConnection"));
}

TEST_F(ZephSorrelSyncHttpClientTest, AFailedReconnectIsTheResult) {
    world.exchanges = {FakeSyncConnection::Break(), FakeSyncConnection::Answer(200)};
    world.reconnectResults = {7};
    EXPECT_EQ(client.DoRequest("GET", "/"), 7u);
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "DoPendingIO"), 1);
}

TEST_F(ZephSorrelSyncHttpClientTest, WithoutAConnectionNothingIsSentAndTheConnectionGoesBack) {
    for (const std::uint32_t nResult : {7u, 11u}) {
        world.calls.clear();
        world.ensureResults = {nResult};
        EXPECT_EQ(client.DoRequest("GET", "/"), nResult);
        EXPECT_THAT(world.calls,
                    ElementsAre("GetConnection", "EnsureConnected", "Disconnect", "ReleaseConnection"));
    }
    EXPECT_THAT(logger->Messages(), IsEmpty());
}

TEST_F(ZephSorrelSyncHttpClientTest, TheResultsOfTheLastRequestStayWhenTheNextFindsNoConnection) {
    world.responseHeaders = {{"A", "1"}};
    world.exchanges = {FakeSyncConnection::Answer(200)};
    client.DoRequest("GET", "/");
    world.exchanges = {FakeSyncConnection::Return(13)};
    client.DoRequest("GET", "/");
    EXPECT_EQ(client.GetHttpStatus(), 0u) << "a new request begins without the results of the last";
    EXPECT_THAT(ResponseHeaders(), IsEmpty());
    world.ensureResults = {11};
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u);
    EXPECT_EQ(client.GetIOResult(), 13u);
}

TEST_F(ZephSorrelSyncHttpClientTest, ResultsStayUntilTheNextRequest) {
    world.responseHeaders = {{"A", "1"}};
    world.exchanges = {FakeSyncConnection::Answer(404)};
    client.DoRequest("GET", "/");
    world.ensureResults = {11};
    client.DoRequest("GET", "/");
    EXPECT_EQ(client.GetHttpStatus(), 404u);
    EXPECT_THAT(ResponseHeaders(), ElementsAre(Pair("A", "1")));
}

TEST_F(ZephSorrelSyncHttpClientTest, AnExchangeWithoutEndAndWithoutErrorIsAFailureAndIsCutOff) {
    world.exchanges = {FakeSyncConnection::Return(0), FakeSyncConnection::Return(0)};
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u);
    EXPECT_EQ(client.GetIOResult(), 0u);
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest GET / 0",
                                         "DoPendingIO", "Reconnect", "SendRequest GET / 0", "DoPendingIO",
                                         "Disconnect", "ReleaseConnection"));
    EXPECT_TRUE(logger->Has(1, "Got request handling error code 11"));
}

TEST_F(ZephSorrelSyncHttpClientTest, AResponseThatStartsAndNeverEndsIsAFailure) {
    const auto start = [](FakeSyncConnection& http) {
        http.request->OnRequestSent();
        http.response->OnResponseStart(200, 5);
        return 0u;
    };
    world.exchanges = {start, start};
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u);
}

TEST_F(ZephSorrelSyncHttpClientTest, AnEndInTheFirstPassDoesNotCountInTheSecond) {
    world.exchanges = {[](FakeSyncConnection& http) {
                           FakeSyncConnection::Answer(200)(http);
                           http.request->OnRequestFailed();
                           return 0u;
                       },
                       FakeSyncConnection::Return(0)};
    EXPECT_EQ(client.DoRequest("GET", "/"), 11u);
    EXPECT_EQ(client.GetHttpStatus(), 0u);
}

TEST_F(ZephSorrelSyncHttpClientTest, AResponseToARequestThatIsNotFullySentCountsButItsConnectionIsCutOff) {
    world.exchanges = {[](FakeSyncConnection& http) {
        http.response->OnCompleteResponse(413, nullptr, 0);
        return 0u;
    }};
    EXPECT_EQ(client.DoRequest("POST", "/"), 108u);
    EXPECT_EQ(client.GetHttpStatus(), 413u);
    EXPECT_THAT(world.calls, ElementsAre("GetConnection", "EnsureConnected", "SendRequest POST / 0",
                                         "DoPendingIO", "Disconnect", "ReleaseConnection"));
}

TEST_F(ZephSorrelSyncHttpClientTest, ARequestThatOnlyTheFirstPassSentInFullCutsTheConnectionOff) {
    world.exchanges = {[](FakeSyncConnection& http) {
                           http.request->OnRequestSent();
                           return FakeSyncConnection::Break()(http);
                       },
                       [](FakeSyncConnection& http) {
                           http.response->OnCompleteResponse(413, nullptr, 0);
                           return 0u;
                       }};
    EXPECT_EQ(client.DoRequest("POST", "/"), 108u);
    EXPECT_THAT(world.calls, Contains("Disconnect"));
}

}  // namespace
}  // namespace Ombry::Tests::SyncHttpClient
