#include "OmbryZephCore/ZephHeaderMap.h"
#include "tests/Fakes/AllocationCount.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephHeaderMap;

std::string TextOf(const ZephHeaderMap& headers) {
    std::string text;
    headers.ForEach(
        [&](const char* pName, const char* pValue) { text += std::string(pName) + "=" + pValue + ";"; });
    return text;
}

TEST(ZephHeaderMapTest, HeadersStandInTheByteOrderOfTheirNames) {
    ZephHeaderMap headers;
    headers.Set("b", "2");
    headers.Set("a", "3");
    headers.Set("B", "1");
    headers.Set("aa", "4");
    EXPECT_EQ(TextOf(headers), "B=1;a=3;aa=4;b=2;");
    EXPECT_EQ(headers.Count(), 4u);
}

TEST(ZephHeaderMapTest, ValueOfAKnownNameIsReplaced) {
    ZephHeaderMap headers;
    for (const char* name : {"a", "b", "c"})
        headers.Set(name, "old");
    for (const char* name : {"a", "b", "c"})
        headers.Set(name, std::string("new ") + name);
    EXPECT_EQ(TextOf(headers), "a=new a;b=new b;c=new c;");
    headers.Set("b", "");
    EXPECT_EQ(TextOf(headers), "a=new a;b=;c=new c;");
}

TEST(ZephHeaderMapTest, ValueThatIsReplacedAgainAndAgainTakesNoMoreMemory) {
    ZephHeaderMap headers;
    const std::string longer(2000, 'l'), shorter(1000, 's');
    headers.Set("a", shorter);
    headers.Set("a", longer);
    const std::size_t before = AllocationsOfThisThread();
    for (int i = 0; i < 100; ++i) {
        headers.Set("a", shorter);
        headers.Set("a", longer);
    }
    EXPECT_EQ(AllocationsOfThisThread(), before);
    EXPECT_EQ(TextOf(headers), "a=" + longer + ";");
}

// A length that no text can have is refused before it is read.
TEST(ZephHeaderMapTest, ValueThatFindsNoMemoryLeavesTheOneThatWasThere) {
    ZephHeaderMap headers;
    headers.Set("a", "12345");
    EXPECT_THROW(headers.Set("a", std::string_view("x", PTRDIFF_MAX)), std::length_error);
    EXPECT_EQ(TextOf(headers), "a=12345;");
    headers.Set("a", "12");
    headers.Set("b", "c");
    EXPECT_EQ(TextOf(headers), "a=12;b=c;");
}

TEST(ZephHeaderMapTest, NothingOfAClearedMessageIsLeftInTheNext) {
    ZephHeaderMap headers;
    headers.Set("Authorization", "Bearer x");
    headers.Set("Zebra", "1");
    headers.Clear();
    EXPECT_EQ(TextOf(headers), "");
    headers.Set("Zebra", "");
    headers.Set("Accept", "2");
    EXPECT_EQ(TextOf(headers), "Accept=2;Zebra=;");
}

TEST(ZephHeaderMapTest, IsAsAMapOfTheLibraryIs) {
    std::mt19937 random(7);
    ZephHeaderMap headers;
    for (int message = 0; message < 50; ++message) {
        std::map<std::string, std::string> expected;
        headers.Clear();
        for (int i = 0; i < 40; ++i) {
            const std::string name(1 + random() % 3, static_cast<char>('a' + random() % 4));
            const std::string value = std::to_string(random() % 1000);
            headers.Set(name, value);
            expected[name] = value;
        }
        std::string text;
        for (const auto& [name, value] : expected)
            text += name + "=" + value + ";";
        EXPECT_EQ(TextOf(headers), text);
    }
}

TEST(ZephHeaderMapTest, MessageLikeTheLastAllocatesNothing) {
    ZephHeaderMap headers;
    const std::string value(200, 'v');
    const auto fill = [&] {
        headers.Clear();
        for (const char* name : {"Content-Type", "Accept", "X-A-Header-With-A-Long-Name"})
            headers.Set(name, value);
    };
    fill();
    fill();  // the texts found their slots
    const std::size_t before = AllocationsOfThisThread();
    fill();
    EXPECT_EQ(AllocationsOfThisThread(), before);
}

}  // namespace
}  // namespace Ombry::Tests
