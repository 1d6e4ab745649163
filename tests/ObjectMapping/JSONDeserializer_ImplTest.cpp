#include "ObjectMapping/ListArray.h"
#include "ObjectMapping/VectorArray.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/ObjectMapping/MappingSupport.h"

#include <list>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

/// All fourteen overloads as one object; each flag is null, or points to `present`.
class Everything : public ObjectIf {
public:
    void Map(MapperIf& mapper) override {
        VectorArray items(array);
        ObjectOf object([&](MapperIf& inner) { inner.Field("text", innerText, nullptr); });
        mapper.Field("wstring", wide, Flag(0));
        mapper.Field("string", text, Flag(1));
        mapper.Field("double", real, Flag(2));
        mapper.Field("unsigned long long", ull, Flag(3));
        mapper.Field("long long", ll, Flag(4));
        mapper.Field("unsigned long", ul, Flag(5));
        mapper.Field("long", l, Flag(6));
        mapper.Field("unsigned int", ui, Flag(7));
        mapper.Field("int", i, Flag(8));
        mapper.Field("unsigned short", us, Flag(9));
        mapper.Field("short", s, Flag(10));
        mapper.Field("bool", b, Flag(11));
        mapper.Field("array", items, Flag(12));
        mapper.Field("object", object, Flag(13));
        innerResets += object.resets;
    }
    void Reset() override { ++resets; }

    std::wstring wide = L"before";
    std::string text = "before";
    double real = 9.5;
    unsigned long long ull = 9;
    long long ll = 9;
    unsigned long ul = 9;
    long l = 9;
    unsigned int ui = 9;
    int i = 9;
    unsigned short us = 9;
    short s = 9;
    bool b = true;
    std::vector<std::string> array{"before"};
    std::string innerText = "before";
    int innerResets = 0;
    int resets = 0;

    bool optional = false;
    bool present[14] = {};

    void ExpectUntouched() const {
        EXPECT_EQ(wide, L"before");
        EXPECT_EQ(text, "before");
        EXPECT_EQ(real, 9.5);
        EXPECT_EQ(ull, 9u);
        EXPECT_EQ(ll, 9);
        EXPECT_EQ(ul, 9u);
        EXPECT_EQ(l, 9);
        EXPECT_EQ(ui, 9u);
        EXPECT_EQ(i, 9);
        EXPECT_EQ(us, 9u);
        EXPECT_EQ(s, 9);
        EXPECT_TRUE(b);
        EXPECT_EQ(array, std::vector<std::string>{"before"});
        EXPECT_EQ(innerText, "before");
        EXPECT_EQ(innerResets, 0);
    }

    void ExpectEmptied() const {
        EXPECT_EQ(wide, L"");
        EXPECT_EQ(text, "");
        EXPECT_EQ(real, 0.0);
        EXPECT_EQ(ull, 0u);
        EXPECT_EQ(ll, 0);
        EXPECT_EQ(ul, 0u);
        EXPECT_EQ(l, 0);
        EXPECT_EQ(ui, 0u);
        EXPECT_EQ(i, 0);
        EXPECT_EQ(us, 0u);
        EXPECT_EQ(s, 0);
        EXPECT_FALSE(b);
        EXPECT_TRUE(array.empty());
        EXPECT_EQ(innerText, "before");
        EXPECT_EQ(innerResets, 1);
    }

private:
    bool* Flag(int index) { return optional ? &present[index] : nullptr; }
};

const std::vector<std::string> TypeNames = {"wstring",   "string",         "double", "unsigned long long",
                                            "long long", "unsigned long",  "long",   "unsigned int",
                                            "int",       "unsigned short", "short",  "bool",
                                            "array",     "object"};

const char FullText[] = R"({
    "wstring": "wide",
    "string": "narrow",
    "double": 1.5,
    "unsigned long long": 18446744073709551615,
    "long long": -9223372036854775808,
    "unsigned long": 4294967295,
    "long": -2147483648,
    "unsigned int": 4294967294,
    "int": -2147483647,
    "unsigned short": 65535,
    "short": -32768,
    "bool": false,
    "array": [
        "a",
        "b"
    ],
    "object": {
        "text": "inner"
    }
})";

void ExpectFull(const Everything& object) {
    EXPECT_EQ(object.wide, L"wide");
    EXPECT_EQ(object.text, "narrow");
    EXPECT_EQ(object.real, 1.5);
    EXPECT_EQ(object.ull, 18446744073709551615ull);
    EXPECT_EQ(object.ll, -9223372036854775807ll - 1);
    EXPECT_EQ(object.ul, 4294967295ul);
    EXPECT_EQ(object.l, -2147483648l);
    EXPECT_EQ(object.ui, 4294967294u);
    EXPECT_EQ(object.i, -2147483647);
    EXPECT_EQ(object.us, 65535u);
    EXPECT_EQ(object.s, -32768);
    EXPECT_FALSE(object.b);
    EXPECT_EQ(object.array, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(object.innerText, "inner");
    EXPECT_EQ(object.innerResets, 0);
    EXPECT_EQ(object.resets, 0);
}

TEST(JSONDeserializer_ImplTest, ReadsAllFourteenOverloadsAndTheyWriteBackToTheSameText) {
    Everything object;
    DeserializeObject(object, FullText, nullptr, true);
    ExpectFull(object);
    EXPECT_EQ(SerializeObject(object, nullptr), FullText);
}

TEST(JSONDeserializer_ImplTest, SetsTheFlagOfEachOptionalFieldThatIsThere) {
    Everything object;
    object.optional = true;
    DeserializeObject(object, FullText, nullptr, true);
    ExpectFull(object);
    for (const bool flag : object.present)
        EXPECT_TRUE(flag);
}

TEST(JSONDeserializer_ImplTest, EmptiesEachOptionalFieldThatIsMissingAlsoWhenStrict) {
    for (const bool strict : {false, true}) {
        Everything object;
        object.optional = true;
        std::fill(std::begin(object.present), std::end(object.present), true);
        DeserializeObject(object, "{}", nullptr, strict);
        object.ExpectEmptied();
        for (const bool flag : object.present)
            EXPECT_FALSE(flag);
    }
}

TEST(JSONDeserializer_ImplTest, EmptiesEachOptionalFieldThatIsNull) {
    std::string text = "{";
    for (const std::string& type : TypeNames)
        text += (text.size() == 1 ? "\"" : ",\"") + type + "\":null";
    for (const bool strict : {false, true}) {
        Everything object;
        object.optional = true;
        std::fill(std::begin(object.present), std::end(object.present), true);
        DeserializeObject(object, text + "}", nullptr, strict);
        object.ExpectEmptied();
        for (const bool flag : object.present)
            EXPECT_FALSE(flag);
    }
}

TEST(JSONDeserializer_ImplTest, ReadsTheFieldsBehindANullFromTheSameObject) {
    int absent = 1, behind = 0;
    bool present = true;
    ObjectOf object([&](MapperIf& mapper) {
        mapper.Field("null", absent, &present);
        mapper.Field("behind", behind, nullptr);
    });
    DeserializeObject(object, R"({"null":null,"behind":2})", nullptr, true);
    EXPECT_FALSE(present);
    EXPECT_EQ(behind, 2);
    EXPECT_EQ(FailureOf([&] { DeserializeObject(object, R"({"null":null})", nullptr, true); }),
              R"(ERROR: Missing required field '.behind' serialization_='{"null":null}')");
}

TEST(JSONDeserializer_ImplTest, NotStrictLeavesEachMissingRequiredFieldUntouched) {
    Everything object;
    DeserializeObject(object, "{}", nullptr, false);
    object.ExpectUntouched();
}

/// Hands one field of each type to `run`, with the type's name in messages.
template <class Run>
void ForEachType(Run run) {
    const auto scalar = [&](auto value, const char* type) {
        run(type,
            [value](MapperIf& mapper, const char* name) mutable { mapper.Field(name, value, nullptr); });
    };
    scalar(std::wstring(), "wstring");
    scalar(std::string(), "string");
    scalar(0.0, "double");
    scalar(0ull, "unsigned long long");
    scalar(0ll, "long long");
    scalar(0ul, "unsigned long");
    scalar(0l, "long");
    scalar(0u, "unsigned int");
    scalar(0, "int");
    scalar(static_cast<unsigned short>(0), "unsigned short");
    scalar(static_cast<short>(0), "short");
    scalar(false, "bool");
    run("array", [](MapperIf& mapper, const char* name) {
        std::list<std::string> list;
        ListArray array(list);
        mapper.Field(name, array, nullptr);
    });
    run("object", [](MapperIf& mapper, const char* name) {
        ObjectOf object([](MapperIf&) {});
        mapper.Field(name, object, nullptr);
    });
}

TEST(JSONDeserializer_ImplTest, NamesTheTypeOfEachOverloadInAMismatch) {
    std::vector<std::string> types;
    ForEachType([&](const std::string& type, auto field) {
        types.push_back(type);
        // A value that none of the types but one takes, and for that one another.
        const std::string value = type == "bool" ? "[]" : "true";
        EXPECT_EQ(ReadFailure(value, [&](MapperIf& mapper) { field(mapper, nullptr); }),
                  "ERROR: Expected type '" + type + "' when processing '.' serialization_='" + value + "'");
        const std::string text = "{\"f\":" + value + "}";
        EXPECT_EQ(ReadFailure(text,
                              [&](MapperIf& mapper) {
                                  ObjectOf object([&](MapperIf& inner) { field(inner, "f"); });
                                  mapper.Field(nullptr, object, nullptr);
                              }),
                  "ERROR: Expected type '" + type + "' when processing '.f' serialization_='" + text + "'");
    });
    EXPECT_EQ(types, TypeNames);
}

TEST(JSONDeserializer_ImplTest, ANullInARequiredFieldIsAMismatchAlsoWhenNotStrict) {
    for (const Reading reading : {Reading::Strict, Reading::NotStrict}) {
        ForEachType([&](const std::string& type, auto field) {
            EXPECT_EQ(
                ReadFailure(R"({"f":null})",
                            [&](MapperIf& mapper) {
                                ObjectOf object([&](MapperIf& inner) { field(inner, "f"); });
                                mapper.Field(nullptr, object, nullptr);
                            },
                            reading),
                "ERROR: Expected type '" + type + R"(' when processing '.f' serialization_='{"f":null}')");
        });
    }
}

TEST(JSONDeserializer_ImplTest, StrictReportsEachMissingRequiredField) {
    ForEachType([&](const std::string&, auto field) {
        EXPECT_EQ(ReadFailure(R"({"F":1})",
                              [&](MapperIf& mapper) {
                                  ObjectOf object([&](MapperIf& inner) { field(inner, "f"); });
                                  mapper.Field(nullptr, object, nullptr);
                              }),
                  R"(ERROR: Missing required field '.f' serialization_='{"F":1}')");
    });
}

TEST(JSONDeserializer_ImplTest, TheTypeCheckOfEachOverloadRefusesEveryOtherKindOfValue) {
    const std::vector<std::string> values = {"null", "true", "1", "1.5", "\"x\"", "[]", "{}"};
    const auto takes = [](const std::string& type, const std::string& value) {
        if (value == "true") return type == "bool";
        if (value == "1")
            return type.find("int") == 0 || type.find("unsigned") == 0 || type.find("long") == 0 ||
                   type == "short";
        if (value == "1.5") return type == "double";
        if (value == "\"x\"") return type == "string" || type == "wstring";
        if (value == "[]") return type == "array";
        if (value == "{}") return type == "object";
        return false;
    };
    ForEachType([&](const std::string& type, auto field) {
        for (const std::string& value : values) {
            const auto read = [&](MapperIf& mapper) { field(mapper, nullptr); };
            if (takes(type, value))
                EXPECT_NO_THROW(ReadText(value, read)) << type << " from " << value;
            else
                EXPECT_EQ(
                    ReadFailure(value, read),
                    "ERROR: Expected type '" + type + "' when processing '.' serialization_='" + value + "'");
        }
    });
}

TEST(JSONDeserializer_ImplTest, AMismatchLeavesFieldAndFlagAsTheyWere) {
    for (const bool flag : {false, true}) {
        bool present = flag;
        std::string value = "kept";
        EXPECT_THROW(ReadText("1", [&](MapperIf& mapper) { mapper.Field(nullptr, value, &present); }),
                     std::runtime_error);
        EXPECT_EQ(value, "kept");
        EXPECT_EQ(present, flag);
        std::list<std::string> list{"kept"};
        EXPECT_THROW(ReadText("1",
                              [&](MapperIf& mapper) {
                                  ListArray array(list);
                                  mapper.Field(nullptr, array, &present);
                              }),
                     std::runtime_error);
        EXPECT_EQ(list, std::list<std::string>{"kept"});
        EXPECT_EQ(present, flag);
    }
}

// Paths

/// The object `depth` levels of "n" down, which holds one int "x".
class Path : public ObjectIf {
public:
    explicit Path(int depth = 0) : depth(depth) {}
    void Map(MapperIf& mapper) override {
        if (depth == 0) return mapper.Field("x", x, nullptr);
        Path inner(depth - 1);
        mapper.Field("n", inner, nullptr);
    }
    void Reset() override {}

private:
    int depth;
    int x = 0;
};

std::string PathFailure(const std::string& text, int depth) {
    Path path(depth);
    return FailureOf([&] { DeserializeObject(path, text, nullptr, true); });
}

TEST(JSONDeserializer_ImplTest, ThePathNamesEachObjectFromTheRootDown) {
    EXPECT_EQ(PathFailure(R"({"n":{"n":{"x":""}}})", 2),
              R"(ERROR: Expected type 'int' when processing '.n.n.x' serialization_='{"n":{"n":{"x":""}}}')");
    EXPECT_EQ(PathFailure(R"({"n":{"n":{}}})", 2),
              R"(ERROR: Missing required field '.n.n.x' serialization_='{"n":{"n":{}}}')");
    EXPECT_EQ(PathFailure(R"({"n":{}})", 2),
              R"(ERROR: Missing required field '.n.n' serialization_='{"n":{}}')");
}

struct Service : ObjectIf {
    void Map(MapperIf& mapper) override { mapper.Field("id", id, nullptr); }
    void Reset() override { id.clear(); }
    std::string id;
};

std::string ServicesFailure(const std::string& text) {
    std::list<Service> services;
    ObjectOf root([&](MapperIf& mapper) {
        ListArray array(services);
        mapper.Field("services", array, nullptr);
    });
    return FailureOf([&] { DeserializeObject(root, text, nullptr, true); });
}

TEST(JSONDeserializer_ImplTest, AnArrayElementCountsTwiceInThePathAsTheArrayAndAsTheElement) {
    const std::string head = R"({"services":[{"id":"a"},{"id":"b"},)";
    EXPECT_EQ(ServicesFailure(head + R"({"id":3}]})"),
              "ERROR: Expected type 'string' when processing '.services.services[2].id' serialization_='" +
                  head + R"({"id":3}]}')");
    EXPECT_EQ(ServicesFailure(head + "{}]}"),
              "ERROR: Missing required field '.services.services[2].id' serialization_='" + head + "{}]}'");
    EXPECT_EQ(ServicesFailure(head + "7]}"),
              "ERROR: Expected type 'object' when processing '.services.services[2]' serialization_='" +
                  head + "7]}'");
    EXPECT_EQ(ServicesFailure(R"({"services":[0]})"),
              R"(ERROR: Expected type 'object' when processing '.services.services[0]' )"
              R"(serialization_='{"services":[0]}')");
}

TEST(JSONDeserializer_ImplTest, ThePathOfANamelessArrayIsItsIndexAlone) {
    std::vector<int> vector;
    EXPECT_EQ(ReadFailure("[1,2,\"x\"]",
                          [&](MapperIf& mapper) {
                              VectorArray array(vector);
                              mapper.Field(nullptr, array, nullptr);
                          }),
              "ERROR: Expected type 'int' when processing '[2]' serialization_='[1,2,\"x\"]'");
}

TEST(JSONDeserializer_ImplTest, ThePathForgetsWhatWasReadBefore) {
    std::list<Service> services;
    int last = 0;
    ObjectOf root([&](MapperIf& mapper) {
        ListArray array(services);
        mapper.Field("services", array, nullptr);
        mapper.Field("last", last, nullptr);
    });
    const std::string text = R"({"services":[{"id":"a"}],"last":"x"})";
    EXPECT_EQ(FailureOf([&] { DeserializeObject(root, text, nullptr, true); }),
              "ERROR: Expected type 'int' when processing '.last' serialization_='" + text + "'");
}

// Look-up

TEST(JSONDeserializer_ImplTest, TheFirstOfTwoEqualKeysWins) {
    int value = 0;
    ObjectOf root([&](MapperIf& mapper) { mapper.Field("k", value, nullptr); });
    DeserializeObject(root, R"({"k":1,"k":2})", nullptr, true);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(FailureOf([&] { DeserializeObject(root, R"({"k":"","k":2})", nullptr, true); }),
              R"(ERROR: Expected type 'int' when processing '.k' serialization_='{"k":"","k":2}')");
}

TEST(JSONDeserializer_ImplTest, ComparesKeysExactly) {
    for (const char* text : {R"({"Key":1})", R"({"ke":1})", R"({"keys":1})", R"({"key ":1})",
                             R"({"key\u0000":1})", R"({"":1})"}) {
        int value = 7;
        bool present = true;
        ObjectOf root([&](MapperIf& mapper) { mapper.Field("key", value, &present); });
        DeserializeObject(root, text, nullptr, true);
        EXPECT_FALSE(present) << text;
        EXPECT_EQ(value, 0) << text;
    }
    int value = 0;
    ObjectOf root([&](MapperIf& mapper) { mapper.Field("key", value, nullptr); });
    DeserializeObject(root, R"({"\u006bey":1})", nullptr, true);
    EXPECT_EQ(value, 1);
}

TEST(JSONDeserializer_ImplTest, IgnoresUnknownKeysAndTheOrderOfTheText) {
    int a = 0, b = 0;
    ObjectOf root([&](MapperIf& mapper) {
        mapper.Field("a", a, nullptr);
        mapper.Field("b", b, nullptr);
    });
    DeserializeObject(root, R"({"z":[{}],"b":2,"y":null,"a":1})", nullptr, true);
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 2);
}

TEST(JSONDeserializer_ImplTest, ANamedFieldOfARootThatIsNoObjectCountsAsMissing) {
    for (const char* text : {"[1]", "\"x\"", "1", "null", "true"}) {
        int value = 7;
        const auto field = [&](MapperIf& mapper) { mapper.Field("x", value, nullptr); };
        EXPECT_EQ(ReadFailure(text, field),
                  std::string("ERROR: Missing required field '.x' serialization_='") + text + "'");
        EXPECT_NO_THROW(ReadText(text, field, Reading::NotStrict));
        EXPECT_EQ(value, 7);
        bool present = true;
        ReadText(text, [&](MapperIf& mapper) { mapper.Field("x", value, &present); });
        EXPECT_FALSE(present);
        EXPECT_EQ(value, 0);
    }
}

TEST(JSONDeserializer_ImplTest, AnObjectIsNotResetBeforeItIsRead) {
    Everything object;
    DeserializeObject(object, R"({"int":5})", nullptr, false);
    EXPECT_EQ(object.i, 5);
    EXPECT_EQ(object.text, "before");
    EXPECT_EQ(object.resets, 0);
}

TEST(JSONDeserializer_ImplTest, ARootOfEachKindMayBeReadByItself) {
    std::string text;
    bool flag = true;
    ReadText("\"lone\"", [&](MapperIf& mapper) { mapper.Field(nullptr, text, nullptr); });
    EXPECT_EQ(text, "lone");
    ReadText(" null ", [&](MapperIf& mapper) { mapper.Field(nullptr, text, &flag); });
    EXPECT_FALSE(flag);
    EXPECT_EQ(text, "");
}

// Arrays

/// Makes as many nameless calls for each element as it is told.
class OddArray : public ArrayIf {
public:
    explicit OddArray(int calls) : calls(calls) {}
    bool Next(MapperIf&) override { return false; }
    void Clear() override { ++clears; }
    void Append(MapperIf& mapper) override {
        for (int i = 0; i < calls; ++i) {
            int value = 0;
            mapper.Field(nullptr, value, nullptr);
            values.push_back(value);
        }
    }

    int clears = 0;
    std::vector<int> values;

private:
    int calls;
};

TEST(JSONDeserializer_ImplTest, ClearsAnArrayOnceAndAppendsEachElementInOrder) {
    OddArray array(1);
    bool present = false;
    ReadText("[3,1,2]", [&](MapperIf& mapper) { mapper.Field(nullptr, array, &present); });
    EXPECT_TRUE(present);
    EXPECT_EQ(array.clears, 1);
    EXPECT_EQ(array.values, (std::vector<int>{3, 1, 2}));
}

TEST(JSONDeserializer_ImplTest, AnArrayThatPassesItsElementsOverDoesNotDisturbThePath) {
    OddArray array(0);
    int last = 0;
    ObjectOf root([&](MapperIf& mapper) {
        mapper.Field("a", array, nullptr);
        mapper.Field("last", last, nullptr);
    });
    DeserializeObject(root, R"({"a":[1,2,3],"last":4})", nullptr, true);
    EXPECT_EQ(last, 4);
    EXPECT_EQ(
        FailureOf([&] { DeserializeObject(root, R"({"a":[1,2,3],"last":""})", nullptr, true); }),
        R"(ERROR: Expected type 'int' when processing '.last' serialization_='{"a":[1,2,3],"last":""}')");
}

TEST(JSONDeserializer_ImplTest, AnElementThatAnArrayPassesOverIsInNoPathOfALaterOne) {
    class AllButTheFirst : public OddArray {
    public:
        AllButTheFirst() : OddArray(1) {}
        void Append(MapperIf& mapper) override {
            if (!std::exchange(first, false)) OddArray::Append(mapper);
        }

    private:
        bool first = true;
    } array;
    EXPECT_EQ(ReadFailure(R"([1,"x"])", [&](MapperIf& mapper) { mapper.Field(nullptr, array, nullptr); }),
              R"(ERROR: Expected type 'int' when processing '[1]' serialization_='[1,"x"]')");
}

// Strings

TEST(JSONDeserializer_ImplTest, ATextWithALongExponentIsLeftInNoMemoryThatIsFreed) {
    const std::string secret = "as long a secret as a string must be to lie in a block";
    const std::string text = "[\"" + secret + "\",1e-1234567890]";
    const FreedMemory freed(secret);
    const auto deserializer = CreateJSONDeserializer(false);
    deserializer->Begin(text);
    deserializer->End();
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST(JSONDeserializer_ImplTest, DecodesEscapes) {
    std::string value;
    const auto read = [&](const std::string& text) {
        ReadText(text, [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
        return value;
    };
    EXPECT_EQ(read(R"("\b\f\n\r\t\"\\\/\u0041")"), "\b\f\n\r\t\"\\/A");
    EXPECT_EQ(read(R"("\u00e9\u20AC")"), "\xc3\xa9\xe2\x82\xac");
    EXPECT_EQ(read(R"("\ud83d\uDE00")"), "\xf0\x9f\x98\x80");
    EXPECT_EQ(read(R"("a\u0000b")"), std::string("a\0b", 3));
}

TEST(JSONDeserializer_ImplTest, DecodesIntoWideStringsAsUtf16Units) {
    std::wstring value;
    ReadText("\"a\\u0000\xf0\x9f\x98\x80\\ud83d\\ude00\xff\"",
             [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
    const std::wstring pair{static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    EXPECT_EQ(value, std::wstring(L"a\0", 2) + pair + pair + static_cast<wchar_t>(0xFFFD));
    ReadText("\"\"", [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
    EXPECT_EQ(value, L"");
}

TEST(JSONDeserializer_ImplTest, PassesInvalidUtf8AndALoneLowSurrogateOn) {
    std::string value;
    ReadText("\"\xff\xc3(\xed\xa0\x80\"", [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
    EXPECT_EQ(value, "\xff\xc3(\xed\xa0\x80");
    ReadText(R"("\udc00")", [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
    EXPECT_EQ(value, "\xed\xb0\x80");
}

TEST(JSONDeserializer_ImplTest, ReadsBackEveryByteThatTheSerializerWrites) {
    std::string all, copy;
    for (int byte = 0; byte < 256; ++byte)
        all.push_back(static_cast<char>(byte));
    ReadText(WrittenRoot(all), [&](MapperIf& mapper) { mapper.Field(nullptr, copy, nullptr); });
    EXPECT_EQ(copy, all);
}

TEST(JSONDeserializer_ImplTest, ReadsLongStringsAndManyElements) {
    const std::string text(3'000'000, 'x');
    std::string value;
    ReadText('"' + text + '"', [&](MapperIf& mapper) { mapper.Field(nullptr, value, nullptr); });
    EXPECT_EQ(value, text);
}

}  // namespace
}  // namespace Ombry::Tests
