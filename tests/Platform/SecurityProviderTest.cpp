#include "Platform/ISecurityProvider.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

namespace Ombry::Tests {
namespace {

using namespace Platform;

TEST(SecurityProviderTest, NoLibraryIsFoundOnLinux) {
    for (const char* name : {"SCHANNEL.DLL", "SECUR32.DLL", "SECURITY.DLL"}) {
        const auto module = SecurityProvider().LoadModule(name);
        EXPECT_FALSE(module) << name;
        EXPECT_EQ(module.Error(), 2) << name;
    }
}

TEST(SecurityProviderTest, NothingBehindTheLibraryIsFoundOnLinux) {
    const auto entryPoint = SecurityProvider().FindEntryPoint(1, "InitSecurityInterfaceA");
    EXPECT_FALSE(entryPoint);
    EXPECT_EQ(entryPoint.Error(), 2);
    const auto table = SecurityProvider().CallEntryPoint(1);
    EXPECT_FALSE(table);
    EXPECT_EQ(table.Error(), 2);
}

TEST(SecurityProviderTest, StatusesAre32BitsAndNegativeExactlyForFailures) {
    static_assert(std::is_same_v<SECURITY_STATUS, std::int32_t>);
    static_assert(sizeof(SecHandle) == 2 * sizeof(std::uintptr_t));
    EXPECT_EQ(static_cast<std::uint32_t>(SEC_E_INCOMPLETE_MESSAGE), 0x80090318u);
    EXPECT_EQ(static_cast<std::uint32_t>(SEC_E_BUFFER_TOO_SMALL), 0x80090321u);
    for (SECURITY_STATUS status : {SEC_E_INVALID_HANDLE, SEC_E_INTERNAL_ERROR, SEC_E_INVALID_TOKEN,
                                   SEC_E_INCOMPLETE_MESSAGE, SEC_E_BUFFER_TOO_SMALL, SEC_E_DECRYPT_FAILURE})
        EXPECT_LT(status, 0);
    EXPECT_EQ(SEC_E_OK, 0);
    EXPECT_EQ(SEC_I_CONTINUE_NEEDED, 0x90312);
    EXPECT_EQ(SEC_I_COMPLETE_NEEDED, 0x90313);
    EXPECT_EQ(SEC_I_COMPLETE_AND_CONTINUE, 0x90314);
    EXPECT_EQ(SEC_I_CONTEXT_EXPIRED, 0x90317);
    EXPECT_EQ(SEC_I_RENEGOTIATE, 0x90321);
}

TEST(SecurityProviderTest, BufferTypesAreThePublishedNumbers) {
    EXPECT_EQ(SECBUFFER_EMPTY, 0u);
    EXPECT_EQ(SECBUFFER_DATA, 1u);
    EXPECT_EQ(SECBUFFER_TOKEN, 2u);
    EXPECT_EQ(SECBUFFER_MISSING, 4u);
    EXPECT_EQ(SECBUFFER_EXTRA, 5u);
    EXPECT_EQ(SECBUFFER_STREAM_TRAILER, 6u);
    EXPECT_EQ(SECBUFFER_STREAM_HEADER, 7u);
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
