#include "ObjectMapping/Impl/WipedPool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace Ombry::Tests {
namespace {

using ObjectMapping::Impl::WipedPool;

TEST(WipedPoolTest, GivesBlocksThatAreAlignedAndApart) {
    WipedPool pool;
    std::vector<std::pair<char*, std::size_t>> blocks;
    for (const std::size_t size : {1, 8, 13, 65'000, 504, 8, 65'536, 200'000, 24}) {
        auto* const block = static_cast<char*>(pool.Malloc(size));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(double), 0u) << size;
        std::memset(block, static_cast<int>(blocks.size()), size);
        blocks.emplace_back(block, size);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i)
        EXPECT_EQ(std::string(blocks[i].first, blocks[i].second), std::string(blocks[i].second, char(i)))
            << i;
}

TEST(WipedPoolTest, NothingAskedForIsANullPointerAndNoFailure) {
    EXPECT_EQ(WipedPool().Malloc(0), nullptr);
}

}  // namespace
}  // namespace Ombry::Tests
