#include "OmbryZephCore/ZephHttpClientConnection.h"
#include "OmbryZephCore/ZephHttpHeaderCopy.h"
#include "tests/OmbryZephCore/HttpConnectionFixture.h"

#include <utility>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;

class ZephHttpClientConnectionTest : public HttpConnectionFixture {};

TEST(ZephHttpClientConnectionSetUpTest, InitializeWantsAStageBelowAndATerminator) {
    std::vector<std::string> log;
    FakeIOObject io(&log);
    RecordingTerminator terminator(log);
    ZephHttpClientConnection connection;
    EXPECT_EQ(eRC_InvalidArgument, connection.Initialize(nullptr, &terminator, "h", nullptr, nullptr));
    EXPECT_EQ(eRC_InvalidArgument, connection.Initialize(&io, nullptr, "h", nullptr, nullptr));
    EXPECT_FALSE(connection.IsOpen());
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(0U, connection.Initialize(&io, &terminator, "h", nullptr, nullptr));
    EXPECT_TRUE(connection.IsOpen());
    EXPECT_EQ(&connection, io.handler);
    EXPECT_EQ((std::vector<std::string>{"Register"}), log);
}

TEST(ZephHttpClientConnectionSetUpTest, ANullHostIsAnEmptyOne) {
    std::vector<std::string> log;
    FakeIOObject io(&log);
    RecordingTerminator terminator(log);
    ZephHttpClientConnection connection;
    EXPECT_EQ(0U, connection.Initialize(&io, &terminator, nullptr, nullptr, nullptr));
    EXPECT_EQ(0U, connection.SendRequest("GET", "/", false, nullptr, nullptr, nullptr, false, 0));
    EXPECT_EQ("GET / HTTP/1.1\r\nHost: \r\nContent-Length: 0\r\n\r\n", io.Writing());
}

TEST(ZephHttpClientConnectionSetUpTest, RefusedRegistrationIsReturnedAndNothingIsKept) {
    std::vector<std::string> log;
    FakeIOObject io(&log);
    RecordingTerminator terminator(log);
    ZephHttpClientConnection connection;
    io.registerResult = 77;
    EXPECT_EQ(77U, connection.Initialize(&io, &terminator, "h", nullptr, nullptr));
    EXPECT_FALSE(connection.IsOpen());
    connection.AbortTask(0);
    connection.Close();
    EXPECT_EQ((std::vector<std::string>{"Register"}), log);
}

TEST(ZephHttpClientConnectionSetUpTest, NothingIsSentBeforeInitialize) {
    std::vector<std::string> log;
    ZephHttpClientConnection connection;
    RecordingExchange exchange(log, connection);
    const std::uint8_t byte = 'x';
    EXPECT_EQ(eRC_NotInitialized,
              connection.SendRequest("GET", "/", false, &exchange, &exchange, &exchange, false, 0));
    EXPECT_EQ(eRC_NotInitialized,
              connection.SendRequestWithBody("PUT", "/", false, &exchange, &exchange, 1, &byte));
    EXPECT_EQ(eRC_NotInitialized, connection.WriteBody(1, &byte));
    EXPECT_EQ(eRC_NotInitialized, connection.WriteBody(0, &byte));
    EXPECT_EQ(eRC_NotInitialized, connection.EndBody());
    connection.ContinueReceive();
    connection.DoTask();
    connection.OnDrained();
    connection.Reset();
    EXPECT_EQ(nullptr, connection.GetResponseHeader("A"));
    EXPECT_TRUE(log.empty());
}

TEST_F(ZephHttpClientConnectionTest, CloseLeavesTheStageBelowThenReportsSentAndFailed) {
    RecordingExchange second(log, connection, "2 ");
    connection.SendRequest("PUT", "/", false, &exchange, &exchange, &exchange, false, 9);
    io.CompleteWrite();
    connection.SendRequest("PUT", "/", false, &second, &second, &second, false, 9);
    log.clear();
    connection.Close();
    EXPECT_EQ((Log{"UnRegister", "RequestSent", "2 RequestSent", "ResponseFailed", "2 ResponseFailed"}), log);
    EXPECT_FALSE(connection.IsOpen());
    log.clear();
    connection.Close();
    EXPECT_TRUE(log.empty());
}

TEST_F(ZephHttpClientConnectionTest, ResetReportsUnsentRequestsWithOnRequestSentNotFailed) {
    connection.SendRequest("GET", "/", true, &exchange, &exchange, nullptr, false, 0);
    log.clear();
    connection.Reset();
    EXPECT_EQ((Log{"RequestSent", "ResponseFailed"}), log);
    EXPECT_TRUE(connection.IsOpen());
    EXPECT_FALSE(connection.IsCloseRequested());
}

TEST_F(ZephHttpClientConnectionTest, FailTerminatesThenTellsNotifiersThenHandlers) {
    RecordingExchange second(log, connection, "2 ");
    connection.SendRequest("PUT", "/", false, &exchange, &exchange, &exchange, false, 9);
    io.CompleteWrite();
    connection.SendRequest("PUT", "/", false, &second, &second, &second, false, 9);
    log.clear();
    connection.AbortTask(0);
    EXPECT_EQ((Log{"Terminate", "RequestFailed", "2 RequestFailed", "ResponseFailed", "2 ResponseFailed"}),
              log);
    log.clear();
    connection.Reset();
    EXPECT_TRUE(log.empty());
}

/// Resets the connection from its report of a failed request.
class ResettingExchange : public RecordingExchange {
public:
    ResettingExchange(std::vector<std::string>& log, ZephHttpClientConnection& connection)
        : RecordingExchange(log, connection, "1 "), connection(connection) {}
    void OnRequestFailed() override {
        RecordingExchange::OnRequestFailed();
        connection.Reset();
    }

private:
    ZephHttpClientConnection& connection;
};

TEST_F(ZephHttpClientConnectionTest, ResetFromAReportTellsTheOthersAndNobodyIsToldTwice) {
    ResettingExchange first(log, connection);
    RecordingExchange second(log, connection, "2 ");
    connection.SendRequest("PUT", "/", false, &first, &first, &first, false, 9);
    io.CompleteWrite();
    connection.SendRequest("PUT", "/", false, &second, &second, &second, false, 9);
    log.clear();
    connection.AbortTask(0);
    EXPECT_EQ((Log{"Terminate", "1 RequestFailed", "2 RequestSent", "1 ResponseFailed", "2 ResponseFailed"}),
              log);
}

TEST_F(ZephHttpClientConnectionTest, EveryFailureOfATransferFailsTheConnection) {
    const Log failed{"Terminate", "RequestFailed", "ResponseFailed"};
    const std::vector<std::function<void()>> failures = {
        [&] { io.FailPendingRead(); },
        [&] { io.FailPendingWrite(); },
        [&] { connection.AbortTask(0); },
        [&] { connection.AbortTask(1); },
        [&] { io.CompleteReadWithEnd(); },
        [&] { connection.CompleteTask(1, true, 0); },
        [&] { connection.CompleteTask(0, true, ZephHttpClientConnection::ReadStep + 1); },
        [&] { connection.CompleteTask(1, true, 1000); },
        [&] { connection.CompleteTask(7, false, 0); },
    };
    for (const auto& fail : failures) {
        connection.Close();
        connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
        connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
        log.clear();
        fail();
        EXPECT_EQ(failed, log);
    }
}

TEST_F(ZephHttpClientConnectionTest, AnAbortedTransferIsNotUnderWayAnyMore) {
    for (const std::uint32_t nTaskType : {TaskTypeRead, TaskTypeWrite}) {
        connection.Close();
        connection.Initialize(&io, &terminator, "host:443", nullptr, nullptr);
        SendGet();
        EXPECT_EQ(0U, connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0));
        if (nTaskType == TaskTypeRead) io.CompleteWrite();
        io.UnRegisterIOCompletionHandler();
        connection.AbortTask(nTaskType);
        log.clear();
        EXPECT_EQ(0U, connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0));
        const Log whole{"StartRead 16384", "StartWrite 53"};
        const Log writeAlone{"StartWrite 53"};
        EXPECT_EQ(nTaskType == TaskTypeRead ? whole : writeAlone, log);
    }
}

TEST_F(ZephHttpClientConnectionTest, CompletionOfMoreThanTheRestOfATransferFailsTheConnection) {
    constexpr std::uint32_t head = 53;
    connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    ASSERT_EQ(head, io.Writing().size());
    io.CompleteWrite(12);
    log.clear();
    connection.CompleteTask(1, true, head - 12 + 1);
    EXPECT_EQ((Log{"Terminate", "RequestFailed", "ResponseFailed"}), log);

    connection.Close();
    connection.Initialize(&io, &terminator, "host:443", nullptr, nullptr);
    SendGet();
    io.CompleteRead("HTTP/1.1 200 OK");
    log.clear();
    connection.CompleteTask(0, true, ZephHttpClientConnection::ReadStep - 15 + 1);
    EXPECT_EQ((Log{"Terminate", "ResponseFailed"}), log);
}

TEST_F(ZephHttpClientConnectionTest, FailForgetsWhoWouldHaveGivenTheBody) {
    connection.SendRequest("PUT", "/", false, &exchange, &exchange, &exchange, false, 9);
    io.FailPendingRead();
    log.clear();
    connection.DoTask();
    io.CompleteWrite();
    EXPECT_TRUE(log.empty());
}

TEST_F(ZephHttpClientConnectionTest, ResetForgetsWhoWouldHaveGivenTheBody) {
    connection.SendRequest("PUT", "/", false, &exchange, &exchange, &exchange, false, 9);
    connection.Reset();
    log.clear();
    connection.DoTask();
    EXPECT_TRUE(log.empty());
}

TEST_F(ZephHttpClientConnectionTest, NothingIsReadAfterAFailure) {
    connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    io.FailPendingWrite();
    log.clear();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nab");
    EXPECT_TRUE(log.empty());
}

TEST_F(ZephHttpClientConnectionTest, HandlerThatSendsAgainWhenItFailedIsNotFailedTwice) {
    class Resender : public RecordingExchange {
    public:
        using RecordingExchange::RecordingExchange;
        void OnRequestFailed() override {
            RecordingExchange::OnRequestFailed();
            if (again) again();
        }
        std::function<void()> again;
    };
    Resender resender(log, connection, "1 ");
    resender.again = [&] {
        resender.again = nullptr;
        connection.SendRequest("GET", "/2", false, &exchange, &exchange, nullptr, false, 0);
    };
    connection.SendRequest("GET", "/", false, &resender, &resender, nullptr, false, 0);
    log.clear();
    io.FailPendingWrite();
    EXPECT_EQ((Log{"Terminate", "1 RequestFailed", "1 ResponseFailed"}), Events());
    log.clear();
    connection.Close();
    EXPECT_EQ((Log{"UnRegister", "RequestSent", "ResponseFailed"}), log);
}

TEST_F(ZephHttpClientConnectionTest, NullHandlerFailsAtItsAnswerAndNullNotifiersAreSkipped) {
    EXPECT_EQ(0U, connection.SendRequest("GET", "/", false, nullptr, nullptr, nullptr, false, 0));
    io.CompleteWrite();
    log.clear();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ((Log{"Terminate"}), log);
}

TEST_F(ZephHttpClientConnectionTest, NullHandlerFailsAtTheStartOfAStreamedAnswer) {
    for (const char* head : {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nab",
                             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"}) {
        connection.Close();
        connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
        connection.SendRequest("GET", "/", false, nullptr, nullptr, nullptr, false, 0);
        log.clear();
        io.Feed(head);
        EXPECT_EQ((Log{"Terminate"}), log);
        connection.Close();
    }
}

TEST_F(ZephHttpClientConnectionTest, ChunksOfAnInterimAnswerNeedNoHandler) {
    connection.SendRequest("GET", "/", false, nullptr, nullptr, nullptr, false, 0);
    io.CompleteWrite();
    log.clear();
    io.Feed("HTTP/1.1 103 Early Hints\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n");
    EXPECT_EQ((Log{}), Events());
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ((Log{"Terminate"}), Events());
}

TEST_F(ZephHttpClientConnectionTest, ResponseHeadersAreThereWithTheAnswerAndUntilTheNextIsLookedFor) {
    SendGet();
    EXPECT_EQ(nullptr, connection.GetResponseHeader("A"));
    std::string seen;
    exchange.onEnded = [&] { seen = connection.GetResponseHeader("A"); };
    io.Feed("HTTP/1.1 200 OK\r\nA: b\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ("b", seen);
    EXPECT_STREQ("b", connection.GetResponseHeader("A"));
    EXPECT_EQ(nullptr, connection.GetResponseHeader("a"));
    std::string all;
    const auto append = [&](const char* name, const char* value) {
        all += std::string(name) + "=" + value + ";";
    };
    connection.ForEachResponseHeader(append);
    EXPECT_EQ("A=b;Content-Length=0;", std::exchange(all, ""));
    ZephHttpHeaderCopy copy;
    connection.CopyResponseHeaders(copy);
    copy.ForEach(append);
    EXPECT_EQ("A=b;Content-Length=0;", std::exchange(all, ""));
    SendGet();
    EXPECT_EQ(nullptr, connection.GetResponseHeader("A"));
    connection.ForEachResponseHeader(append);
    connection.CopyResponseHeaders(copy);
    copy.ForEach(append);
    EXPECT_EQ("", all);
}

TEST_F(ZephHttpClientConnectionTest, MemoryGoesBetweenTwoRequestsAndNotDuringOne) {
    for (int i = 0; i < 2; ++i) {
        SendGet();
        io.Feed("HTTP/1.1 200 OK\r\nA: b\r\nConte");
        connection.ReleaseIdleMemory();
        io.Feed("nt-Length: 0\r\n\r\n");
        EXPECT_STREQ("b", connection.GetResponseHeader("A"));
        connection.ReleaseIdleMemory();
        EXPECT_STREQ("b", connection.GetResponseHeader("A"));
    }
}

TEST_F(ZephHttpClientConnectionTest, AnIdleConnectionHoldsNeitherBuffer) {
    SendGet();
    io.Feed("HTTP/1.1 204 N\r\n\r\n");
    const ReplacedAllocator counted(&CountAllocation);
    allocationsCounted = 0;
    SendGet();
    EXPECT_EQ(allocationsCounted, 0);
    io.Feed("HTTP/1.1 204 N\r\n\r\n");
    connection.ReleaseIdleMemory();
    SendGet();
    EXPECT_EQ(allocationsCounted, 2);
}

TEST_F(ZephHttpClientConnectionTest, ARequestThatIsAnsweredBeforeItIsSentKeepsItsMemory) {
    connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    const std::string head = io.Writing();
    io.Feed("HTTP/1.1 204 N\r\n\r\n");
    connection.ReleaseIdleMemory();
    io.CompleteWrite();
    EXPECT_EQ(io.written, head);
    EXPECT_EQ(Events(), (Log{"Complete 204 ", "RequestSent"}));
}

TEST_F(ZephHttpClientConnectionTest, AnAnswerThatIsHeldBackKeepsItsMemory) {
    SendGet();
    exchange.continues = false;
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nab");
    connection.ReleaseIdleMemory();
    connection.ContinueReceive();
    EXPECT_EQ(Events(), (Log{"Start 200 3", "Data ab"}));
}

TEST_F(ZephHttpClientConnectionTest, AReadThatOutlivesItsRequestKeepsItsMemory) {
    SendGet();
    connection.Abandon();
    connection.ReleaseIdleMemory();
    io.Feed("late");
    EXPECT_EQ(Events(), (Log{"Terminate", "ResponseFailed"})) << "there was room for it";
}

TEST_F(ZephHttpClientConnectionTest, WhatAnAnswerThatFailedLeftGoesWithTheMemory) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-");
    io.FailPendingRead();
    connection.ReleaseIdleMemory();
    SendGet();
    io.Feed("HTTP/1.1 204 N\r\n\r\n");
    EXPECT_EQ(Events(), (Log{"Complete 204 "}));
}

TEST_F(ZephHttpClientConnectionTest, ARequestThatDoesNotAskToCloseTakesBackWhatTheOneBeforeAsked) {
    const std::string data = "x";
    for (const bool bWithBody : {false, true}) {
        SendGet(true);
        io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        EXPECT_TRUE(connection.IsCloseRequested());
        if (bWithBody) {
            connection.SendRequestWithBody("GET", "/", false, &exchange, &exchange, 1,
                                           reinterpret_cast<const std::uint8_t*>(data.data()));
        } else {
            connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
        }
        EXPECT_FALSE(connection.IsCloseRequested());
        EXPECT_EQ(std::string::npos, io.Writing().find("Connection: close"));
        io.CompleteWrite();
        io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        EXPECT_FALSE(connection.IsCloseRequested());
    }
}

TEST_F(ZephHttpClientConnectionTest, ReopenedConnectionSearchesItsFirstHeadFromTheBeginning) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nA: " + std::string(1000, 'x'));
    connection.Close();
    connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
    SendGet();
    io.Feed("HTTP/1.1 204 No\r\n\r\n");
    EXPECT_EQ((Log{"Complete 204 "}), log);
}

TEST_F(ZephHttpClientConnectionTest, ReopenedConnectionForgetsTheChunkedBodyOfTheLastRequest) {
    connection.SendRequest("PUT", "/", false, &exchange, &exchange, &exchange, true, 0);
    connection.Close();
    connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
    const std::uint8_t byte = 'x';
    EXPECT_EQ(0U, connection.WriteBody(1, &byte));
    EXPECT_EQ("x", io.Writing());
}

TEST_F(ZephHttpClientConnectionTest, ReopenedConnectionStartsClean) {
    SendGet(true);
    connection.AddHeader("Old", "1");
    io.Feed("HTTP/1.1 200 OK\r\n\r\nhalf");
    EXPECT_TRUE(connection.IsCloseRequested());
    connection.Close();
    EXPECT_EQ(nullptr, connection.GetResponseHeader("A"));
    EXPECT_FALSE(connection.IsCloseRequested());

    FakeIOObject other(&log);
    ASSERT_EQ(0U, connection.Initialize(&other, &terminator, "other:1", nullptr, nullptr));
    log.clear();
    EXPECT_EQ(0U, connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0));
    EXPECT_EQ("GET / HTTP/1.1\r\nHost: other:1\r\nContent-Length: 0\r\n\r\n", other.Writing());
    other.CompleteWrite();
    other.Feed("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nab");
    EXPECT_EQ((Log{"StartRead 16384", "StartWrite 52", "RequestSent", "Complete 200 ab"}), log);
}

}  // namespace
}  // namespace Ombry::Tests
