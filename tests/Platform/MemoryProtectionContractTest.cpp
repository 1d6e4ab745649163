#include "Platform/IMemoryProtection.h"

#include <numeric>

namespace Ombry::Tests {
namespace {

class MemoryProtectionContractTest : public testing::Test {
protected:
    using Bytes = std::vector<std::uint8_t>;

    static Bytes Counting(std::size_t size) {
        Bytes bytes(size);
        std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
        return bytes;
    }

    Platform::IMemoryProtection& protection = Platform::MemoryProtection();
};

TEST_F(MemoryProtectionContractTest, WhatWasProtectedComesBackUnderAnyFlags) {
    for (const std::uint32_t flags : {0u, 1u, 2u}) {
        for (const std::size_t size : {16, 32, 48, 4096, (1 << 20) + 16}) {
            Bytes bytes = Counting(size);
            ASSERT_TRUE(protection.Protect(bytes, flags)) << size;
            ASSERT_TRUE(protection.Unprotect(bytes, flags)) << size;
            EXPECT_EQ(bytes, Counting(size)) << size;
        }
    }
}

TEST_F(MemoryProtectionContractTest, LengthOfNoWholeBlocksFailsWith87AndTouchesNothing) {
    for (const std::size_t size : {0, 1, 15, 17, 31, 33}) {
        Bytes bytes = Counting(size);
        EXPECT_EQ(protection.Protect(bytes, 0).Error(), 87) << size;
        EXPECT_EQ(protection.Unprotect(bytes, 0).Error(), 87) << size;
        EXPECT_EQ(bytes, Counting(size)) << size;
    }
}

}  // namespace
}  // namespace Ombry::Tests
