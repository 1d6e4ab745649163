#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FaultyCertificates.h"
#include "tests/Fakes/FaultyFiles.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using OmbryZephCore::ZephIOBuffer;
using Platform::StoreAccess;
using Platform::StoreLocation;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const std::string Save = "Ombry::ClientCommunications::ClientConfig::saveBootstrapCertificate: ";
const std::string Read = "Ombry::ClientCommunications::ClientCommunications::getBootstrapSsdsCertificate: ";
const std::string BootstrapName = "DiscoveryServiceBootstrap";

/// DER bytes of a certificate of its own for each serial number.
std::string Der(long serial) {
    CertificateRecipe recipe;
    recipe.serial = serial;
    recipe.key = KeyNamed("ec256");
    return DerOf(MakeCertificate(recipe));
}

std::string Utf16(const std::string& text) {
    std::string bytes;
    for (const char c : text)
        bytes += {c, '\0'};
    return bytes + std::string(2, '\0');
}

/// Also notes how each store was opened.
class WatchedCertificates : public FaultyCertificates {
public:
    Platform::ValueOr<std::unique_ptr<Platform::ICertificateStore>> OpenStore(
        StoreLocation location, StoreAccess access, std::wstring_view name) override {
        opened.emplace_back(location, access, std::wstring(name));
        return FaultyCertificates::OpenStore(location, access, name);
    }
    std::vector<std::tuple<StoreLocation, StoreAccess, std::wstring>> opened;
};

class BootstrapCertificateStoreTest : public testing::Test {
protected:
    std::string FailureOf(const std::function<void()>& act) {
        try {
            act();
            return "no failure";
        } catch (const std::runtime_error& failure) {
            EXPECT_EQ(certificates.openStores, 0);
            return failure.what();
        }
    }

    void SaveDer(const std::string& der) {
        ZephIOBuffer buffer;
        ASSERT_EQ(buffer.SetLength(static_cast<std::uint32_t>(der.size())), 0u);
        std::copy(der.begin(), der.end(), buffer.GetData());
        saveBootstrapCertificate(parameters, buffer);
    }

    /// Puts a certificate into the store, with a friendly name unless that is empty.
    void Put(const std::string& der, const std::string& name) {
        auto store = Real().OpenStore(StoreLocation::LocalMachine, StoreAccess::ReadWrite, L"OmbrySecurity");
        const auto certificate = Real().CreateCertificate(BytesOf(der));
        const auto stored = (*store)->AddReplaceExisting((*certificate)->Context());
        ASSERT_TRUE(stored);
        if (name.empty()) return;
        ASSERT_TRUE((*store)->SetFriendlyName(*stored, BytesOf(Utf16(name))));
    }

    /// DER bytes and friendly names of the whole store.
    std::map<std::string, std::string> Stored(StoreLocation location = StoreLocation::LocalMachine) {
        std::map<std::string, std::string> stored;
        auto store = Real().OpenStore(location, StoreAccess::ReadOnlyExisting, L"OmbrySecurity");
        if (!store) return stored;
        for (auto each = (*store)->FindNext(nullptr); each; each = (*store)->FindNext(each)) {
            std::array<std::uint8_t, 512> name{};
            const auto size = (*store)->GetFriendlyName(each, name);
            std::string text;
            for (std::uint32_t i = 0; size && i + 2 < *size; i += 2)
                text += static_cast<char>(name[i]);
            stored[std::string(reinterpret_cast<const char*>(each->encoded), each->encodedLength)] = text;
        }
        return stored;
    }

    static Platform::ICertificates& Real() { return Platform::Production<Platform::ICertificates>(); }

    const TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    WatchedCertificates certificates;
    Platform::Testing::Replace<Platform::ICertificates> replaced{certificates};
    CommunicationsParameters parameters{""};
    const std::string first = Der(1), second = Der(2), third = Der(3), fourth = Der(4), fifth = Der(5);
};

TEST_F(BootstrapCertificateStoreTest, WhatIsSavedIsReadBackAsBase64WithoutLineBreaks) {
    SaveDer(first);

    const std::string text = getBootstrapSsdsCertificate(parameters);
    EXPECT_EQ(text, Base64Of(first));
    EXPECT_GT(text.size(), 100u);
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
    EXPECT_THAT(Stored(), ElementsAre(Pair(first, BootstrapName)));
}

TEST_F(BootstrapCertificateStoreTest, SavingIntoAnEmptyStoreTakesTheStepsInOrder) {
    SaveDer(first);
    EXPECT_THAT(certificates.calls, ElementsAre("OpenStore", "FindNext", "CreateCertificate",
                                                "AddReplaceExisting", "SetFriendlyName", "Close"));
}

TEST_F(BootstrapCertificateStoreTest, EachDeletionStartsTheWalkOver) {
    Put(first, BootstrapName);
    Put(second, BootstrapName);
    certificates.calls.clear();
    SaveDer(third);
    EXPECT_THAT(certificates.calls,
                ElementsAre("OpenStore", "FindNext", "GetFriendlyName", "Delete", "FindNext",
                            "GetFriendlyName", "Delete", "FindNext", "CreateCertificate",
                            "AddReplaceExisting", "SetFriendlyName", "Close"));
}

TEST_F(BootstrapCertificateStoreTest, AllEarlierBootstrapCertificatesGoAndAllOthersStay) {
    const std::string other = Der(10), unnamed = Der(11), longer = Der(12), longest = Der(13);
    Put(first, BootstrapName);
    Put(other, "Another");
    Put(second, BootstrapName);
    Put(unnamed, "");
    Put(longer, BootstrapName + "2");
    Put(longest, std::string(40, 'x'));  // 82 bytes, more than is ever read
    Put(third, BootstrapName);

    SaveDer(fourth);

    EXPECT_THAT(Stored(), testing::UnorderedElementsAre(Pair(fourth, BootstrapName), Pair(other, "Another"),
                                                        Pair(unnamed, ""), Pair(longer, BootstrapName + "2"),
                                                        Pair(longest, std::string(40, 'x'))));
    EXPECT_EQ(getBootstrapSsdsCertificate(parameters), Base64Of(fourth));
}

TEST_F(BootstrapCertificateStoreTest, NamesAreReadIntoSixtyFourBytes) {
    Put(first, BootstrapName);
    getBootstrapSsdsCertificate(parameters);
    EXPECT_EQ(certificates.nameRoom, 64u);
}

TEST_F(BootstrapCertificateStoreTest, OnlyTheExactNameCounts) {
    for (const std::string name :
         {"DiscoveryServiceBootstra", "discoveryservicebootstrap", " DiscoveryServiceBootstrap",
          "DiscoveryServiceBootstrap ", "DiscoveryServiceBootstrapp"}) {
        std::filesystem::remove_all(directory / "Quennet");
        Put(first, name);
        EXPECT_EQ(FailureOf([&] { getBootstrapSsdsCertificate(parameters); }),
                  Read + "Failed to find bootstrap SSDS certificate.")
            << name;
        SaveDer(second);
        EXPECT_EQ(Stored()[first], name);
    }
}

TEST_F(BootstrapCertificateStoreTest, SavingTheSameCertificateAgainLeavesOne) {
    SaveDer(first);
    SaveDer(first);
    EXPECT_THAT(Stored(), ElementsAre(Pair(first, BootstrapName)));
}

TEST_F(BootstrapCertificateStoreTest, AnEqualCertificateOfAnotherNameIsReplaced) {
    Put(first, "Another");
    SaveDer(first);
    EXPECT_THAT(Stored(), ElementsAre(Pair(first, BootstrapName)));
}

TEST_F(BootstrapCertificateStoreTest, TheStoreIsOpenedAsTheParametersSay) {
    SaveDer(first);
    getBootstrapSsdsCertificate(parameters);
    parameters.useCurrentUserStore = true;
    parameters.storeName = L"Other";
    SaveDer(second);
    getBootstrapSsdsCertificate(parameters);

    using Opened = std::tuple<StoreLocation, StoreAccess, std::wstring>;
    EXPECT_THAT(
        certificates.opened,
        ElementsAre(Opened(StoreLocation::LocalMachine, StoreAccess::ReadWrite, L"OmbrySecurity"),
                    Opened(StoreLocation::LocalMachine, StoreAccess::ReadOnlyExisting, L"OmbrySecurity"),
                    Opened(StoreLocation::CurrentUser, StoreAccess::ReadWrite, L"Other"),
                    Opened(StoreLocation::CurrentUser, StoreAccess::ReadOnlyExisting, L"Other")));
    EXPECT_THAT(Stored(), ElementsAre(Pair(first, BootstrapName)));
}

TEST_F(BootstrapCertificateStoreTest, EachFailingStepOfSavingHasItsTextAndNumberAndClosesTheStore) {
    Put(second, BootstrapName);
    const auto failureAt = [&](const std::string& operation) {
        certificates.Fail(operation, 77, -1);
        const auto count = std::count(certificates.calls.begin(), certificates.calls.end(), operation);
        certificates.Fail(operation, 77, static_cast<int>(count) + 1);
        return FailureOf([&] { SaveDer(first); });
    };
    EXPECT_EQ(failureAt("OpenStore"), Save + "CertOpenStore failed with last error = 77");
    EXPECT_EQ(failureAt("Delete"), Save + "CertDeleteCertificateFromStore failed with last error = 77");
    EXPECT_THAT(Stored(), ElementsAre(Pair(second, BootstrapName)));
    EXPECT_EQ(failureAt("CreateCertificate"),
              Save + "CertCreateCertificateContext failed with last error = 77");
    EXPECT_EQ(failureAt("SetFriendlyName"),
              Save + "CertSetCertificateContextProperty failed with last error = 77");
}

TEST_F(BootstrapCertificateStoreTest, AFailureToAddHasTheTextOfTheDeletionOnPurpose) {
    certificates.Fail("AddReplaceExisting", static_cast<int>(0x80070005));
    EXPECT_EQ(FailureOf([&] { SaveDer(first); }),
              Save + "CertDeleteCertificateFromStore failed with last error = 2147942405");
    EXPECT_THAT(Stored(), IsEmpty());
}

TEST_F(BootstrapCertificateStoreTest, BytesThatAreNoCertificateAreRefused) {
    for (const std::string& der : {std::string(), std::string("garbage"), first + "x", first.substr(1)}) {
        const std::string failure = FailureOf([&] { SaveDer(der); });
        EXPECT_EQ(failure.find(Save + "CertCreateCertificateContext failed with last error = "), 0u)
            << failure;
    }
    ZephIOBuffer untouched;
    EXPECT_EQ(FailureOf([&] {
                  saveBootstrapCertificate(parameters, untouched);
              }).find(Save + "CertCreateCertificateContext failed with last error = "),
              0u);
    EXPECT_THAT(Stored(), IsEmpty());
}

TEST_F(BootstrapCertificateStoreTest, ReadingAStoreThatDoesNotExistFailsWithNumberTwoAndMakesNone) {
    EXPECT_EQ(FailureOf([&] { getBootstrapSsdsCertificate(parameters); }),
              Read + "CertOpenStore failed with last error = 2");
    EXPECT_FALSE(std::filesystem::exists(directory / "Quennet"));
}

TEST_F(BootstrapCertificateStoreTest, ReadingAStoreWithoutABootstrapCertificateSaysSoWithoutANumber) {
    Put(first, "Another");
    Put(second, "");
    EXPECT_EQ(FailureOf([&] { getBootstrapSsdsCertificate(parameters); }),
              Read + "Failed to find bootstrap SSDS certificate.");
}

TEST_F(BootstrapCertificateStoreTest, ANameThatCannotBeReadIsNoCandidate) {
    Put(first, BootstrapName);
    certificates.Fail("GetFriendlyName", 5);
    EXPECT_EQ(FailureOf([&] { getBootstrapSsdsCertificate(parameters); }),
              Read + "Failed to find bootstrap SSDS certificate.");
    SaveDer(second);
    EXPECT_EQ(Stored().size(), 2u);
}

TEST_F(BootstrapCertificateStoreTest, AllThatBearTheNameAreGivenWhereTheFirstOfThemIsTheOneThatCounts) {
    Put(first, "Another");
    EXPECT_THAT(getBootstrapCertificates(parameters), IsEmpty());
    for (const std::string& der : {second, third, fourth})
        Put(der, BootstrapName);
    certificates.opened.clear();

    const std::vector<std::string> all = getBootstrapCertificates(parameters);

    EXPECT_THAT(all, testing::UnorderedElementsAre(second, third, fourth));
    EXPECT_EQ(Base64Of(all.front()), getBootstrapSsdsCertificate(parameters));
    EXPECT_EQ(std::get<StoreAccess>(certificates.opened.front()), StoreAccess::ReadOnlyUnlocked)
        << "who looks on keeps no writer waiting";
    EXPECT_EQ(certificates.openStores, 0);
}

TEST_F(BootstrapCertificateStoreTest, AllOfAStoreThatCannotBeOpenedFailWithItsNumber) {
    EXPECT_EQ(FailureOf([&] { getBootstrapCertificates(parameters); }),
              Read + "CertOpenStore failed with last error = 2");
}

TEST_F(BootstrapCertificateStoreTest, AConversionThatFailsForTheSizeOrForTheTextIsReported) {
    Put(first, BootstrapName);
    for (const int n : {1, 2}) {
        certificates.calls.clear();
        certificates.Fail("BinaryToBase64", 99, n);
        EXPECT_EQ(FailureOf([&] { getBootstrapSsdsCertificate(parameters); }),
                  Read + "CryptBinaryToStringA failed with last error = 99");
    }
}

TEST_F(BootstrapCertificateStoreTest, AnEntryThatIsNoCertificateDisturbsNobody) {
    Put(first, BootstrapName);
    const std::filesystem::path store = directory / "Quennet/CertificateStores/OmbrySecurity";
    ASSERT_TRUE(std::filesystem::is_directory(store));
    directory.Write("Quennet/CertificateStores/OmbrySecurity/garbage", "no certificate");
    std::filesystem::create_directory(store / "folder");

    EXPECT_EQ(getBootstrapSsdsCertificate(parameters), Base64Of(first));
    SaveDer(second);
    EXPECT_EQ(getBootstrapSsdsCertificate(parameters), Base64Of(second));
    EXPECT_EQ(directory.Read("Quennet/CertificateStores/OmbrySecurity/garbage"), "no certificate");
}

TEST_F(BootstrapCertificateStoreTest, WhicheverFileOperationFailsTheStoreStaysReadable) {
    Put(fifth, "Another");
    bool finished = false;
    for (std::size_t n = 1; !finished; ++n) {
        ASSERT_LT(n, 100u);
        Put(first, BootstrapName);
        FaultyFiles files;
        files.FailNth(n, ENOSPC);
        const Platform::Testing::Replace<Platform::IFiles> scope(files);
        const std::string failure = FailureOf([&] { SaveDer(second); });
        finished = files.Operations().size() < n;
        if (failure != "no failure") {
            EXPECT_EQ(failure.find(Save), 0u) << failure;
            EXPECT_TRUE(failure.ends_with(" failed with last error = 28")) << failure;
        }
        files.FailNth(0, 0);
        auto stored = Stored();
        EXPECT_EQ(stored[fifth], "Another") << n;
    }
    EXPECT_EQ(getBootstrapSsdsCertificate(parameters), Base64Of(second));
}

TEST_F(BootstrapCertificateStoreTest, ACrashBeforeAnyFileOperationLeavesWholeEntriesAndTheNextRunMends) {
    bool finished = false;
    for (std::size_t n = 1; !finished; ++n) {
        ASSERT_LT(n, 100u);
        Put(first, BootstrapName);
        Put(fifth, "Another");
        {
            FaultyFiles files;
            const auto count = std::make_shared<std::size_t>(0);
            files.Decide([=](const FileOperation&) -> std::optional<int> {
                if (++*count == n) throw Crash();
                return std::nullopt;
            });
            const Platform::Testing::Replace<Platform::IFiles> scope(files);
            try {
                SaveDer(second);
                finished = true;
            } catch (const Crash&) {
            }
        }
        for (const auto& [der, name] : Stored())
            EXPECT_TRUE(der == first || der == second || der == third || der == fifth) << n;
        EXPECT_EQ(Stored()[fifth], "Another") << n;
        SaveDer(third);
        EXPECT_EQ(getBootstrapSsdsCertificate(parameters), Base64Of(third)) << n;
    }
}

}  // namespace
}  // namespace Ombry::Tests
