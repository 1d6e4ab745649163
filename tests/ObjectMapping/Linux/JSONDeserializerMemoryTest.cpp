#include "tests/ObjectMapping/MappingSupport.h"

#include <malloc.h>

#include <string>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

TEST(JSONDeserializerMemoryTest, EndGivesTheMemoryOfTheDocumentBack) {
    std::string text = "[";
    for (int i = 0; i < 400'000; ++i)
        text += "[],";
    text += "0]";
    // The allocator of a sanitizer build reports nothing here, and the difference is 0.
    const auto inUse = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    const auto deserializer = CreateJSONDeserializer(true);
    const std::size_t before = inUse();
    deserializer->Begin(text);
    deserializer->End();
    const std::size_t after = inUse();
    EXPECT_LT(after, before + text.size() + 1'000'000);
}

}  // namespace
}  // namespace Ombry::Tests
