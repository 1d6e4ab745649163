// Each call to the crypto library fails once, as it does in a process that has no memory left: the operation
// says so, leaves nothing behind, and works the next time.

#include "Platform/ICertificates.h"
#include "Platform/IInspection.h"
#include "Platform/IMachineProtection.h"
#include "Platform/IMemoryProtection.h"
#include "Platform/Linux/X509.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/Linux/CryptoFaults.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// `operation` says whether it succeeded: it must whenever nothing fails, and never when one of its calls
/// does. It must make at least `calls` of them.
void ExpectEachFailureIsTold(int calls, const std::function<bool()>& operation) {
    ASSERT_TRUE(operation());
    for (int n = 1;; ++n) {
        SCOPED_TRACE("call " + std::to_string(n));
        bool succeeded = false;
        bool happened = false;
        {
            const CryptoFault fault(n);
            succeeded = operation();
            happened = fault.Happened();
        }
        EXPECT_EQ(0u, ERR_peek_error());
        EXPECT_NE(happened, succeeded);
        EXPECT_TRUE(operation()) << "behind a failure";
        if (happened) continue;
        EXPECT_GT(n, calls) << "nothing was left to fail";
        return;
    }
}

class MachineProtectionFaultsTest : public testing::Test {
protected:
    TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    FakeMachineId machine{"0123456789abcdef0123456789abcdef"};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    Platform::Testing::Replace<Platform::IMachineId> replacedMachine{machine};
    Platform::IMachineProtection& protection = Platform::MachineProtection();
};

TEST_F(MachineProtectionFaultsTest, ProtectTellsEachFailure) {
    ExpectEachFailureIsTold(10, [&] { return bool{protection.Protect("secret", "entropy", 5)}; });
}

TEST_F(MachineProtectionFaultsTest, UnprotectTellsEachFailure) {
    const std::string blob = **protection.Protect("secret", "entropy", 5);
    ExpectEachFailureIsTold(10, [&] {
        const auto plain = protection.Unprotect(blob, "entropy", 5);
        EXPECT_TRUE(!plain || **plain == "secret");
        return bool{plain};
    });
}

TEST_F(MachineProtectionFaultsTest, DecipheringAloneTellsEachFailure) {
    const std::string blob = **protection.Protect("secret", "entropy", 5);
    ExpectEachFailureIsTold(
        1, [&] { return bool{Platform::Inspection().Deciphering().Unprotect(blob, "entropy", 5)}; });
}

TEST(MemoryProtectionFaultsTest, EachFailureIsToldAndChangesNothing) {
    Platform::IMemoryProtection& protection = Platform::MemoryProtection();
    ExpectEachFailureIsTold(4, [&] {
        const Bytes before(32, 7);
        Bytes bytes = before;
        const bool succeeded = bool{protection.Protect(bytes, 0)};
        EXPECT_EQ(!succeeded, bytes == before);
        return succeeded;
    });
}

TEST(MemoryProtectionFaultsTest, AlgorithmIsLookedUpOnce) {
    Bytes bytes(32, 7);
    ASSERT_TRUE(Platform::MemoryProtection().Protect(bytes, 0));
    const CryptoFault fifth(5);  // context, key, tweak and text are four
    EXPECT_TRUE(Platform::MemoryProtection().Protect(bytes, 0));
    EXPECT_FALSE(fifth.Happened());
}

/// In a process of its own, because the algorithm is looked up once.
TEST(MemoryProtectionFaultsDeathTest, AlgorithmThatCouldNotBeFoundIsLookedForAgain) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            Bytes bytes(32, 7);
            bool failed = false;
            {
                const CryptoFault fault(1);
                failed = !Platform::MemoryProtection().Protect(bytes, 0) && fault.Happened();
            }
            const bool works = bool{Platform::MemoryProtection().Protect(bytes, 0)};
            std::exit(failed && works ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(X509FaultsTest, WhatCannotBeWrittenOrReadIsNothing) {
    const TestCertificate certificate = MakeCertificate({});
    const std::string encoded = DerOf(certificate);
    const std::string pem = Platform::Linux::EncodePem(certificate.get());
    ExpectEachFailureIsTold(2, [&] { return !Platform::Linux::EncodePem(certificate.get()).empty(); });
    ExpectEachFailureIsTold(1, [&] { return Platform::Linux::ParsePem(pem) != nullptr; });
    ExpectEachFailureIsTold(2, [&] { return Platform::Linux::EncodeDer(certificate.get()) == encoded; });
    ExpectEachFailureIsTold(1, [&] { return !Platform::Linux::Fingerprint(encoded).empty(); });
}

TEST(CertificatesFaultsTest, CertificateThatWasParsedLastIsNotParsedAgain) {
    const std::string encoded = DerOf(MakeCertificate({}));
    const auto parses = [&] { return bool{Platform::Certificates().CreateCertificate(BytesOf(encoded))}; };
    ASSERT_TRUE(parses());
    const CryptoFault first(1);
    EXPECT_TRUE(parses());
    EXPECT_FALSE(first.Happened());
}

class CertificateStoreFaultsTest : public testing::Test {
protected:
    std::unique_ptr<Platform::ICertificateStore> Open() {
        auto store = Platform::Certificates().OpenStore(Platform::StoreLocation::LocalMachine,
                                                        Platform::StoreAccess::ReadWrite, L"Store");
        return store ? std::move(*store) : nullptr;
    }

    TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const std::string encoded = DerOf(MakeCertificate({}));
    const Platform::CertificateContext context{Platform::CertificateEncoding,
                                               reinterpret_cast<const std::uint8_t*>(encoded.data()),
                                               static_cast<std::uint32_t>(encoded.size())};
};

TEST_F(CertificateStoreFaultsTest, AddTellsEachFailureAndAddsNothingThen) {
    ExpectEachFailureIsTold(3, [&] {
        const auto store = Open();
        const auto added = store->AddReplaceExisting(context);
        const Platform::CertificateContextPointer found = store->FindNext(nullptr);
        EXPECT_EQ(bool{added}, found != nullptr);
        EXPECT_TRUE(!found || store->Delete(found));
        return bool{added};
    });
}

TEST_F(CertificateStoreFaultsTest, OpeningTellsEachFailureOrLeavesTheEntryOutAndNeverGivesOneWithoutBytes) {
    ASSERT_TRUE(Open()->AddReplaceExisting(context));
    ExpectEachFailureIsTold(3, [&] {
        const auto store = Open();
        const auto found = store ? store->FindNext(nullptr) : nullptr;
        EXPECT_TRUE(!found || found->encodedLength == encoded.size());
        return found != nullptr;
    });
}

TEST_F(CertificateStoreFaultsTest, FriendlyNameTellsEachFailure) {
    const std::vector<std::uint8_t> name = {'n', 0, 0, 0};
    ASSERT_TRUE(Open()->AddReplaceExisting(context));
    const auto store = Open();
    const auto entry = store->FindNext(nullptr);
    ASSERT_NE(entry, nullptr);
    ExpectEachFailureIsTold(4, [&] { return bool{store->SetFriendlyName(entry, name)}; });
}

}  // namespace
}  // namespace Ombry::Tests
