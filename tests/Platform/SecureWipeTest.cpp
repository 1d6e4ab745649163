#include "Platform/SecureWipe.h"

#include <gtest/gtest.h>

#include <string>

namespace Ombry::Tests {
namespace {

TEST(SecureWipeTest, OverwritesEveryByteAndKeepsTheLength) {
    std::string text = "secret";
    Platform::SecureWipe(text);
    EXPECT_EQ(text, std::string(6, '\0'));
    char bytes[] = {'a', 'b', 'c', 'd'};
    Platform::SecureWipe(bytes + 1, 2);
    EXPECT_EQ(std::string(bytes, 4), std::string("a\0\0d", 4));
    Platform::SecureWipe(nullptr, 0);
}

TEST(SecureWipeTest, SingleByteIsWiped) {
    char byte = 'x';
    Platform::SecureWipe(&byte, 1);
    EXPECT_EQ(byte, 0);
}

}  // namespace
}  // namespace Ombry::Tests
