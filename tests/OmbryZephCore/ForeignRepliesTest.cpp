// Replies of foreign shape through the whole client: what servers, proxies and attackers send that no
// RFC would bless, or that this client reads in its own way on purpose. Each row says what the
// caller gets, and what becomes of the connection: the request behind it must get its own answer.

#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSockets.h"
#include "tests/OmbryZephCore/SyncHttpClientFixture.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using SyncHttpClient::Reader;

/// What becomes of the connection behind the reply.
enum class Next {
    Kept,            ///< the next request goes over it
    Replaced,        ///< the next request goes over a new one
    ReplacedIfSeen,  ///< replaced, if what came behind the answer is here when the answer ends
};

enum class Peer { Stays, Closes };

struct Reply {
    const char* name;
    std::string bytes;
    Peer peer;
    std::uint32_t result;  ///< of `DoRequest`
    std::uint32_t status;
    std::string body;
    Next next;
};

constexpr std::uint32_t Ok = eRC_Success;
constexpr std::uint32_t BadStatus = eRC_HTTP_StatusFailure;
constexpr std::uint32_t Broken = eRC_IO_ConnectionFailed;
/// The same code for the caller, but never asked for again.
constexpr std::uint32_t Silent = eRC_TimedOut;

const std::string Final = "HTTP/1.1 200 OK\r\n";
const std::string ChunkedHead = Final + "Transfer-Encoding: chunked\r\n\r\n";

std::string Times(std::size_t count, const std::string& text) {
    std::string all;
    for (std::size_t n = 0; n < count; ++n)
        all += text;
    return all;
}

/// With its NULs.
template <std::size_t N>
std::string Raw(const char (&text)[N]) {
    return std::string(text, N - 1);
}

const std::vector<Reply>& LineEnds() {
    static const std::vector<Reply> replies = {
        {"LF alone ends no head", "HTTP/1.1 200 OK\nContent-Length: 2\n\nab", Peer::Closes, Broken, 0, "",
         Next::Replaced},
        {"LF alone, and the peer waits", "HTTP/1.1 200 OK\nContent-Length: 2\n\nab", Peer::Stays, Silent, 0,
         "", Next::Replaced},
        {"CR alone ends no head", "HTTP/1.1 200 OK\rContent-Length: 0\r\r", Peer::Closes, Broken, 0, "",
         Next::Replaced},
        {"LF CR is no line end", "HTTP/1.1 200 OK\n\rContent-Length: 0\n\r\n\r", Peer::Closes, Broken, 0, "",
         Next::Replaced},
        {"LF CR LF is no empty line", Final + "Content-Length: 0\n\r\n", Peer::Closes, Broken, 0, "",
         Next::Replaced},
        {"CR LF LF is no empty line", Final + "Content-Length: 0\r\n\n", Peer::Closes, Broken, 0, "",
         Next::Replaced},
        {"LF behind the status line puts the first header into the reason",
         "HTTP/1.1 200 OK\nContent-Length: 2\r\n\r\nab", Peer::Stays, Ok, 200, "", Next::ReplacedIfSeen},
        {"LF behind a header puts the next one into its value", Final + "A: b\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "", Next::ReplacedIfSeen},
        {"LF in front of a header makes it part of the name", Final + "\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "", Next::ReplacedIfSeen},
        {"CR CR LF ends each line but the last",
         "HTTP/1.1 200 OK\r\r\nContent-Length: 2\r\r\nA: b\r\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"a line end in front of the reply", "\r\n" + Final + "Content-Length: 2\r\n\r\nab", Peer::Stays, Ok,
         200, "ab", Next::Kept},
        {"LF in a size line does not end it", ChunkedHead + "1\na\n0\n\n", Peer::Closes, Broken, 200, "",
         Next::Replaced},
        {"LF behind the digits of a size makes the chunk of what follows the line",
         ChunkedHead + "1\na\r\n0\r\n\r\n", Peer::Closes, Broken, 200, "0", Next::Replaced},
        {"LF alone behind the last size", ChunkedHead + "1\r\na\r\n0\n\n", Peer::Closes, Broken, 200, "a",
         Next::Replaced},
        {"LF alone in the trailer", ChunkedHead + "1\r\na\r\n0\r\nA: b\n\n", Peer::Closes, Broken, 200, "a",
         Next::Replaced},
    };
    return replies;
}

const std::vector<Reply>& Names() {
    static const std::vector<Reply> replies = {
        {"content-length in small letters is none", Final + "content-length: 2\r\n\r\nab", Peer::Stays, Ok,
         200, "", Next::ReplacedIfSeen},
        {"CONTENT-LENGTH in capitals is none", Final + "CONTENT-LENGTH: 2\r\n\r\nab", Peer::Stays, Ok, 200,
         "", Next::ReplacedIfSeen},
        {"transfer-encoding in small letters is none",
         Final + "transfer-encoding: chunked\r\n\r\n1\r\na\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "",
         Next::ReplacedIfSeen},
        {"small transfer-encoding does not outrank a length",
         Final + "transfer-encoding: chunked\r\nContent-Length: 3\r\n\r\nabc", Peer::Stays, Ok, 200, "abc",
         Next::Kept},
        {"connection in small letters does not close", Final + "connection: close\r\n\r\n", Peer::Stays, Ok,
         200, "", Next::Kept},
        {"connection in small letters, and the peer closes unheard",
         Final + "connection: close\r\nContent-Length: 2\r\n\r\nab", Peer::Closes, Ok, 200, "ab",
         Next::ReplacedIfSeen},
        {"small length in front of the true one", Final + "content-length: 9\r\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a blank in front of the colon belongs to no name", Final + "Content-Length : 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a TAB in front of the colon belongs to no name", Final + "Content-Length\t:2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a line end in front of the colon belongs to no name", Final + "Content-Length\r\n : 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a blank in front of the first name", Final + " Content-Length: 2\r\n\r\nab", Peer::Stays, Ok, 200,
         "ab", Next::Kept},
        {"a blank in front of a later name folds it", Final + "A: b\r\n Content-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "", Next::ReplacedIfSeen},
        {"a name with an underscore", Final + "Content_Length: 2\r\n\r\n", Peer::Stays, Ok, 200, "",
         Next::Kept},
        {"a name behind text", Final + "X-Content-Length: 2\r\n\r\n", Peer::Stays, Ok, 200, "", Next::Kept},
        {"empty names and names of signs", Final + ": a\r\n(): b\r\n\x7f: c\r\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a line without a colon", Final + "Content-Length 2\r\n\r\nab", Peer::Stays, Broken, 0, "",
         Next::Replaced},
        {"a thousand headers",
         Final + Times(1000, "Some-Name: some value\r\n") + "Content-Length: 2\r\n\r\nab", Peer::Stays, Ok,
         200, "ab", Next::Kept},
    };
    return replies;
}

const std::vector<Reply>& Lengths() {
    static const std::vector<Reply> replies = {
        {"two equal lengths", Final + "Content-Length: 2\r\nContent-Length: 2\r\n\r\nab", Peer::Stays, Ok,
         200, "ab", Next::Kept},
        {"the first of two lengths counts, the shorter",
         Final + "Content-Length: 2\r\nContent-Length: 3\r\n\r\nabc", Peer::Stays, Ok, 200, "ab",
         Next::ReplacedIfSeen},
        {"the first of two lengths counts, the longer",
         Final + "Content-Length: 3\r\nContent-Length: 2\r\n\r\nab", Peer::Closes, Broken, 200, "ab",
         Next::Replaced},
        {"the first of a list of lengths counts", Final + "Content-Length: 2, 3\r\n\r\nab", Peer::Stays, Ok,
         200, "ab", Next::Kept},
        {"a negative length is none", Final + "Content-Length: -2\r\n\r\nab", Peer::Stays, Ok, 200, "",
         Next::ReplacedIfSeen},
        {"a quoted length is none", Final + "Content-Length: \"2\"\r\n\r\n", Peer::Stays, Ok, 200, "",
         Next::Kept},
        {"a comma in front of a length", Final + "Content-Length: ,2\r\n\r\n", Peer::Stays, Ok, 200, "",
         Next::Kept},
        {"blanks and TABs around a length", Final + "Content-Length: \t 2 \t\r\n\r\nab", Peer::Stays, Ok, 200,
         "ab", Next::Kept},
        {"nothing around a length", Final + "Content-Length:2\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"a great many zeros in front of a length",
         Final + "Content-Length: " + std::string(300, '0') + "2\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"a fraction ends a length", Final + "Content-Length: 2.9\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"an exponent ends a length", Final + "Content-Length: 2e1\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"a blank ends a length", Final + "Content-Length: 2 3\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"a fold ends a length", Final + "Content-Length: 2\r\n 3\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"an octal or binary prefix is a zero", Final + "Content-Length: 0b10\r\n\r\n", Peer::Stays, Ok, 200,
         "", Next::Kept},
        {"digits of another script are none", Final + "Content-Length: \xd9\xa2\r\n\r\n", Peer::Stays, Ok,
         200, "", Next::Kept},
        {"the greatest length of 32 bits", Final + "Content-Length: 4294967295\r\n\r\nab", Peer::Closes,
         Broken, 200, "ab", Next::Replaced},
        {"the first length above 32 bits", Final + "Content-Length: 4294967296\r\n\r\nab", Peer::Stays,
         Broken, 0, "", Next::Replaced},
        {"no length and no close", Final + "\r\n", Peer::Stays, Ok, 200, "", Next::Kept},
        {"no length and no close, and yet a body", Final + "\r\nab", Peer::Stays, Ok, 200, "",
         Next::ReplacedIfSeen},
        {"a length that never comes", Final + "Content-Length: 3\r\n\r\nab", Peer::Stays, Silent, 200, "ab",
         Next::Replaced},
        {"a head that never ends", Final + "Content-Length: 3\r\n", Peer::Stays, Silent, 0, "",
         Next::Replaced},
        {"nothing at all", "", Peer::Stays, Silent, 0, "", Next::Replaced},
        {"nothing but a close", "", Peer::Closes, Broken, 0, "", Next::Replaced},
    };
    return replies;
}

const std::vector<Reply>& Codings() {
    static const std::vector<Reply> replies = {
        {"CHUNKED in capitals is no coding", Final + "Transfer-Encoding: CHUNKED\r\n\r\n1\r\na\r\n0\r\n\r\n",
         Peer::Stays, Ok, 200, "", Next::ReplacedIfSeen},
        {"GZIP in capitals in front of chunked",
         Final + "Transfer-Encoding: GZIP, chunked\r\n\r\n1\r\na\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "a",
         Next::Kept},
        {"identity is no coding", Final + "Transfer-Encoding: identity\r\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"chunked twice is chunked once",
         Final + "Transfer-Encoding: chunked, chunked\r\n\r\n1\r\na\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "a",
         Next::Kept},
        {"a comma behind chunked", Final + "Transfer-Encoding: chunked,\r\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a comma in front of chunked", Final + "Transfer-Encoding: ,chunked\r\n\r\n1\r\na\r\n0\r\n\r\n",
         Peer::Stays, Ok, 200, "a", Next::Kept},
        {"a parameter behind chunked",
         Final + "Transfer-Encoding: chunked;q=1\r\nContent-Length: 2\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"chunked in quotes", Final + "Transfer-Encoding: \"chunked\"\r\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a letter in front of chunked", Final + "Transfer-Encoding: xchunked\r\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a vertical TAB in front of chunked",
         Final + "Transfer-Encoding: \vchunked\r\nContent-Length: 2\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"chunked on a line of its own",
         Final + "Transfer-Encoding:\r\n chunked\r\nContent-Length: 2\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"chunked folded behind a comma",
         Final + "Transfer-Encoding: gzip,\r\n chunked\r\nContent-Length: 2\r\n\r\nab", Peer::Stays, Ok, 200,
         "ab", Next::Kept},
        {"a fold of blanks behind chunked",
         Final + "Transfer-Encoding: chunked\r\n \r\n\r\n1\r\na\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "a",
         Next::Kept},
        {"the first of two codings counts, chunked",
         Final + "Transfer-Encoding: chunked\r\nTransfer-Encoding: gzip\r\n\r\n1\r\na\r\n0\r\n\r\n",
         Peer::Stays, Ok, 200, "a", Next::Kept},
        {"the first of two codings counts, another",
         Final + "Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"an unknown coding and a close lasts until then",
         Final + "Transfer-Encoding: gzip\r\nConnection: close\r\n\r\nab", Peer::Closes, Ok, 200, "ab",
         Next::Replaced},
        {"a coding of the content is not undone",
         Final + "Content-Encoding: gzip\r\nContent-Length: 2\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
    };
    return replies;
}

const std::vector<Reply>& Chunks() {
    static const std::vector<Reply> replies = {
        {"zeros in front of a size", ChunkedHead + std::string(100, '0') + "2\r\nab\r\n0\r\n\r\n",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"blanks behind a size", ChunkedHead + "2 \t\r\nab\r\n0 \r\n\r\n", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"an underscore ends a size", ChunkedHead + "2_0\r\nab\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"a NUL ends a size", ChunkedHead + Raw("2\0") + "0\r\nab\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"a size that is no number ends the body", ChunkedHead + "zz\r\n\r\n", Peer::Stays, Ok, 200, "",
         Next::Kept},
        {"a long extension", ChunkedHead + "2;" + std::string(17'000, 'e') + "\r\nab\r\n0\r\n\r\n",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a line end in quotes ends an extension all the same",
         ChunkedHead + "1;a=\"x\r\ny\"\r\na\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "y", Next::Kept},
        {"data shorter than its size", ChunkedHead + "5\r\nabc\r\n0\r\n\r\n", Peer::Closes, Broken, 200,
         "abc\r\n", Next::Replaced},
        {"data longer than its size", ChunkedHead + "2\r\nabc\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"no line end behind the data", ChunkedHead + "2\r\nab0\r\n\r\n", Peer::Closes, Broken, 200, "ab",
         Next::Replaced},
        {"a size with a minus ends the body", ChunkedHead + "-2\r\nab\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "",
         Next::Kept},
        {"a size of 33 bits", ChunkedHead + "1FFFFFFFF\r\nab", Peer::Stays, Broken, 200, "", Next::Replaced},
        {"the last chunk twice", ChunkedHead + "0\r\n\r\n0\r\n\r\n", Peer::Stays, Ok, 200, "",
         Next::ReplacedIfSeen},
        {"no last chunk", ChunkedHead + "2\r\nab\r\n", Peer::Closes, Broken, 200, "ab", Next::Replaced},
        {"no last chunk, and the peer waits", ChunkedHead + "2\r\nab\r\n", Peer::Stays, Silent, 200, "ab",
         Next::Replaced},
        {"the last chunk without its empty line", ChunkedHead + "2\r\nab\r\n0\r\n", Peer::Closes, Broken, 200,
         "ab", Next::Replaced},
        {"a thousand chunks of one byte", ChunkedHead + Times(1000, "1\r\na\r\n") + "0\r\n\r\n", Peer::Stays,
         Ok, 200, std::string(1000, 'a'), Next::Kept},
        {"a trailer that names a length", ChunkedHead + "1\r\na\r\n0\r\nContent-Length: 9\r\n\r\n",
         Peer::Stays, Ok, 200, "a", Next::Kept},
        {"a trailer that asks to close", ChunkedHead + "1\r\na\r\n0\r\nConnection: close\r\n\r\n",
         Peer::Stays, Ok, 200, "a", Next::Kept},
        {"a folded trailer", ChunkedHead + "1\r\na\r\n0\r\nA: b\r\n\tc\r\n\r\n", Peer::Stays, Ok, 200, "a",
         Next::Kept},
        {"a trailer without a colon", ChunkedHead + "1\r\na\r\n0\r\nno colon\r\n\r\n", Peer::Stays, Ok, 200,
         "a", Next::Kept},
        {"a trailer that looks like a reply", ChunkedHead + "1\r\na\r\n0\r\nHTTP/1.1 404 Not Found\r\n\r\n",
         Peer::Stays, Ok, 200, "a", Next::Kept},
        {"a flood of trailers", ChunkedHead + "1\r\na\r\n0\r\n" + Times(1000, "A: b\r\n") + "\r\n",
         Peer::Stays, Ok, 200, "a", Next::Kept},
    };
    return replies;
}

const std::vector<Reply>& StatusLines() {
    const std::string two = "\r\nContent-Length: 2\r\n\r\nab";
    static const std::vector<Reply> replies = {
        {"a version of another case", "http/1.1 200 ok" + two, Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a version of another protocol", "ICY 200 OK" + two, Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a version to come", "HTTP/2 200" + two, Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a byte order mark in front", "\xef\xbb\xbfHTTP/1.1 200 OK" + two, Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"no version", "200 OK" + two, Peer::Stays, BadStatus, 0, "ab", Next::Kept},
        {"no status", "HTTP/1.1 OK" + two, Peer::Stays, BadStatus, 0, "ab", Next::Kept},
        {"letters for digits", "HTTP/1.1 2OO OK" + two, Peer::Stays, BadStatus, 2, "ab", Next::Kept},
        {"a status of two digits", "HTTP/1.1 20 OK" + two, Peer::Stays, BadStatus, 20, "ab", Next::Kept},
        {"a status of four digits", "HTTP/1.1 2000 OK" + two, Peer::Stays, BadStatus, 2000, "ab", Next::Kept},
        {"a status that wraps to 200", "HTTP/1.1 4294967496 OK" + two, Peer::Stays, BadStatus, 4294967295U,
         "ab", Next::Kept},
        {"zeros in front of a status", "HTTP/1.1 000200 OK" + two, Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a sign in front of a status", "HTTP/1.1 +200 OK" + two, Peer::Stays, BadStatus, 0, "ab",
         Next::Kept},
        {"a reason that names another status", "HTTP/1.1 500 200 OK" + two, Peer::Stays, BadStatus, 500, "ab",
         Next::Kept},
        {"no reason", "HTTP/1.1 200" + two, Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a reason of more than one read", "HTTP/1.1 200 " + std::string(17'000, 'r') + two, Peer::Stays, Ok,
         200, "ab", Next::Kept},
        {"text that is no reply", "<html>\r\nGo away\r\n\r\n</html>", Peer::Closes, Broken, 0, "",
         Next::Replaced},
        {"HTTP/0.9", "<html>Hello</html>", Peer::Closes, Broken, 0, "", Next::Replaced},
        {"HTTP/1.0 with a length", "HTTP/1.0 200 OK" + two, Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"HTTP/1.0 without a length is empty and kept", "HTTP/1.0 200 OK\r\n\r\n", Peer::Stays, Ok, 200, "",
         Next::Kept},
        {"HTTP/1.0 without a length loses its body", "HTTP/1.0 200 OK\r\n\r\nab", Peer::Closes, Ok, 200, "",
         Next::ReplacedIfSeen},
        {"HTTP/1.0 that says close", "HTTP/1.0 200 OK\r\nConnection: close\r\n\r\nab", Peer::Closes, Ok, 200,
         "ab", Next::Replaced},
        {"HTTP/1.0 and chunked", "HTTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n0\r\n\r\n",
         Peer::Stays, Ok, 200, "a", Next::Kept},
        {"204 with a body", "HTTP/1.1 204 No Content" + two, Peer::Stays, Ok, 204, "ab", Next::Kept},
        {"205 and chunked", "HTTP/1.1 205 R\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n0\r\n\r\n",
         Peer::Stays, Ok, 205, "a", Next::Kept},
        {"206 with a close and no length is empty", "HTTP/1.1 206 P\r\nConnection: close\r\n\r\nab",
         Peer::Closes, Ok, 206, "", Next::Replaced},
        {"304 that names the length of what it does not send",
         "HTTP/1.1 304 Not Modified\r\nContent-Length: 9\r\n\r\n", Peer::Closes, Broken, 0, "",
         Next::Replaced},
        {"302 is not followed", "HTTP/1.1 302 Found\r\nLocation: /other" + two, Peer::Stays, BadStatus, 302,
         "ab", Next::Kept},
    };
    return replies;
}

const std::vector<Reply>& Connections() {
    static const std::vector<Reply> replies = {
        {"CLOSE in capitals does not close", Final + "Connection: CLOSE\r\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"close in a list does not close",
         Final + "Connection: keep-alive, close\r\nContent-Length: 2\r\n\r\nab", Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"blanks around close", Final + "Connection: \t close \t\r\nContent-Length: 2\r\n\r\nab", Peer::Stays,
         Ok, 200, "ab", Next::Replaced},
        {"the first of two counts, close",
         Final + "Connection: close\r\nConnection: keep-alive\r\nContent-Length: 2\r\n\r\nab", Peer::Stays,
         Ok, 200, "ab", Next::Replaced},
        {"the first of two counts, keep-alive",
         Final + "Connection: keep-alive\r\nConnection: close\r\nContent-Length: 2\r\n\r\nab", Peer::Stays,
         Ok, 200, "ab", Next::Kept},
        {"what a proxy says of its own", Final + "Proxy-Connection: close\r\nContent-Length: 2\r\n\r\nab",
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"a length, a close, and too little", Final + "Connection: close\r\nContent-Length: 3\r\n\r\nab",
         Peer::Closes, Broken, 200, "ab", Next::Replaced},
        {"a length, a close, and too much", Final + "Connection: close\r\nContent-Length: 1\r\n\r\nab",
         Peer::Closes, Ok, 200, "a", Next::Replaced},
        {"an empty length and a close is empty", Final + "Connection: close\r\nContent-Length:\r\n\r\nab",
         Peer::Closes, Ok, 200, "", Next::Replaced},
        {"404 with a close and no length is empty", "HTTP/1.1 404 N\r\nConnection: close\r\n\r\nab",
         Peer::Closes, BadStatus, 404, "", Next::Replaced},
        {"until close, and the peer waits", Final + "Connection: close\r\n\r\nab", Peer::Stays, Silent, 200,
         "ab", Next::Replaced},
    };
    return replies;
}

const std::vector<Reply>& Informational() {
    const std::string two = Final + "Content-Length: 2\r\n\r\nab";
    static const std::vector<Reply> replies = {
        {"a flood of 100", Times(400, "HTTP/1.1 100 Continue\r\n\r\n") + two, Peer::Stays, Ok, 200, "ab",
         Next::Kept},
        {"nothing but a flood of 100", Times(400, "HTTP/1.1 100 Continue\r\n\r\n"), Peer::Stays, Silent, 0,
         "", Next::Replaced},
        {"100 and a close", "HTTP/1.1 100 Continue\r\n\r\n", Peer::Closes, Broken, 0, "", Next::Replaced},
        {"100 that asks to close closes behind the final one",
         "HTTP/1.1 100 C\r\nConnection: close\r\n\r\n" + two, Peer::Stays, Ok, 200, "ab", Next::Replaced},
        {"100 that swallows the final one",
         "HTTP/1.1 100 C\r\nContent-Length: " + std::to_string(two.size()) + "\r\n\r\n" + two, Peer::Closes,
         Broken, 0, "", Next::Replaced},
        {"100 of an HTTP/1.0 peer", "HTTP/1.0 100 C\r\n\r\n" + two, Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"100 with a length beyond 32 bits", "HTTP/1.1 100 C\r\nContent-Length: 99999999999\r\n\r\n" + two,
         Peer::Stays, Broken, 0, "", Next::Replaced},
        {"103 with its links", "HTTP/1.1 103 Early Hints\r\nLink: </a>; rel=preload\r\n\r\n" + two,
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"each status from 100 to 199 but 101",
         [] {
             std::string all;
             for (int status = 100; status < 200; ++status) {
                 if (status != 101) all += "HTTP/1.1 " + std::to_string(status) + " I\r\n\r\n";
             }
             return all;
         }() +
             two,
         Peer::Stays, Ok, 200, "ab", Next::Kept},
        {"101 without a protocol", "HTTP/1.1 101 S\r\n\r\n" + two, Peer::Stays, Broken, 0, "",
         Next::Replaced},
        {"101 with a protocol in small letters", "HTTP/1.1 101 S\r\nupgrade: websocket\r\n\r\n" + two,
         Peer::Stays, Broken, 0, "", Next::Replaced},
        {"101 to what nobody asked for", "HTTP/1.1 101 S\r\nUpgrade: websocket\r\n\r\n" + two, Peer::Stays,
         Ok, 200, "ab", Next::Replaced},
        {"101 to nothing", "HTTP/1.1 101 S\r\nUpgrade:\r\n\r\n" + two, Peer::Stays, Ok, 200, "ab",
         Next::Replaced},
    };
    return replies;
}

const std::vector<Reply>& Nuls() {
    static const std::vector<Reply> replies = {
        {"a NUL in front", Raw("\0HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nab"), Peer::Stays, Ok, 200,
         "ab", Next::Kept},
        {"a NUL in the reason", Raw("HTTP/1.1 200 O\0K\r\nContent-Length: 2\r\n\r\nab"), Peer::Stays, Ok, 200,
         "ab", Next::Kept},
        {"a NUL ends a status", Raw("HTTP/1.1 20\0000 OK\r\nContent-Length: 2\r\n\r\nab"), Peer::Stays,
         BadStatus, 20, "ab", Next::Kept},
        {"a NUL ends a name", Raw("HTTP/1.1 200 OK\r\nContent-Length\0x: 2\r\n\r\nab"), Peer::Stays, Ok, 200,
         "ab", Next::Kept},
        {"a NUL in front of a name leaves it empty", Raw("HTTP/1.1 200 OK\r\n\0Content-Length: 2\r\n\r\n"),
         Peer::Stays, Ok, 200, "", Next::Kept},
        {"a NUL ends a length", Raw("HTTP/1.1 200 OK\r\nContent-Length: 2\0003\r\n\r\nab"), Peer::Stays, Ok,
         200, "ab", Next::Kept},
        {"a NUL in front of a length leaves none", Raw("HTTP/1.1 200 OK\r\nContent-Length: \0002\r\n\r\n"),
         Peer::Stays, Ok, 200, "", Next::Kept},
        {"a NUL ends close", Raw("HTTP/1.1 200 OK\r\nConnection: close\0d\r\nContent-Length: 2\r\n\r\nab"),
         Peer::Stays, Ok, 200, "ab", Next::Replaced},
        {"a NUL ends chunked",
         Raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\0x\r\n\r\n1\r\na\r\n0\r\n\r\n"), Peer::Stays, Ok,
         200, "a", Next::Kept},
        {"NULs in a body", Raw("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n\0a\0b"), Peer::Stays, Ok, 200,
         Raw("\0a\0b"), Next::Kept},
        {"a NUL in the line between head and body", Raw("HTTP/1.1 200 OK\r\nA: b\r\n\0\r\nab"), Peer::Closes,
         Broken, 0, "", Next::Replaced},
        {"nothing but NULs", std::string(20'000, '\0'), Peer::Closes, Broken, 0, "", Next::Replaced},
    };
    return replies;
}

/// Begun anew with each attempt.
class BodyText : public ZephSyncDataWriterIf {
public:
    void Begin() override { text.clear(); }
    void Write(const std::uint8_t* pData, std::uint32_t nBytes) override {
        text.append(reinterpret_cast<const char*>(pData), nBytes);
    }
    void End() override {}

    std::string text;
};

/// A peer without TLS that answers "/next" well, and everything else with the bytes of a test, in pieces: the
/// first with the request, each further one when the client waits. Silence passes at once.
class ForeignPeer {
public:
    using Cut = std::function<std::size_t()>;

    ForeignPeer() {
        sockets.OnSend(
            [this](ScriptedSockets::Handle handle, const std::string& bytes) { Hear(handle, bytes); });
        sockets.OnIdle([this](std::int64_t milliseconds) { Idle(milliseconds); });
    }

    std::string bytes;
    Peer peer = Peer::Stays;
    bool breaksUploads = false;  ///< once the answer is out
    Cut cut = [] { return std::string::npos; };
    std::vector<std::string> requests;  ///< the targets, each with the number of its connection

    FakeClock clock;
    ScriptedSockets sockets;

private:
    static constexpr int ErrorReset = 10054;

    /// The part of a request that is not there yet.
    struct Heard {
        std::string head;
        std::size_t body = 0;
    };

    void Hear(ScriptedSockets::Handle handle, const std::string& sent) {
        Heard& pending = heard[handle];
        const std::size_t nBody = std::min(pending.body, sent.size());
        pending.body -= nBody;
        pending.head.append(sent, nBody);
        const std::size_t end = pending.head.find("\r\n\r\n");
        if (end == std::string::npos) return;
        const std::string head = std::exchange(pending.head, "").substr(0, end);
        pending.body = std::stoul(head.substr(head.find("Content-Length: ") + 16));
        const std::string target = head.substr(4, head.find(" HTTP") - 4);
        requests.push_back(std::to_string(heard.size()) + " " + target);
        whole = target == "/next";
        speaking = handle;
        rest = whole ? "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nnext" : bytes;
        closing = !whole && peer == Peer::Closes;
        if (breaksUploads) sockets.SetSendRoom(handle, 0);
        Speak();
    }

    /// Says the next piece, or closes; false if there is nothing left to do.
    bool Speak() {
        if (rest.empty()) {
            if (!closing) return false;
            closing = false;
            sockets.CloseByPeer(speaking);
            return true;
        }
        const std::size_t nPiece = whole ? std::string::npos : cut();
        const std::string piece = rest.substr(0, nPiece);
        rest.erase(0, piece.size());
        sockets.Deliver(speaking, piece);
        if (rest.empty() && breaksUploads) sockets.Break(speaking, ErrorReset);
        if (nPiece == std::string::npos) Speak();  // whole: the close comes with it
        return true;
    }

    void Idle(std::int64_t milliseconds) {
        if (!Speak()) clock.Advance(Duration(milliseconds * TicksPerSecond / 1000));
    }

    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    std::map<ScriptedSockets::Handle, Heard> heard;
    ScriptedSockets::Handle speaking = 0;
    std::string rest;
    bool closing = false;
    bool whole = false;
};

enum class Pieces { Whole, Bytes, Random };

class ForeignRepliesTest : public ::testing::TestWithParam<Pieces> {
protected:
    ForeignRepliesTest() : seed(std::random_device{}()), generator(seed) {}

    ForeignPeer::Cut Cut() {
        switch (GetParam()) {
            case Pieces::Whole:
                return [] { return std::string::npos; };
            case Pieces::Bytes:
                return [] { return std::size_t{1}; };
            default:
                return [this] { return 1 + generator() % (generator() % 4 == 0 ? 3000 : 12); };
        }
    }

    void Play(const std::vector<Reply>& replies) {
        for (const Reply& reply : replies) {
            SCOPED_TRACE(reply.name);
            Play(reply);
        }
    }

    void Play(const Reply& reply) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        ForeignPeer peer;
        peer.bytes = reply.bytes;
        peer.peer = reply.peer;
        peer.cut = Cut();
        ZephSorrelSyncHttpClient client(std::make_shared<RecordingLogger>(), false,
                                        ZephSorrelConnectionParameters("host", 80), nullptr);
        BodyText body;
        client.SetDataWriter(&body);
        const std::uint32_t nResult = client.DoRequest("GET", "/foreign");
        EXPECT_EQ(reply.result == Silent ? Broken : reply.result, nResult);
        EXPECT_EQ(reply.result == Silent ? Silent : Ok, client.GetIOResult());
        EXPECT_EQ(reply.status, client.GetHttpStatus());
        EXPECT_EQ(reply.body, body.text);
        // A break is tried once more, on a new connection; nothing else is.
        const std::vector<std::string> once{"1 /foreign"};
        const std::vector<std::string> twice{"1 /foreign", "2 /foreign"};
        EXPECT_EQ(reply.result == Broken ? twice : once, peer.requests);

        const std::size_t connections = reply.result == Broken ? 2 : 1;
        client.SetDataWriter(&body);
        EXPECT_EQ(Ok, client.DoRequest("GET", "/next"));
        EXPECT_EQ("next", body.text);
        const std::string over = peer.requests.back().substr(0, 1);
        if (reply.next == Next::Kept) {
            EXPECT_EQ(std::to_string(connections), over);
        } else if (reply.next == Next::Replaced || GetParam() == Pieces::Whole) {
            EXPECT_EQ(std::to_string(connections + 1), over);
        }
    }

    const unsigned seed;
    std::mt19937 generator;
};

TEST_P(ForeignRepliesTest, LineEndsOfOtherKinds) {
    Play(LineEnds());
}

TEST_P(ForeignRepliesTest, NamesOfOtherShapes) {
    Play(Names());
}

TEST_P(ForeignRepliesTest, LengthsOfOtherShapes) {
    Play(Lengths());
}

TEST_P(ForeignRepliesTest, CodingsOfOtherShapes) {
    Play(Codings());
}

TEST_P(ForeignRepliesTest, ChunksOfOtherShapes) {
    Play(Chunks());
}

TEST_P(ForeignRepliesTest, StatusLinesOfOtherShapes) {
    Play(StatusLines());
}

TEST_P(ForeignRepliesTest, WordsOnTheConnectionOfOtherShapes) {
    Play(Connections());
}

TEST_P(ForeignRepliesTest, InformationalRepliesOfAllKinds) {
    Play(Informational());
}

TEST_P(ForeignRepliesTest, NulsAnywhere) {
    Play(Nuls());
}

/// A final answer before the body of the request was sent, on a connection that stays: it counts, once the
/// body went out whole.
TEST_P(ForeignRepliesTest, EarlyFinalAnswerOfAPeerThatStays) {
    for (const char* const status : {"200 OK", "413 Content Too Large"}) {
        SCOPED_TRACE(status);
        ForeignPeer peer;
        peer.bytes = std::string("HTTP/1.1 ") + status + "\r\nContent-Length: 5\r\n\r\nearly";
        peer.cut = Cut();
        ZephSorrelSyncHttpClient client(std::make_shared<RecordingLogger>(), false,
                                        ZephSorrelConnectionParameters("host", 80), nullptr);
        BodyText body;
        Reader upload(std::string(100'000, 'u'));
        client.SetDataWriter(&body);
        client.SetDataReader(&upload);
        EXPECT_EQ(status[0] == '2' ? Ok : BadStatus, client.DoRequest("PUT", "/foreign"));
        EXPECT_EQ("early", body.text);
        EXPECT_EQ((std::vector<std::string>{"1 /foreign"}), peer.requests);
        EXPECT_TRUE(peer.sockets.Sent(100).ends_with("\r\n\r\n" + upload.text));
        client.SetDataWriter(&body);
        EXPECT_EQ(Ok, client.DoRequest("GET", "/next"));
        EXPECT_EQ("next", body.text);
    }
}

/// The same of a peer that then hears nothing more: the upload breaks, which outranks the answer, so it is
/// asked for again, and is lost when that breaks too.
TEST_P(ForeignRepliesTest, EarlyFinalAnswerOfAPeerThatBreaksTheUpload) {
    ForeignPeer peer;
    peer.bytes = "HTTP/1.1 413 Content Too Large\r\nContent-Length: 5\r\n\r\nearly";
    peer.cut = Cut();
    peer.breaksUploads = true;
    ZephSorrelSyncHttpClient client(std::make_shared<RecordingLogger>(), false,
                                    ZephSorrelConnectionParameters("host", 80), nullptr);
    Reader upload(std::string(100'000, 'u'));
    client.SetDataReader(&upload);
    EXPECT_EQ(Broken, client.DoRequest("PUT", "/foreign"));
    EXPECT_EQ((std::vector<std::string>{"1 /foreign", "2 /foreign"}), peer.requests);
}

std::string NameOfPieces(const ::testing::TestParamInfo<Pieces>& pieces) {
    if (pieces.param == Pieces::Whole) return "Whole";
    return pieces.param == Pieces::Bytes ? "ByteByByte" : "AtRandom";
}

INSTANTIATE_TEST_SUITE_P(Cut, ForeignRepliesTest,
                         ::testing::Values(Pieces::Whole, Pieces::Bytes, Pieces::Random), NameOfPieces);

}  // namespace
}  // namespace Ombry::Tests
