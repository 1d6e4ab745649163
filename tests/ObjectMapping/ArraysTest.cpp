#include "ObjectMapping/ListArray.h"
#include "ObjectMapping/MapArray.h"
#include "ObjectMapping/PairArray.h"
#include "ObjectMapping/VectorArray.h"
#include "tests/ObjectMapping/MappingSupport.h"

#include <functional>
#include <limits>
#include <list>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;
using RoleSets = std::map<std::string, std::list<std::string>>;

/// Notes which overload each call reached and with which name and flag. `onString` may stand in for a reader.
class NotingMapper : public MapperIf {
public:
    void Field(const char* name, std::wstring&, bool* present) override { Note("wstring", name, present); }
    void Field(const char* name, std::string& value, bool* present) override {
        Note("string " + value, name, present);
        if (onString) onString(value, present);
    }
    void Field(const char* name, double&, bool* present) override { Note("double", name, present); }
    void Field(const char* name, unsigned long long&, bool* present) override {
        Note("unsigned long long", name, present);
    }
    void Field(const char* name, long long&, bool* present) override { Note("long long", name, present); }
    void Field(const char* name, unsigned long&, bool* present) override {
        Note("unsigned long", name, present);
    }
    void Field(const char* name, long&, bool* present) override { Note("long", name, present); }
    void Field(const char* name, unsigned int&, bool* present) override {
        Note("unsigned int", name, present);
    }
    void Field(const char* name, int& value, bool* present) override {
        Note("int " + std::to_string(value), name, present);
    }
    void Field(const char* name, unsigned short&, bool* present) override {
        Note("unsigned short", name, present);
    }
    void Field(const char* name, short&, bool* present) override { Note("short", name, present); }
    void Field(const char* name, bool&, bool* present) override { Note("bool", name, present); }
    void Field(const char* name, ArrayIf&, bool* present) override { Note("array", name, present); }
    void Field(const char* name, ObjectIf&, bool* present) override { Note("object", name, present); }

    std::vector<std::string> calls;
    std::function<void(std::string&, bool*)> onString;

private:
    void Note(const std::string& type, const char* name, const bool* present) {
        calls.push_back(type + (name ? " named" : "") + (present ? (*present ? " present" : " absent") : ""));
    }
};

class Datacenter : public ObjectIf {
public:
    void Map(MapperIf& mapper) override { mapper.Field("id", id, nullptr); }
    void Reset() override { id = Datacenter().id; }

    std::string id;
};

/// A container whose reading can be told from its content alone.
template <class Array, class Container>
void ReadInto(Container& container, const std::string& text) {
    Array array(container);
    ReadText(text, [&](MapperIf& mapper) { mapper.Field(nullptr, array, nullptr); });
}

TEST(ListArrayTest, NextHandsOverEachElementNamelessAndRequiredThenReturnsFalse) {
    std::list<std::string> list{"a", "b"};
    ListArray array(list);
    NotingMapper mapper;
    EXPECT_TRUE(array.Next(mapper));
    EXPECT_TRUE(array.Next(mapper));
    EXPECT_FALSE(array.Next(mapper));
    EXPECT_FALSE(array.Next(mapper));
    EXPECT_EQ(mapper.calls, (std::vector<std::string>{"string a", "string b"}));
}

TEST(ListArrayTest, NextHandsOverOptionalElementsAsRequiredToo) {
    std::list<std::string> list{"a"};
    ListArray array(list, true);
    NotingMapper mapper;
    EXPECT_TRUE(array.Next(mapper));
    EXPECT_EQ(mapper.calls, (std::vector<std::string>{"string a"}));
}

TEST(ListArrayTest, NextHandsOverTheElementItselfAndNotACopy) {
    std::list<std::string> list{"a"};
    ListArray array(list);
    NotingMapper mapper;
    mapper.onString = [](std::string& value, bool*) { value = "changed"; };
    array.Next(mapper);
    EXPECT_EQ(list, std::list<std::string>{"changed"});
}

TEST(ListArrayTest, NextOfAnEmptyListReturnsFalseWithoutACall) {
    std::list<std::string> list;
    ListArray array(list);
    NotingMapper mapper;
    EXPECT_FALSE(array.Next(mapper));
    EXPECT_TRUE(mapper.calls.empty());
}

TEST(ListArrayTest, AppendHandsOverADefaultElementAsRequiredAndPushesItAtTheBack) {
    std::list<std::string> list{"first"};
    ListArray array(list);
    NotingMapper mapper;
    mapper.onString = [](std::string& value, bool*) { value = "read"; };
    array.Append(mapper);
    EXPECT_EQ(mapper.calls, (std::vector<std::string>{"string "}));
    EXPECT_EQ(list, (std::list<std::string>{"first", "read"}));
}

TEST(ListArrayTest, AppendOfARequiredElementPushesNothingIfTheMapperThrows) {
    std::list<std::string> list{"first"};
    ListArray array(list);
    NotingMapper mapper;
    mapper.onString = [](std::string&, bool*) { throw std::runtime_error("no"); };
    EXPECT_THROW(array.Append(mapper), std::runtime_error);
    EXPECT_EQ(list, std::list<std::string>{"first"});
}

TEST(ListArrayTest, AppendOfAnOptionalElementStartsWithAClearFlagAndPushesOnlyIfItIsSet) {
    std::list<std::string> list;
    ListArray array(list, true);
    NotingMapper mapper;
    mapper.onString = [](std::string& value, bool*) { value = "dropped"; };
    array.Append(mapper);
    EXPECT_TRUE(list.empty());
    mapper.onString = [](std::string& value, bool* present) {
        value = "kept";
        *present = true;
    };
    array.Append(mapper);
    EXPECT_EQ(list, std::list<std::string>{"kept"});
    EXPECT_EQ(mapper.calls, (std::vector<std::string>{"string  absent", "string  absent"}));
}

TEST(ListArrayTest, ReadingDropsNullsAmongOptionalElementsWithoutAHole) {
    std::list<std::string> list;
    ListArray array(list, true);
    ReadText(R"([null, "a", null, null, "b", null])",
             [&](MapperIf& mapper) { mapper.Field(nullptr, array, nullptr); });
    EXPECT_EQ(list, (std::list<std::string>{"a", "b"}));
}

TEST(ListArrayTest, ReadingDropsAnOptionalIntegerThatIsWrittenAsADouble) {
    // The road from a double leaves the flag as it was, which is clear.
    std::list<int> list;
    ListArray array(list, true);
    ReadText("[1, 2.0, 3]", [&](MapperIf& mapper) { mapper.Field(nullptr, array, nullptr); });
    EXPECT_EQ(list, (std::list<int>{1, 3}));
}

TEST(ListArrayTest, ReadingANullAmongRequiredElementsFails) {
    std::list<std::string> list;
    const std::string message = FailureOf([&] { ReadInto<ListArray<std::string>>(list, R"(["a", null])"); });
    EXPECT_EQ(message, R"(ERROR: Expected type 'string' when processing '[1]' serialization_='["a", null]')");
    EXPECT_EQ(list, std::list<std::string>{"a"});
}

TEST(ListArrayTest, ReadingDropsTheOldContentFirst) {
    std::list<std::string> list{"old", "older"};
    ReadInto<ListArray<std::string>>(list, R"(["new"])");
    EXPECT_EQ(list, std::list<std::string>{"new"});
    ReadInto<ListArray<std::string>>(list, "[]");
    EXPECT_TRUE(list.empty());
}

TEST(ListArrayTest, EmptyWritesAsBrackets) {
    std::list<std::string> list;
    EXPECT_EQ(Written([&](MapperIf& mapper) {
                  ListArray array(list);
                  mapper.Field(nullptr, array, nullptr);
              }),
              "[]");
}

TEST(ListArrayTest, ObjectsGoToTheObjectOverload) {
    std::list<Datacenter> list(1);
    ListArray array(list);
    NotingMapper mapper;
    array.Next(mapper);
    array.Append(mapper);
    EXPECT_EQ(mapper.calls, (std::vector<std::string>{"object", "object"}));
    EXPECT_EQ(list.size(), 2u);
}

TEST(VectorArrayTest, WritesItsElementsInOrder) {
    std::vector<int> vector{3, 1, 2};
    VectorArray array(vector);
    NotingMapper mapper;
    while (array.Next(mapper)) {
    }
    EXPECT_EQ(mapper.calls, (std::vector<std::string>{"int 3", "int 1", "int 2"}));
}

TEST(VectorArrayTest, ReadsManyObjectsInOrderAndDropsTheOldContentFirst) {
    std::string text = "[";
    for (int i = 0; i < 1000; ++i)
        text += (i ? "," : "") + std::string(R"({"id":"dc)") + std::to_string(i) + "\"}";
    std::vector<Datacenter> vector(3);
    vector[0].id = "old";
    ReadInto<VectorArray<Datacenter>>(vector, text + "]");
    ASSERT_EQ(vector.size(), 1000u);
    EXPECT_EQ(vector.front().id, "dc0");
    EXPECT_EQ(vector.back().id, "dc999");
}

TEST(VectorArrayTest, DropsNullsAmongOptionalElements) {
    std::vector<std::string> vector;
    VectorArray array(vector, true);
    ReadText(R"(["a", null, "b"])", [&](MapperIf& mapper) { mapper.Field(nullptr, array, nullptr); });
    EXPECT_EQ(vector, (std::vector<std::string>{"a", "b"}));
}

TEST(VectorArrayTest, EmptyWritesAsBrackets) {
    std::vector<Datacenter> vector;
    EXPECT_EQ(Written([&](MapperIf& mapper) {
                  VectorArray array(vector);
                  mapper.Field(nullptr, array, nullptr);
              }),
              "[]");
}

TEST(PairArrayTest, NextHandsOverTheStringThenTheListAsAnArrayThenReturnsFalse) {
    std::pair<std::string, std::list<std::string>> pair{"key", {"value"}};
    PairArray array(pair);
    NotingMapper mapper;
    EXPECT_TRUE(array.Next(mapper));
    EXPECT_TRUE(array.Next(mapper));
    EXPECT_FALSE(array.Next(mapper));
    EXPECT_FALSE(array.Next(mapper));
    EXPECT_EQ(mapper.calls, (std::vector<std::string>{"string key", "array"}));
}

TEST(PairArrayTest, AThirdElementThrowsARangeErrorOfExactlyThatClass) {
    std::pair<std::string, std::string> pair;
    PairArray array(pair);
    NotingMapper mapper;
    array.Append(mapper);
    array.Append(mapper);
    try {
        array.Append(mapper);
        FAIL() << "a third element was taken";
    } catch (const std::range_error& error) {
        EXPECT_EQ(typeid(error), typeid(std::range_error));
        EXPECT_STREQ(error.what(), "Attempted to insert more than two elements into a pair.");
    }
    EXPECT_EQ(mapper.calls.size(), 2u);
}

TEST(PairArrayTest, ClearStartsOverAndLeavesThePairAsItIs) {
    std::pair<std::string, std::list<std::string>> pair{"key", {"value"}};
    PairArray array(pair);
    NotingMapper mapper;
    while (array.Next(mapper)) {
    }
    array.Clear();
    EXPECT_EQ(pair.first, "key");
    EXPECT_EQ(pair.second, std::list<std::string>{"value"});
    EXPECT_TRUE(array.Next(mapper));
    EXPECT_EQ(mapper.calls.back(), "string key");
}

TEST(PairArrayTest, ReadingOneElementLeavesTheSecondMemberAsItWas) {
    std::pair<std::string, std::list<std::string>> pair{"old", {"kept"}};
    ReadInto<PairArray<std::string, std::list<std::string>>>(pair, R"(["new"])");
    EXPECT_EQ(pair.first, "new");
    EXPECT_EQ(pair.second, std::list<std::string>{"kept"});
}

TEST(PairArrayTest, ReadingNoElementChangesNothing) {
    std::pair<std::string, std::list<std::string>> pair{"old", {"kept"}};
    ReadInto<PairArray<std::string, std::list<std::string>>>(pair, "[]");
    EXPECT_EQ(pair.first, "old");
    EXPECT_EQ(pair.second, std::list<std::string>{"kept"});
}

TEST(PairArrayTest, ReadingThreeElementsFails) {
    std::pair<std::string, std::list<std::string>> pair;
    try {
        ReadInto<PairArray<std::string, std::list<std::string>>>(pair, R"(["key", ["value"], "more"])");
        FAIL() << "a third element was taken";
    } catch (const std::range_error& error) {
        EXPECT_STREQ(error.what(), "Attempted to insert more than two elements into a pair.");
    }
}

TEST(MapArrayTest, NextHandsOverEachEntryAsANamelessArrayInKeyOrder) {
    RoleSets map{{"b", {"2"}}, {"a", {}}};
    MapArray array(map);
    NotingMapper mapper;
    EXPECT_TRUE(array.Next(mapper));
    EXPECT_TRUE(array.Next(mapper));
    EXPECT_FALSE(array.Next(mapper));
    EXPECT_EQ(mapper.calls, (std::vector<std::string>{"array", "array"}));
}

TEST(MapArrayTest, WritesAnArrayOfPairsKeyFirstAndNeverAnObject) {
    RoleSets map{{"serviceName2", {"role1"}}, {"serviceName1", {"role1", "role2"}}, {"none", {}}};
    EXPECT_EQ(Written([&](MapperIf& mapper) {
                  MapArray array(map);
                  mapper.Field(nullptr, array, nullptr);
              }),
              R"([
    [
        "none",
        []
    ],
    [
        "serviceName1",
        [
            "role1",
            "role2"
        ]
    ],
    [
        "serviceName2",
        [
            "role1"
        ]
    ]
])");
}

TEST(MapArrayTest, WritesInTheOrderOfTheMapsComparison) {
    std::map<std::string, std::string, std::greater<>> map{{"a", "1"}, {"b", "2"}};
    EXPECT_EQ(Written([&](MapperIf& mapper) {
                  MapArray array(map);
                  mapper.Field(nullptr, array, nullptr);
              }),
              R"([
    [
        "b",
        "2"
    ],
    [
        "a",
        "1"
    ]
])");
}

TEST(MapArrayTest, NextHandsOverACopySoThatAMapperCannotChangeAKey) {
    RoleSets map{{"a", {}}};
    MapArray array(map);

    class Renaming : public NotingMapper {
    public:
        using NotingMapper::Field;
        void Field(const char*, ArrayIf& value, bool*) override { value.Next(*this); }
    } mapper;
    mapper.onString = [](std::string& value, bool*) { value = "changed"; };
    array.Next(mapper);
    EXPECT_EQ(map, (RoleSets{{"a", {}}}));
}

TEST(MapArrayTest, EmptyWritesAsBrackets) {
    RoleSets map;
    EXPECT_EQ(Written([&](MapperIf& mapper) {
                  MapArray array(map);
                  mapper.Field(nullptr, array, nullptr);
              }),
              "[]");
}

TEST(MapArrayTest, ReadsTheFormOfTheRoleSetOption) {
    RoleSets map;
    ReadInto<MapArray<std::string, std::list<std::string>>>(
        map, R"([["serviceName1",["role1","role2"]],["serviceName2",["role1"]]])");
    EXPECT_EQ(map, (RoleSets{{"serviceName1", {"role1", "role2"}}, {"serviceName2", {"role1"}}}));
}

TEST(MapArrayTest, ReadingKeepsTheValueFirstReadForARepeatedKey) {
    RoleSets map;
    ReadInto<MapArray<std::string, std::list<std::string>>>(map, R"([["a",["1"]],["b",[]],["a",["2"]]])");
    EXPECT_EQ(map, (RoleSets{{"a", {"1"}}, {"b", {}}}));
}

TEST(MapArrayTest, ReadingDropsTheOldContentFirst) {
    RoleSets map{{"a", {"old"}}, {"z", {"old"}}};
    ReadInto<MapArray<std::string, std::list<std::string>>>(map, R"([["a",["new"]]])");
    EXPECT_EQ(map, (RoleSets{{"a", {"new"}}}));
}

TEST(MapArrayTest, ReadingAPairOfOneElementLeavesTheValueEmpty) {
    RoleSets map;
    ReadInto<MapArray<std::string, std::list<std::string>>>(map, R"([["a"], ["b", ["1"]]])");
    EXPECT_EQ(map, (RoleSets{{"a", {}}, {"b", {"1"}}}));
}

TEST(MapArrayTest, ReadingAPairOfThreeElementsThrowsARangeError) {
    RoleSets map;
    EXPECT_THROW((ReadInto<MapArray<std::string, std::list<std::string>>>(map, R"([["a", ["1"], ["2"]]])")),
                 std::range_error);
    EXPECT_TRUE(map.empty());
}

TEST(MapArrayTest, ReadingANullInTheListOfAPairFails) {
    RoleSets map;
    EXPECT_EQ(FailureOf([&] {
                  ReadInto<MapArray<std::string, std::list<std::string>>>(map, R"([["a",["1",null]]])");
              }),
              R"(ERROR: Expected type 'string' when processing '[0][1][1]' )"
              R"(serialization_='[["a",["1",null]]]')");
    EXPECT_TRUE(map.empty());
}

TEST(MapArrayTest, ReadingAnObjectFails) {
    RoleSets map;
    EXPECT_EQ(
        FailureOf([&] { ReadInto<MapArray<std::string, std::list<std::string>>>(map, R"({"a":["1"]})"); }),
        R"(ERROR: Expected type 'array' when processing '.' serialization_='{"a":["1"]}')");
}

TEST(MapArrayTest, ReadingAnElementThatIsNoPairNamesItsIndex) {
    RoleSets map;
    EXPECT_EQ(FailureOf([&] {
                  ReadInto<MapArray<std::string, std::list<std::string>>>(map, R"([["a",[]],"b:c"])");
              }),
              R"(ERROR: Expected type 'array' when processing '[1]' serialization_='[["a",[]],"b:c"]')");
}

TEST(ArraysTest, AreDerivedFromArrayIfAndNotFromEachOther) {
    EXPECT_TRUE((std::is_base_of_v<ArrayIf, ListArray<std::string>>));
    EXPECT_TRUE((std::is_base_of_v<ArrayIf, VectorArray<Datacenter>>));
    EXPECT_TRUE((std::is_base_of_v<ArrayIf, MapArray<std::string, std::list<std::string>>>));
    EXPECT_TRUE((std::is_base_of_v<ArrayIf, PairArray<std::string, std::list<std::string>>>));
}

}  // namespace
}  // namespace Ombry::Tests
