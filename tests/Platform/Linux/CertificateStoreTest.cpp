#include "Platform/ICertificates.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FaultyFiles.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Platform/Linux/Resources.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <gmock/gmock.h>
#include <openssl/err.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>

namespace Ombry::Tests {
namespace {

using namespace Platform;
using testing::ElementsAre;
using testing::IsEmpty;

/// UTF-16LE with its terminator.
std::string FriendlyNameBytes(std::u16string_view text) {
    std::string bytes;
    for (const char16_t unit : std::u16string(text) + u'\0') {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

/// A certificate that differs from those with another number.
std::string Der(long serial) {
    CertificateRecipe recipe;
    recipe.key = KeyNamed("ec256");
    recipe.serial = serial;
    static std::map<long, std::string> made;
    std::string& der = made[serial];
    if (der.empty()) der = DerOf(MakeCertificate(recipe));
    return der;
}

class CertificateStoreTest : public testing::Test {
protected:
    ~CertificateStoreTest() override { EXPECT_EQ(ERR_peek_error(), 0u); }

    std::unique_ptr<ICertificateStore> Open(StoreAccess access = StoreAccess::ReadWrite) {
        auto store = Certificates().OpenStore(StoreLocation::LocalMachine, access, L"OmbrySecurity");
        EXPECT_TRUE(store) << store.Error();
        return store ? std::move(*store) : nullptr;
    }

    static std::string FriendlyName(ICertificateStore& store, CertificateContextPointer certificate,
                                    std::size_t room = 64) {
        std::vector<std::uint8_t> buffer(room);
        const auto length = store.GetFriendlyName(certificate, buffer);
        if (!length) return "failure";
        return {reinterpret_cast<const char*>(buffer.data()), *length};
    }

    static std::vector<std::string> All(ICertificateStore& store) {
        std::vector<std::string> all;
        for (auto at = store.FindNext(nullptr); at; at = store.FindNext(at))
            all.push_back(DerOf(*at));
        return all;
    }

    void Add(long serial, std::u16string_view name = {}) {
        const auto store = Open();
        const std::string der = Der(serial);
        const auto added = store->AddReplaceExisting(ContextOf(der));
        ASSERT_TRUE(added);
        if (name.empty()) return;
        ASSERT_TRUE(store->SetFriendlyName(*added, BytesOf(FriendlyNameBytes(name))));
    }

    std::vector<std::string> FileNames() {
        auto names = *Production<IFiles>().List(directory / folder);
        std::sort(names.begin(), names.end());
        return names;
    }

    /// What a command prints on its standard output.
    static std::string Output(const std::string& command) {
        std::string output;
        FILE* const pipe = popen(command.c_str(), "r");
        for (int character = std::fgetc(pipe); character != EOF; character = std::fgetc(pipe))
            output += static_cast<char>(character);
        pclose(pipe);
        return output;
    }

    TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    Testing::Replace<IKnownFolders> replaced{folders};
    const std::string folder = "Quennet/CertificateStores/OmbrySecurity";
};

// Opening.

TEST_F(CertificateStoreTest, ReaderThatAsksForNoLockIsNotHeldUpByAWriterNorHoldsOneUp) {
    const std::string der = Der(1);
    ASSERT_TRUE(Open()->AddReplaceExisting(ContextOf(der)));
    const auto writer = Open();
    const auto reader = Open(StoreAccess::ReadOnlyUnlocked);
    EXPECT_THAT(All(*reader), ElementsAre(der));
    EXPECT_FALSE(reader->Delete(reader->FindNext(nullptr)));
}

TEST_F(CertificateStoreTest, ReadOnlyOpenOfMissingStoreFailsWithTwoAndMakesNone) {
    const auto store = Certificates().OpenStore(StoreLocation::LocalMachine, StoreAccess::ReadOnlyExisting,
                                                L"OmbrySecurity");
    ASSERT_FALSE(store);
    EXPECT_EQ(store.Error(), 2);
    EXPECT_FALSE(std::filesystem::exists(directory / "Quennet"));
}

TEST_F(CertificateStoreTest, OpenForWritingMakesTheStorePrivate) {
    const Mask mask(0);
    EXPECT_EQ(Open()->FindNext(nullptr), nullptr);
    EXPECT_EQ(ModeOf(directory / folder), 0700u);
    EXPECT_EQ(ModeOf(directory / "Quennet/CertificateStores"), 0700u);
    EXPECT_THAT(All(*Open(StoreAccess::ReadOnlyExisting)), IsEmpty());
}

TEST_F(CertificateStoreTest, StoresOfTheUserAndTheMachineAreApart) {
    Add(1);
    const auto store =
        Certificates().OpenStore(StoreLocation::CurrentUser, StoreAccess::ReadWrite, L"OmbrySecurity");
    ASSERT_TRUE(store);
    EXPECT_THAT(All(**store), IsEmpty());
    EXPECT_TRUE(std::filesystem::is_directory(directory / "UserQuennet/CertificateStores/OmbrySecurity"));
}

TEST_F(CertificateStoreTest, StoreNameIsOneFolderInUtf8) {
    ASSERT_TRUE(Certificates().OpenStore(StoreLocation::LocalMachine, StoreAccess::ReadWrite,
                                         std::wstring{wchar_t(0xFC), wchar_t(0xD83D), wchar_t(0xDE00)}));
    EXPECT_TRUE(
        std::filesystem::is_directory(directory / "Quennet/CertificateStores/\xC3\xBC\xF0\x9F\x98\x80"));
    // One wide character may stand for the whole pair.
    ASSERT_TRUE(Certificates().OpenStore(StoreLocation::LocalMachine, StoreAccess::ReadWrite,
                                         std::wstring{wchar_t(0x1F600)}));
    EXPECT_TRUE(std::filesystem::is_directory(directory / "Quennet/CertificateStores/\xF0\x9F\x98\x80"));
}

TEST_F(CertificateStoreTest, StoreNameThatLeadsElsewhereIsRefused) {
    for (const std::wstring& name :
         {std::wstring(), std::wstring(L"."), std::wstring(L".."), std::wstring(L"a/b"),
          std::wstring(L"../a"), std::wstring(L"/a"), std::wstring(L"a\\b"), std::wstring(L"a\0b", 3)}) {
        for (const StoreAccess access : {StoreAccess::ReadWrite, StoreAccess::ReadOnlyExisting}) {
            const auto store = Certificates().OpenStore(StoreLocation::LocalMachine, access, name);
            ASSERT_FALSE(store);
            EXPECT_EQ(store.Error(), EINVAL);
        }
    }
    EXPECT_FALSE(std::filesystem::exists(directory / "Quennet"));
}

TEST_F(CertificateStoreTest, FolderThatCannotBeToldFailsTheOpen) {
    folders.programDataError = 71;
    folders.currentUserError = 72;
    EXPECT_EQ(Certificates().OpenStore(StoreLocation::LocalMachine, StoreAccess::ReadWrite, L"s").Error(),
              71);
    EXPECT_EQ(Certificates().OpenStore(StoreLocation::CurrentUser, StoreAccess::ReadWrite, L"s").Error(), 72);
}

TEST_F(CertificateStoreTest, StoreThatIsFileOrLinkIsRefused) {
    directory.Write(folder, "a file");
    for (const StoreAccess access : {StoreAccess::ReadWrite, StoreAccess::ReadOnlyExisting}) {
        EXPECT_EQ(Certificates().OpenStore(StoreLocation::LocalMachine, access, L"OmbrySecurity").Error(),
                  ENOTDIR);
    }
    std::filesystem::remove(directory / folder);
    std::filesystem::create_directory_symlink("/tmp", directory / folder);
    for (const StoreAccess access : {StoreAccess::ReadWrite, StoreAccess::ReadOnlyExisting}) {
        EXPECT_FALSE(Certificates().OpenStore(StoreLocation::LocalMachine, access, L"OmbrySecurity"));
    }
}

// Adding.

TEST_F(CertificateStoreTest, AddedCertificateIsThereAfterReopeningUnderItsFingerprint) {
    Add(1, u"DiscoveryServiceBootstrap");
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    EXPECT_THAT(All(*store), ElementsAre(Der(1)));
    const auto context = store->FindNext(nullptr);
    EXPECT_EQ(context->encodingType, 0x10001u);
    EXPECT_EQ(FriendlyName(*store, context), FriendlyNameBytes(u"DiscoveryServiceBootstrap"));
    EXPECT_EQ(FriendlyName(*store, context).size(), 52u);

    const auto names = FileNames();
    ASSERT_EQ(names.size(), 1u);
    const std::string path = directory / (folder + "/" + names[0]);
    EXPECT_EQ(ModeOf(path), 0600u);
    EXPECT_TRUE(directory.Read(folder + "/" + names[0]).starts_with("-----BEGIN TRUSTED CERTIFICATE-----\n"));
    std::string fingerprint = Output("openssl x509 -in " + path + " -noout -fingerprint -sha256");
    fingerprint = fingerprint.substr(fingerprint.find('=') + 1);
    std::string name;
    for (const char character : fingerprint) {
        if (std::isxdigit(static_cast<unsigned char>(character))) {
            name += static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        }
    }
    EXPECT_EQ(names[0], name);
}

TEST_F(CertificateStoreTest, AdministratorReadsTheFriendlyNameWithOpenssl) {
    Add(1, u"DiscoveryServiceBootstrap");
    EXPECT_EQ(Output("openssl x509 -in " + directory / (folder + "/" + FileNames()[0]) + " -alias -noout"),
              "DiscoveryServiceBootstrap\n");
}

TEST_F(CertificateStoreTest, EqualCertificateIsReplacedAndLosesItsName) {
    Add(1, u"old");
    Add(2, u"other");
    const auto store = Open();
    const std::string der = Der(1);
    auto old = store->FindNext(nullptr);
    if (DerOf(*old) != der) old = store->FindNext(old);
    const auto added = store->AddReplaceExisting(ContextOf(der));
    ASSERT_TRUE(added);
    EXPECT_EQ(All(*store).size(), 2u);
    EXPECT_EQ(FileNames().size(), 2u);
    EXPECT_EQ(FriendlyName(*store, *added), "failure");
    EXPECT_EQ(DerOf(*old), der);
    EXPECT_NE((*added)->encoded, BytesOf(der).data());
}

TEST_F(CertificateStoreTest, WhatIsNoCertificateIsNotAdded) {
    auto store = Open();
    const std::string bad = "bad";
    EXPECT_EQ(store->AddReplaceExisting(ContextOf(bad)).Error(), EINVAL);
    EXPECT_EQ(store->AddReplaceExisting(ContextOf(Der(1) + "x")).Error(), EINVAL);
    store.reset();
    EXPECT_THAT(FileNames(), IsEmpty());
}

// Walking.

TEST_F(CertificateStoreTest, WalkIsInTheOrderOfFileNamesAlsoForNewEntries) {
    {
        const auto store = Open();
        for (long serial = 1; serial <= 9; ++serial) {
            const std::string der = Der(serial);
            ASSERT_TRUE(store->AddReplaceExisting(ContextOf(der)));
        }
        EXPECT_EQ(All(*store), All(*store));
    }
    std::vector<std::string> expected;
    for (const std::string& name : FileNames()) {
        expected.push_back(Output("openssl x509 -outform DER -in " + directory / (folder + "/" + name)));
    }
    ASSERT_EQ(expected.size(), 9u);
    EXPECT_EQ(All(*Open(StoreAccess::ReadOnlyExisting)), expected);
    const auto store = Open();
    for (auto at = store->FindNext(nullptr); at; at = store->FindNext(nullptr))
        ASSERT_TRUE(store->Delete(at));
    for (long serial = 1; serial <= 9; ++serial) {
        const std::string der = Der(serial);
        ASSERT_TRUE(store->AddReplaceExisting(ContextOf(der)));
    }
    EXPECT_EQ(All(*store), expected);
}

TEST_F(CertificateStoreTest, WhatIsNoCertificateIsPassedOver) {
    Add(1, u"kept");
    directory.Write(folder + "/0-text", "no certificate");
    directory.Write(folder + "/1-empty", "");
    directory.Write(folder + "/2-half", directory.Read(folder + "/" + FileNames()[1]).substr(0, 200));
    directory.Write(folder + "/3-folder/file", "");
    const std::string entry = [&] {
        for (const std::string& name : FileNames()) {
            if (name.size() == 64) return name;
        }
        return std::string();
    }();
    std::filesystem::create_symlink(directory / (folder + "/" + entry), directory / (folder + "/4-link"));
    directory.Write(folder + "/.hidden", directory.Read(folder + "/" + entry));
    ASSERT_EQ(mkfifo((directory / (folder + "/5-pipe")).c_str(), 0600), 0);
    for (const StoreAccess access : {StoreAccess::ReadOnlyExisting, StoreAccess::ReadWrite}) {
        EXPECT_THAT(All(*Open(access)), ElementsAre(Der(1)));
    }
}

TEST_F(CertificateStoreTest, EncipheredEntryIsPassedOverWithoutAskingForPassPhrase) {
    directory.Write(folder + "/secret",
                    "-----BEGIN TRUSTED CERTIFICATE-----\nProc-Type: 4,ENCRYPTED\n"
                    "DEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n\n"
                    "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=\n-----END TRUSTED CERTIFICATE-----\n");
    testing::internal::CaptureStderr();
    const auto all = All(*Open(StoreAccess::ReadOnlyExisting));
    // Where there is no terminal the question would be put here.
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(all, IsEmpty());
}

TEST_F(CertificateStoreTest, PlainCertificateOfAnyNameIsAnEntryWithoutFriendlyName) {
    Add(1);
    const std::string path = directory / (folder + "/" + FileNames()[0]);
    directory.Write(folder + "/by-hand.pem", Output("openssl x509 -in " + path));
    std::filesystem::remove(path);
    const auto store = Open();
    EXPECT_THAT(All(*store), ElementsAre(Der(1)));
    EXPECT_EQ(FriendlyName(*store, store->FindNext(nullptr)), "failure");
    // An equal certificate takes its place instead of lying beside it.
    const std::string der = Der(1);
    ASSERT_TRUE(store->AddReplaceExisting(ContextOf(der)));
    EXPECT_THAT(FileNames(), ElementsAre("by-hand.pem"));
}

TEST_F(CertificateStoreTest, ContextOfAnotherStoreIsRefused) {
    Add(1);
    const std::string der = Der(1);
    const CertificateContext foreign = ContextOf(der);
    const auto store = Open();
    std::vector<std::uint8_t> buffer(64);
    EXPECT_EQ(store->GetFriendlyName(&foreign, buffer).Error(), EINVAL);
    EXPECT_EQ(store->Delete(&foreign).Error(), EINVAL);
    EXPECT_EQ(store->SetFriendlyName(&foreign, BytesOf(FriendlyNameBytes(u"x"))).Error(), EINVAL);
    EXPECT_EQ(store->FindNext(&foreign), nullptr);
}

// Friendly names.

TEST_F(CertificateStoreTest, FriendlyNameMustFitExactlyWithItsTerminator) {
    Add(1, u"DiscoveryServiceBootstrap");
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    const auto context = store->FindNext(nullptr);
    EXPECT_EQ(FriendlyName(*store, context, 52), FriendlyNameBytes(u"DiscoveryServiceBootstrap"));
    EXPECT_EQ(FriendlyName(*store, context, 51), "failure");
    EXPECT_EQ(FriendlyName(*store, context, 0), "failure");
}

TEST_F(CertificateStoreTest, FriendlyNameLongerThanSixtyFourBytesFailsToReadAndStays) {
    const std::u16string name(32, u'n');
    Add(1, name);
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    EXPECT_EQ(FriendlyName(*store, store->FindNext(nullptr), 64), "failure");
    EXPECT_EQ(FriendlyName(*store, store->FindNext(nullptr), 66), FriendlyNameBytes(name));
}

TEST_F(CertificateStoreTest, FriendlyNameBeyondAsciiKeepsItsUnits) {
    const std::u16string name = u"\u00FC\u20AC\U0001F600";
    Add(1, name);
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    EXPECT_EQ(FriendlyName(*store, store->FindNext(nullptr)), FriendlyNameBytes(name));
    EXPECT_EQ(Output("openssl x509 -in " + directory / (folder + "/" + FileNames()[0]) + " -alias -noout"),
              "\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80\n");
}

TEST_F(CertificateStoreTest, EmptyFriendlyNameIsNotTheSameAsNone) {
    Add(1);
    {
        const auto store = Open();
        EXPECT_EQ(FriendlyName(*store, store->FindNext(nullptr)), "failure");
        ASSERT_TRUE(store->SetFriendlyName(store->FindNext(nullptr), BytesOf(FriendlyNameBytes(u""))));
    }
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    EXPECT_EQ(FriendlyName(*store, store->FindNext(nullptr)), FriendlyNameBytes(u""));
}

TEST_F(CertificateStoreTest, NameWithoutProperTerminatorIsRefused) {
    Add(1, u"old");
    const auto store = Open();
    const auto context = store->FindNext(nullptr);
    for (const std::string& name :
         {std::string(), std::string("\0", 1), std::string("a\0", 2), std::string("a\0\0", 3),
          FriendlyNameBytes(u"a") + FriendlyNameBytes(u"b")}) {
        EXPECT_EQ(store->SetFriendlyName(context, BytesOf(name)).Error(), EINVAL);
    }
    EXPECT_EQ(FriendlyName(*store, context), FriendlyNameBytes(u"old"));
}

TEST_F(CertificateStoreTest, NewNameReplacesTheOldAndKeepsOtherTrustSettings) {
    Add(1, u"old");
    const std::string path = directory / (folder + "/" + FileNames()[0]);
    Output("openssl x509 -in " + path + " -trustout -addtrust serverAuth -out " + path + ".new && mv " +
           path + ".new " + path);
    {
        const auto store = Open();
        ASSERT_TRUE(store->SetFriendlyName(store->FindNext(nullptr), BytesOf(FriendlyNameBytes(u"new"))));
    }
    EXPECT_EQ(Output("openssl x509 -in " + path + " -alias -noout"), "new\n");
    EXPECT_THAT(Output("openssl x509 -in " + path + " -text -noout"),
                testing::HasSubstr("TLS Web Server Authentication"));
}

// Deleting.

TEST_F(CertificateStoreTest, DeletedCertificateIsGoneAndTheOthersAreUntouched) {
    Add(1, u"one");
    Add(2, u"two");
    Add(3, u"three");
    const auto before = All(*Open(StoreAccess::ReadOnlyExisting));
    {
        const auto store = Open();
        ASSERT_TRUE(store->Delete(store->FindNext(store->FindNext(nullptr))));
        EXPECT_THAT(All(*store), ElementsAre(before[0], before[2]));
    }
    EXPECT_THAT(All(*Open(StoreAccess::ReadOnlyExisting)), ElementsAre(before[0], before[2]));
    EXPECT_EQ(FileNames().size(), 2u);
}

TEST_F(CertificateStoreTest, ReadOnlyStoreRefusesEveryChange) {
    Add(1, u"name");
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    const auto context = store->FindNext(nullptr);
    const std::string der = Der(2);
    EXPECT_EQ(store->Delete(context).Error(), EACCES);
    EXPECT_EQ(store->AddReplaceExisting(ContextOf(der)).Error(), EACCES);
    EXPECT_EQ(store->SetFriendlyName(context, BytesOf(FriendlyNameBytes(u"x"))).Error(), EACCES);
    EXPECT_EQ(FriendlyName(*store, context), FriendlyNameBytes(u"name"));
    EXPECT_EQ(FileNames().size(), 1u);
}

// Failures of the disk.

TEST_F(CertificateStoreTest, EveryChangeIsAtomicAndOnTheDisk) {
    FaultyFiles files;
    const Testing::Replace<IFiles> replacedFiles(files);
    Add(1, u"name");
    const std::string path = directory / (folder + "/" + FileNames()[0]);
    EXPECT_THAT(files.Texts(), ElementsAre("CreateDirectories " + directory / folder + " Synced",
                                           "BeginReplace " + directory / (folder + "/.reserve Unsynced"),
                                           "List " + directory / folder, "BeginReplace " + path + " Synced",
                                           "Complete " + path + " Synced", "BeginReplace " + path + " Synced",
                                           "Complete " + path + " Synced"));
}

TEST_F(CertificateStoreTest, FailedWriteIsReportedAndLeavesEntryAndFileAsTheyWere) {
    Add(1, u"old");
    const std::string der = Der(1);
    const std::string other = Der(2);
    for (const std::string operation : {"BeginReplace", "Complete"}) {
        FaultyFiles files;
        const Testing::Replace<IFiles> replacedFiles(files);
        const auto store = Open();
        files.FailEvery(operation, ENOSPC);
        const auto context = store->FindNext(nullptr);
        EXPECT_EQ(store->SetFriendlyName(context, BytesOf(FriendlyNameBytes(u"new"))).Error(), ENOSPC);
        EXPECT_EQ(store->AddReplaceExisting(ContextOf(der)).Error(), ENOSPC);
        EXPECT_EQ(store->AddReplaceExisting(ContextOf(other)).Error(), ENOSPC);
        EXPECT_EQ(FriendlyName(*store, context), FriendlyNameBytes(u"old"));
        EXPECT_THAT(All(*store), ElementsAre(der));
    }
    const auto store = Open(StoreAccess::ReadOnlyExisting);
    EXPECT_THAT(All(*store), ElementsAre(der));
    EXPECT_EQ(FriendlyName(*store, store->FindNext(nullptr)), FriendlyNameBytes(u"old"));
}

TEST_F(CertificateStoreTest, FullDiskFailsTheOpenForWritingSoThatNothingIsDeletedForNothing) {
    Add(1, u"old");
    SystemCalls calls;
    calls.Fail("fallocate", ENOSPC);
    EXPECT_EQ(Certificates()
                  .OpenStore(StoreLocation::LocalMachine, StoreAccess::ReadWrite, L"OmbrySecurity")
                  .Error(),
              ENOSPC);
    EXPECT_THAT(All(*Open(StoreAccess::ReadOnlyExisting)), ElementsAre(Der(1)));
}

TEST_F(CertificateStoreTest, SpaceHeldForChangesIsGivenBackToTheFirstOfThem) {
    const auto store = Open();
    const auto held = [&] {
        long long bytes = 0;  // on the disk: they are no part of a file
        for (const auto& entry : std::filesystem::directory_iterator(directory / folder)) {
            struct stat status {};
            EXPECT_EQ(stat(entry.path().c_str(), &status), 0);
            if (entry.path().filename().string().starts_with('.')) bytes += status.st_blocks * 512LL;
        }
        return bytes;
    };
    EXPECT_GE(held(), 16384);
    const std::string der = Der(1);
    ASSERT_TRUE(store->AddReplaceExisting(ContextOf(der)));
    EXPECT_EQ(held(), 0);
}

TEST_F(CertificateStoreTest, FailedDeleteIsReportedAndKeepsTheEntry) {
    Add(1, u"old");
    FaultyFiles files;
    const Testing::Replace<IFiles> replacedFiles(files);
    files.FailEvery("Remove", EROFS);
    const auto store = Open();
    EXPECT_EQ(store->Delete(store->FindNext(nullptr)).Error(), EROFS);
    EXPECT_THAT(All(*store), ElementsAre(Der(1)));
}

TEST_F(CertificateStoreTest, FailureToOpenIsReportedAndReleasesTheLock) {
    Add(1);
    const std::size_t descriptors = OpenDescriptors();
    for (const std::string operation : {"CreateDirectories", "List"}) {
        FaultyFiles files;
        const Testing::Replace<IFiles> replacedFiles(files);
        files.FailEvery(operation, EIO);
        EXPECT_EQ(Certificates()
                      .OpenStore(StoreLocation::LocalMachine, StoreAccess::ReadWrite, L"OmbrySecurity")
                      .Error(),
                  EIO);
    }
    for (const std::string call : {"open", "flock"}) {
        SystemCalls calls;
        calls.Fail(call, ENOLCK);
        EXPECT_EQ(Certificates()
                      .OpenStore(StoreLocation::LocalMachine, StoreAccess::ReadOnlyExisting, L"OmbrySecurity")
                      .Error(),
                  ENOLCK);
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_THAT(All(*Open()), ElementsAre(Der(1)));
}

TEST_F(CertificateStoreTest, EntryThatCannotBeReadFailsTheOpenRatherThanOutliveItsSuccessorUnseen) {
    Add(1);
    Add(2);
    for (const int error : {EIO, EMFILE, EACCES}) {
        FaultyFiles files;
        const Testing::Replace<IFiles> replacedFiles(files);
        files.FailEvery("Read", error, directory / (folder + "/" + FileNames()[1]));
        for (const StoreAccess access : {StoreAccess::ReadOnlyExisting, StoreAccess::ReadWrite}) {
            EXPECT_EQ(Certificates().OpenStore(StoreLocation::LocalMachine, access, L"OmbrySecurity").Error(),
                      error);
        }
    }
    EXPECT_EQ(All(*Open(StoreAccess::ReadWrite)).size(), 2u);
}

TEST_F(CertificateStoreTest, EntryThatIsGoneByTheTimeItIsReadIsPassedOver) {
    Add(1);
    Add(2);
    FaultyFiles files;
    const Testing::Replace<IFiles> replacedFiles(files);
    files.FailEvery("Read", ENOENT, directory / (folder + "/" + FileNames()[0]));
    EXPECT_EQ(All(*Open(StoreAccess::ReadOnlyExisting)).size(), 1u);
}

// Locking.

class CertificateStoreLockTest : public CertificateStoreTest {
protected:
    /// Whether another process could take the lock now.
    bool CanLock(int kind) {
        const int other = open((directory / folder).c_str(), O_RDONLY | O_DIRECTORY);
        const bool locked = flock(other, kind | LOCK_NB) == 0;
        close(other);
        return locked;
    }
};

TEST_F(CertificateStoreLockTest, WriterIsAloneUntilTheStoreIsClosed) {
    {
        const auto store = Open(StoreAccess::ReadWrite);
        EXPECT_FALSE(CanLock(LOCK_SH));
        EXPECT_FALSE(CanLock(LOCK_EX));
        const std::string der = Der(1);
        ASSERT_TRUE(store->AddReplaceExisting(ContextOf(der)));
        EXPECT_FALSE(CanLock(LOCK_SH));
    }
    EXPECT_TRUE(CanLock(LOCK_EX));
}

TEST_F(CertificateStoreLockTest, ReadersShareTheStoreAndKeepWritersOut) {
    Add(1);
    {
        const auto store = Open(StoreAccess::ReadOnlyExisting);
        const auto second = Open(StoreAccess::ReadOnlyExisting);
        EXPECT_TRUE(CanLock(LOCK_SH));
        EXPECT_FALSE(CanLock(LOCK_EX));
    }
    EXPECT_TRUE(CanLock(LOCK_EX));
}

TEST_F(CertificateStoreLockTest, LockThatIsHeldIsWaitedForForFifteenSeconds) {
    Add(1);
    FakeClock clock;
    const Testing::Replace<IClock> replaced(clock);
    const int other = open((directory / folder).c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    clock.OnSleep([&, start = clock.SteadyNow()] {
        if (clock.SteadyNow() - start > std::chrono::minutes(1)) flock(other, LOCK_UN);  // no end in sight
    });
    const std::size_t descriptors = OpenDescriptors();
    for (const StoreAccess access : {StoreAccess::ReadWrite, StoreAccess::ReadOnlyExisting}) {
        const Duration start = clock.SteadyNow();
        EXPECT_EQ(Certificates().OpenStore(StoreLocation::LocalMachine, access, L"OmbrySecurity").Error(),
                  EWOULDBLOCK);
        EXPECT_EQ(clock.SteadyNow() - start, std::chrono::seconds(15));
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
    close(other);
    const std::size_t sleeps = clock.Sleeps().size();
    EXPECT_THAT(All(*Open(StoreAccess::ReadWrite)), ElementsAre(Der(1)));
    EXPECT_EQ(clock.Sleeps().size(), sleeps);  // a lock that is free costs no time
}

TEST_F(CertificateStoreLockTest, LockThatIsGivenBackIsTakenSoonAfter) {
    Add(1);
    FakeClock clock;
    const Testing::Replace<IClock> replaced(clock);
    const int other = open((directory / folder).c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(flock(other, LOCK_EX), 0);
    const Duration start = clock.SteadyNow();
    clock.OnSleep([&] {
        if (clock.SteadyNow() - start >= std::chrono::seconds(14)) flock(other, LOCK_UN);
    });
    EXPECT_THAT(All(*Open(StoreAccess::ReadWrite)), ElementsAre(Der(1)));
    EXPECT_LT(clock.SteadyNow() - start, std::chrono::milliseconds(14100));
    close(other);
}

TEST_F(CertificateStoreLockTest, SpaceThatAKilledWriterHeldIsGivenBackByTheNextOne) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const auto store = Open(StoreAccess::ReadWrite);
        raise(SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_EQ(Files().List(directory / folder)->size(), 1u);

    EXPECT_NE(Open(StoreAccess::ReadWrite), nullptr);

    EXPECT_THAT(*Files().List(directory / folder), IsEmpty());
}

TEST_F(CertificateStoreLockTest, LockIsTakenBeforeAnyEntryIsRead) {
    Add(1);
    SystemCalls calls;
    // What another process changes while the lock is waited for is seen.
    calls.Before([&](const SystemCalls::Call& call) {
        if (call.name == "flock") std::filesystem::remove(directory / (folder + "/" + FileNames()[0]));
    });
    EXPECT_THAT(All(*Open(StoreAccess::ReadOnlyExisting)), IsEmpty());
}

TEST_F(CertificateStoreLockTest, SignalWhileWaitingForTheLockPlaysNoPart) {
    Add(1);
    SystemCalls calls;
    calls.Fail("flock", EINTR, 2);
    EXPECT_THAT(All(*Open(StoreAccess::ReadOnlyExisting)), ElementsAre(Der(1)));
    EXPECT_EQ(calls.Count("flock"), 3u);
}

}  // namespace
}  // namespace Ombry::Tests
