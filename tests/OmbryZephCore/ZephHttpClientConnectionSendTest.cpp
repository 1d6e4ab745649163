#include "OmbryZephCore/ZephHttpClientConnection.h"
#include "tests/OmbryZephCore/HttpConnectionFixture.h"

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;

class ZephHttpClientConnectionSendTest : public HttpConnectionFixture {
protected:
    std::uint32_t WriteBody(const std::string& text) {
        return connection.WriteBody(static_cast<std::uint32_t>(text.size()),
                                    reinterpret_cast<const std::uint8_t*>(text.data()));
    }
    std::uint32_t Put(bool bChunked, std::uint32_t nLength) {
        return connection.SendRequest("PUT", "/x", false, &exchange, &exchange, &exchange, bChunked, nLength);
    }
};

TEST_F(ZephHttpClientConnectionSendTest, RequestWithoutBodyCarriesContentLengthZero) {
    EXPECT_EQ(0U, connection.SendRequest("GET", "/a?b", false, &exchange, &exchange, nullptr, false, 0));
    EXPECT_EQ("GET /a?b HTTP/1.1\r\nHost: host:443\r\nContent-Length: 0\r\n\r\n", io.Writing());
    EXPECT_FALSE(connection.IsCloseRequested());
    EXPECT_EQ((Log{"StartRead 16384", "StartWrite 56"}), log);
    io.CompleteWrite();
    EXPECT_EQ((Log{"StartRead 16384", "StartWrite 56", "RequestSent"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, HeadHasItsPartsInOrder) {
    connection.AddHeader("A", "b");
    connection.AddHeader("C", "");
    EXPECT_EQ(0U,
              connection.SendRequest("POST", "/", true, &exchange, &exchange, nullptr, false, 4294967295U));
    EXPECT_EQ(
        "POST / HTTP/1.1\r\nConnection: close\r\nHost: host:443\r\nContent-Length: 4294967295\r\n"
        "A: b\r\nC: \r\n\r\n",
        io.Writing());
    EXPECT_TRUE(connection.IsCloseRequested());
}

TEST_F(ZephHttpClientConnectionSendTest, ChunkedHeadNamesNoLength) {
    EXPECT_EQ(0U, Put(true, 77));
    EXPECT_EQ("PUT /x HTTP/1.1\r\nHost: host:443\r\nTransfer-Encoding: chunked\r\n\r\n", io.Writing());
}

TEST_F(ZephHttpClientConnectionSendTest, AddedHeadersAreNotCheckedAndGoWithOneRequestOnly) {
    EXPECT_EQ(0U, connection.AddHeader("A: 1\r\nB", "2"));
    connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    EXPECT_EQ("GET / HTTP/1.1\r\nHost: host:443\r\nContent-Length: 0\r\nA: 1\r\nB: 2\r\n\r\n", io.Writing());
    io.CompleteWrite();
    connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    EXPECT_EQ("GET / HTTP/1.1\r\nHost: host:443\r\nContent-Length: 0\r\n\r\n", io.Writing());
}

TEST_F(ZephHttpClientConnectionSendTest, AddedHeadersDoNotOutliveARequestThatCouldNotBeWritten) {
    connection.AddHeader("Authorization", "secret");
    {
        const ReplacedAllocator refuse(&RefuseEveryAllocation);
        EXPECT_EQ(eRC_OutOfMemory,
                  connection.SendRequest("GET", "/", false, &exchange, &exchange, &exchange, false, 0));
    }
    EXPECT_TRUE(log.empty());
    connection.DoTask();
    EXPECT_TRUE(log.empty());
    connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    EXPECT_EQ("GET / HTTP/1.1\r\nHost: host:443\r\nContent-Length: 0\r\n\r\n", io.Writing());
}

TEST_F(ZephHttpClientConnectionSendTest, ShortWritesGoOnWhereTheyEnded) {
    const std::string head = "GET / HTTP/1.1\r\nHost: host:443\r\nContent-Length: 0\r\n\r\n";
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, head.size() - 1}) {
        connection.Reset();
        io.UnRegisterIOCompletionHandler();
        io.RegisterIOCompletionHandler(&connection);
        io.written.clear();
        connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
        log.clear();
        Log expected;
        for (std::size_t left = head.size(); io.IsWriting(); left -= std::min(left, piece)) {
            if (left < head.size()) expected.push_back("StartWrite " + std::to_string(left));
            io.CompleteWrite(piece);
        }
        expected.push_back("RequestSent");
        EXPECT_EQ(expected, log);
        EXPECT_EQ(head, io.written);
    }
}

TEST_F(ZephHttpClientConnectionSendTest, BodyInMemoryLeavesWithItsHeadInOneWrite) {
    const std::string body("a\0b", 3);
    EXPECT_EQ(0U, connection.SendRequestWithBody("POST", "/", true, &exchange, &exchange, 3,
                                                 reinterpret_cast<const std::uint8_t*>(body.data())));
    EXPECT_EQ("POST / HTTP/1.1\r\nConnection: close\r\nHost: host:443\r\nContent-Length: 3\r\n\r\n" + body,
              io.Writing());
    io.CompleteWrite();
    EXPECT_EQ((Log{"StartRead 16384", "StartWrite 76", "RequestSent"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, EmptyBodyInMemoryIsTheHeadAlone) {
    EXPECT_EQ(0U, connection.SendRequestWithBody("POST", "/", false, &exchange, &exchange, 0, nullptr));
    EXPECT_EQ("POST / HTTP/1.1\r\nHost: host:443\r\nContent-Length: 0\r\n\r\n", io.Writing());
}

TEST_F(ZephHttpClientConnectionSendTest, SendRequestWithBodyLeavesTheBodyNotifierInPlace) {
    RecordingExchange second(log, connection, "2 ");
    Put(true, 0);
    io.CompleteWrite();
    const std::uint8_t byte = 'x';
    connection.SendRequestWithBody("POST", "/", false, &second, &second, 1, &byte);
    EXPECT_NE(std::string::npos, io.Writing().find("Content-Length: 1\r\n\r\nx"));
    log.clear();
    io.CompleteWrite();
    EXPECT_EQ((Log{"ReadyForBody"}), log);
    EXPECT_EQ(0U, connection.EndBody());  // not chunked any more: nothing is written
    EXPECT_EQ((Log{"ReadyForBody", "RequestSent"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, PlainBodyGoesOutPieceByPiece) {
    Put(false, 5);
    io.CompleteWrite(10);
    EXPECT_EQ((Log{"StartRead 16384", "StartWrite 54", "StartWrite 44"}), log);
    log.clear();
    io.CompleteWrite();
    EXPECT_EQ((Log{"ReadyForBody"}), log);
    EXPECT_EQ(0U, WriteBody("abc"));
    EXPECT_EQ("abc", io.Writing());
    io.CompleteWrite(1);
    EXPECT_EQ("bc", io.Writing());
    io.CompleteWrite();
    EXPECT_EQ(0U, WriteBody("de"));
    io.CompleteWrite();
    EXPECT_EQ(0U, connection.EndBody());
    EXPECT_EQ((Log{"ReadyForBody", "StartWrite 3", "StartWrite 2", "ReadyForBody", "StartWrite 2",
                   "ReadyForBody", "RequestSent"}),
              log);
    EXPECT_TRUE(io.written.ends_with("Content-Length: 5\r\n\r\nabcde"));
    log.clear();
    EXPECT_EQ(0U, connection.EndBody());
    connection.DoTask();
    EXPECT_TRUE(log.empty());
}

TEST_F(ZephHttpClientConnectionSendTest, ChunkSizesAreUpperCaseHexadecimal) {
    const std::vector<std::pair<std::size_t, std::string>> cases = {
        {1, "1\r\n"},    {9, "9\r\n"},     {10, "A\r\n"},         {16, "10\r\n"},
        {255, "FF\r\n"}, {256, "100\r\n"}, {0xABCDE, "ABCDE\r\n"}};
    Put(true, 0);
    for (const auto& [size, line] : cases) {
        io.CompleteWrite();
        const std::string data(size, 'd');
        EXPECT_EQ(0U, WriteBody(data));
        EXPECT_EQ(line + data + "\r\n", io.Writing());
    }
}

TEST_F(ZephHttpClientConnectionSendTest, ChunkedBodyEndsWithTheTerminatingChunk) {
    Put(true, 0);
    io.CompleteWrite();
    WriteBody("a");
    io.CompleteWrite();
    log.clear();
    EXPECT_EQ(0U, connection.EndBody());
    EXPECT_EQ("0\r\n\r\n", io.Writing());
    io.CompleteWrite(2);
    EXPECT_EQ("\n\r\n", io.Writing());
    io.CompleteWrite();
    EXPECT_EQ((Log{"StartWrite 5", "StartWrite 3", "RequestSent"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, EndOfABodyWithoutARequestIsTheEndOfNoOther) {
    EXPECT_EQ(0U, connection.EndBody());
    EXPECT_TRUE(log.empty());
    connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    log.clear();
    io.CompleteWrite();
    EXPECT_EQ((Log{"RequestSent"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, PieceOfNoBytesIsTheEndOfTheBodyAndIsNeverWritten) {
    Put(true, 0);
    io.CompleteWrite();
    log.clear();
    EXPECT_EQ(0U, WriteBody(""));
    EXPECT_EQ("0\r\n\r\n", io.Writing());
    io.CompleteWrite();
    EXPECT_EQ((Log{"StartWrite 5", "RequestSent"}), log);

    Put(false, 5);
    io.CompleteWrite();
    log.clear();
    EXPECT_EQ(0U, WriteBody(""));
    EXPECT_EQ((Log{"RequestSent"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, WritesFromInsideOnReadyForBodyWork) {
    int pieces = 0;
    exchange.onReadyForBody = [&] { EXPECT_EQ(0U, ++pieces <= 2 ? WriteBody("xy") : connection.EndBody()); };
    Put(true, 0);
    while (io.IsWriting())
        io.CompleteWrite(3);
    EXPECT_TRUE(io.written.ends_with("\r\n\r\n2\r\nxy\r\n2\r\nxy\r\n0\r\n\r\n"));
    EXPECT_EQ("RequestSent", log.back());
}

TEST_F(ZephHttpClientConnectionSendTest, TaskAsksForTheBody) {
    Put(true, 0);
    log.clear();
    connection.DoTask();
    EXPECT_EQ((Log{"ReadyForBody"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, SecondWriteWhileOneIsUnderWayIsRefusedAndChangesNothing) {
    RecordingExchange second(log, connection, "2 ");
    Put(true, 0);
    const std::string writing = io.Writing();
    log.clear();
    const std::uint8_t byte = 'x';
    EXPECT_EQ(eRC_IO_WriteAlreadyInProgress, WriteBody("x"));
    EXPECT_EQ(eRC_IO_WriteAlreadyInProgress, connection.EndBody());
    EXPECT_EQ(eRC_IO_WriteAlreadyInProgress,
              connection.SendRequest("GET", "/", true, &second, &second, nullptr, false, 0));
    EXPECT_EQ(eRC_IO_WriteAlreadyInProgress,
              connection.SendRequestWithBody("GET", "/", true, &second, &second, 1, &byte));
    EXPECT_EQ(writing, io.Writing());
    EXPECT_FALSE(connection.IsCloseRequested());
    io.CompleteWrite();
    connection.Reset();
    EXPECT_EQ((Log{"ReadyForBody", "RequestSent", "ResponseFailed"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, NthWriteThatCannotStartIsReportedWhereItWasStarted) {
    // 1: the head, by SendRequest. 2: its rest, by a completion. 3: a piece. 4: its rest. 5: the end. 6: its
    // rest.
    for (int n = 1; n <= 6; ++n) {
        SCOPED_TRACE(n);
        connection.Close();
        connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
        io.writes = 0;
        io.failWrite = n;
        io.writeFailure = 77;
        log.clear();
        EXPECT_EQ(n == 1 ? 77U : 0U, Put(true, 0));
        if (n > 1) io.CompleteWrite(1);
        if (n > 2) {
            io.CompleteWrite();
            EXPECT_EQ(n == 3 ? 77U : 0U, WriteBody("abc"));
        }
        if (n > 3) io.CompleteWrite(1);
        if (n > 4) {
            io.CompleteWrite();
            EXPECT_EQ(n == 5 ? 77U : 0U, connection.EndBody());
        }
        if (n > 5) io.CompleteWrite(1);
        EXPECT_EQ(n % 2 == 0 ? (Log{"Terminate", "RequestFailed", "ResponseFailed"}) : Log{}, [&] {
            Log events = Events();
            std::erase(events, "ReadyForBody");
            return events;
        }());
        EXPECT_FALSE(io.IsWriting());
    }
}

TEST_F(ZephHttpClientConnectionSendTest, RequestWhoseWriteFailedWaitsForTheTeardown) {
    io.failWrite = 1;
    EXPECT_EQ(io.writeFailure, Put(false, 5));
    log.clear();
    connection.Close();
    EXPECT_EQ((Log{"UnRegister", "RequestSent", "ResponseFailed"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, RequestWhoseReadFailedIsNotSent) {
    io.failRead = 1;
    EXPECT_EQ(eRC_IO_ConnectionFailed, Put(false, 5));
    EXPECT_EQ((Log{"StartRead 16384", "Terminate", "ResponseFailed"}), log);
    log.clear();
    connection.Close();
    EXPECT_EQ((Log{"UnRegister"}), log);
}

TEST_F(ZephHttpClientConnectionSendTest, TransferThatCouldNotStartIsNotUnderWay) {
    Put(false, 5);
    io.CompleteWrite();
    io.failWrite = 2;
    EXPECT_EQ(io.writeFailure, WriteBody("abcde"));
    EXPECT_EQ(0U, WriteBody("abcde"));
    EXPECT_EQ("abcde", io.Writing());

    connection.Close();
    connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
    io.failRead = io.reads + 1;
    EXPECT_EQ(eRC_IO_ConnectionFailed, Put(false, 5));
    EXPECT_EQ(0U, Put(false, 5));
    EXPECT_TRUE(io.IsReading());
}

TEST_F(ZephHttpClientConnectionSendTest, PieceThatFindsNoMemoryIsReportedAndNotSent) {
    Put(true, 0);
    io.CompleteWrite();
    log.clear();
    const ReplacedAllocator refuse(&RefuseEveryAllocation);
    EXPECT_EQ(eRC_OutOfMemory, WriteBody(std::string(100000, 'x')));
    EXPECT_TRUE(log.empty());
}

TEST_F(ZephHttpClientConnectionSendTest, LengthsBeyond32BitsAreOutOfMemory) {
    Put(true, 0);
    io.CompleteWrite();
    log.clear();
    const std::uint8_t byte = 0;  // nothing of the piece is touched: the sum is refused first
    EXPECT_EQ(eRC_OutOfMemory, connection.WriteBody(0xFFFFFFFF, &byte));
    EXPECT_EQ(eRC_OutOfMemory,
              connection.SendRequestWithBody("PUT", "/", false, &exchange, &exchange, 0xFFFFFFFF, &byte));
    EXPECT_TRUE(log.empty());
}

TEST_F(ZephHttpClientConnectionSendTest, SmallRequestsReuseTheirBuffers) {
    static int count;  // the allocator captures nothing
    count = 0;
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx");
    const ReplacedAllocator counted([](std::uint64_t nBytes) {
        ++count;
        return new (std::nothrow) std::uint8_t[nBytes];
    });
    for (int n = 1; n <= 3; ++n) {
        connection.AddHeader("Accept", "*/*");
        SendGet();
        io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx");
        EXPECT_EQ(0, count) << n;  // the heads of the answers are copied into one block
    }
}

}  // namespace
}  // namespace Ombry::Tests
