#include "Platform/IRandom.h"

#include <array>
#include <set>

namespace Ombry::Tests {
namespace {

class RandomTest : public testing::Test {
protected:
    Platform::IRandom& random = Platform::Production<Platform::IRandom>();
};

TEST_F(RandomTest, GuidsAreOfVersionFourAndOfTheUsualVariantAndDiffer) {
    std::set<std::string> seen;
    std::uint32_t first = 0;
    std::uint16_t second = 0, third = 0;
    std::array<std::uint8_t, 8> last{};
    for (int i = 0; i < 200; ++i) {
        const Platform::Guid guid = random.NewGuid();
        EXPECT_EQ(guid.data3 >> 12, 4);
        EXPECT_EQ(guid.data4[0] >> 6, 2);
        first |= guid.data1;
        second |= guid.data2;
        third |= guid.data3;
        for (std::size_t at = 0; at < last.size(); ++at)
            last[at] |= guid.data4[at];
        seen.insert(std::to_string(guid.data1) + "-" + std::to_string(guid.data2));
    }
    EXPECT_GT(seen.size(), 100u);
    // Every bit that is drawn was set in one of 200 draws.
    EXPECT_EQ(first, 0xFFFFFFFFu);
    EXPECT_EQ(second, 0xFFFFu);
    EXPECT_EQ(third, 0x4FFFu);
    EXPECT_EQ(last[0], 0xBFu);
    for (std::size_t at = 1; at < last.size(); ++at)
        EXPECT_EQ(last[at], 0xFFu);
}

TEST_F(RandomTest, SeedWordsUseAllTheirBits) {
    std::uint32_t bits = 0;
    for (int i = 0; i < 200; ++i)
        bits |= random.SeedWord();
    EXPECT_EQ(bits, 0xFFFFFFFFu);
}

}  // namespace
}  // namespace Ombry::Tests
