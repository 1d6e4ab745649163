#include "tests/ObjectMapping/MappingSupport.h"

#include <memory>
#include <stdexcept>
#include <string>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

TEST(JSONDeserializerLifeCycleTest, WithoutARootAFieldFailsOrIsAbsentButDoesNoHarm) {
    int value = 7;
    bool present = true;
    const auto unused = CreateJSONDeserializer(true);
    EXPECT_EQ(FailureOf([&] { unused->Field(nullptr, value, nullptr); }),
              "ERROR: Expected type 'int' when processing '.' serialization_=''");
    EXPECT_EQ(FailureOf([&] { unused->Field("x", value, nullptr); }),
              "ERROR: Missing required field '.x' serialization_=''");
    unused->Field("x", value, &present);
    EXPECT_FALSE(present);

    const auto used = CreateJSONDeserializer(true);
    used->Begin("1");
    used->Field(nullptr, value, nullptr);
    EXPECT_EQ(value, 1);
    present = true;
    used->Field(nullptr, value, &present);
    EXPECT_FALSE(present);
    EXPECT_EQ(value, 0);
    used->End();
    used->End();
}

TEST(JSONDeserializerLifeCycleTest, BeginStartsOver) {
    const auto deserializer = CreateJSONDeserializer(true);
    int value = 0;
    deserializer->Begin("1");
    deserializer->Begin("2");
    deserializer->Field(nullptr, value, nullptr);
    EXPECT_EQ(value, 2);
    deserializer->End();
}

/// A deserializer that was left in the middle of the member "left".
std::shared_ptr<Deserializer> LeftHalfWay() {
    const auto deserializer = CreateJSONDeserializer(true);
    ObjectOf broken([](MapperIf&) { throw std::logic_error("half way"); });
    deserializer->Begin(R"({"left":{}})");
    EXPECT_THROW(deserializer->Field("left", broken, nullptr), std::logic_error);
    return deserializer;
}

TEST(JSONDeserializerLifeCycleTest, BeginForgetsTheContextsThatAThrowLeftBehind) {
    const auto deserializer = LeftHalfWay();
    int value = 0;
    deserializer->Begin("{}");
    EXPECT_EQ(FailureOf([&] { deserializer->Field("x", value, nullptr); }),
              "ERROR: Missing required field '.x' serialization_='{}'");
}

TEST(JSONDeserializerLifeCycleTest, EndPopsEveryContext) {
    const auto deserializer = LeftHalfWay();
    int value = 0;
    deserializer->End();
    EXPECT_EQ(FailureOf([&] { deserializer->Field(nullptr, value, nullptr); }),
              R"(ERROR: Expected type 'int' when processing '.' serialization_='{"left":{}}')");
}

TEST(JSONDeserializerLifeCycleTest, EndDropsTheRootButKeepsTheTextForMessages) {
    const auto deserializer = CreateJSONDeserializer(true);
    int value = 0;
    deserializer->Begin(R"({"x":1})");
    deserializer->End();
    EXPECT_EQ(FailureOf([&] { deserializer->Field("x", value, nullptr); }),
              R"(ERROR: Missing required field '.x' serialization_='{"x":1}')");
}

TEST(JSONDeserializerLifeCycleTest, BuildingThePathConsumesTheStack) {
    const auto deserializer = CreateJSONDeserializer(true);
    int value = 0;
    deserializer->Begin(R"({"x":1})");
    EXPECT_THROW(deserializer->Field("y", value, nullptr), std::runtime_error);
    EXPECT_EQ(FailureOf([&] { deserializer->Field("x", value, nullptr); }),
              R"(ERROR: Missing required field '.x' serialization_='{"x":1}')");
}

TEST(JSONDeserializerLifeCycleTest, CopiesTheTextItIsHanded) {
    const auto deserializer = CreateJSONDeserializer(true);
    std::string text = R"({"x":"value"})", value;
    deserializer->Begin(text);
    text.assign(text.size(), '#');
    deserializer->Field("x", value, nullptr);
    EXPECT_EQ(value, "value");
    EXPECT_EQ(FailureOf([&] { deserializer->Field("y", value, nullptr); }),
              R"(ERROR: Missing required field '.y' serialization_='{"x":"value"}')");
}

}  // namespace
}  // namespace Ombry::Tests
