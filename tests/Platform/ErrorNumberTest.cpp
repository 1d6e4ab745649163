#include "Platform/ErrorNumber.h"

#include <gtest/gtest.h>

#include <limits>

namespace Ombry::Tests {
namespace {

using Platform::ErrorNumber;

TEST(ErrorNumberTest, NumberHasNoSign) {
    EXPECT_EQ(ErrorNumber(0), "0");
    EXPECT_EQ(ErrorNumber(2), "2");
    EXPECT_EQ(ErrorNumber(std::numeric_limits<int>::max()), "2147483647");
    EXPECT_EQ(ErrorNumber(static_cast<int>(0x80092004)), "2148081668");
    EXPECT_EQ(ErrorNumber(-1), "4294967295");
}

}  // namespace
}  // namespace Ombry::Tests
