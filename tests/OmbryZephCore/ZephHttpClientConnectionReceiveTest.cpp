#include "OmbryZephCore/ZephHttpClientConnection.h"
#include "tests/OmbryZephCore/HttpConnectionFixture.h"

#include <random>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;

class ZephHttpClientConnectionReceiveTest : public HttpConnectionFixture {
protected:
    /// What a user of the connection ends up with, however the bytes came.
    struct Outcome {
        std::string events;  ///< without the pieces of bodies, "Complete" told as its three steps
        std::string body;
        bool closeRequested = false;

        bool operator==(const Outcome&) const = default;
        friend void PrintTo(const Outcome& outcome, std::ostream* out) {
            *out << "[" << outcome.events << "] body of " << outcome.body.size() << " \""
                 << outcome.body.substr(0, 80) << "\" close " << outcome.closeRequested;
        }
    };

    using Cuts = std::function<std::size_t()>;

    /// Plays one answer through a new exchange; `bEnd` says whether the peer then closes.
    Outcome Play(const std::string& bytes, bool bEnd, const Cuts& cut, bool bClose = false) {
        connection.Close();
        connection.Initialize(&io, &terminator, "host:443", nullptr, &ssl);
        RecordingExchange fresh(log, connection);
        SendGet(fresh, bClose);
        for (std::size_t fed = 0; fed < bytes.size() && io.IsReading();)
            fed += io.CompleteRead(std::string_view(bytes).substr(fed), cut());
        if (bEnd && io.IsReading()) io.CompleteReadWithEnd();
        Outcome outcome;
        bool awaiting = false;
        for (const std::string& event : Events()) {
            if (event.starts_with("Data ")) continue;
            if (event.starts_with("Start ")) {
                outcome.events += event.substr(0, 9) + ";";
                awaiting = true;
            } else if (event.starts_with("Complete ")) {
                EXPECT_FALSE(awaiting);
                outcome.events += "Start " + event.substr(9, 3) + ";End;";
            } else {
                outcome.events += event + ";";
            }
        }
        outcome.body = fresh.body;
        outcome.closeRequested = connection.IsCloseRequested();
        connection.Close();
        return outcome;
    }
};

struct Example {
    const char* name;
    std::string bytes;
    std::string events;
    std::string body;
    bool closes = false;  ///< the peer closes behind the bytes
    bool closeRequested = false;
    bool asksToClose = false;  ///< the request had "Connection: close"
};

std::string ChunksOfSize(std::size_t count, std::size_t size) {
    std::string text;
    char line[32];
    for (std::size_t n = 0; n < count; ++n) {
        std::snprintf(line, sizeof line, "%zx;ext=\"v\"\r\n", size);
        text += line + std::string(size, static_cast<char>('a' + n % 26)) + "\r\n";
    }
    return text;
}

std::string Letters(std::size_t count, std::size_t size) {
    std::string text;
    for (std::size_t n = 0; n < count; ++n)
        text += std::string(size, static_cast<char>('a' + n % 26));
    return text;
}

const std::vector<Example>& Examples() {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
    const std::string failed = "Terminate;ResponseFailed;";
    static const std::vector<Example> examples = {
        {"empty body", ok + "Content-Length: 0\r\n\r\n", "Start 200;End;", ""},
        {"no length is an empty body", ok + "\r\n", "Start 200;End;", ""},
        {"known length", ok + "Content-Length: 5\r\n\r\nhello", "Start 200;End;", "hello"},
        {"known length, big", ok + "Content-Length: 50000\r\n\r\n" + Letters(50, 1000), "Start 200;End;",
         Letters(50, 1000)},
        {"known length exactly the first buffer",
         ok + "Content-Length: 16343\r\n\r\n" + std::string(16343, 'x'), "Start 200;End;",
         std::string(16343, 'x')},
        {"a hexadecimal digit ends a length", ok + "Content-Length: 2a\r\n\r\nab", "Start 200;End;", "ab"},
        {"length with text behind it", ok + "Content-Length: 2x\r\n\r\nab", "Start 200;End;", "ab"},
        {"length in another case is none", ok + "content-length: 0\r\n\r\n", "Start 200;End;", ""},
        {"close and no length lasts until the peer closes", ok + "Connection: close\r\n\r\nall of it",
         "Start 200;End;", "all of it", true, true},
        {"close and no length, nothing there", ok + "Connection: close\r\n\r\n", "Start 200;End;", "", true,
         true},
        {"until close because the request asked for it", ok + "\r\nall of it", "Start 200;End;", "all of it",
         true, true, true},
        {"until close, big", ok + "Connection: close\r\n\r\n" + Letters(40, 1000), "Start 200;End;",
         Letters(40, 1000), true, true},
        {"close with a length ends with the length", ok + "Connection: close\r\nContent-Length: 2\r\n\r\nab",
         "Start 200;End;", "ab", false, true},
        {"Connection Close in another case is not close", ok + "Connection: Close\r\n\r\n", "Start 200;End;",
         ""},
        {"close among others is not close", ok + "Connection: close, x\r\n\r\n", "Start 200;End;", ""},
        {"an HTTP/1.0 peer counts as keep-alive", "HTTP/1.0 200 OK\r\n\r\n", "Start 200;End;", ""},
        {"only status 200 reads until close", "HTTP/1.1 201 C\r\nConnection: close\r\n\r\n", "Start 201;End;",
         "", false, true},
        {"failing status with close is empty", "HTTP/1.1 404 N\r\nConnection: close\r\n\r\n",
         "Start 404;End;", "", false, true},
        {"chunked", chunked + "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n", "Start 200;End;", "hello world"},
        {"chunked, nothing", chunked + "0\r\n\r\n", "Start 200;End;", ""},
        {"chunked with extensions", chunked + ChunksOfSize(40, 7) + "0;last\r\n\r\n", "Start 200;End;",
         Letters(40, 7)},
        {"chunked with trailers", chunked + "1\r\na\r\n0\r\nA: b\r\nC: d\r\n\r\n", "Start 200;End;", "a"},
        {"sizes in both cases with zeros in front",
         chunked + "0A\r\n0123456789\r\n00b\r\n01234567890\r\n000\r\n\r\n", "Start 200;End;",
         "012345678901234567890"},
        {"greatest digits of both cases",
         chunked + "f\r\n0123456789abcde\r\nF\r\n0123456789ABCDE\r\n0\r\n\r\n", "Start 200;End;",
         "0123456789abcde0123456789ABCDE"},
        {"line end behind the data is not checked", chunked + "1\r\naXY1\r\nb??0\r\n\r\n", "Start 200;End;",
         "ab"},
        {"chunk larger than the buffer", chunked + ChunksOfSize(2, 100000) + "0\r\n\r\n", "Start 200;End;",
         Letters(2, 100000)},
        {"chunked behind another coding",
         ok + "Transfer-Encoding: br, gzip, \tchunked\r\n\r\n1\r\na\r\n0\r\n\r\n", "Start 200;End;", "a"},
        {"chunked that is not last falls back to the length",
         ok + "Transfer-Encoding: chunked, gzip\r\nContent-Length: 3\r\n\r\nabc", "Start 200;End;", "abc"},
        {"Chunked in another case is no coding",
         ok + "Transfer-Encoding: Chunked\r\nContent-Length: 3\r\n\r\nabc", "Start 200;End;", "abc"},
        {"blank behind the coding is no part of it", ok + "Transfer-Encoding: chunked \r\n\r\n0\r\n\r\n",
         "Start 200;End;", ""},
        {"chunked wins over the length",
         ok + "Content-Length: 99\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n0\r\n\r\n", "Start 200;End;",
         "a"},
        {"chunked wins over a length beyond 32 bits",
         ok + "Content-Length: 99999999999\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", "Start 200;End;",
         ""},
        {"chunked and close ends with the last chunk",
         ok + "Connection: close\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n0\r\n\r\n", "Start 200;End;",
         "a", false, true},
        {"100 ahead of the answer", "HTTP/1.1 100 Continue\r\n\r\n" + ok + "Content-Length: 2\r\n\r\nab",
         "Start 200;End;", "ab"},
        {"several informational answers",
         "HTTP/1.1 100 C\r\n\r\nHTTP/1.1 103 E\r\nLink: x\r\n\r\nHTTP/1.1 199 X\r\n\r\n" + ok + "\r\n",
         "Start 200;End;", ""},
        {"informational with a length consumes its own bytes only",
         "HTTP/1.1 100 C\r\nContent-Length: 4\r\n\r\n1234" + ok + "Content-Length: 2\r\n\r\nab",
         "Start 200;End;", "ab"},
        {"informational with a big body",
         "HTTP/1.1 102 P\r\nContent-Length: 40000\r\n\r\n" + Letters(40, 1000) + ok +
             "Content-Length: 2\r\n\r\nab",
         "Start 200;End;", "ab"},
        {"informational and chunked",
         "HTTP/1.1 100 C\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nxyz\r\n0\r\nT: u\r\n\r\n" + ok +
             "Content-Length: 2\r\n\r\nab",
         "Start 200;End;", "ab"},
        {"status 99 and 200 are not informational", "HTTP/1.1 99 X\r\n\r\n", "Start 99 ;End;", ""},
        {"101 to TLS/1.0", "HTTP/1.1 101 S\r\nUpgrade: TLS/1.0\r\n\r\n" + ok + "Content-Length: 1\r\n\r\na",
         "EnableSSL;Start 200;End;", "a", false, true},
        {"101 to anything else",
         "HTTP/1.1 101 S\r\nUpgrade: TLS/1.1\r\n\r\n" + ok + "Content-Length: 1\r\n\r\na",
         "DisableSSL;Start 200;End;", "a", false, true},
        {"101 to TLS/1.0 in another case",
         "HTTP/1.1 101 S\r\nUpgrade: tls/1.0\r\n\r\n" + ok + "Content-Length: 1\r\n\r\na",
         "DisableSSL;Start 200;End;", "a", false, true},
        {"a change of the protocol ahead of an answer without a length",
         "HTTP/1.1 101 S\r\nUpgrade: x\r\n\r\n" + ok + "\r\n", "DisableSSL;Start 200;End;", "", false, true},
        {"close in an informational answer ahead of one without a length",
         "HTTP/1.1 100 C\r\nConnection: close\r\n\r\n" + ok + "\r\n", "Start 200;End;", "", false, true},
        {"close that the request asked for holds behind an informational answer",
         "HTTP/1.1 100 C\r\n\r\n" + ok + "\r\nall of it", "Start 200;End;", "all of it", true, true, true},
        {"101 without Upgrade fails", "HTTP/1.1 101 S\r\n\r\n" + ok + "\r\n", failed, ""},
        {"Upgrade with another status is nothing", ok + "Upgrade: TLS/1.0\r\n\r\n", "Start 200;End;", ""},
        {"line ends in front of the head", "\r\n" + ok + "Content-Length: 1\r\n\r\na", "Start 200;End;", "a"},
        {"two line ends in front are a head of their own", "\r\n\r\n" + ok + "\r\n", failed, ""},
        {"malformed head", ok + "no colon\r\n\r\n", failed, ""},
        {"close before anything", "", failed, "", true},
        {"close before the head is complete", ok + "A: b\r\n", failed, "", true},
        {"close before the body", ok + "Content-Length: 5\r\n\r\n", failed, "", true},
        {"close in the size line", chunked + "5", "Start 200;" + failed, "", true},
        {"close in a chunk", chunked + "5\r\nhel", "Start 200;" + failed, "", true},
        {"close in front of the last chunk", chunked + "5\r\nhello\r\n", "Start 200;" + failed, "hello",
         true},
        {"close in a chunk of an answer that said close",
         ok + "Connection: close\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhel", "Start 200;" + failed, "",
         true, true},
        {"close in the trailer", chunked + "0\r\nA: b\r\n", "Start 200;" + failed, "", true},
        {"close in an informational body", "HTTP/1.1 100 C\r\nContent-Length: 4\r\n\r\n12", failed, "", true},
        {"length beyond 32 bits", ok + "Content-Length: 4294967296\r\n\r\nhello", failed, ""},
        {"length that wraps to five", ok + "Content-Length: 4294967301\r\n\r\nhello", failed, ""},
        {"endless length", ok + "Content-Length: 18446744073709551621\r\n\r\nhello", failed, ""},
        {"bytes behind the body", ok + "Content-Length: 5\r\n\r\nhelloEXTRA", "Start 200;End;", "hello",
         false, true},
        {"bytes behind a big body", ok + "Content-Length: 30000\r\n\r\n" + Letters(30, 1000) + "EXTRA",
         "Start 200;End;", Letters(30, 1000), false, true},
        {"second answer that nobody asked for",
         ok + "Content-Length: 1\r\n\r\na" + ok + "Content-Length: 1\r\n\r\nb", "Start 200;End;", "a", false,
         true},
        {"bytes behind the last chunk", chunked + "1\r\na\r\n0\r\n\r\nEXTRA", "Start 200;End;", "a", false,
         true},
        {"bytes behind an empty body", ok + "\r\nEXTRA", "Start 200;End;", "", false, true},
        // What a size line of a peer may hold.
        {"chunk size FFFFFFFF", chunked + "FFFFFFFF\r\nabc", "Start 200;" + failed, ""},
        {"chunk size FFFFFFFE", chunked + "FFFFFFFE\r\nabc", "Start 200;" + failed, ""},
        {"chunk size beyond memory", chunked + "FFFFFFF0\r\nabc", "Start 200;" + failed, ""},
        {"chunk size 100000000", chunked + "100000000\r\n\r\n", "Start 200;" + failed, ""},
        {"chunk size beyond 64 bits", chunked + "10000000000000005\r\nhello\r\n", "Start 200;" + failed, ""},
        {"no number is the last chunk", chunked + "-1\r\n\r\n", "Start 200;End;", ""},
        {"a sign is no number", chunked + "+5\r\n\r\n", "Start 200;End;", ""},
        {"a prefix is no number", chunked + "0x10\r\n\r\n", "Start 200;End;", ""},
        {"an empty line is the last chunk", chunked + "\r\n\r\n", "Start 200;End;", ""},
        {"a blank in front is no number", chunked + " 5\r\n\r\n", "Start 200;End;", ""},
        {"length with a minus", ok + "Content-Length: -1\r\n\r\n", "Start 200;End;", ""},
        {"length with a plus", ok + "Content-Length: +5\r\n\r\n", "Start 200;End;", ""},
        {"empty length", ok + "Content-Length:\r\n\r\n", "Start 200;End;", ""},
        {"length on a line of its own", ok + "Content-Length: \r\n 5\r\n\r\n", "Start 200;End;", ""},
        {"hexadecimal length", ok + "Content-Length: 0x5\r\n\r\n", "Start 200;End;", ""},
    };
    return examples;
}

TEST_F(ZephHttpClientConnectionReceiveTest, AnswersHaveOneOutcomeHoweverTheirBytesAreCut) {
    const ReplacedAllocator noHugeOnes(&RefuseHugeAllocation);
    for (const Example& example : Examples()) {
        SCOPED_TRACE(example.name);
        for (const std::size_t piece : {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{3},
                                        std::size_t{5}, std::size_t{7}, std::size_t{64}, std::size_t{1000}}) {
            SCOPED_TRACE(piece);
            const Outcome outcome = Play(
                example.bytes, example.closes, [&] { return piece == 0 ? std::string::npos : piece; },
                example.asksToClose);
            EXPECT_EQ(example.events, outcome.events);
            EXPECT_TRUE(example.body == outcome.body) << ::testing::PrintToString(outcome);
            EXPECT_EQ(example.closeRequested, outcome.closeRequested);
        }
    }
}

TEST_F(ZephHttpClientConnectionReceiveTest, AnswersHaveOneOutcomeUnderRandomCuts) {
    const ReplacedAllocator noHugeOnes(&RefuseHugeAllocation);
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 generator(seed);
    for (int round = 0; round < 5; ++round) {
        for (const Example& example : Examples()) {
            SCOPED_TRACE(example.name);
            const std::size_t most = generator() % 3 == 0 ? 4000 : 20;
            const Outcome outcome = Play(
                example.bytes, example.closes, [&] { return 1 + generator() % most; }, example.asksToClose);
            EXPECT_EQ(example.events, outcome.events);
            EXPECT_TRUE(example.body == outcome.body) << ::testing::PrintToString(outcome);
        }
    }
}

TEST_F(ZephHttpClientConnectionReceiveTest, NothingIsReadOnceTheAnswerHasEnded) {
    const ReplacedAllocator noHugeOnes(&RefuseHugeAllocation);
    for (const Example& example : Examples()) {
        if (example.closes || example.events.find("End;") == std::string::npos) continue;
        SCOPED_TRACE(example.name);
        connection.Close();
        connection.Initialize(&io, &terminator, "host:443", nullptr, &ssl);
        SendGet(example.asksToClose);
        io.Feed(example.bytes);
        EXPECT_FALSE(io.IsReading());
        EXPECT_FALSE(io.IsWriting());
    }
}

TEST_F(ZephHttpClientConnectionReceiveTest, BodyThatCameWithItsHeadIsOneCall) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nab");
    EXPECT_EQ((Log{"Complete 200 ab"}), log);
}

TEST_F(ZephHttpClientConnectionReceiveTest, LargerBodyIsStreamedAsItComes) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nab");
    EXPECT_EQ((Log{"Start 200 6", "Data ab", "StartRead 16384"}), log);
    log.clear();
    io.Feed("cde");
    EXPECT_EQ((Log{"Data cde", "StartRead 16384"}), log);
    log.clear();
    io.Feed("f");
    EXPECT_EQ((Log{"Data f", "End"}), log);
}

TEST_F(ZephHttpClientConnectionReceiveTest, LastPieceOfABodyStopsAtTheDeclaredLength) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\na");
    log.clear();
    io.Feed("bcEXTRAEXTRA");
    EXPECT_EQ((Log{"Data bc", "End"}), log);
    EXPECT_TRUE(connection.IsCloseRequested());
}

TEST_F(ZephHttpClientConnectionReceiveTest, BodyOneByteShortIsNotComplete) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nab");
    EXPECT_EQ((Log{"Start 200 3", "Data ab", "StartRead 16384"}), log);
}

TEST_F(ZephHttpClientConnectionReceiveTest, ChunksAreDeliveredWhole) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nab");
    EXPECT_EQ((Log{"Start 200 0", "StartRead 16379"}), log);
    log.clear();
    io.Feed("cd");
    io.Feed("\r");
    EXPECT_EQ((Log{"StartRead 16377", "StartRead 16376"}), log);
    log.clear();
    io.Feed("\n1\r\ne\r\n0\r\n\r\n");
    EXPECT_EQ((Log{"Data abcd", "Data e", "End"}), log);
}

TEST_F(ZephHttpClientConnectionReceiveTest, CloseAtTheEndOfABodyUntilCloseIsItsEnd) {
    SendGet(true);
    io.Feed("HTTP/1.1 200 OK\r\n\r\nab");
    io.Feed("c");
    EXPECT_EQ((Log{"Start 200 0", "Data ab", "StartRead 16384", "Data c", "StartRead 16384"}), log);
    log.clear();
    io.CompleteReadWithEnd();
    EXPECT_EQ((Log{"End"}), log);
}

TEST_F(ZephHttpClientConnectionReceiveTest, CloseBehindABodyUntilCloseFailsTheNextExchange) {
    SendGet(true);
    io.Feed("HTTP/1.1 200 OK\r\n\r\nab");
    io.CompleteReadWithEnd();
    SendGet(true);
    io.CompleteReadWithEnd();
    EXPECT_EQ((Log{"Terminate", "ResponseFailed"}), log);
}

TEST_F(ZephHttpClientConnectionReceiveTest, CloseThatEndsABodyFailsTheAnswersBehindIt) {
    RecordingExchange second(log, connection, "2 ");
    SendGet(true);
    SendGet(second, true);
    io.Feed("HTTP/1.1 200 OK\r\n\r\nab");
    log.clear();
    io.CompleteReadWithEnd();
    EXPECT_EQ((Log{"End", "Terminate", "2 ResponseFailed"}), log);
}

TEST_F(ZephHttpClientConnectionReceiveTest, AVersionThatIsHttp10AndNothingElseClosesUnlessAHeaderDecides) {
    // Only a NUL behind it keeps the text of the version from running on through the head.
    const std::string line("HTTP/1.0\0 200 OK\r\nContent-Length: 0\r\n", 37);
    SendGet();
    io.Feed(line + "Connection: keep-alive\r\n\r\n");
    EXPECT_EQ((Log{"Complete 200 "}), log);
    EXPECT_FALSE(connection.IsCloseRequested());
    SendGet();
    io.Feed(line + "\r\n");
    EXPECT_EQ((Log{"Complete 200 "}), log);
    EXPECT_TRUE(connection.IsCloseRequested());
}

TEST_F(ZephHttpClientConnectionReceiveTest, ASingleByteOfSurplusClosesTheConnection) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nab");
    EXPECT_EQ((Log{"Complete 200 a"}), log);
    EXPECT_TRUE(connection.IsCloseRequested());
}

TEST_F(ZephHttpClientConnectionReceiveTest, SurplusThatLiesInTheStageBelowClosesTheConnection) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nab", 39);
    EXPECT_EQ((Log{"Complete 200 a"}), log);
    EXPECT_TRUE(connection.IsCloseRequested());
}

TEST_F(ZephHttpClientConnectionReceiveTest, SilenceIsExpectedBeforeTheReadOfARequestThatAwaitsNoOtherAnswer) {
    RecordingExchange second(log, connection, "2 ");
    SendGet();
    SendGet(second);
    EXPECT_EQ((std::vector{0}), io.readsBeforeSilence);
    io.Feed("HTTP/1.1 204 N\r\n\r\nHTTP/1.1 204 N\r\n\r\n");
    const int reads = io.reads;
    SendGet();
    EXPECT_EQ((std::vector{0, reads}), io.readsBeforeSilence);
}

TEST_F(ZephHttpClientConnectionReceiveTest, BytesBelowThatAnswerAPipelinedRequestAreNoSurplus) {
    RecordingExchange second(log, connection, "2 ");
    SendGet();
    SendGet(second);
    io.hasUnread = true;
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_FALSE(connection.IsCloseRequested());
}

TEST_F(ZephHttpClientConnectionReceiveTest, UpgradeWithoutSSLControlIsSteppedOverAndClosesTheConnection) {
    connection.Close();
    connection.Initialize(&io, &terminator, "h", nullptr, nullptr);
    SendGet();
    io.Feed("HTTP/1.1 101 S\r\nUpgrade: TLS/1.0\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ((Log{"Complete 200 "}), log);
    EXPECT_TRUE(connection.IsCloseRequested());
}

TEST_F(ZephHttpClientConnectionReceiveTest, SurplusNeverAnswersTheNextRequest) {
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\naHTTP/1.1 204 No\r\n\r\n");
    EXPECT_EQ((Log{"Complete 200 a"}), log);
    EXPECT_TRUE(connection.IsCloseRequested());
    SendGet();
    EXPECT_TRUE(log.empty());
    ASSERT_TRUE(io.IsReading());
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nb");
    EXPECT_EQ((Log{"Complete 200 b"}), log);
}

TEST_F(ZephHttpClientConnectionReceiveTest, AnswersGoToTheirRequestsInOrder) {
    const std::string answers =
        "HTTP/1.1 100 C\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nab"
        "HTTP/1.1 201 C\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nc\r\n0\r\n\r\n"
        "HTTP/1.1 404 N\r\nContent-Length: 0\r\n\r\n";
    for (const std::size_t piece : {answers.size(), std::size_t{1}}) {
        RecordingExchange second(log, connection, "2 ");
        RecordingExchange third(log, connection, "3 ");
        SendGet();
        SendGet(second);
        SendGet(third);
        EXPECT_EQ(answers.size(), io.Feed(answers, piece));
        const Log whole{"Complete 200 ab", "2 Start 201 0", "2 Data c", "2 End", "3 Complete 404 "};
        const Log bytewise{"Start 200 2",   "Data a",   "Data b", "End",
                           "2 Start 201 0", "2 Data c", "2 End",  "3 Complete 404 "};
        EXPECT_EQ(piece == 1 ? bytewise : whole, Events());
        EXPECT_FALSE(io.IsReading());
        EXPECT_FALSE(connection.IsCloseRequested());
    }
}

TEST_F(ZephHttpClientConnectionReceiveTest, NextRequestMayBeSentFromTheEndOfTheOneBefore) {
    RecordingExchange second(log, connection, "2 ");
    exchange.onEnded = [&] {
        EXPECT_EQ(0U, connection.SendRequest("GET", "/2", false, &second, &second, nullptr, false, 0));
    };
    SendGet();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\na");
    EXPECT_EQ((Log{"Complete 200 a", "StartRead 16384", "StartWrite 54"}), log);
    io.CompleteWrite();
    io.Feed("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nb");
    EXPECT_EQ("2 Complete 200 b", log.back());
}

}  // namespace
}  // namespace Ombry::Tests
