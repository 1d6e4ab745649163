#include "Platform/IHash.h"

#include <openssl/err.h>

#include <cerrno>

namespace Ombry::Tests {
namespace {

TEST(HashErrorsTest, RoomOfAnotherSizeIsAnInvalidArgumentAndNothingStaysInTheErrorQueue) {
    const auto provider = Platform::Hash().AcquireProvider();
    const auto hash = (*provider)->CreateSha256();
    std::vector<std::uint8_t> value(33);
    EXPECT_EQ((*hash)->GetValue(std::span(value).first(31)).Error(), EINVAL);
    EXPECT_EQ((*hash)->GetValue(value).Error(), EINVAL);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

}  // namespace
}  // namespace Ombry::Tests
