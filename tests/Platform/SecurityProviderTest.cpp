#include "Platform/ISecurityProvider.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

namespace Ombry::Tests {
namespace {

using namespace Platform;

TEST(SecurityProviderTest, StatusesAre32BitsAndNegativeExactlyForFailures) {
    static_assert(std::is_same_v<SECURITY_STATUS, std::int32_t>);
    static_assert(sizeof(SecHandle) == 2 * sizeof(std::uintptr_t));
    EXPECT_EQ(static_cast<std::uint32_t>(SecEIncompleteMessage), 0x80090318u);
    EXPECT_EQ(static_cast<std::uint32_t>(SecEBufferTooSmall), 0x80090321u);
    for (SECURITY_STATUS status : {SecEInvalidHandle, SecEInternalError, SecEInvalidToken,
                                   SecEIncompleteMessage, SecEBufferTooSmall, SecEDecryptFailure})
        EXPECT_LT(status, 0);
    EXPECT_EQ(SecEOk, 0);
    EXPECT_EQ(SecIContinueNeeded, 0x90312);
    EXPECT_EQ(SecICompleteNeeded, 0x90313);
    EXPECT_EQ(SecICompleteAndContinue, 0x90314);
    EXPECT_EQ(SecIContextExpired, 0x90317);
    EXPECT_EQ(SecIRenegotiate, 0x90321);
}

TEST(SecurityProviderTest, BufferTypesAreThePublishedNumbers) {
    EXPECT_EQ(SecBufferEmpty, 0u);
    EXPECT_EQ(SecBufferData, 1u);
    EXPECT_EQ(SecBufferToken, 2u);
    EXPECT_EQ(SecBufferMissing, 4u);
    EXPECT_EQ(SecBufferExtra, 5u);
    EXPECT_EQ(SecBufferStreamTrailer, 6u);
    EXPECT_EQ(SecBufferStreamHeader, 7u);
}

TEST(SecurityProviderTest, RecordsHaveThePublishedLayout) {
    EXPECT_EQ(offsetof(SecBuffer, BufferType), 4u);
    EXPECT_EQ(offsetof(SecBuffer, pvBuffer), 8u);
    EXPECT_EQ(offsetof(SecBufferDesc, cBuffers), 4u);
    EXPECT_EQ(offsetof(SecPkgInfoA, cbMaxToken), 8u);
    EXPECT_EQ(sizeof(SecPkgContext_StreamSizes), 20u);
    if (sizeof(void*) == 8) {
        EXPECT_EQ(offsetof(SCHANNEL_CRED, grbitEnabledProtocols), 56u);
        EXPECT_EQ(sizeof(SCHANNEL_CRED), 80u);
    }
}

}  // namespace
}  // namespace Ombry::Tests
