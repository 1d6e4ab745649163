#include "ObjectMapping/ListArray.h"
#include "tests/ObjectMapping/MappingSupport.h"

#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

const char Empty[] = "The document is empty.";
const char Invalid[] = "Invalid value.";
const char Trailing[] = "The document root must not be followed by other values.";

std::string Failure(const std::string& text) {
    return FailureOf([&] { CreateJSONDeserializer(false)->Begin(text); });
}

std::string Expected(std::size_t offset, const std::string& error, const std::string& near,
                     const std::string& text) {
    return "ERROR: Parse failed at offset " + std::to_string(offset) + " due to error '" + error +
           "' (near '" + near + "') serialization_='" + text + "'";
}

TEST(JSONParseFailureTest, AnEmptyTextFailsBehindItsWhiteSpace) {
    EXPECT_EQ(
        Failure(""),
        "ERROR: Parse failed at offset 0 due to error 'The document is empty.' (near '') serialization_=''");
    EXPECT_EQ(Failure(" \t\r\n"), Expected(4, Empty, " \t\r\n", " \t\r\n"));
}

TEST(JSONParseFailureTest, AValueMustBeAlone) {
    EXPECT_EQ(Failure("{}x"), Expected(2, Trailing, "{}x", "{}x"));
    EXPECT_EQ(Failure("1 2"), Expected(2, Trailing, "1 2", "1 2"));
    EXPECT_EQ(Failure("[]\v"), Expected(2, Trailing, "[]\v", "[]\v"));
    EXPECT_NO_THROW(CreateJSONDeserializer(false)->Begin(" \t\r\n{} \t\r\n"));
}

TEST(JSONParseFailureTest, ATextThatOpensWithAClosingTokenIsInvalidAndNotEmpty) {
    for (const char* token : {"}", "]", ":", ","}) {
        EXPECT_EQ(Failure(token), Expected(0, Invalid, token, token));
        const std::string blanks = std::string("  ") + token + "x";
        EXPECT_EQ(Failure(blanks), Expected(2, Invalid, blanks, blanks));
    }
}

TEST(JSONParseFailureTest, NamesEachKindOfError) {
    struct Case {
        const char* text;
        std::size_t offset;
        const char* error;
    };
    const Case cases[] = {
        {"x", 0, Invalid},
        {"nul", 3, Invalid},
        {"\xef\xbb\xbf{}", 0, Invalid},
        {"[1,]", 3, Invalid},
        {"[1 2]", 3, "Missing a comma or ']' after an array element."},
        {"[", 1, Invalid},
        {"[1", 2, "Missing a comma or ']' after an array element."},
        {"{", 1, "Missing a name for object member."},
        {"{1:2}", 1, "Missing a name for object member."},
        {"{\"a\"}", 4, "Missing a colon after a name of object member."},
        {"{\"a\":1", 6, "Missing a comma or '}' after an object member."},
        {"{\"a\":1,}", 7, "Missing a name for object member."},
        {"{\"a\":}", 5, Invalid},
        {"\"abc", 4, "Missing a closing quotation mark in string."},
        {"\"\\x\"", 1, "Invalid escape character in string."},
        {"\"\\u12G4\"", 1, "Incorrect hex digit after \\u escape in string."},
        {"\"\\ud800\"", 1, "The surrogate pair in string is invalid."},
        {"1.", 2, "Miss fraction part in number."},
        {"1e", 2, "Miss exponent in number."},
        {"1e400", 0, "Number too big to be stored in double."},
        {"[1}", 2, "Missing a comma or ']' after an array element."},
        {"'a'", 0, Invalid},
        {"// c\n1", 0, Invalid},
        {"NaN", 0, Invalid},
        {"[01]", 2, "Missing a comma or ']' after an array element."},
        {"+1", 0, Invalid},
        {"-", 1, Invalid},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Failure(c.text), Expected(c.offset, c.error, c.text, c.text));
}

TEST(JSONParseFailureTest, TheSliceRunsFrom40BytesBeforeTheOffsetTo10BytesAfterIt) {
    for (const std::size_t offset : {0, 1, 39, 40, 41, 42, 100}) {
        for (const std::size_t behind : {1, 2, 9, 10, 11, 12, 50}) {
            std::string text;
            for (std::size_t i = 0; i < offset; ++i)
                text.push_back(i % 10 == 0 ? '\n' : ' ');
            text.push_back('?');
            for (std::size_t i = 1; i < behind; ++i)
                text.push_back(static_cast<char>('a' + i % 26));
            const std::size_t begin = offset <= 40 ? 0 : offset - 40;
            const std::size_t end = behind < 10 ? text.size() : offset + 10;
            EXPECT_EQ(Failure(text), Expected(offset, Invalid, text.substr(begin, end - begin), text));
        }
    }
}

TEST(JSONParseFailureTest, TheSliceEndsWithTheTextIfTheOffsetIsItsEnd) {
    const std::string text = "[" + std::string(60, ' ');
    EXPECT_EQ(Failure(text), Expected(61, Invalid, std::string(40, ' '), text));
}

TEST(JSONParseFailureTest, TheTextEndsAtItsFirstNul) {
    int value = 0;
    ReadText(std::string("12\0]}", 5), [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
    EXPECT_EQ(value, 12);
    EXPECT_EQ(Failure(std::string(" \0 1", 4)),
              "ERROR: Parse failed at offset 1 due to error 'The document is empty.' (near ' ");
    EXPECT_EQ(Failure(std::string("[1,\0 2]", 7)),
              "ERROR: Parse failed at offset 3 due to error 'Invalid value.' (near '[1,");
    EXPECT_EQ(Failure(std::string("\"a\0b\"", 5)),
              "ERROR: Parse failed at offset 2 due to error 'Missing a closing quotation mark in string.' "
              "(near '\"a");
}

TEST(JSONParseFailureTest, TextBehindTheNulStaysInTheMessage) {
    // Read past the NUL that ends `what()` for a C string: the message is one string with all of the text.
    const std::string text("x\0secret", 8);
    try {
        CreateJSONDeserializer(false)->Begin(text);
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        const std::string expected = Expected(0, Invalid, text, text);
        EXPECT_EQ(std::string(error.what(), expected.size()), expected);
    }
}

TEST(JSONParseFailureTest, ControlBytesAreNoWhiteSpace) {
    EXPECT_EQ(Failure("\f1"), Expected(0, Invalid, "\f1", "\f1"));
    EXPECT_EQ(Failure("\xc2\xa0"
                      "1"),
              Expected(0, Invalid,
                       "\xc2\xa0"
                       "1",
                       "\xc2\xa0"
                       "1"));
}

TEST(JSONParseFailureTest, ForgetsTheFailureAtTheNextBegin) {
    const auto deserializer = CreateJSONDeserializer(true);
    EXPECT_THROW(deserializer->Begin("["), std::runtime_error);
    int value = 0;
    deserializer->Begin("7");
    deserializer->Field(nullptr, value, nullptr);
    EXPECT_EQ(value, 7);
}

TEST(JSONParseFailureTest, DeepNestingThatIsNeverClosedFailsAndDoesNotExhaustTheStack) {
    for (const std::size_t depth : {100'000u, 1'000'000u}) {
        const std::string arrays(depth, '[');
        EXPECT_TRUE(Failure(arrays) == Expected(depth, Invalid, std::string(40, '['), arrays));
        std::string objects;
        for (std::size_t i = 0; i < depth; ++i)
            objects += "{\"\":";
        EXPECT_TRUE(Failure(objects) ==
                    Expected(4 * depth, Invalid, objects.substr(4 * depth - 40), objects));
    }
}

TEST(JSONParseFailureTest, DeepNestingThatIsClosedReadsAsFarAsTheFieldsGo) {
    for (const std::size_t depth : {100'000u, 1'000'000u}) {
        const std::string text = std::string(depth, '[') + std::string(depth, ']');
        std::list<std::string> list;
        const std::string message = ReadFailure(text, [&](MapperIf& mapper) {
            ListArray array(list);
            mapper.Field(nullptr, array, nullptr);
        });
        EXPECT_TRUE(message ==
                    "ERROR: Expected type 'string' when processing '[0]' serialization_='" + text + "'");
        int value = 0;
        ObjectOf object([&](MapperIf& mapper) { mapper.Field("after", value, nullptr); });
        DeserializeObject(object, "{\"deep\":" + text + ",\"after\":3}", nullptr, true);
        EXPECT_EQ(value, 3);
    }
}

TEST(JSONParseFailureTest, EveryPrefixOfAGoodTextFailsAndNothingBehindItPasses) {
    const std::string good = R"({"a":[1,-2.5e3,true,null],"b":{"c":"\u00e9\n"}})";
    for (std::size_t length = 0; length < good.size(); ++length)
        EXPECT_THROW(CreateJSONDeserializer(true)->Begin(good.substr(0, length)), std::runtime_error)
            << length;
    EXPECT_NO_THROW(CreateJSONDeserializer(true)->Begin(good));
    for (int byte = 1; byte < 256; ++byte) {
        const char letter = static_cast<char>(byte);
        const bool blank = letter == ' ' || letter == '\t' || letter == '\r' || letter == '\n';
        if (blank)
            EXPECT_NO_THROW(CreateJSONDeserializer(true)->Begin(good + letter)) << byte;
        else
            EXPECT_THROW(CreateJSONDeserializer(true)->Begin(good + letter), std::runtime_error) << byte;
    }
}

}  // namespace
}  // namespace Ombry::Tests
