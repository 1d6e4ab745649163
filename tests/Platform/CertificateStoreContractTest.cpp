#include "Platform/ICertificates.h"
#include "tests/Fakes/CertificateBytes.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FixedCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using namespace Platform;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// UTF-16LE with its terminator.
std::string Name(std::u16string_view text) {
    std::string bytes;
    for (const char16_t unit : std::u16string(text) + u'\0') {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

/// A store of the current user's, which needs no rights. Where stores are the system's it outlives the test,
/// empty.
class CertificateStoreContractTest : public testing::Test {
protected:
    CertificateStoreContractTest() { Empty(); }
    ~CertificateStoreContractTest() override { Empty(); }

    static std::unique_ptr<ICertificateStore> Open(StoreAccess access = StoreAccess::ReadWrite) {
        auto store = Certificates().OpenStore(StoreLocation::CurrentUser, access, L"OmbryContractTest");
        EXPECT_TRUE(store) << store.Error();
        return store ? std::move(*store) : nullptr;
    }

    static std::vector<std::string> All(ICertificateStore& store) {
        std::vector<std::string> all;
        for (auto at = store.FindNext(nullptr); at; at = store.FindNext(at))
            all.push_back(DerOf(*at));
        return all;
    }

    static std::vector<std::string> AllAfterReopening() { return All(*Open(StoreAccess::ReadOnlyExisting)); }

    static CertificateContextPointer Find(ICertificateStore& store, const std::string& der) {
        auto at = store.FindNext(nullptr);
        while (at && DerOf(*at) != der)
            at = store.FindNext(at);
        return at;
    }

    static std::string FriendlyName(ICertificateStore& store, CertificateContextPointer certificate,
                                    std::size_t room = 64) {
        std::vector<std::uint8_t> buffer(room);
        const auto length = store.GetFriendlyName(certificate, buffer);
        if (!length) return "failure";
        return {reinterpret_cast<const char*>(buffer.data()), *length};
    }

    static void Add(const std::string& der, std::u16string_view name) {
        const auto store = Open();
        const auto added = store->AddReplaceExisting(ContextOf(der));
        ASSERT_TRUE(added) << added.Error();
        ASSERT_TRUE(store->SetFriendlyName(*added, BytesOf(Name(name))));
    }

    static void Empty() {
        const auto store = Open();
        for (auto at = store->FindNext(nullptr); at; at = store->FindNext(nullptr))
            ASSERT_TRUE(store->Delete(at));
    }

private:
    TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    Testing::Replace<IKnownFolders> replaced{folders};

protected:
    const std::string first = FixedCertificates::DerOf(FixedCertificates::RsaCertificate);
    const std::string second = FixedCertificates::DerOf(FixedCertificates::RenewedRsaCertificate);
    const std::string third = FixedCertificates::DerOf(FixedCertificates::EcCertificate);
};

TEST_F(CertificateStoreContractTest, ReadOnlyOpenOfMissingStoreFailsWithTwo) {
    const auto store = Certificates().OpenStore(StoreLocation::CurrentUser, StoreAccess::ReadOnlyExisting,
                                                L"OmbryContractTestThatIsNowhere");
    ASSERT_FALSE(store);
    EXPECT_EQ(store.Error(), 2);
}

TEST_F(CertificateStoreContractTest, NameThatIsNoneOrLeadsElsewhereIsRefused) {
    for (const std::wstring& name : {std::wstring(), std::wstring(L"a\\b"), std::wstring(L"a\0b", 3)}) {
        for (const StoreAccess access : {StoreAccess::ReadWrite, StoreAccess::ReadOnlyExisting}) {
            EXPECT_FALSE(Certificates().OpenStore(StoreLocation::CurrentUser, access, name));
        }
    }
}

TEST_F(CertificateStoreContractTest, AddedCertificateAndItsNameAreThereAfterReopening) {
    Add(first, u"DiscoveryServiceBootstrap");
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    const auto context = store->FindNext(nullptr);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(DerOf(*context), first);
    EXPECT_EQ(FriendlyName(*store, context), Name(u"DiscoveryServiceBootstrap"));
    EXPECT_EQ(FriendlyName(*store, context).size(), 52u);
    EXPECT_EQ(store->FindNext(context), nullptr);
}

TEST_F(CertificateStoreContractTest, EqualCertificateIsReplacedAndLosesItsName) {
    Add(first, u"old");
    Add(second, u"other");
    {
        const auto store = Open();
        const auto old = Find(*store, first);
        const auto added = store->AddReplaceExisting(ContextOf(first));
        ASSERT_TRUE(added);
        EXPECT_EQ(FriendlyName(*store, *added), "failure");
        EXPECT_EQ(DerOf(**added), first);
        EXPECT_EQ(DerOf(*old), first);
        EXPECT_NE((*added)->encoded, BytesOf(first).data());
    }
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    EXPECT_THAT(All(*store), UnorderedElementsAre(first, second));
    EXPECT_EQ(FriendlyName(*store, Find(*store, first)), "failure");
    EXPECT_EQ(FriendlyName(*store, Find(*store, second)), Name(u"other"));
}

TEST_F(CertificateStoreContractTest, WhatIsNoCertificateIsNotAdded) {
    EXPECT_FALSE(Open()->AddReplaceExisting(ContextOf("bad")));
    EXPECT_FALSE(Open()->AddReplaceExisting(ContextOf(first + "x")));
    EXPECT_FALSE(Open()->AddReplaceExisting({}));
    EXPECT_THAT(AllAfterReopening(), IsEmpty());
}

TEST_F(CertificateStoreContractTest, EveryContextOfAWalkStaysValidUntilTheStoreIsClosed) {
    for (const std::string& der : {first, second, third})
        Add(der, u"name");
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    std::vector<CertificateContextPointer> walked;
    for (int round = 0; round < 2; ++round) {
        for (auto at = store->FindNext(nullptr); at; at = store->FindNext(at))
            walked.push_back(at);
    }
    ASSERT_EQ(walked.size(), 6u);
    std::vector<std::string> all;
    for (const auto context : walked) {
        all.push_back(DerOf(*context));
        EXPECT_EQ(FriendlyName(*store, context), Name(u"name"));
    }
    EXPECT_THAT(all, UnorderedElementsAre(first, second, third, first, second, third));
}

TEST_F(CertificateStoreContractTest, ContextOfAnotherStoreIsRefused) {
    Add(first, u"name");
    {
        const CertificateContext foreign = ContextOf(first);
        const auto store = Open();
        std::vector<std::uint8_t> buffer(64);
        EXPECT_FALSE(store->GetFriendlyName(&foreign, buffer));
        EXPECT_FALSE(store->Delete(&foreign));
        EXPECT_FALSE(store->SetFriendlyName(&foreign, BytesOf(Name(u"x"))));
        EXPECT_EQ(store->FindNext(&foreign), nullptr);
    }
    EXPECT_THAT(AllAfterReopening(), UnorderedElementsAre(first));
}

TEST_F(CertificateStoreContractTest, FriendlyNameMustFitWithItsTerminator) {
    Add(first, u"DiscoveryServiceBootstrap");
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    const auto context = store->FindNext(nullptr);
    EXPECT_EQ(FriendlyName(*store, context, 52), Name(u"DiscoveryServiceBootstrap"));
    EXPECT_EQ(FriendlyName(*store, context, 51), "failure");
    EXPECT_EQ(FriendlyName(*store, context, 0), "failure");
}

TEST_F(CertificateStoreContractTest, FriendlyNameKeepsItsUnitsWhateverItsLength) {
    const std::u16string name = std::u16string(40, u'n') + u"\u00FC\u20AC\U0001F600";
    Add(first, name);
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    EXPECT_EQ(FriendlyName(*store, store->FindNext(nullptr), 64), "failure");
    EXPECT_EQ(FriendlyName(*store, store->FindNext(nullptr), 200), Name(name));
}

TEST_F(CertificateStoreContractTest, DeletedCertificateIsGoneAndTheOthersAreUntouched) {
    for (const std::string& der : {first, second, third})
        Add(der, u"name");
    {
        const auto store = Open();
        const auto kept = Find(*store, first);
        ASSERT_TRUE(store->Delete(Find(*store, second)));
        EXPECT_THAT(All(*store), UnorderedElementsAre(first, third));
        EXPECT_EQ(DerOf(*kept), first);
    }
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    EXPECT_THAT(All(*store), UnorderedElementsAre(first, third));
    EXPECT_EQ(FriendlyName(*store, Find(*store, third)), Name(u"name"));
}

TEST_F(CertificateStoreContractTest, ReadOnlyStoreRefusesEveryChange) {
    Add(first, u"name");
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    const auto context = store->FindNext(nullptr);
    EXPECT_FALSE(store->Delete(context));
    EXPECT_FALSE(store->AddReplaceExisting(ContextOf(second)));
    EXPECT_FALSE(store->SetFriendlyName(context, BytesOf(Name(u"x"))));
    EXPECT_EQ(FriendlyName(*store, context), Name(u"name"));
    EXPECT_THAT(AllAfterReopening(), UnorderedElementsAre(first));
}

}  // namespace
}  // namespace Ombry::Tests
