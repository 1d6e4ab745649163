#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephResultCodes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::eRC_OutOfMemory;
using OmbryZephCore::eRC_Success;
using OmbryZephCore::ZephIOBuffer;

constexpr std::uint32_t Block = 0x1000000;

// Counts what is asked for, and gives only what the buffer will touch, so that huge capacities cost nothing.
std::vector<std::uint64_t> requests;
bool refuse = false;
const ZephIOBuffer* observed = nullptr;
std::uint32_t lengthSeen = 0;

std::uint8_t* RecordingAllocator(std::uint64_t nBytes) {
    requests.push_back(nBytes);
    if (observed) lengthSeen = observed->GetLength();
    if (refuse) return nullptr;
    const std::uint64_t nGiven = nBytes > 8 * Block ? 16 : nBytes;
    auto* pBytes = new std::uint8_t[nGiven];
    std::memset(pBytes, 0xA5, nGiven);
    return pBytes;
}

class ZephIOBufferTest : public ::testing::Test {
protected:
    ZephIOBufferTest() : previous(ZephIOBuffer::ReplaceAllocator(&RecordingAllocator)) {
        requests.clear();
        refuse = false;
        observed = nullptr;
        lengthSeen = 0;
    }
    ~ZephIOBufferTest() override { ZephIOBuffer::ReplaceAllocator(previous); }

    const ZephIOBuffer::Allocator previous;
};

using Sizes = std::vector<std::uint64_t>;

TEST_F(ZephIOBufferTest, ConstructionAllocatesNothingAndHasNoData) {
    ZephIOBuffer buffer;
    EXPECT_EQ(buffer.GetData(), nullptr);
    EXPECT_EQ(buffer.GetLength(), 0u);
    EXPECT_EQ(buffer.GetCapacity(), 0u);
    EXPECT_EQ(requests, Sizes{});
}

TEST_F(ZephIOBufferTest, LengthZeroOnANewBufferAllocatesTheMinimum) {
    ZephIOBuffer buffer;
    EXPECT_EQ(buffer.SetLength(0), eRC_Success);
    EXPECT_NE(buffer.GetData(), nullptr);
    EXPECT_EQ(buffer.GetLength(), 0u);
    EXPECT_EQ(buffer.GetCapacity(), 4096u);
    EXPECT_EQ(requests, Sizes{4096});
}

TEST_F(ZephIOBufferTest, GrowsByDoublingAndShrinksOnlyPastAFactorOfTwo) {
    ZephIOBuffer buffer;
    EXPECT_EQ(buffer.SetLength(5000), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 8192u);
    EXPECT_EQ(buffer.SetLength(4500), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 8192u);
    EXPECT_EQ(buffer.GetLength(), 4500u);
    EXPECT_EQ(requests, Sizes{8192});
    EXPECT_EQ(buffer.SetLength(1000), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 4096u);
    EXPECT_EQ(buffer.GetLength(), 1000u);
    EXPECT_EQ(requests, (Sizes{8192, 4096}));
}

TEST_F(ZephIOBufferTest, ExactlyHalfInUseDoesNotShrinkAndOneLessDoes) {
    ZephIOBuffer buffer(16, Block);
    ASSERT_EQ(buffer.SetLength(64), eRC_Success);
    ASSERT_EQ(buffer.SetLength(32), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 64u);
    ASSERT_EQ(buffer.SetLength(31), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 32u);
}

TEST_F(ZephIOBufferTest, FullCapacityFitsAndOneMoreDoubles) {
    ZephIOBuffer buffer(16, Block);
    ASSERT_EQ(buffer.SetLength(16), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 16u);
    ASSERT_EQ(buffer.SetLength(17), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 32u);
    ASSERT_EQ(buffer.SetLength(200), eRC_Success);
    EXPECT_EQ(requests, (Sizes{16, 32, 256}));
}

TEST_F(ZephIOBufferTest, ShrinkingHalvesAsOftenAsNeededAndStopsAtTheMinimum) {
    ZephIOBuffer buffer(16, Block);
    ASSERT_EQ(buffer.SetLength(1024), eRC_Success);
    ASSERT_EQ(buffer.SetLength(100), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 128u);
    ASSERT_EQ(buffer.SetLength(0), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 16u);
    EXPECT_NE(buffer.GetData(), nullptr);
}

TEST_F(ZephIOBufferTest, LengthZeroShrinksAsLengthOneDoes) {
    ZephIOBuffer buffer(1, Block);
    ASSERT_EQ(buffer.SetLength(2), eRC_Success);
    ASSERT_EQ(buffer.SetLength(0), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 2u);
    ASSERT_EQ(buffer.SetLength(3), eRC_Success);
    ASSERT_EQ(buffer.SetLength(0), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 2u);
}

TEST_F(ZephIOBufferTest, RepeatedAndSlightlyChangedLengthsNeverReallocate) {
    ZephIOBuffer buffer;
    ASSERT_EQ(buffer.SetLength(6000), eRC_Success);
    std::uint8_t* const pData = buffer.GetData();
    for (std::uint32_t n : {6000u, 6001u, 8192u, 4096u, 6000u, 8191u})
        ASSERT_EQ(buffer.SetLength(n), eRC_Success);
    EXPECT_EQ(buffer.GetData(), pData);
    EXPECT_EQ(requests.size(), 1u);
}

TEST_F(ZephIOBufferTest, AMinimumOfZeroBecomesOneAndAMaximumBelowTheMinimumBecomesTheMinimum) {
    ZephIOBuffer tiny(0, 0);
    ASSERT_EQ(tiny.SetLength(0), eRC_Success);
    EXPECT_EQ(tiny.GetCapacity(), 1u);
    ASSERT_EQ(tiny.SetLength(3), eRC_Success);  // blocks of one byte
    EXPECT_EQ(tiny.GetCapacity(), 3u);

    ZephIOBuffer corrected(100, 7);
    ASSERT_EQ(corrected.SetLength(101), eRC_Success);
    EXPECT_EQ(corrected.GetCapacity(), 200u);
    ASSERT_EQ(corrected.SetLength(201), eRC_Success);
    EXPECT_EQ(corrected.GetCapacity(), 300u);
}

TEST_F(ZephIOBufferTest, AboveTheMaximumCapacityIsAWholeNumberOfBlocks) {
    ZephIOBuffer buffer;
    ASSERT_EQ(buffer.SetLength(Block), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), Block);
    ASSERT_EQ(buffer.SetLength(Block + 1), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 2 * Block);
    ASSERT_EQ(buffer.SetLength(2 * Block), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 2 * Block);
    ASSERT_EQ(buffer.SetLength(2 * Block + 1), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 3 * Block);
    EXPECT_EQ(requests, (Sizes{Block, 2 * Block, 3 * Block}));
}

TEST_F(ZephIOBufferTest, FewerBlocksShrinkAtOnceWithoutHysteresis) {
    ZephIOBuffer buffer(16, 100);
    ASSERT_EQ(buffer.SetLength(250), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 300u);
    ASSERT_EQ(buffer.SetLength(150), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 200u);
}

TEST_F(ZephIOBufferTest, ACapacityThatDoublingRaisedAboveTheMaximumBecomesWholeBlocks) {
    ZephIOBuffer buffer(60, 100);
    ASSERT_EQ(buffer.SetLength(90), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 120u);
    ASSERT_EQ(buffer.SetLength(110), eRC_Success);  // fits, but is not the two blocks that it takes
    EXPECT_EQ(buffer.GetCapacity(), 200u);
}

TEST_F(ZephIOBufferTest, ALengthOfExactlyTheMaximumStillGoesByDoublingAndHalving) {
    ZephIOBuffer odd(60, 100);
    ASSERT_EQ(odd.SetLength(100), eRC_Success);
    EXPECT_EQ(odd.GetCapacity(), 120u);
    ZephIOBuffer buffer;
    ASSERT_EQ(buffer.SetLength(2 * Block), eRC_Success);
    ASSERT_EQ(buffer.SetLength(Block), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 2 * Block);
}

TEST_F(ZephIOBufferTest, HalvingFromABlockSizeMayEndBelowTheMinimum) {
    ZephIOBuffer buffer;
    ASSERT_EQ(buffer.SetLength(3 * Block), eRC_Success);
    ASSERT_EQ(buffer.SetLength(1), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 3072u);
}

TEST_F(ZephIOBufferTest, ContentSurvivesGrowthAndShrinkageUpToTheShorterLength) {
    ZephIOBuffer buffer(4, Block);
    ASSERT_EQ(buffer.SetLength(4), eRC_Success);
    std::memcpy(buffer.GetData(), "abcd", 4);
    ASSERT_EQ(buffer.SetLength(5), eRC_Success);
    EXPECT_EQ(std::memcmp(buffer.GetData(), "abcd", 4), 0);
    EXPECT_EQ(buffer.GetData()[4], 0xA5) << "new bytes are not cleared";
    std::memcpy(buffer.GetData(), "abcde", 5);
    ASSERT_EQ(buffer.SetLength(2), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 4u);
    EXPECT_EQ(std::memcmp(buffer.GetData(), "ab\xA5\xA5", 4), 0) << "only the kept bytes are copied";
}

TEST_F(ZephIOBufferTest, ARefusedGrowthLeavesTheBufferAsItWas) {
    ZephIOBuffer buffer(16, Block);
    ASSERT_EQ(buffer.SetLength(10), eRC_Success);
    std::memcpy(buffer.GetData(), "0123456789", 10);
    std::uint8_t* const pData = buffer.GetData();
    refuse = true;
    EXPECT_EQ(buffer.SetLength(17), eRC_OutOfMemory);
    EXPECT_EQ(buffer.GetLength(), 10u);
    EXPECT_EQ(buffer.GetCapacity(), 16u);
    EXPECT_EQ(buffer.GetData(), pData);
    EXPECT_EQ(std::memcmp(pData, "0123456789", 10), 0);
    refuse = false;
    EXPECT_EQ(buffer.SetLength(17), eRC_Success);
}

TEST_F(ZephIOBufferTest, ARefusedFirstAllocationLeavesTheBufferEmpty) {
    ZephIOBuffer buffer;
    refuse = true;
    EXPECT_EQ(buffer.SetLength(0), eRC_OutOfMemory);
    EXPECT_EQ(buffer.GetData(), nullptr);
    EXPECT_EQ(buffer.GetCapacity(), 0u);
    EXPECT_EQ(buffer.GetLength(), 0u);
}

TEST_F(ZephIOBufferTest, AShrinkIsRecordedBeforeTheAllocationAndUndoneWhenThatFails) {
    ZephIOBuffer buffer(16, Block);
    ASSERT_EQ(buffer.SetLength(1000), eRC_Success);
    observed = &buffer;
    refuse = true;
    EXPECT_EQ(buffer.SetLength(20), eRC_OutOfMemory);
    EXPECT_EQ(lengthSeen, 20u);
    EXPECT_EQ(buffer.GetLength(), 1000u);
    EXPECT_EQ(buffer.GetCapacity(), 1024u);
}

TEST_F(ZephIOBufferTest, TheLargestLengthInWholeBlocksIsAskedForInFull) {
    ZephIOBuffer buffer;
    EXPECT_EQ(buffer.SetLength(0xFF000000u), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 0xFF000000u);
    EXPECT_EQ(requests, Sizes{0xFF000000u});
}

TEST_F(ZephIOBufferTest, ACapacityBeyond32BitsIsOutOfMemoryWithoutAnAllocation) {
    ZephIOBuffer buffer;
    ASSERT_EQ(buffer.SetLength(10), eRC_Success);
    for (std::uint32_t n : {0xFF000001u, std::numeric_limits<std::uint32_t>::max()}) {
        EXPECT_EQ(buffer.SetLength(n), eRC_OutOfMemory) << n;
        EXPECT_EQ(buffer.GetLength(), 10u);
        EXPECT_EQ(buffer.GetCapacity(), 4096u);
    }
    EXPECT_EQ(requests, Sizes{4096});
}

TEST_F(ZephIOBufferTest, ACapacityOfAll32BitsIsStillAskedFor) {
    constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    ZephIOBuffer buffer(most, most);
    EXPECT_EQ(buffer.SetLength(1), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), most);
    EXPECT_EQ(requests, Sizes{most});
}

TEST_F(ZephIOBufferTest, ASingleByteSurvivesAReallocation) {
    ZephIOBuffer buffer(1, Block);
    ASSERT_EQ(buffer.SetLength(1), eRC_Success);
    *buffer.GetData() = 7;
    ASSERT_EQ(buffer.SetLength(100), eRC_Success);
    EXPECT_EQ(*buffer.GetData(), 7);
    EXPECT_EQ(requests, (Sizes{1, 128}));
}

TEST_F(ZephIOBufferTest, DoublingPast32BitsEndsAsOutOfMemory) {
    ZephIOBuffer buffer(16, std::numeric_limits<std::uint32_t>::max());
    EXPECT_EQ(buffer.SetLength(0x80000000u), eRC_Success);
    EXPECT_EQ(buffer.GetCapacity(), 0x80000000u);
    EXPECT_EQ(buffer.SetLength(0x80000001u), eRC_OutOfMemory);
    EXPECT_EQ(buffer.GetLength(), 0x80000000u);
    EXPECT_EQ(requests, Sizes{0x80000000u});
}

TEST_F(ZephIOBufferTest, ThisSystemsAllocatorServesUsableMemory) {
    ZephIOBuffer::ReplaceAllocator(previous);
    ZephIOBuffer buffer;
    ASSERT_EQ(buffer.SetLength(100'000), eRC_Success);
    std::memset(buffer.GetData(), 'x', buffer.GetLength());
    EXPECT_EQ(buffer.GetData()[99'999], 'x');
    EXPECT_EQ(buffer.GetCapacity(), 131'072u);
}

}  // namespace
}  // namespace Ombry::Tests
