#include "Platform/ICertificates.h"
#include "Platform/Windows/Api.h"
#include "Platform/Windows/CertificateStore.h"
#include "tests/Fakes/FixedCertificates.h"
#include "tests/Platform/Windows/SecondProcess.h"

#include <gmock/gmock.h>

#include <span>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace Platform;

/// What another handle to the store sees while the first is open, which is what another process sees.
class SystemStoreTest : public testing::Test {
protected:
    SystemStoreTest() { EmptyForTheFirst(); }
    ~SystemStoreTest() override { EmptyForTheFirst(); }

    static std::unique_ptr<ICertificateStore> Open(StoreAccess access) {
        auto store = Certificates().OpenStore(StoreLocation::CurrentUser, access, L"OmbrySystemStoreTest");
        EXPECT_TRUE(store) << store.Error();
        return store ? std::move(*store) : nullptr;
    }

    static void EmptyForTheFirst() {
        if (SecondProcess::Message().empty()) Empty();
    }
    static void Empty() {
        const auto store = Open(StoreAccess::ReadWrite);
        for (auto at = store->FindNext(nullptr); at; at = store->FindNext(nullptr))
            ASSERT_TRUE(store->Delete(at));
    }

    /// The size of the friendly name of the one certificate; -1 without a name, -2 without a certificate.
    static int Seen() {
        const auto store = Open(StoreAccess::ReadOnlyExisting);
        const auto context = store->FindNext(nullptr);
        if (context == nullptr) return -2;
        EXPECT_EQ(store->FindNext(context), nullptr);
        std::vector<std::uint8_t> buffer(64);
        const auto size = store->GetFriendlyName(context, buffer);
        return size ? static_cast<int>(*size) : -1;
    }

    const std::string der = FixedCertificates::DerOf(FixedCertificates::RsaCertificate);
    const CertificateContext certificate{CertificateEncoding,
                                         reinterpret_cast<const std::uint8_t*>(der.data()),
                                         static_cast<std::uint32_t>(der.size())};
};

// Rights are the system's, so that only the flags tell whether a user without them could read.
TEST(SystemStoreFlagsTest, WhoReadsAsksForNoMoreThanThat) {
    using Platform::Windows::FlagsFor;
    constexpr std::uint32_t reads = CERT_STORE_OPEN_EXISTING_FLAG | CERT_STORE_READONLY_FLAG;
    constexpr std::uint32_t user = CERT_SYSTEM_STORE_CURRENT_USER, machine = CERT_SYSTEM_STORE_LOCAL_MACHINE;
    EXPECT_EQ(FlagsFor(StoreLocation::CurrentUser, StoreAccess::ReadOnlyExisting), user | reads);
    EXPECT_EQ(FlagsFor(StoreLocation::LocalMachine, StoreAccess::ReadOnlyExisting), machine | reads);
    EXPECT_EQ(FlagsFor(StoreLocation::CurrentUser, StoreAccess::ReadWrite), user);
    EXPECT_EQ(FlagsFor(StoreLocation::LocalMachine, StoreAccess::ReadWrite), machine);
}

TEST_F(SystemStoreTest, ChangeIsInTheStoreWhenItsOperationReturns) {
    const auto store = Open(StoreAccess::ReadWrite);
    EXPECT_EQ(Seen(), -2);
    const auto added = store->AddReplaceExisting(certificate);
    ASSERT_TRUE(added);
    EXPECT_EQ(Seen(), -1);
    const std::vector<std::uint8_t> name{'a', 0, 'b', 0, 0, 0};
    ASSERT_TRUE(store->SetFriendlyName(*added, name));
    EXPECT_EQ(Seen(), 6);
    const auto replaced = store->AddReplaceExisting(certificate);
    ASSERT_TRUE(replaced);
    EXPECT_EQ(Seen(), -1);
    ASSERT_TRUE(store->Delete(*replaced));
    EXPECT_EQ(Seen(), -2);
}

TEST_F(SystemStoreTest, TwoProcessesReplaceTheirCertificatesAndNeitherLosesWhatTheOtherAdded) {
    constexpr int rounds = 20;
    const auto changeAll = [](std::string_view base64) {
        const std::string mine = FixedCertificates::DerOf(base64);
        const CertificateContext added{CertificateEncoding,
                                       reinterpret_cast<const std::uint8_t*>(mine.data()),
                                       static_cast<std::uint32_t>(mine.size())};
        const std::vector<std::uint8_t> name{'a', 0, 0, 0};
        for (int i = 0; i < rounds; ++i) {
            const auto store = Open(StoreAccess::ReadWrite);
            const auto stored = store->AddReplaceExisting(added);
            ASSERT_TRUE(stored) << stored.Error();
            const Result named = store->SetFriendlyName(*stored, name);
            EXPECT_TRUE(named) << named.Error();
        }
    };
    if (!SecondProcess::Message().empty()) return changeAll(FixedCertificates::RenewedRsaCertificate);
    SecondProcess second("other");
    changeAll(FixedCertificates::RsaCertificate);
    EXPECT_EQ(second.Wait(), 0u);
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    std::vector<std::string> found;
    for (auto at = store->FindNext(nullptr); at; at = store->FindNext(at))
        found.emplace_back(reinterpret_cast<const char*>(at->encoded), at->encodedLength);
    EXPECT_THAT(found, testing::UnorderedElementsAre(
                           FixedCertificates::DerOf(FixedCertificates::RsaCertificate),
                           FixedCertificates::DerOf(FixedCertificates::RenewedRsaCertificate)));
}

TEST_F(SystemStoreTest, CertificateThatSomebodyElseDeletedIsStillThereToBeRead) {
    ASSERT_TRUE(Open(StoreAccess::ReadWrite)->AddReplaceExisting(certificate));
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    const auto context = store->FindNext(nullptr);
    ASSERT_NE(context, nullptr);
    Empty();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(context->encoded), context->encodedLength), der);
}

}  // namespace
}  // namespace Ombry::Tests
