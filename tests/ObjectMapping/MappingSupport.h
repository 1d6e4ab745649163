#pragma once

#include "ObjectMapping/Serialization.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <typeinfo>

namespace Ombry::Tests {

/// The text that a serializer makes of what `map` hands it.
template <class Map>
std::string Written(Map map) {
    const auto serializer = ObjectMapping::CreateJSONSerializer();
    std::string text = "left over";
    serializer->Begin();
    map(*serializer);
    serializer->End(text);
    return text;
}

/// One value, written as the root.
template <class T>
std::string WrittenRoot(T value, bool* present = nullptr) {
    return Written([&](ObjectMapping::MapperIf& mapper) { mapper.Field(nullptr, value, present); });
}

enum class Reading { Strict, NotStrict };

template <class Map>
void ReadText(const std::string& text, Map map, Reading reading = Reading::Strict) {
    const auto deserializer = ObjectMapping::CreateJSONDeserializer(reading == Reading::Strict);
    deserializer->Begin(text);
    map(*deserializer);
    deserializer->End();
}

/// The text of the `std::runtime_error`, of exactly that class, that `run` throws.
template <class Run>
std::string FailureOf(Run run) {
    try {
        run();
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(error).name(), typeid(std::runtime_error).name()) << error.what();
        return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return "nothing was thrown";
}

/// The failure of reading `text` through `map`.
template <class Map>
std::string ReadFailure(const std::string& text, Map map, Reading reading = Reading::Strict) {
    return FailureOf([&] { ReadText(text, map, reading); });
}

/// An object whose `Map` is given by the test; `Reset` is counted.
template <class MapBody>
class ObjectOf : public ObjectMapping::ObjectIf {
public:
    explicit ObjectOf(MapBody body) : body(std::move(body)) {}
    void Map(ObjectMapping::MapperIf& mapper) override { body(mapper); }
    void Reset() override { ++resets; }

    int resets = 0;

private:
    MapBody body;
};

}  // namespace Ombry::Tests
