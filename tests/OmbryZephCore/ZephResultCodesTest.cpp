#include "OmbryZephCore/ZephResultCodes.h"

#include <gtest/gtest.h>

#include <utility>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;

TEST(ZephResultCodesTest, NumbersAreThoseThatClientCodeComparesWith) {
    const std::pair<std::uint32_t, std::uint32_t> codes[] = {
        {eRC_Success, 0},
        {eRC_Fail, 1},
        {eRC_OutOfMemory, 3},
        {eRC_InvalidArgument, 5},
        {eRC_NotInitialized, 7},
        {eRC_ConversionFailed, 10},
        {eRC_IO_ConnectionFailed, 11},
        {eRC_TaskRefused, 12},
        {eRC_TimedOut, 13},
        {eRC_ResolveFailed, 14},
        {eRC_HTTP_BadRequestHeader, 100},
        {eRC_HTTP_BadResponseHeader, 101},
        {eRC_HTTP_StatusFailure, 108},
        {eRC_IO_HandleAlreadyRegistered, 200},
        {eRC_IO_HandleNotRegistered, 201},
        {eRC_IO_ReadAlreadyInProgress, 202},
        {eRC_IO_WriteAlreadyInProgress, 203},
    };
    for (const auto& [code, number] : codes)
        EXPECT_EQ(code, number);
}

}  // namespace
}  // namespace Ombry::Tests
