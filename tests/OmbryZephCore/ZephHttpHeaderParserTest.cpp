#include "OmbryZephCore/ZephHttpHeaderCopy.h"
#include "OmbryZephCore/ZephHttpHeaderParser.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "tests/Fakes/AllocationCount.h"
#include "tests/OmbryZephCore/ReplacedAllocator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;
using Headers = std::vector<std::pair<std::string, std::string>>;

/// Parses from an allocation of exactly the text's size, so that a read behind it is seen by the sanitizer.
std::uint32_t Parse(ZephHttpHeaderParser& parser, const std::string& text) {
    auto exact = std::make_unique<std::uint8_t[]>(text.size());
    std::copy(text.begin(), text.end(), exact.get());
    return parser.Parse(exact.get(), static_cast<std::uint32_t>(text.size()));
}

Headers HeadersOf(const ZephHttpHeaderParser& parser) {
    Headers headers;
    parser.ForEachHeader([&](const char* name, const char* value) { headers.emplace_back(name, value); });
    return headers;
}

struct ResponseCase {
    const char* name;
    std::string text;
    std::uint32_t status;
    Headers headers;
};

const std::vector<ResponseCase>& GoodResponses() {
    static const std::vector<ResponseCase> cases = {
        {"plain", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n", 200, {{"Content-Length", "5"}}},
        {"no headers", "HTTP/1.1 200 OK\r\n\r\n", 200, {}},
        {"no reason phrase", "HTTP/1.1 204\r\nA: b\r\n\r\n", 204, {{"A", "b"}}},
        {"no reason phrase, no headers", "HTTP/1.1 204\r\n\r\n", 204, {}},
        {"blank and no reason phrase", "HTTP/1.1 204 \r\n\r\n", 204, {}},
        {"status line only", "HTTP/1.1 204 No\r\n", 204, {}},
        {"several blanks", "HTTP/1.1  \t 301\tMoved\r\n\r\n", 301, {}},
        {"TAB does not end the version", "HTTP/1.1\tx 200 OK\r\n\r\n", 200, {}},
        {"LF ends the version", "HTTP/1.1\n200 204 OK\r\n\r\n", 0, {}},
        {"CR ends the version", "HTTP/1.1\r200 204 OK\r\n\r\n", 0, {}},
        {"no status", "HTTP/1.1\r\n\r\n", 0, {}},
        {"status is no number", "HTTP/1.1 abc\r\n\r\n", 0, {}},
        {"status with a sign", "HTTP/1.1 -200\r\n\r\n", 0, {}},
        {"status ends at the first non-digit", "HTTP/1.1 200x1\r\n\r\n", 200, {}},
        {"status never read across the line end", "HTTP/1.1 \r\n: 200\r\n\r\n", 0, {{"", "200"}}},
        {"greatest status", "HTTP/1.1 4294967295 X\r\n\r\n", 4294967295U, {}},
        {"status beyond 32 bits saturates", "HTTP/1.1 4294967296 X\r\n\r\n", 4294967295U, {}},
        {"endless status saturates", "HTTP/1.1 99999999999999999999999999\r\n\r\n", 4294967295U, {}},
        {"stray line ends and blanks in front",
         "\r\n \t\r\n\nHTTP/1.1 200 OK\r\nA: b\r\n\r\n",
         200,
         {{"A", "b"}}},
        {"lone CR and LF in the reason", "HTTP/1.1 200 a\rb\nc\r\nA: b\r\n\r\n", 200, {{"A", "b"}}},
        {"first of equal names wins",
         "HTTP/1.1 200 OK\r\nSet-Thing: 1\r\nSet-Thing: 2\r\n\r\n",
         200,
         {{"Set-Thing", "1"}}},
        {"first of each name wins among others",
         "HTTP/1.1 200 OK\r\nc: 1\r\na: 1\r\nb: 1\r\na: 2\r\nc: 2\r\nb: 2\r\na: 3\r\nab: 1\r\n\r\n",
         200,
         {{"a", "1"}, {"ab", "1"}, {"b", "1"}, {"c", "1"}}},
        {"names that differ in case are two",
         "HTTP/1.1 200 OK\r\na: 1\r\nA: 2\r\n\r\n",
         200,
         {{"A", "2"}, {"a", "1"}}},
        {"order of plain bytes",
         "HTTP/1.1 200 OK\r\n\xC3\xA4: 4\r\nb: 3\r\nB: 2\r\n-: 1\r\n\r\n",
         200,
         {{"-", "1"}, {"B", "2"}, {"b", "3"}, {"\xC3\xA4", "4"}}},
        {"folded value keeps its line end", "HTTP/1.1 200 OK\r\nX: a\r\n b\r\n\r\n", 200, {{"X", "a\r\n b"}}},
        {"folded with a TAB",
         "HTTP/1.1 200 OK\r\nX: a\r\n\tb\r\nY: c\r\n\r\n",
         200,
         {{"X", "a\r\n\tb"}, {"Y", "c"}}},
        {"fold in front of the colon", "HTTP/1.1 200 OK\r\nX\r\n : a\r\n\r\n", 200, {{"X", "a"}}},
        {"fold of blanks only is cut", "HTTP/1.1 200 OK\r\nX: a\r\n  \r\n\r\n", 200, {{"X", "a"}}},
        {"value that begins with a fold", "HTTP/1.1 200 OK\r\nX: \r\n a\r\n\r\n", 200, {{"X", "\r\n a"}}},
        {"blank in front of the colon", "HTTP/1.1 200 OK\r\nName : value\r\n\r\n", 200, {{"Name", "value"}}},
        {"blanks inside stay", "HTTP/1.1 200 OK\r\nNa me: a  b\r\n\r\n", 200, {{"Na me", "a  b"}}},
        {"blanks around the value go", "HTTP/1.1 200 OK\r\nX: \t a \t\r\n\r\n", 200, {{"X", "a"}}},
        {"no blank behind the colon", "HTTP/1.1 200 OK\r\nX:a\r\n\r\n", 200, {{"X", "a"}}},
        {"blank in front of the name", "HTTP/1.1 200 OK\r\n X: a\r\n\r\n", 200, {{"X", "a"}}},
        {"empty name", "HTTP/1.1 200 OK\r\n: a\r\n\r\n", 200, {{"", "a"}}},
        {"name of blanks", "HTTP/1.1 200 OK\r\n \t : a\r\n\r\n", 200, {{"", "a"}}},
        {"empty value", "HTTP/1.1 200 OK\r\nX:\r\n\r\n", 200, {{"X", ""}}},
        {"value of blanks", "HTTP/1.1 200 OK\r\nX:   \r\n\r\n", 200, {{"X", ""}}},
        {"colon in the value", "HTTP/1.1 200 OK\r\nX: a:b\r\n\r\n", 200, {{"X", "a:b"}}},
        {"lone CR inside a value stays", "HTTP/1.1 200 OK\r\nX: a\rb\nc\r\n\r\n", 200, {{"X", "a\rb\nc"}}},
        {"CR CR LF ends a value", "HTTP/1.1 200 OK\r\nX: a\r\r\n\r\n", 200, {{"X", "a"}}},
        {"NUL ends a value for its readers",
         std::string("HTTP/1.1 200 OK\r\nX: a\0b\r\n\r\n", 27),
         200,
         {{"X", "a"}}},
        {"blank in front of the end", "HTTP/1.1 200 OK\r\nX: a\r\n \t\r\n\r\n", 200, {{"X", "a"}}},
    };
    return cases;
}

TEST(ZephHttpHeaderParserTest, ResponsesParseAsTheTableSays) {
    for (const ResponseCase& example : GoodResponses()) {
        SCOPED_TRACE(example.name);
        ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
        ASSERT_EQ(0U, Parse(parser, example.text));
        EXPECT_EQ(example.status, parser.GetStatusCode());
        EXPECT_EQ(example.headers, HeadersOf(parser));
        EXPECT_EQ(example.text.size(), parser.GetHeaderSize());
        EXPECT_EQ(nullptr, parser.GetMethod());
        EXPECT_EQ(nullptr, parser.GetUrl());
        for (const auto& [name, value] : example.headers)
            EXPECT_EQ(value, parser.GetHeader(name.c_str()));
    }
}

TEST(ZephHttpHeaderParserTest, BytesBehindTheHeadAreIgnored) {
    for (const ResponseCase& example : GoodResponses()) {
        SCOPED_TRACE(example.name);
        if (!example.text.ends_with("\r\n\r\n")) continue;
        ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
        ASSERT_EQ(0U, Parse(parser, example.text + "body: x\r\n"));
        EXPECT_EQ(example.headers, HeadersOf(parser));
        EXPECT_EQ(example.text.size(), parser.GetHeaderSize());
    }
}

TEST(ZephHttpHeaderParserTest, EveryTruncationFailsOrEndsOnAWholeStatusLine) {
    const std::string whole = "\r\nHTTP/1.1 200 OK\r\nA: b\r\nC: d\r\n e\r\n\r\n";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
        const bool statusLineOnly = length == std::string("\r\nHTTP/1.1 200 OK\r\n").size();
        EXPECT_EQ(statusLineOnly ? 0U : std::uint32_t{eRC_HTTP_BadResponseHeader},
                  Parse(parser, whole.substr(0, length)));
    }
}

TEST(ZephHttpHeaderParserTest, MalformedResponsesFailWithTheResponseCode) {
    const std::vector<std::string> texts = {
        "",
        "\r\n",
        "\r\n\r\n",
        "H",
        "HTTP/1.1",
        "HTTP/1.1 ",
        "HTTP/1.1 \t",
        "HTTP/1.1 200\r",
        "HTTP/1.1 200 OK\n\n",
        "HTTP/1.1 200 OK\r\nno colon\r\n\r\n",
        "HTTP/1.1 200 OK\r\nA: b\r\nno colon\r\nC: d\r\n\r\n",
        "HTTP/1.1 200 OK\r\nno colon\r\n folded\r\n\r\n",
        "HTTP/1.1 200 OK\r\nno colon",
        "HTTP/1.1 200 OK\r\nA:",
        "HTTP/1.1 200 OK\r\nA: ",
        "HTTP/1.1 200 OK\r\nA: b",
        "HTTP/1.1 200 OK\r\nA: b\r",
        "HTTP/1.1 200 OK\r\nA: b\r\n",
        "HTTP/1.1 200 OK\r\nA: b\r\n ",
        "HTTP/1.1 200 OK\r\nA: b\r\n \r\n",
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
        EXPECT_EQ(eRC_HTTP_BadResponseHeader, Parse(parser, text));
        EXPECT_EQ(0U, parser.GetStatusCode());
        EXPECT_EQ(0U, parser.GetHeaderSize());
        EXPECT_EQ(nullptr, parser.GetVersion());
        EXPECT_TRUE(HeadersOf(parser).empty());
    }
}

TEST(ZephHttpHeaderParserTest, VersionOfAResponseRunsOnThroughTheHead) {
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.0 200 OK\r\nA: b\r\n\r\n"));
    EXPECT_STREQ("HTTP/1.0 200 OK\r\nA", parser.GetVersion());  // the first NUL is that of a header name
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.0 200 OK\r\n\r\n"));
    EXPECT_STREQ("HTTP/1.0 200 OK\r\n\r\n", parser.GetVersion());
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.0 200 OK\r\n: b\r\n\r\n"));
    EXPECT_STREQ("HTTP/1.0 200 OK\r\n", parser.GetVersion()) << "trimming an empty name stays in its line";
}

TEST(ZephHttpHeaderParserTest, HeaderNamesAreComparedExactly) {
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\ncontent-length: 5\r\n\r\n"));
    EXPECT_EQ(nullptr, parser.GetHeader("Content-Length"));
    EXPECT_STREQ("5", parser.GetHeader("content-length"));
    EXPECT_EQ(nullptr, parser.GetHeader("content-lengt"));
    EXPECT_EQ(nullptr, parser.GetHeader(""));
}

TEST(ZephHttpHeaderParserTest, TheFirstOfEqualNamesWinsAmongManyHeadersToo) {
    // More headers than the sort of the standard library leaves in their order by chance.
    for (const std::size_t names : {1U, 2U, 5U, 30U}) {
        std::string head = "HTTP/1.1 200 OK\r\n";
        Headers first;
        for (std::size_t n = 0; n < 60; ++n) {
            const std::string name(1, static_cast<char>('A' + static_cast<int>(n % names)));
            head += name + ": " + std::to_string(n) + "\r\n";
            if (n < names) first.emplace_back(name, std::to_string(n));
        }
        ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
        ASSERT_EQ(0U, Parse(parser, head + "\r\n"));
        EXPECT_EQ(first, HeadersOf(parser)) << names << " names";
    }
}

TEST(ZephHttpHeaderParserTest, NamesThatBeginAlikeAreToldApartAndOrderedByTheRest) {
    // Around eight bytes, which are compared at once. Few headers are sorted in another way than many.
    std::vector<std::string> names{"X-Nine-99", "X-Eight8", "X-Seve7",   "X-Nine-91", "X-Eight", "X-Ninf",
                                   "X-Eight81", "X-Nine",   "X-Nine-99", "",          "X-Eight8"};
    for (const std::size_t others : {0U, 60U}) {
        while (names.size() < 11 + others)
            names.insert(names.begin() + 5, "Other" + std::to_string(names.size()));
        std::string head = "HTTP/1.1 200 OK\r\n";
        std::map<std::string, std::string> first;
        for (std::size_t n = 0; n < names.size(); ++n) {
            head += names[n] + ": " + std::to_string(n) + "\r\n";
            first.try_emplace(names[n], std::to_string(n));
        }
        ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
        ASSERT_EQ(0U, Parse(parser, head + "\r\n"));
        EXPECT_EQ(Headers(first.begin(), first.end()), HeadersOf(parser));
        for (const auto& [name, value] : first)
            EXPECT_STREQ(value.c_str(), parser.GetHeader(name.c_str())) << name;
        EXPECT_EQ(nullptr, parser.GetHeader("X-Eight82"));
    }
}

TEST(ZephHttpHeaderParserTest, NameEndsAtANul) {
    using namespace std::string_literals;
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\nB\0b: 1\r\nA: 2\r\nB: 3\r\n\r\n"s));
    EXPECT_EQ((Headers{{"A", "2"}, {"B", "1"}}), HeadersOf(parser));
    EXPECT_STREQ("1", parser.GetHeader("B"));
}

TEST(ZephHttpHeaderParserTest, BytesAbove127AreOrdinaryText) {
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "\xFF\xFE 200 \x80\r\n\xA0X\xA0: \x85y\xA0\r\n\r\n"));
    EXPECT_EQ((Headers{{"\xA0X\xA0", "\x85y\xA0"}}), HeadersOf(parser));
}

TEST(ZephHttpHeaderParserTest, ParseForgetsTheHeadBefore) {
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\nA: b\r\n\r\n"));
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 404 No\r\nC: d\r\n\r\n"));
    EXPECT_EQ(404U, parser.GetStatusCode());
    EXPECT_EQ((Headers{{"C", "d"}}), HeadersOf(parser));
    EXPECT_EQ(eRC_HTTP_BadResponseHeader, Parse(parser, "x"));
    EXPECT_EQ(nullptr, parser.GetHeader("C"));
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\n\r\n"));
    EXPECT_EQ(200U, parser.GetStatusCode());
}

TEST(ZephHttpHeaderParserTest, ResetLeavesNothing) {
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeRequest);
    ASSERT_EQ(0U, Parse(parser, "GET /x HTTP/1.1\r\nA: b\r\n\r\n"));
    parser.Reset();
    EXPECT_EQ(nullptr, parser.GetMethod());
    EXPECT_EQ(nullptr, parser.GetUrl());
    EXPECT_EQ(nullptr, parser.GetVersion());
    EXPECT_EQ(nullptr, parser.GetHeader("A"));
    EXPECT_EQ(0U, parser.GetHeaderSize());
    EXPECT_TRUE(HeadersOf(parser).empty());
    parser.Reset();
}

TEST(ZephHttpHeaderParserTest, EmptyCallbackThrowsOnlyIfThereIsAHeader) {
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\n\r\n"));
    EXPECT_NO_THROW(parser.ForEachHeader(ZephHeaderCallback()));
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\nA: b\r\n\r\n"));
    EXPECT_THROW(parser.ForEachHeader(ZephHeaderCallback()), std::bad_function_call);
}

std::uint64_t allocated = 0;
int copies = 0;

std::uint8_t* RefuseAllocation(std::uint64_t nBytes) {
    allocated = nBytes;
    return nullptr;
}

std::uint8_t* CountAllocation(std::uint64_t nBytes) {
    ++copies;
    allocated = nBytes;
    return new (std::nothrow) std::uint8_t[nBytes];
}

TEST(ZephHttpHeaderParserTest, CopyThatCannotBeAllocatedGivesOutOfMemoryAndForgetsTheHeadBefore) {
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\nA: b\r\n\r\n"));
    {
        const ReplacedAllocator refuse(&RefuseAllocation);
        EXPECT_EQ(eRC_OutOfMemory, Parse(parser, "HTTP/1.1 200 OK\r\nA: longer\r\n\r\n"));
    }
    EXPECT_EQ(nullptr, parser.GetHeader("A"));
    EXPECT_EQ(0U, parser.GetStatusCode());
    EXPECT_EQ(eRC_HTTP_BadResponseHeader, Parse(parser, "H")) << "no failure outlives the next";
    EXPECT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\n\r\n"));
}

TEST(ZephHttpHeaderParserTest, GreatestLengthIsAskedForInWhole) {
    const ReplacedAllocator refuse(&RefuseAllocation);
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    const std::uint8_t byte = 0;
    EXPECT_EQ(eRC_OutOfMemory, parser.Parse(&byte, 0xFFFFFFFF));
    EXPECT_EQ(0x100000000U, allocated);
}

TEST(ZephHttpHeaderParserTest, OneHeadIsOneCopy) {
    const ReplacedAllocator count(&CountAllocation);
    copies = 0;
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\nA: b\r\nC: d\r\n\r\n"));
    EXPECT_EQ(1, copies);
}

TEST(ZephHttpHeaderParserTest, HeadThatIsNoLongerThanTheLastIsCopiedIntoTheSameBlock) {
    const ReplacedAllocator count(&CountAllocation);
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\nA: b\r\n\r\n"));
    copies = 0;
    EXPECT_EQ(0U, Parse(parser, "HTTP/1.1 201 OK\r\nC: d\r\n\r\n"));
    EXPECT_EQ(0, copies);
    EXPECT_EQ(nullptr, parser.GetHeader("A"));
    EXPECT_STREQ("d", parser.GetHeader("C"));
    EXPECT_EQ(eRC_HTTP_BadResponseHeader, Parse(parser, "HTTP/1.1 202"));
    EXPECT_EQ(0U, Parse(parser, "HTTP/1.1 203 OK\r\nE: fgh\r\n\r\n")) << "one byte more than the block has";
    EXPECT_STREQ("fgh", parser.GetHeader("E"));
}

TEST(ZephHttpHeaderParserTest, BlockOfALargeHeadGoesWithIt) {
    const ReplacedAllocator count(&CountAllocation);
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\nA: " + std::string(5000, 'b') + "\r\n\r\n"));
    copies = 0;
    EXPECT_EQ(0U, Parse(parser, "HTTP/1.1 200 OK\r\n\r\n"));
    EXPECT_EQ(1, copies);
}

TEST(ZephHttpHeaderParserTest, ListOfManyHeadersGoesWithItsHead) {
    const std::string small = "HTTP/1.1 200 OK\r\nA: b\r\n\r\n";
    for (const int many : {256, 257}) {
        std::string large = "HTTP/1.1 200 OK\r\n";
        for (int i = 0; i < many; ++i)
            large += ":\r\n";
        ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
        ASSERT_EQ(0U, Parse(parser, large + "\r\n"));
        const std::size_t before = AllocationsOfThisThread();
        EXPECT_EQ(0U, parser.Parse(reinterpret_cast<const std::uint8_t*>(small.data()),
                                   static_cast<std::uint32_t>(small.size())));
        EXPECT_EQ(AllocationsOfThisThread() - before, many == 256 ? 0U : 1U) << many;
    }
}

TEST(ZephHttpHeaderParserTest, HeadOfAMebibyteParses) {
    std::string text = "HTTP/1.1 200 OK\r\n";
    int count = 0;
    while (text.size() < 1024 * 1024)
        text += "Name-" + std::to_string(count++) + ": " + std::string(1000, 'v') + "\r\n";
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ASSERT_EQ(0U, Parse(parser, text + "\r\n"));
    EXPECT_EQ(static_cast<std::size_t>(count), HeadersOf(parser).size());
    EXPECT_EQ(text.size() + 2, parser.GetHeaderSize());
}

struct RequestCase {
    const char* name;
    std::string text;
    const char* method;
    const char* url;
    const char* version;
};

TEST(ZephHttpHeaderParserTest, RequestsParseAsTheTableSays) {
    const std::vector<RequestCase> cases = {
        {"plain", "GET /a?b HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/a?b", "HTTP/1.1"},
        {"line ends in front", "\r\n\t GET / HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/", "HTTP/1.1"},
        {"several blanks in front of the URL", "GET  \t/ HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/", "HTTP/1.1"},
        {"TAB does not end the URL", "GET /\tx HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/\tx", "HTTP/1.1"},
        {"LF ends the method and the URL", "GET\n/\nHTTP/1.1\r\nH: v\r\n\r\n", "GET", "/", "HTTP/1.1"},
        {"CR ends the method and the URL", "GET\r/\rHTTP/1.1\r\nH: v\r\n\r\n", "GET", "/", "HTTP/1.1"},
        {"blanks behind the version stay", "GET / HTTP/1.1 \r\nH: v\r\n\r\n", "GET", "/", "HTTP/1.1 "},
        {"absolute", "GET http://host/a/b HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/a/b", "HTTP/1.1"},
        {"absolute, TLS", "GET https://host/a HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/a", "HTTP/1.1"},
        {"absolute with a port", "GET http://host:8080/a HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/a", "HTTP/1.1"},
        {"absolute without a path is empty", "GET http://host HTTP/1.1\r\nH: v\r\n\r\n", "GET", "",
         "HTTP/1.1"},
        {"absolute without a host", "GET http:/// HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/", "HTTP/1.1"},
        {"absolute with nothing", "GET http:// HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/", "HTTP/1.1"},
        {"third slash is skipped", "GET http:///a/b HTTP/1.1\r\nH: v\r\n\r\n", "GET", "/b", "HTTP/1.1"},
        {"scheme in another case is no scheme", "GET HTTP://host/a HTTP/1.1\r\nH: v\r\n\r\n", "GET",
         "HTTP://host/a", "HTTP/1.1"},
        {"scheme with one slash is no scheme", "GET https:/host/a HTTP/1.1\r\nH: v\r\n\r\n", "GET",
         "https:/host/a", "HTTP/1.1"},
        {"other scheme", "GET ftp://host/a HTTP/1.1\r\nH: v\r\n\r\n", "GET", "ftp://host/a", "HTTP/1.1"},
    };
    for (const RequestCase& example : cases) {
        SCOPED_TRACE(example.name);
        ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeRequest);
        ASSERT_EQ(0U, Parse(parser, example.text));
        EXPECT_STREQ(example.method, parser.GetMethod());
        EXPECT_STREQ(example.url, parser.GetUrl());
        EXPECT_STREQ(example.version, parser.GetVersion());
        EXPECT_EQ(0U, parser.GetStatusCode());
        EXPECT_EQ((Headers{{"H", "v"}}), HeadersOf(parser));
        EXPECT_EQ(example.text.size(), parser.GetHeaderSize());
    }
}

TEST(ZephHttpHeaderParserTest, ACopyOfTheHeadersIsOfOneHeadAloneAndOutlivesIt) {
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    ZephHttpHeaderCopy copy;
    const auto headers = [&copy] {
        Headers headers;
        copy.ForEach([&](const char* name, const char* value) { headers.emplace_back(name, value); });
        return headers;
    };
    for (const Headers& expected : {Headers{{"A", "b"}}, Headers{{"A", "longer"}, {"B", ""}, {"C", "d"}},
                                    Headers{}, Headers{{"X", "y"}, {"Y", "z"}}}) {
        std::string head = "HTTP/1.1 200 OK\r\n";
        for (const auto& [name, value] : expected)
            head += name + ": " + value + "\r\n";
        ASSERT_EQ(eRC_Success, Parse(parser, head + "\r\n"));
        parser.CopyHeaders(copy);
        parser.Reset();
        EXPECT_EQ(expected, headers());
    }
    copy.Clear();
    EXPECT_EQ(Headers{}, headers());
}

TEST(ZephHttpHeaderParserTest, EveryTruncatedRequestFailsWithTheRequestCode) {
    for (const std::string whole :
         {"GET /a HTTP/1.1\r\nA: b\r\n\r\n", "GET https://host/a HTTP/1.1\r\n\r\n"}) {
        for (std::size_t length = 0; length < whole.size(); ++length) {
            SCOPED_TRACE(whole.substr(0, length));
            ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeRequest);
            EXPECT_EQ(eRC_HTTP_BadRequestHeader, Parse(parser, whole.substr(0, length)));
            EXPECT_EQ(nullptr, parser.GetMethod());
        }
    }
}

TEST(ZephHttpHeaderParserTest, MalformedRequestsFailWithTheRequestCode) {
    for (const std::string text :
         {"GET /  HTTP/1.1\r\n\r\n", "GET / HTTP/1.1 x\r\n\r\n", "GET\r\n\r\n", "GET /\r\n\r\n",
          "GET / HTTP/1.1\n\n", "GET / HTTP/1.1\r\nno colon\r\n\r\n", "GET / HTTP/1.1\nA: b\r\n\r\n",
          "GET / HTTP/1.1 xxA: b\r\n\r\n", "GET  ", "GET / HTTP/1.1  "}) {
        SCOPED_TRACE(text);
        ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeRequest);
        EXPECT_EQ(eRC_HTTP_BadRequestHeader, Parse(parser, text));
    }
}

}  // namespace
}  // namespace Ombry::Tests
