#include "OmbryZephCore/ZephHttpClientConnection.h"
#include "tests/OmbryZephCore/HttpConnectionFixture.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;

/// Flow control, failing handlers and stages, and what the read buffer does under pressure.
class ZephHttpClientConnectionLimitsTest : public HttpConnectionFixture {};

const std::string KnownLength = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nab";
const std::string Chunked =
    "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n1\r\nb\r\n0\r\n\r\n";

TEST_F(ZephHttpClientConnectionLimitsTest, HandlerThatDoesNotContinueStopsAKnownLengthBody) {
    exchange.continues = false;
    SendGet();
    io.Feed(KnownLength);
    EXPECT_EQ((Log{"Start 200 4"}), log);
    EXPECT_FALSE(io.IsReading());
    connection.ContinueReceive();
    EXPECT_EQ((Log{"Start 200 4", "Data ab"}), log);
    connection.ContinueReceive();
    EXPECT_EQ((Log{"Start 200 4", "Data ab", "StartRead 16384"}), log);
    io.Feed("cd");
    EXPECT_EQ((Log{"Start 200 4", "Data ab", "StartRead 16384", "Data cd"}), log);
    connection.ContinueReceive();
    EXPECT_EQ((Log{"Start 200 4", "Data ab", "StartRead 16384", "Data cd", "End"}), log);
}

TEST_F(ZephHttpClientConnectionLimitsTest, HandlerThatDoesNotContinueStopsAChunkedBody) {
    exchange.continues = false;
    SendGet();
    io.Feed(Chunked);
    EXPECT_EQ((Log{"Start 200 0"}), log);
    connection.ContinueReceive();
    EXPECT_EQ((Log{"Start 200 0", "Data a"}), log);
    connection.ContinueReceive();
    EXPECT_EQ((Log{"Start 200 0", "Data a", "Data b"}), log);
    connection.ContinueReceive();
    EXPECT_EQ((Log{"Start 200 0", "Data a", "Data b", "End"}), log);
    EXPECT_FALSE(io.IsReading());
}

TEST_F(ZephHttpClientConnectionLimitsTest, HandlerThatDoesNotContinueStopsABodyUntilClose) {
    exchange.continues = false;
    SendGet(true);
    io.Feed("HTTP/1.1 200 OK\r\n\r\nab");
    connection.ContinueReceive();
    EXPECT_EQ((Log{"Start 200 0", "Data ab"}), log);
    EXPECT_FALSE(io.IsReading());
    connection.ContinueReceive();
    io.CompleteReadWithEnd();
    EXPECT_EQ((Log{"Start 200 0", "Data ab", "StartRead 16384", "End"}), log);
}

TEST_F(ZephHttpClientConnectionLimitsTest, AFurtherRequestDoesNotSetAHeldFlowGoing) {
    RecordingExchange second(log, connection, "2 ");
    exchange.continues = false;
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nab");
    connection.SendRequest("GET", "/", false, &second, &second, nullptr, false, 0);
    EXPECT_EQ((Log{"Start 200 3", "StartWrite 53"}), log);
    connection.ContinueReceive();
    EXPECT_EQ((Log{"Start 200 3", "StartWrite 53", "Data ab"}), log);
}

TEST_F(ZephHttpClientConnectionLimitsTest, ContinueReceiveWhileAReadIsUnderWayMovesNothing) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nConte");
    log.clear();
    connection.ContinueReceive();
    EXPECT_TRUE(log.empty());
    io.Feed("nt-Length: 0\r\n\r\n");
    EXPECT_EQ((Log{"Complete 200 "}), log);
}

TEST_F(ZephHttpClientConnectionLimitsTest, ContinueReceiveWithNoAnswerAwaitedReadsNothing) {
    connection.ContinueReceive();
    EXPECT_TRUE(log.empty());
    exchange.onEnded = [&] { connection.ContinueReceive(); };
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\n\r\n");
    connection.ContinueReceive();
    EXPECT_EQ((Log{"Complete 200 "}), log);
}

TEST_F(ZephHttpClientConnectionLimitsTest, HandlerThatContinuesTwiceLosesAndRepeatsNothing) {
    for (const std::string& answer : {KnownLength + "cd", KnownLength, Chunked}) {
        connection.Close();
        connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
        RecordingExchange eager(log, connection);
        eager.onStreamed = [&] { connection.ContinueReceive(); };
        SendGet(eager);
        io.Feed(answer, 40);
        if (answer == KnownLength) io.Feed("cd");
        EXPECT_EQ("End", Events().back());
        EXPECT_EQ(answer == Chunked ? "ab" : "abcd", eager.body);
    }
}

struct FailingCallback {
    const char* callback;
    std::string bytes;
    std::vector<std::string> events;
};

TEST_F(ZephHttpClientConnectionLimitsTest, ErrorOfAHandlerFailsTheConnection) {
    const std::vector<FailingCallback> cases = {
        {"Start", KnownLength, {"Start 200 4", "Terminate", "ResponseFailed", "2 ResponseFailed"}},
        {"Data", KnownLength, {"Start 200 4", "Data ab", "Terminate", "ResponseFailed", "2 ResponseFailed"}},
        {"End",
         KnownLength + "cd",
         {"Start 200 4", "Data ab", "Data cd", "End", "Terminate", "2 ResponseFailed"}},
        {"Complete", "HTTP/1.1 200 OK\r\n\r\n", {"Complete 200 ", "Terminate", "2 ResponseFailed"}},
        {"Start", Chunked, {"Start 200 0", "Terminate", "ResponseFailed", "2 ResponseFailed"}},
        {"Data", Chunked, {"Start 200 0", "Data a", "Terminate", "ResponseFailed", "2 ResponseFailed"}},
        {"End", Chunked, {"Start 200 0", "Data a", "Data b", "End", "Terminate", "2 ResponseFailed"}},
    };
    for (const FailingCallback& example : cases) {
        SCOPED_TRACE(std::string(example.callback) + " of " + example.bytes);
        connection.Close();
        connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
        RecordingExchange failing(log, connection);
        RecordingExchange second(log, connection, "2 ");
        failing.failing = example.callback;
        SendGet(failing);
        SendGet(second);
        io.Feed(example.bytes, example.bytes == KnownLength + "cd" ? KnownLength.size() : std::string::npos);
        EXPECT_EQ(example.events, Events());
        EXPECT_FALSE(io.IsReading());
        connection.Close();
    }
}

TEST_F(ZephHttpClientConnectionLimitsTest, ErrorAtTheEndOfABodyUntilCloseFailsTheConnection) {
    exchange.failing = "End";
    SendGet(true);
    io.Feed("HTTP/1.1 200 OK\r\n\r\nab");
    log.clear();
    io.CompleteReadWithEnd();
    EXPECT_EQ((Log{"End", "Terminate"}), log);
}

TEST_F(ZephHttpClientConnectionLimitsTest, NthReadThatCannotStartFailsTheConnection) {
    const std::vector<std::string> answers = {
        "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nabcdef",
        Chunked,
        "HTTP/1.1 100 C\r\nContent-Length: 3\r\n\r\nxyzHTTP/1.1 200 OK\r\n\r\n",
    };
    for (const std::string& answer : answers) {
        for (int n = 2; n <= static_cast<int>(answer.size()); ++n) {
            SCOPED_TRACE(answer.substr(0, static_cast<std::size_t>(n)));
            connection.Close();
            connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
            SendGet();
            io.reads = 1;
            io.failRead = n;
            EXPECT_EQ(static_cast<std::size_t>(n - 1), io.Feed(answer, 1));
            const Log events = Events();
            ASSERT_GE(events.size(), 2U);
            EXPECT_EQ("Terminate", events[events.size() - 2]);
            EXPECT_EQ("ResponseFailed", events.back());
            io.failRead = 0;
            log.clear();
            connection.Close();
            EXPECT_EQ((Log{"UnRegister"}), log);
        }
    }
}

TEST_F(ZephHttpClientConnectionLimitsTest, ReadBufferGrowsByItsStepUntilTheHeadEnds) {
    SendGet();
    const std::string line = "HTTP/1.1 200 OK\r\nContent-Length: 1\r\nBig: ";
    io.Feed(line + std::string(16383 - line.size(), 'x'));
    EXPECT_EQ((Log{"StartRead 1"}), log);
    io.Feed("x");
    EXPECT_EQ((Log{"StartRead 1", "StartRead 16384"}), log);
    log.clear();
    io.Feed(std::string(16384, 'x'));
    EXPECT_EQ((Log{"StartRead 16384"}), log);
    io.Feed("\r\n\r\na");
    EXPECT_EQ("Complete 200 a", log.back());
}

TEST_F(ZephHttpClientConnectionLimitsTest, HeadOfAMebibyteComesInSmallSegments) {
    SendGet();
    const std::string head =
        "HTTP/1.1 200 OK\r\nBig: " + std::string(1024 * 1024, 'x') + "\r\nContent-Length: 1\r\n\r\n";
    EXPECT_EQ(head.size() + 1, io.Feed(head + "a", 7));
    EXPECT_EQ("Complete 200 a", log.back());
}

TEST_F(ZephHttpClientConnectionLimitsTest, BytesThatWereSearchedInVainAreNotLookedAtAgain) {
    struct Case {
        std::string before;   // of the search, or of what it finds nothing in
        std::string pattern;  // what it looks for
        std::string rest;
    };
    const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    const std::vector<Case> cases = {
        {"HTTP/1.1 200 OK\r\nBig: ", "\r\n\r\n", "\r\nContent-Length: 0\r\n\r\n"},
        {chunked + "0;", "\r\n", "\r\n\r\n"},
        {chunked + "0\r\nT: ", "\r\n\r\n", "\r\n\r\n"},
    };
    for (const Case& example : cases) {
        SCOPED_TRACE(example.before);
        connection.Close();
        connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
        SendGet();
        io.Feed(example.before);
        const std::string events = ::testing::PrintToString(Events());
        const std::size_t passed = 2 * example.pattern.size() - 1;
        for (int n = 0; n < 100; ++n) {
            io.Feed(std::string(passed, 'x'), 1);
            // Whoever looks again at what a search has passed finds an end there.
            std::uint8_t* const pTrap = io.ReadingInto() - passed;
            std::memcpy(pTrap, example.pattern.data(), example.pattern.size());
            io.Feed("y");
            ASSERT_TRUE(io.IsReading());
            ASSERT_EQ(::testing::PrintToString(Events()), events);
            std::memset(io.ReadingInto() - 1 - passed, 'x', example.pattern.size());
        }
        io.Feed(example.rest);
        EXPECT_FALSE(io.IsReading()) << "the answer has ended";
        log.clear();
    }
}

TEST_F(ZephHttpClientConnectionLimitsTest, ChunksAreAnnouncedBeforeRoomIsMadeForThem) {
    class Asked : public RecordingExchange {
    public:
        using RecordingExchange::RecordingExchange;
        std::uint32_t OnChunkAnnounced(std::uint32_t nBytes) override {
            announced.push_back(nBytes);
            return nBytes > 100'000 ? 1U : 0U;
        }
        std::vector<std::uint32_t> announced;
    };
    for (const std::string status : {"200 OK", "102 Wait"}) {
        connection.Close();
        connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
        Asked asked(log, connection);
        SendGet(asked);
        io.Feed("HTTP/1.1 " + status + "\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n186A0\r\n");
        EXPECT_EQ("StartRead 100002", log.back());
        io.Feed(std::string(100'002, 'x'));
        log.clear();
        io.Feed("186A1\r\n");
        EXPECT_EQ((std::vector<std::uint32_t>{1, 100'000, 100'001}), asked.announced);
        EXPECT_EQ((Log{"Terminate", "ResponseFailed"}), log) << "and no read";
        connection.Close();
    }
}

TEST_F(ZephHttpClientConnectionLimitsTest, TheLastChunkIsNotAnnounced) {
    class Asked : public RecordingExchange {
    public:
        using RecordingExchange::RecordingExchange;
        std::uint32_t OnChunkAnnounced(std::uint32_t nBytes) override { return nBytes == 0 ? 1U : 0U; }
    };
    Asked asked(log, connection);
    SendGet(asked);
    io.Feed(Chunked);
    EXPECT_EQ("End", log.back());
}

/// What the IO buffers hold at this moment, as far as it was allocated while this lives.
class CountedBuffers {
public:
    static std::uint64_t largest;
    CountedBuffers()
        : replaced([](std::uint64_t nBytes) {
              largest = std::max(largest, nBytes);
              return new (std::nothrow) std::uint8_t[nBytes];
          }) {
        largest = 0;
    }

private:
    const ReplacedAllocator replaced;
};
std::uint64_t CountedBuffers::largest = 0;

class ZephHttpClientConnectionKeptBufferTest : public ZephHttpClientConnectionLimitsTest {
protected:
    /// The answer of one chunk, and what the next answer makes the connection read into.
    std::size_t RoomBehindAChunkOf(std::size_t bytes) {
        SendGet();
        char size[24];
        std::snprintf(size, sizeof size, "%zX\r\n", bytes);
        io.Feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + std::string(size));
        io.Feed(std::string(bytes, 'x') + "\r\n0\r\n\r\n");
        EXPECT_EQ("End", log.back());
        SendGetAndKeepTheLog();
        return static_cast<std::size_t>(std::stoul(log.front().substr(std::string("StartRead ").size())));
    }

    void SendGetAndKeepTheLog() {
        log.clear();
        EXPECT_EQ(0U, connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0));
        io.CompleteWrite();
    }
};

TEST_F(ZephHttpClientConnectionKeptBufferTest, ALargeOneIsGivenBackWhenTheAnswerHasEnded) {
    EXPECT_EQ(16384U, RoomBehindAChunkOf(3'000'000));
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    EXPECT_EQ("Complete 200 ok", log.back()) << "and the next answer is read as ever";
}

TEST_F(ZephHttpClientConnectionKeptBufferTest, TheOneOfOrdinaryChunksIsKeptAndCostsNothing) {
    const CountedBuffers counted;
    EXPECT_EQ(1'000'009U, RoomBehindAChunkOf(1'000'000));
    io.Feed("HTTP/1.1 200 OK\r\n\r\n");
    CountedBuffers::largest = 0;
    for (int n = 0; n < 3; ++n) {
        SendGet();
        io.Feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nF4240\r\n" +
                std::string(1'000'000, 'x') + "\r\n0\r\n\r\n");
        EXPECT_EQ("End", log.back());
    }
    EXPECT_GT(1000U, CountedBuffers::largest) << "nothing but the copies of the heads";
}

TEST_F(ZephHttpClientConnectionKeptBufferTest, BytesOfTheNextAnswerKeepTheRoomThatTheyLieIn) {
    RecordingExchange second(log, connection, "2 ");
    SendGet();
    SendGet(second);
    io.Feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2DC6C0\r\n" + std::string(3'000'000, 'x') +
            "\r\n");
    io.Feed("0\r\n\r\nHTTP/1.1 201 C\r\nContent-Le");
    EXPECT_EQ("StartRead ", log.back().substr(0, 10));
    io.Feed("ngth: 2\r\n\r\nok");
    EXPECT_EQ("2 Complete 201 ok", log.back());
    SendGetAndKeepTheLog();
    EXPECT_EQ("StartRead 16384", log.front());
}

TEST_F(ZephHttpClientConnectionKeptBufferTest,
       TheAnswerToARequestSentFromTheEndIsReadIntoTheLargeOneAndThenItGoes) {
    bool sent = false;
    exchange.onEnded = [&] {
        if (std::exchange(sent, true)) return;
        connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0);
    };
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2DC6C0\r\n");
    io.Feed(std::string(3'000'000, 'x') + "\r\n0\r\n\r\n");
    io.CompleteWrite();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    EXPECT_EQ("Complete 200 ok", log.back());
    SendGetAndKeepTheLog();
    EXPECT_EQ("StartRead 16384", log.front());
}

TEST_F(ZephHttpClientConnectionKeptBufferTest, WithoutMemoryForASmallerOneStays) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2DC6C0\r\n");
    io.Feed(std::string(3'000'000, 'x') + "\r\n");
    {
        const ReplacedAllocator refuse(&RefuseEveryAllocation);
        io.Feed("0\r\n\r\n");
    }
    EXPECT_EQ("End", log.back());
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    EXPECT_EQ("Complete 200 ok", log.back());
}

TEST_F(ZephHttpClientConnectionLimitsTest, HeadThatFindsNoMemoryFailsTheConnection) {
    SendGet();
    io.Feed(std::string(16383, 'x'));
    log.clear();
    const ReplacedAllocator refuse(&RefuseEveryAllocation);
    io.Feed("x");
    EXPECT_EQ((Log{"Terminate", "ResponseFailed"}), log);
}

TEST_F(ZephHttpClientConnectionLimitsTest, HeadWhoseCopyFindsNoMemoryFailsTheConnection) {
    SendGet();
    const ReplacedAllocator refuse(&RefuseEveryAllocation);
    io.Feed("HTTP/1.1 200 OK\r\n\r\n");
    EXPECT_EQ((Log{"Terminate", "ResponseFailed"}), log);
}

TEST_F(ZephHttpClientConnectionLimitsTest, BufferThatFindsNoMemoryForTheFirstReadFailsTheRequest) {
    static int left = 0;
    left = 1;  // the head of the request
    const ReplacedAllocator one([](std::uint64_t nBytes) -> std::uint8_t* {
        return left-- > 0 ? new (std::nothrow) std::uint8_t[nBytes] : nullptr;
    });
    EXPECT_EQ(eRC_IO_ConnectionFailed,
              connection.SendRequest("GET", "/", false, &exchange, &exchange, nullptr, false, 0));
    EXPECT_EQ((Log{"Terminate", "ResponseFailed"}), log);
}

TEST_F(ZephHttpClientConnectionLimitsTest, ChunkMakesRoomForItselfAndNeverShrinksTheBuffer) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n186A0\r\n");
    EXPECT_EQ((Log{"Start 200 0", "StartRead 100002"}), log);
    io.Feed(std::string(100000, 'x') + "\r\n1\r");
    EXPECT_EQ("StartRead 100007", log.back());
    EXPECT_EQ(100000U, exchange.body.size());
    io.Feed("\n");
    EXPECT_EQ("StartRead 100006", log.back());
    io.Feed("y\r\n0\r\n\r\n");
    EXPECT_EQ("End", log.back());
    EXPECT_EQ(100001U, exchange.body.size());
}

TEST_F(ZephHttpClientConnectionLimitsTest, ChunkThatFillsTheBufferMakesRoomForAllOfItselfAtOnce) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n186A0");
    EXPECT_EQ("StartRead 16379", log.back());
    io.Feed("\r\n" + std::string(16377, 'x'));
    EXPECT_EQ("StartRead 83625", log.back());
}

TEST_F(ZephHttpClientConnectionLimitsTest, GreatestLengthIsABodyLikeAnyOther) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 4294967295\r\n\r\nab");
    EXPECT_EQ((Log{"Start 200 4294967295", "Data ab", "StartRead 16384"}), log);
    io.CompleteReadWithEnd();
    EXPECT_EQ("ResponseFailed", log.back());
}

TEST_F(ZephHttpClientConnectionLimitsTest, SizeLineAndTrailerWithoutEndGrowTheBuffer) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1;" + std::string(40000, 'e'));
    io.Feed(std::string(40000, 'e'));
    io.Feed("\r\na\r\n0\r\nT: " + std::string(16384, 't'));
    io.Feed(std::string(100000, 't'));
    io.Feed(std::string(100000, 't') + "\r\n\r");
    EXPECT_EQ("a", exchange.body);
    EXPECT_NE("End", Events().back());
    io.Feed("\n");
    EXPECT_EQ("End", log.back());
}

TEST_F(ZephHttpClientConnectionLimitsTest, ManySmallChunksAreNotMovedOneByOne) {
    // 16 KiB of one-byte chunks is 2,700 chunks in one read: all are delivered before the buffer is touched
    // again.
    SendGet();
    std::string answer = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (int n = 0; n < 2700; ++n)
        answer += "1\r\nx\r\n";
    io.Feed(answer);
    EXPECT_EQ(std::string(2700, 'x'), exchange.body);
    EXPECT_TRUE(log.back().starts_with("StartRead "));
    io.Feed("0\r\n\r\n");
    EXPECT_EQ("End", log.back());
}

TEST_F(ZephHttpClientConnectionLimitsTest, BodyIsHandedOutOfTheReadBufferInPlace) {
    class Watcher : public RecordingExchange {
    public:
        using RecordingExchange::RecordingExchange;
        std::uint32_t OnResponseData(std::uint32_t nBytes, const std::uint8_t* pData) override {
            pieces.push_back(pData);
            return RecordingExchange::OnResponseData(nBytes, pData);
        }
        std::vector<const std::uint8_t*> pieces;
    };
    Watcher watcher(log, connection);
    SendGet(watcher);
    io.Feed(Chunked);
    ASSERT_EQ(2U, watcher.pieces.size());
    EXPECT_EQ(6, watcher.pieces[1] - watcher.pieces[0]);  // no byte moved between the two
}

}  // namespace
}  // namespace Ombry::Tests
