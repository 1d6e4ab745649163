// Texts of foreign shape: which are JSON for this system, which are not, and which of those that parsers
// disagree about. Each is read by itself and inside of other texts; what is taken must hold the right value,
// and nothing cut short of it may pass.

#include "tests/ObjectMapping/MappingSupport.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

using Texts = std::vector<std::string>;

/// With its NULs.
template <std::size_t N>
std::string Raw(const char (&text)[N]) {
    return std::string(text, N - 1);
}

std::string Times(std::size_t count, const std::string& text) {
    std::string all;
    for (std::size_t n = 0; n < count; ++n)
        all += text;
    return all;
}

/// The text in printable signs, for messages.
std::string Shown(const std::string& text) {
    std::string shown;
    for (const char letter : text.substr(0, 100)) {
        const auto byte = static_cast<unsigned char>(letter);
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x", byte);
        shown += byte < 0x20 || byte >= 0x7f ? std::string(escape) : std::string(1, letter);
    }
    return shown;
}

struct Elements : ArrayIf {
    bool Next(MapperIf&) override { return false; }
    void Clear() override { count = 0; }
    void Append(MapperIf&) override { ++count; }

    int count = 0;
};

/// Whether the text is read as a value of the type.
template <class T>
bool Reads(const std::string& text, T& value, bool* present = nullptr) {
    const auto deserializer = CreateJSONDeserializer(true);
    deserializer->Begin(text);
    try {
        deserializer->Field(nullptr, value, present);
    } catch (const std::runtime_error&) {
        return false;
    }
    return true;
}

/// What the root of a text is: "null", "true", "s:abc", "i:-5", "d:0.5", "[2]" for an array of two, "{}".
std::string Held(const std::string& text) {
    bool flag = false, present = true;
    std::string characters;
    unsigned long long magnitude = 0;
    long long integer = 0;
    double real = 0;
    Elements elements;
    ObjectOf object([](MapperIf&) {});
    if (Reads(text, flag, &present)) return !present ? "null" : flag ? "true" : "false";
    if (Reads(text, characters)) return "s:" + characters;
    if (Reads(text, real)) {
        char digits[40];
        std::snprintf(digits, sizeof digits, "d:%.15g", real);
        return digits;
    }
    if (Reads(text, integer)) return "i:" + std::to_string(integer);
    if (Reads(text, magnitude)) return "i:" + std::to_string(magnitude);
    if (Reads(text, elements)) return "[" + std::to_string(elements.count) + "]";
    return Reads(text, static_cast<ObjectIf&>(object)) ? "{}" : "nothing";
}

/// The message of the refusal; empty if the text is taken.
std::string Refusal(const std::string& text) {
    try {
        CreateJSONDeserializer(false)->Begin(text);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

void ExpectRefused(const std::string& text) {
    SCOPED_TRACE(Shown(text));
    const std::string message = Refusal(text);
    const std::string start = "ERROR: Parse failed at offset ";
    ASSERT_TRUE(message.starts_with(start)) << message;
    EXPECT_LE(std::stoul(message.substr(start.size())), text.size());
    if (text.find('\0') != std::string::npos) return;  // the message, a C string, ends there too
    EXPECT_TRUE(message.ends_with("') serialization_='" + text + "'")) << Shown(message);
}

struct Value {
    std::string text;
    std::string held;
};

void ExpectHeld(const Value& value) {
    SCOPED_TRACE(Shown(value.text));
    EXPECT_EQ(value.held, Held(value.text));
    EXPECT_EQ(value.held, Held(" \t\r\n" + value.text + "\n\r\t "));
    EXPECT_EQ("[1]", Held("[" + value.text + "]"));
    EXPECT_EQ("[3]", Held("[0 ," + value.text + ", 0]"));
    EXPECT_EQ("{}", Held("{\"a\":" + value.text + ",\"b\" : " + value.text + "}"));
}

/// Where a value may stand, none of these may.
void ExpectNoValue(const std::string& text) {
    ExpectRefused(text);
    ExpectRefused(" \t\r\n" + text);
    ExpectRefused("[" + text + "]");
    ExpectRefused("[0, " + text + ", 0]");
    ExpectRefused("{\"a\":" + text + "}");
}

TEST(JSONTextsTest, NumbersOfAllShapesThatAreTaken) {
    const std::vector<Value> numbers = {
        {"0", "i:0"},
        {"-0", "i:0"},
        {"-1", "i:-1"},
        {"20", "i:20"},
        {"-123456789012", "i:-123456789012"},
        {"9223372036854775808", "i:9223372036854775808"},
        {"0.0", "d:0"},
        {"-0.0", "d:-0"},
        {"0e1", "d:0"},
        {"0E+1", "d:0"},
        {"-0e-1", "d:-0"},
        {"1e2", "d:100"},
        {"1E2", "d:100"},
        {"1e+2", "d:100"},
        {"1E-2", "d:0.01"},
        {"1e00002", "d:100"},
        {"20e1", "d:200"},
        {"1.5", "d:1.5"},
        {"1.500000", "d:1.5"},
        {"123.456e78", "d:1.23456e+80"},
        {"-123.456E-78", "d:-1.23456e-76"},
        {"0." + std::string(80, '0') + "1", "d:1e-81"},
        {"1e-10000", "d:0"},
        {"1e-9999999999999999999", "d:0"},
        // What the library adds up would wrap, from nine digits behind the point on, or the exponent itself.
        {"0.0000000000e-2147483639", "d:0"},
        {"-1.23456789012345678E-2147483639", "d:-0"},
        {"1.5e-00000000000000000001", "d:0.15"},
        {"1" + std::string(99, '0'), "d:1e+99"},
        {"-1" + std::string(99, '0'), "d:-1e+99"},
        {"1." + std::string(1000, '0'), "d:1"},
        {"4.9406564584124654e-324", "d:4.94065645841247e-324"},
    };
    for (const Value& number : numbers)
        ExpectHeld(number);
}

TEST(JSONTextsTest, NumbersOfAllShapesThatAreRefused) {
    const Texts numbers = {
        // Nothing where something must stand.
        "-", "+", ".", "-.", "e", "e1", ".5", "-.5", ".e1", "2.", "-2.", "2.e3", "2.e+3", "2.e-3", "1e",
        "1E+", "1e-", "1.5e", "1.5e+", "0e", "0.e", "0.e1", "0.3e", "0.3e+", "-e1",
        // Too much.
        "--1", "-+1", "+1", "+-1", "++1", "1.2.3", "1e1.5", "1eE2", "1ee2", "1e+-2", "1e--2", "1-", "1+",
        "1-2", "1+2", "0-1", "00", "-00", "012", "-012", "00.5", "0123e1", "1 000", "1_000", "1'000", "- 1",
        "1e 1", "1 e1", "1. 5",
        // Of other notations.
        "0x1", "0X1F", "0b1", "0o17", "1f", "1L", "1n", "1u", "1a", "-1x", "1H-308", "1d5", "1p5", "0x1p3",
        "Inf", "-Inf", "+Inf", "Infinity", "-Infinity", "nan", "NaN", "-NaN", "1/2", "1%", "$1", "#1", "1:2",
        "\xef\xbc\x91", "\xd9\xa1",
        "\xe2\x88\x92"
        "1",
        "1\xc2\xa0", "\xc2\xbd", "1\xe2\x81\xb5", "1\xff",
        // Beyond what a double can be, in what the exponent says.
        "1e309", "-1e309", "1e9999999999999999999", "123456e999", "0e400", "0.0000000000e2147483648"};
    for (const std::string& number : numbers)
        ExpectNoValue(number);
}

TEST(JSONTextsTest, LiteralsAreTakenAsTheyAreSpeltAndInNoOtherWay) {
    ExpectHeld({"null", "null"});
    ExpectHeld({"true", "true"});
    ExpectHeld({"false", "false"});
    for (const std::string literal : {"null", "true", "false"}) {
        for (std::size_t length = 1; length < literal.size(); ++length)
            ExpectNoValue(literal.substr(0, length));
        for (std::size_t at = 0; at < literal.size(); ++at) {
            std::string other = literal;
            other[at] = static_cast<char>(other[at] - 'a' + 'A');
            ExpectNoValue(other);
            other = literal;
            ExpectNoValue(other.insert(at, 1, at == 0 ? 'x' : ' '));
        }
        for (const char* const behind : {"e", "1", "_", ".", "\"", "\\", "(", "\xc3\xa9", "\x7f"})
            ExpectNoValue(literal + behind);
    }
    for (const char* const word :
         {"undefined", "None", "nil",   "yes",   "no",         "on",        "off",    "void",
          "NULL",      "TRUE", "FALSE", "a",     "abc",        "\xc3\xa9",  "<null>", "*",
          "@",         "$",    "!true", "-null", "true&&true", "new Date()"})
        ExpectNoValue(word);
}

TEST(JSONTextsTest, StringsOfAllShapesThatAreTaken) {
    const std::vector<Value> strings = {
        {R"("")", "s:"},
        {R"(" ")", "s: "},
        {R"("abc")", "s:abc"},
        {R"("a'b")", "s:a'b"},
        {R"("[1,{\"a\":2}] // no /* comment */")", R"(s:[1,{"a":2}] // no /* comment */)"},
        {R"("\"\\\/\b\f\n\r\t")", "s:\"\\/\b\f\n\r\t"},
        {R"("\\u0041")", R"(s:\u0041)"},
        {R"("\\\"")", "s:\\\""},
        {R"("\u0041\u004a\u004A")", "s:AJJ"},
        {R"("\u0000")", Raw("s:\0")},
        {R"("a\u0000b")", Raw("s:a\0b")},
        {R"("\u001f\u007F\u0080")", "s:\x1f\x7f\xc2\x80"},
        {R"("\u07ff\u0800\uFFFF")", "s:\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf"},
        {R"("\u2028\u2029\uFEFF")", "s:\xe2\x80\xa8\xe2\x80\xa9\xef\xbb\xbf"},
        {R"("\uD834\uDD1E\ud834\udd1e")", "s:\xf0\x9d\x84\x9e\xf0\x9d\x84\x9e"},
        {R"("\uDBFF\uDFFF\uFDD0")", "s:\xf4\x8f\xbf\xbf\xef\xb7\x90"},
        {R"("\u00410")", "s:A0"},
        {R"("1e-21474836390")", "s:1e-21474836390"},
        {R"("\n1e-21474836390\"")", "s:\n1e-21474836390\""},
        {"\"\x7f\"", "s:\x7f"},
        {"\"\xe2\x80\xa8\xe2\x80\xa9\"", "s:\xe2\x80\xa8\xe2\x80\xa9"},
        {"\"\xef\xbb\xbf\"", "s:\xef\xbb\xbf"},
        {"\"\xf4\x8f\xbf\xbf\xef\xbf\xbf\"", "s:\xf4\x8f\xbf\xbf\xef\xbf\xbf"},
        {'"' + std::string(100'000, 'x') + '"', "s:" + std::string(100'000, 'x')},
        {'"' + Times(10'000, R"(\n)") + '"', "s:" + std::string(10'000, '\n')},
        // Parsers disagree about these. What is no UTF-8 passes as it stands, and a low surrogate alone too.
        {"\"\xff\"", "s:\xff"},
        {"\"\xe9t\xe9\"", "s:\xe9t\xe9"},
        {"\"\xc0\xaf\xe0\x80\xaf\"", "s:\xc0\xaf\xe0\x80\xaf"},
        {"\"\xe2\x82\"", "s:\xe2\x82"},
        {"\"\x80\xbf\"", "s:\x80\xbf"},
        {"\"\xf4\x90\x80\x80\xfc\x83\xbf\xbf\xbf\xbf\"", "s:\xf4\x90\x80\x80\xfc\x83\xbf\xbf\xbf\xbf"},
        {"\"\xed\xa0\x80\"", "s:\xed\xa0\x80"},
        {R"("\uDC00")", "s:\xed\xb0\x80"},
        {R"("\uDFAA\uD834\uDD1E")", "s:\xed\xbe\xaa\xf0\x9d\x84\x9e"},
    };
    for (const Value& string : strings)
        ExpectHeld(string);
}

TEST(JSONTextsTest, StringsOfAllShapesThatAreRefused) {
    const Texts strings = {
        // Quotes.
        R"(")", R"("a)", R"(a")", R"('a')", R"("a')", R"('a")", R"(`a`)", R"("a""b")", R"("a" "b")",
        R"("a"b)", R"("""a""")", R"(a)", R"(&quot;a&quot;)",
        "\xe2\x80\x9c"
        "a\xe2\x80\x9d",
        R"(\"a\")",
        // Escapes that there are not.
        R"("\a")", R"("\v")", R"("\0")", R"("\1")", R"("\'")", R"("\x41")", R"("\N")", R"("\U0041")",
        R"("\e")", R"("\ ")", R"("\u")", R"("\u0")", R"("\u00")", R"("\u004")", R"("\u004g")", R"("\uG000")",
        R"("\u{41}")", R"("\u+041")", R"("\u-041")", R"("\u 041")", R"("\u00 1")", "\"\\\n\"", "\"\\\t\"",
        "\"\\\xc3\xa9\"", "\"\\\xff\"",
        "\"\\u\xef\xbc\x90"
        "041\"",
        // Escapes that do not end.
        R"("\)", R"("\")", R"("\\\")", R"("a\)", R"("\u)", R"("\u0)", R"("\u004)",
        // Halves of a pair: a high one must have a low one, escaped, right behind it.
        R"("\uD800")", R"("\uDBFF")", R"("\uD800a")", R"("\uD800\n")", R"("\uD800\\")", R"("\uD800\u0041")",
        R"("\uD800\uD800")", R"("\uD800\uD800\uDC00")", R"("\uD800\u")", R"("\uD800\uDC")",
        R"("\uD800\uDC0")", R"("\uD800\uE000")", R"("\uD800\)", R"("\uD800)", "\"\\uD800\xed\xb0\x80\"",
        R"("\uD800\udbff")"};
    for (const std::string& string : strings)
        ExpectNoValue(string);
    for (char control = 1; control < ' '; ++control)
        ExpectNoValue(std::string("\"a") + control + "\"");
}

TEST(JSONTextsTest, StructuresOfAllShapesThatAreTaken) {
    const std::vector<Value> structures = {
        {"[]", "[0]"},
        {"[ \t\r\n]", "[0]"},
        {"[[]]", "[1]"},
        {"[[],[[]],{}]", "[3]"},
        {"[null,true,false,0,1.5,\"\"]", "[6]"},
        {"[\n1\n,\r2\t]", "[2]"},
        {"[\"a\",\"a\"]", "[2]"},
        {"[" + Times(9'999, "0,") + "0]", "[10000]"},
        {Times(500, "[") + Times(500, "]"), "[1]"},
        {"{}", "{}"},
        {"{ \t\r\n}", "{}"},
        {R"({"a":1})", "{}"},
        {R"({ "a" : 1 , "b" : [ ] })", "{}"},
        {R"({"":0})", "{}"},
        {R"({"a":1,"a":2})", "{}"},
        {R"({"a":1,"a":1})", "{}"},
        {R"({"\u0061\u0000":{"":{"\"":null}}})", "{}"},
        {"{\"" + std::string(100'000, 'k') + "\":0}", "{}"},
        {"{\"\xff\":0}", "{}"},
        {Times(500, "{\"a\":") + "0" + Times(500, "}"), "{}"},
    };
    for (const Value& structure : structures)
        ExpectHeld(structure);
}

TEST(JSONTextsTest, StructuresOfAllShapesThatAreRefused) {
    const Texts structures = {
        // Brackets that do not match, or are not there.
        "[", "{", "]", "}", "[]]", "{}}", "[}", "{]", "[[]", "[{]}", "{\"a\":[}", "{\"a\":1]", "[1}", "[1",
        "{\"a\":1", "(1)", "<1>", "[[[[", "{\"a\":{\"a\":", "[\"", "[\"a", "[\"a\"", "[\"a\",",
        // Commas.
        "[,]", "[,1]", "[1,]", "[1,,2]", "[1,,]", "[,,]", "[1 2]", "[1;2]", "[[]1]", "[\"a\"1]", "[1 true]",
        "[{}{}]", "[1,\n", "{,}", "{,\"a\":1}", "{\"a\":1,}", "{\"a\":1,,\"b\":2}", "{\"a\":1 \"b\":2}",
        "{\"a\":1;\"b\":2}", "{\"a\":1,\"b\"", "{\"a\":1,b:2}", "{\"a\":1,]",
        // Colons.
        "[1:2]", "[\"a\":1]", "[:]", "{:}", "{:1}", "{\"a\"}", "{\"a\":}", "{\"a\" 1}", "{\"a\",1}",
        "{\"a\"::1}", "{\"a\"=1}", "{\"a\"=>1}", "{\"a\":1:2}", "{\"a\":\"b\":\"c\"}", "{\"a\":1,\"b\":}",
        // Names.
        "{1:1}", "{null:1}", "{true:1}", "{a:1}", "{'a':1}", "{[]:1}", "{{}:1}", "{\"a\"\"b\":1}", "{\"a:1}",
        "{a\":1}", "{1}", "{[]}", "{\"a\":1,1:2}", "{\"\\uD800\":1}", "{\"\n\":1}", "{\xff:1}",
        // Comments and other things between.
        "[/**/]", "[1/**/]", "[1//\n]", "[#\n1]", "{/**/}", "{\"a\"/**/:1}", "{\"a\":1/**/}", "[--\n1]",
        "[...]", "[1,...]", "[*]", "[a]", "[\\u0031]", "[\\n]", "[@x]", "[&1]", "[1|2]", "\\u005b\\u005d",
        // White space that is none.
        "[\v1]", "[\f]", "[\b]", "[\x7f]", "[\xc2\xa0]", "[\xc2\x85]", "[\xe2\x80\xa8]", "[\xe2\x81\xa0]",
        "[\xe3\x80\x80]", "[\xef\xbb\xbf]", "{\f}", "{\"a\"\v:1}"};
    for (const std::string& structure : structures)
        ExpectNoValue(structure);
}

TEST(JSONTextsTest, RootsThatAreNotAlone) {
    for (const char* const root : {"1", "\"a\"", "[]", "{}", "null", "true"}) {
        for (const char* const behind :
             {",",   " ,",   "x",   " x",   "[]",       "{}",           "\"\"",
              " 1",  "]",    "}",   ":",    "/",        "//",           "/**/",
              "#",   "\v",   "\f",  "\x7f", "\xc2\xa0", "\xe2\x81\xa0", "\xef\xbb\xbf",
              "\n1", "\x1a", "\x1b"})
            ExpectRefused(std::string(root) + behind);
        for (const char* const before :
             {",", "x", "]", "}", ":", "/**/", "//\n", "#\n", "\v", "\f", "\xc2\xa0", "\x1e", ")]}',\n",
              "while(1);", "callback(", "=", "\xef\xbb", "\\"})
            ExpectRefused(before + std::string(root));
    }
}

TEST(JSONTextsTest, TextsOfOtherEncodings) {
    // The text ends at its first NUL, so one of 16 or 32 bits a character ends within its first.
    for (const std::string& text :
         {Raw("\xff\xfe[\0]\0"), Raw("\xfe\xff\0[\0]"), Raw("[\0]\0"), Raw("\0[\0]"), Raw("[\0\0\0]\0\0\0"),
          Raw("\xff\xfe\0\0[\0\0\0]\0\0\0"), Raw("\xef\xbb\xbf[]"), Raw("\0"), Raw("\0\0"), Raw(" \0{}"),
          Raw("\xef\xbb\xbf"), Raw("+/v8-[]"), Raw("\x0e\xfe\xff[]")})
        ExpectRefused(text);
    EXPECT_EQ("i:1", Held(Raw("1\0\0\0")));
    EXPECT_EQ("[0]", Held(Raw("[]\0]")));
    EXPECT_EQ("{}", Held(Raw("{} \0{\"a\":")));
}

TEST(JSONTextsTest, NothingCutShortOfAStringOrAStructurePasses) {
    const Texts texts = {R"("a\"\\\u00e9\ud834\udd1e\n")", "\"\xe2\x82\xac\xf0\x9d\x84\x9e\"",
                         R"([0,-1.5e+3,"]",[true,[null]],{"}":false}])",
                         "{ \"a\" : [ 1 , 2 ] ,\r\n\t\"b\" : { \"c\" : \"d\" } }"};
    for (const std::string& text : texts) {
        ASSERT_EQ("", Refusal(text));
        for (std::size_t length = 0; length < text.size(); ++length)
            ExpectRefused(text.substr(0, length));
    }
}

TEST(JSONTextsTest, ATextThatWasRefusedLeavesNothingToTheNextOne) {
    const auto deserializer = CreateJSONDeserializer(true);
    for (const char* const refused : {"[1,2", "{\"a\":[1,{\"b\":\"", "\"\\ud800", "1e", "]", ""}) {
        EXPECT_THROW(deserializer->Begin(refused), std::runtime_error);
        int value = 0;
        deserializer->Begin("7");
        deserializer->Field(nullptr, value, nullptr);
        EXPECT_EQ(value, 7) << refused;
    }
}

/// A parser that looks at blocks of bytes may miss what it has to stop at: the library's vector instructions
/// take the last control characters for text.
TEST(JSONTextsTest, StringsOfAnyLengthHoldAnythingAtAnyPlace) {
    struct Special {
        const char* written;
        const char* read;
    };
    const Special specials[] = {
        {"\\\"", "\""}, {"\\\\", "\\"}, {"\\u00e4", "\xc3\xa4"}, {"\xc3\xa4", "\xc3\xa4"}, {"\x7f", "\x7f"}};
    for (std::size_t blanks = 0; blanks < 16; ++blanks) {
        for (std::size_t before = 0; before < 36; ++before) {
            const std::size_t after = 40 - before;
            for (const auto& [written, read] : specials) {
                std::string value;
                ASSERT_TRUE(
                    Reads(Times(blanks, " ") + '"' + Times(before, "b") + written + Times(after, "a") + '"',
                          value));
                ASSERT_EQ(value, Times(before, "b") + read + Times(after, "a"));
            }
            const auto deserializer = CreateJSONDeserializer(true);
            const std::string text =
                Times(blanks, " ") + '"' + Times(before, "b") + "\x1f" + Times(after, "a") + '"';
            EXPECT_NE(FailureOf([&] {
                          deserializer->Begin(text);
                      }).find("offset " + std::to_string(blanks + 1 + before) + " due"),
                      std::string::npos)
                << Shown(text);
        }
    }
}

}  // namespace
}  // namespace Ombry::Tests
