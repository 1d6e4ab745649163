#include "ObjectMapping/Impl/JSONSerializer_Impl.h"
#include "ObjectMapping/ListArray.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/ObjectMapping/MappingSupport.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <list>
#include <string>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

template <class T>
constexpr T Max = std::numeric_limits<T>::max();
template <class T>
constexpr T Min = std::numeric_limits<T>::min();

TEST(JSONSerializer_ImplTest, WritesEachOverloadAtItsLimits) {
    EXPECT_EQ(WrittenRoot(Min<short>), "-32768");
    EXPECT_EQ(WrittenRoot(Max<short>), "32767");
    EXPECT_EQ(WrittenRoot(Max<unsigned short>), "65535");
    EXPECT_EQ(WrittenRoot(Min<int>), "-2147483648");
    EXPECT_EQ(WrittenRoot(Max<int>), "2147483647");
    EXPECT_EQ(WrittenRoot(Max<unsigned int>), "4294967295");
    EXPECT_EQ(WrittenRoot(-1L), "-1");
    EXPECT_EQ(WrittenRoot(-2147483648L), "-2147483648");
    EXPECT_EQ(WrittenRoot(4294967295UL), "4294967295");
    EXPECT_EQ(WrittenRoot(Min<long long>), "-9223372036854775808");
    EXPECT_EQ(WrittenRoot(Max<long long>), "9223372036854775807");
    EXPECT_EQ(WrittenRoot(Max<unsigned long long>), "18446744073709551615");
    EXPECT_EQ(WrittenRoot(0), "0");
    EXPECT_EQ(WrittenRoot(true), "true");
    EXPECT_EQ(WrittenRoot(false), "false");
    EXPECT_EQ(WrittenRoot(std::string("text")), "\"text\"");
    EXPECT_EQ(WrittenRoot(std::string()), "\"\"");
    EXPECT_EQ(WrittenRoot(std::wstring(L"\u20ac")), "\"\xe2\x82\xac\"");
    EXPECT_EQ(WrittenRoot(std::wstring()), "\"\"");
}

TEST(JSONSerializer_ImplTest, WritesANativeLongBeyond32BitsAsItIs) {
    if constexpr (sizeof(long) > 4) {
        EXPECT_EQ(WrittenRoot(Min<long>), std::to_string(Min<long>));
        EXPECT_EQ(WrittenRoot(Max<unsigned long>), std::to_string(Max<unsigned long>));
    }
}

TEST(JSONSerializer_ImplTest, WritesASurrogatePairAndASingleWideCharacterAlike) {
    std::wstring pair;
    pair.push_back(static_cast<wchar_t>(0xD83D));
    pair.push_back(static_cast<wchar_t>(0xDE00));
    EXPECT_EQ(WrittenRoot(pair), "\"\xf0\x9f\x98\x80\"");
    if constexpr (sizeof(wchar_t) > 2) {
        EXPECT_EQ(WrittenRoot(std::wstring(1, static_cast<wchar_t>(0x1F600))), "\"\xf0\x9f\x98\x80\"");
    }
}

TEST(JSONSerializer_ImplTest, WritesALongThroughTheSameKeyAndFlagAsAnyOther) {
    bool absent = false, there = true;
    long signedValue = -1;
    unsigned long unsignedValue = 4294967295UL;
    ObjectOf object([&](MapperIf& mapper) {
        mapper.Field("a", signedValue, &there);
        mapper.Field("b", signedValue, &absent);
        mapper.Field("c", unsignedValue, &there);
        mapper.Field("d", unsignedValue, &absent);
    });
    EXPECT_EQ(SerializeObject(object, nullptr), R"({
    "a": -1,
    "b": null,
    "c": 4294967295,
    "d": null
})");
}

/// Notes the wide numbers that pass through it.
class WideNumbers : public Impl::JSONSerializer_Impl {
public:
    using Impl::JSONSerializer_Impl::Field;
    void Field(const char* name, long long& value, bool* present) override {
        EXPECT_EQ(value, -7);
        seen.emplace_back(name, present);
    }
    void Field(const char* name, unsigned long long& value, bool* present) override {
        EXPECT_EQ(value, 7u);
        seen.emplace_back(name, present);
    }

    std::vector<std::pair<const char*, bool*>> seen;
};

TEST(JSONSerializer_ImplTest, HandsALongToWhateverWritesWideNumbers) {
    WideNumbers serializer;
    const char name[] = "n";
    bool present = true;
    long value = -7;
    unsigned long unsignedValue = 7;
    serializer.Field(name, value, &present);
    serializer.Field(nullptr, unsignedValue, nullptr);
    EXPECT_THAT(serializer.seen,
                testing::ElementsAre(testing::Pair(name, &present), testing::Pair(nullptr, nullptr)));
}

TEST(JSONSerializer_ImplTest, WritesDoublesInShortestRoundTripForm) {
    const std::pair<double, const char*> cases[] = {{0.0, "0.0"},
                                                    {-0.0, "-0.0"},
                                                    {5.0, "5.0"},
                                                    {-5.0, "-5.0"},
                                                    {0.1, "0.1"},
                                                    {2.5, "2.5"},
                                                    {1.0 / 3, "0.3333333333333333"},
                                                    {1e20, "100000000000000000000.0"},
                                                    {123456789012345680000.0, "123456789012345680000.0"},
                                                    {1e21, "1e21"},
                                                    {1e30, "1e30"},
                                                    {-1e30, "-1e30"},
                                                    {1e-6, "0.000001"},
                                                    {1e-7, "1e-7"},
                                                    {5e-324, "5e-324"},
                                                    {Max<double>, "1.7976931348623157e308"}};
    for (const auto& [value, text] : cases)
        EXPECT_EQ(WrittenRoot(value), text);
}

TEST(JSONSerializer_ImplTest, WritesNoValueForANotANumberOrAnInfinityButItsPrefix) {
    const double cases[] = {std::nan(""), Max<double> * 2, -Max<double> * 2};
    for (double value : cases) {
        int next = 1;
        ObjectOf object([&](MapperIf& mapper) {
            mapper.Field("k", value, nullptr);
            mapper.Field("n", next, nullptr);
        });
        EXPECT_EQ(SerializeObject(object, nullptr), "{\n    \"k\": ,\n    \"n\": 1\n}");
        std::list<double> list{1.0, value};
        EXPECT_EQ(Written([&](MapperIf& mapper) {
                      ListArray array(list);
                      mapper.Field(nullptr, array, nullptr);
                  }),
                  "[\n    1.0,\n    \n]");
        EXPECT_EQ(WrittenRoot(value), "");
    }
}

TEST(JSONSerializer_ImplTest, EscapesExactlyTheBytesOfTheTable) {
    for (int byte = 0; byte < 256; ++byte) {
        std::string expected(1, static_cast<char>(byte));
        char code[8];
        std::snprintf(code, sizeof code, "\\u00%02X", byte);
        if (byte < 0x20) expected = code;
        if (byte == 0x08) expected = "\\b";
        if (byte == 0x09) expected = "\\t";
        if (byte == 0x0A) expected = "\\n";
        if (byte == 0x0C) expected = "\\f";
        if (byte == 0x0D) expected = "\\r";
        if (byte == 0x22) expected = "\\\"";
        if (byte == 0x5C) expected = "\\\\";
        const std::string value = std::string("<") + static_cast<char>(byte) + ">";
        EXPECT_EQ(WrittenRoot(value), "\"<" + expected + ">\"") << "byte " << byte;
    }
}

TEST(JSONSerializer_ImplTest, WritesLongStringsWhole) {
    std::string value, expected = "\"";
    for (int i = 0; i < 100'000; ++i) {
        value.append("\x01/\x7f");
        expected.append("\\u0001/\x7f");
    }
    EXPECT_EQ(WrittenRoot(value), expected + "\"");
}

TEST(JSONSerializer_ImplTest, AWideStringIsLeftInNoMemoryThatIsFreed) {
    const std::string secret = "as long a secret as a string must be to lie in a block";
    std::wstring value(secret.begin(), secret.end());
    const FreedMemory freed(secret);
    const auto serializer = CreateJSONSerializer();
    serializer->Begin();
    serializer->Field(nullptr, value, nullptr);
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST(JSONSerializer_ImplTest, EscapesKeysAndEndsThemAtTheirNul) {
    int value = 1;
    ObjectOf object([&](MapperIf& mapper) { mapper.Field("a\"\tb\0c", value, nullptr); });
    EXPECT_EQ(SerializeObject(object, nullptr), "{\n    \"a\\\"\\tb\": 1\n}");
}

TEST(JSONSerializer_ImplTest, AnEmptyKeyIsAKey) {
    int value = 1;
    ObjectOf object([&](MapperIf& mapper) { mapper.Field("", value, nullptr); });
    EXPECT_EQ(SerializeObject(object, nullptr), "{\n    \"\": 1\n}");
}

TEST(JSONSerializer_ImplTest, WritesStringsOfBothKindsBeyondTheirNul) {
    EXPECT_EQ(WrittenRoot(std::string("a\0b", 3)), "\"a\\u0000b\"");
    EXPECT_EQ(WrittenRoot(std::wstring(L"a\0b", 3)), "\"a\\u0000b\"");
}

TEST(JSONSerializer_ImplTest, IndentsByFourBlanksALevelAndEndsWithoutALineBreak) {
    std::string text = "x";
    std::list<std::string> full{"1", "2"}, empty;
    ObjectOf nothing([](MapperIf&) {});
    ObjectOf inner([&](MapperIf& mapper) {
        mapper.Field("nothing", nothing, nullptr);
        mapper.Field("text", text, nullptr);
    });
    ObjectOf object([&](MapperIf& mapper) {
        ListArray fullArray(full), emptyArray(empty);
        mapper.Field("inner", inner, nullptr);
        mapper.Field("full", fullArray, nullptr);
        mapper.Field("empty", emptyArray, nullptr);
    });
    EXPECT_EQ(SerializeObject(object, nullptr), R"({
    "inner": {
        "nothing": {},
        "text": "x"
    },
    "full": [
        "1",
        "2"
    ],
    "empty": []
})");
}

/// An object within objects, to a depth, to force the level stack to grow.
class Nested : public ObjectIf {
public:
    explicit Nested(int depth) : depth(depth) {}
    void Map(MapperIf& mapper) override {
        if (depth == 0) return;
        Nested inner(depth - 1);
        mapper.Field("n", inner, nullptr);
    }
    void Reset() override {}

private:
    int depth;
};

TEST(JSONSerializer_ImplTest, IndentsDeepNesting) {
    constexpr int depth = 100;
    std::string expected = "{}";
    for (int level = depth; level-- > 0;)
        expected = "{\n" + std::string(4 * (static_cast<std::size_t>(level) + 1), ' ') +
                   "\"n\": " + expected + "\n" + std::string(4 * static_cast<std::size_t>(level), ' ') + "}";
    Nested object(depth);
    EXPECT_EQ(SerializeObject(object, nullptr), expected);
}

TEST(JSONSerializer_ImplTest, KeepsTheOrderOfTheCallsAndRepeatedKeys) {
    int one = 1, two = 2;
    ObjectOf object([&](MapperIf& mapper) {
        mapper.Field("z", one, nullptr);
        mapper.Field("a", two, nullptr);
        mapper.Field("z", two, nullptr);
    });
    EXPECT_EQ(SerializeObject(object, nullptr), "{\n    \"z\": 1,\n    \"a\": 2,\n    \"z\": 2\n}");
}

/// Fails the test if it is walked.
class Untouchable : public ArrayIf, public ObjectIf {
public:
    bool Next(MapperIf&) override { return Touched(); }
    void Clear() override { Touched(); }
    void Append(MapperIf&) override { Touched(); }
    void Map(MapperIf&) override { Touched(); }
    void Reset() override { Touched(); }

private:
    static bool Touched() {
        ADD_FAILURE() << "touched";
        return false;
    }
};

TEST(JSONSerializer_ImplTest, WritesNullUnderTheKeyForEveryAbsentOverload) {
    std::wstring wide = L"x";
    std::string text = "x";
    double real = 1;
    unsigned long long ull = 1;
    long long ll = 1;
    unsigned long ul = 1;
    long l = 1;
    unsigned int ui = 1;
    int i = 1;
    unsigned short us = 1;
    short s = 1;
    bool b = true;
    Untouchable untouchable;
    bool absent = false;
    ObjectOf object([&](MapperIf& mapper) {
        mapper.Field("wstring", wide, &absent);
        mapper.Field("string", text, &absent);
        mapper.Field("double", real, &absent);
        mapper.Field("ull", ull, &absent);
        mapper.Field("ll", ll, &absent);
        mapper.Field("ul", ul, &absent);
        mapper.Field("l", l, &absent);
        mapper.Field("ui", ui, &absent);
        mapper.Field("i", i, &absent);
        mapper.Field("us", us, &absent);
        mapper.Field("s", s, &absent);
        mapper.Field("b", b, &absent);
        mapper.Field("array", static_cast<ArrayIf&>(untouchable), &absent);
        mapper.Field("object", static_cast<ObjectIf&>(untouchable), &absent);
    });
    std::string expected = "{";
    for (const char* key : {"wstring", "string", "double", "ull", "ll", "ul", "l", "ui", "i", "us", "s", "b",
                            "array", "object"})
        expected += std::string(expected.size() == 1 ? "" : ",") + "\n    \"" + key + "\": null";
    EXPECT_EQ(SerializeObject(object, nullptr), expected + "\n}");
    EXPECT_FALSE(absent);
}

TEST(JSONSerializer_ImplTest, WritesThePresentAsTheRequired) {
    bool present = true;
    std::string text = "x";
    std::list<std::string> list{"y"};
    int number = 7;
    ObjectOf inner([](MapperIf&) {});
    ObjectOf object([&](MapperIf& mapper) {
        ListArray array(list);
        mapper.Field("text", text, &present);
        mapper.Field("number", number, &present);
        mapper.Field("array", array, &present);
        mapper.Field("object", inner, &present);
    });
    EXPECT_EQ(SerializeObject(object, &present), R"({
    "text": "x",
    "number": 7,
    "array": [
        "y"
    ],
    "object": {}
})");
    EXPECT_TRUE(present);
}

TEST(JSONSerializer_ImplTest, DoesNotDetectASecondRoot) {
    int one = 1, two = 2;
    EXPECT_EQ(Written([&](MapperIf& mapper) {
                  mapper.Field(nullptr, one, nullptr);
                  mapper.Field(nullptr, two, nullptr);
              }),
              "12");
}

TEST(JSONSerializer_ImplTest, DoesNotDetectAMemberWithoutAKey) {
    int one = 1, two = 2;
    ObjectOf object([&](MapperIf& mapper) {
        mapper.Field(nullptr, one, nullptr);
        mapper.Field(nullptr, two, nullptr);
    });
    EXPECT_EQ(SerializeObject(object, nullptr), "{\n    1: 2\n}");
}

TEST(JSONSerializer_ImplTest, WithoutAnyFieldGivesAnEmptyText) {
    EXPECT_EQ(Written([](MapperIf&) {}), "");
}

TEST(JSONSerializer_ImplTest, EndLeavesItReadyForTheNextRoot) {
    const auto serializer = CreateJSONSerializer();
    std::string text;
    std::list<std::string> list;
    serializer->Begin();
    ListArray array(list);
    serializer->Field(nullptr, array, nullptr);
    serializer->End(text);
    EXPECT_EQ(text, "[]");
    serializer->End(text);
    EXPECT_EQ(text, "");
    int value = 5;
    serializer->Field(nullptr, value, nullptr);
    serializer->End(text);
    EXPECT_EQ(text, "5");
}

TEST(JSONSerializer_ImplTest, BeginForgetsAHalfWrittenText) {
    const auto serializer = CreateJSONSerializer();
    serializer->Begin();
    ObjectOf broken([](MapperIf& mapper) {
        int value = 1;
        mapper.Field("a", value, nullptr);
        throw std::runtime_error("half way");
    });
    EXPECT_THROW(serializer->Field(nullptr, broken, nullptr), std::runtime_error);
    serializer->Begin();
    int value = 5;
    serializer->Field(nullptr, value, nullptr);
    std::string text;
    serializer->End(text);
    EXPECT_EQ(text, "5");
}

}  // namespace
}  // namespace Ombry::Tests
