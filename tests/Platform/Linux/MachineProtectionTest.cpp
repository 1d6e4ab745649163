#include "Platform/IFiles.h"
#include "Platform/IInspection.h"
#include "Platform/IMachineProtection.h"
#include "Platform/Linux/IMachineId.h"
#include "Platform/Linux/MachineId.h"
#include "Platform/Linux/TemporaryFile.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Platform/Linux/AddressSpace.h"
#include "tests/Platform/Linux/OwnStack.h"
#include "tests/Platform/Linux/Resources.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <gmock/gmock.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <limits>
#include <set>

namespace Ombry::Tests {
namespace {

using Platform::IMachineProtection;
using testing::ElementsAre;

constexpr std::uint32_t Machine = 5;  // no user interface, local machine
constexpr std::uint32_t User = 1;     // no user interface

class MachineProtectionTest : public testing::Test {
protected:
    std::string Protect(const std::string& plain, const std::string& entropy = "entropy",
                        std::uint32_t flags = Machine) {
        const auto blob = protection.Protect(plain, entropy, flags);
        EXPECT_TRUE(blob) << blob.Error();
        return blob && *blob ? **blob : "";
    }

    /// The plain text, or "error " and the number.
    std::string Unprotect(const std::string& blob, const std::string& entropy = "entropy",
                          std::uint32_t flags = Machine) {
        const std::string text = TextOf(protection.Unprotect(blob, entropy, flags));
        EXPECT_EQ(TextOf(brief.Unprotect(blob, entropy, flags)), text) << "deciphered without providers";
        return text;
    }
    static std::string TextOf(const Platform::ValueOr<std::optional<std::string>>& plain) {
        if (!plain) return "error " + std::to_string(plain.Error());
        return plain->value_or("no data");
    }

    const std::string Tampered = "error " + std::to_string(EBADMSG);

    TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    FakeMachineId machine{"0123456789abcdef0123456789abcdef"};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    Platform::Testing::Replace<Platform::IMachineId> replacedMachine{machine};
    IMachineProtection& protection = Platform::MachineProtection();
    IMachineProtection& brief = Platform::Inspection().Deciphering();
    const std::string keyFile = "Quennet/Keys/protection.key";
};

TEST_F(MachineProtectionTest, UnprotectGivesBackWhatWasProtected) {
    for (const std::string& plain :
         {std::string("x"), std::string("with\0nul", 8), std::string(100000, 'y'), std::string()}) {
        EXPECT_EQ(Unprotect(Protect(plain)), plain);
    }
}

TEST_F(MachineProtectionTest, WhoOnlyDeciphersEnciphersToNothingAndMakesNoKey) {
    EXPECT_EQ(TextOf(brief.Protect("secret", "entropy", Machine)), "");
    EXPECT_FALSE(std::filesystem::exists(directory / "Quennet"));
}

TEST_F(MachineProtectionTest, BlobIsVersionNonceTextAndTag) {
    const std::string blob = Protect("secret");
    EXPECT_EQ(blob.size(), 1u + 12 + 6 + 16);
    EXPECT_EQ(blob[0], 1);
    EXPECT_EQ(blob.find("secret"), std::string::npos);
}

TEST_F(MachineProtectionTest, BlobOfTodayIsTheOneThatLaterVersionsMustRead) {
    // Key, nonce, machine and entropy being known, so is the blob. Another derivation or another form would
    // make every file on every machine unreadable.
    FakeRandom random;  // the key is 00 to 1f, the nonce 20 to 2b
    const Platform::Testing::Replace<Platform::IRandom> replaced(random);
    std::string text;
    for (const char byte : Protect("secret", "entropy")) {
        text += "0123456789abcdef"[static_cast<std::uint8_t>(byte) >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    EXPECT_EQ(text, "01202122232425262728292a2b15a61d6422d56393e16635c8befc2755134a4b470ff6");
}

TEST_F(MachineProtectionTest, NeitherKeyNorTextIsLeftInFreedMemory) {
    std::string key;
    for (char byte = 0; byte < 32; ++byte)
        key += byte;
    const std::string plain = "a secret too long for a string object";
    for (const std::string& secret : {key, plain}) {
        std::filesystem::remove_all(directory / "Quennet");
        FakeRandom random;
        const Platform::Testing::Replace<Platform::IRandom> replaced(random);
        const FreedMemory freed(secret);
        auto blob = protection.Protect(plain, "entropy", Machine);  // makes the key
        ASSERT_TRUE(blob);
        const auto back = protection.Unprotect(**blob, "entropy", Machine);
        ASSERT_TRUE(back);
        EXPECT_EQ(*back, plain);
        const auto briefly = brief.Unprotect(**blob, "entropy", Machine);
        ASSERT_TRUE(briefly);
        EXPECT_EQ(*briefly, plain);
        EXPECT_FALSE(protection.Unprotect(**blob, "another", Machine));
        // Where the tag alone is wrong the text was deciphered before that shows.
        (*blob)->back() = static_cast<char>((*blob)->back() ^ 1);
        EXPECT_FALSE(protection.Unprotect(**blob, "entropy", Machine));
        EXPECT_FALSE(brief.Unprotect(**blob, "entropy", Machine));
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << secret.size();
    }
}

TEST_F(MachineProtectionTest, DamagedKeyIsNotLeftInFreedMemory) {
    Protect("makes the key");
    const std::string damaged = "not as long as a key has to be, and yet no less secret";
    directory.Write(keyFile, damaged);
    const FreedMemory freed(damaged);
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), EBADMSG);
    EXPECT_EQ(protection.Unprotect(std::string(40, '\1'), "e", Machine).Error(), EBADMSG);
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

/// The key that a blob is enciphered with, derived once more.
std::string DerivedKey(std::string keyFile, std::string machineId, const std::string& entropy) {
    unsigned char hash[32];
    EVP_Digest(entropy.data(), entropy.size(), hash, nullptr, EVP_sha256(), nullptr);
    std::string info = "Quennet machine protection 1" + std::string(reinterpret_cast<char*>(hash), 32);
    char digest[] = "SHA256";
    EVP_KDF* const kdf = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
    EVP_KDF_CTX* const context = EVP_KDF_CTX_new(kdf);
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, keyFile.data(), keyFile.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, machineId.data(), machineId.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info.data(), info.size()),
        OSSL_PARAM_construct_end()};
    std::string key(32, '\0');
    EXPECT_EQ(EVP_KDF_derive(context, reinterpret_cast<unsigned char*>(key.data()), key.size(), parameters),
              1);
    EVP_KDF_CTX_free(context);
    EVP_KDF_free(kdf);
    return key;
}

/// The plain text of a blob, whose tag is not looked at.
std::string Decipher(const std::string& key, const std::string& blob) {
    std::string plain(blob.size() - 13 - 16, '\0');
    EVP_CIPHER_CTX* const context = EVP_CIPHER_CTX_new();
    const auto* const bytes = reinterpret_cast<const unsigned char*>(blob.data());
    int length = 0;
    EVP_DecryptInit_ex(context, EVP_aes_256_gcm(), nullptr,
                       reinterpret_cast<const unsigned char*>(key.data()), bytes + 1);
    EVP_DecryptUpdate(context, reinterpret_cast<unsigned char*>(plain.data()), &length, bytes + 13,
                      static_cast<int>(plain.size()));
    EVP_CIPHER_CTX_free(context);
    return plain;
}

TEST_F(MachineProtectionTest, DerivedKeyIsNotLeftOnTheStack) {
    const std::string blob = Protect("secret");
    const std::string key = DerivedKey(directory.Read(keyFile), machine.id, "entropy");
    ASSERT_EQ(Decipher(key, blob), "secret");

    OwnStack protecting;
    protecting.Run([&] {
        EXPECT_TRUE(OwnStack::FarDown([&] { return protection.Protect("secret", "entropy", Machine); }));
    });
    EXPECT_FALSE(protecting.Holds(key));

    for (IMachineProtection* way : {&protection, &brief}) {
        OwnStack unprotecting;
        unprotecting.Run([&] {
            EXPECT_TRUE(OwnStack::FarDown([&] { return way->Unprotect(blob, "entropy", Machine); }));
        });
        EXPECT_FALSE(unprotecting.Holds(key));
    }
}

TEST(OwnStackTest, HoldsWhatAFunctionLeftThere) {
    OwnStack stack;
    stack.Run([] {
        OwnStack::FarDown([] {
            volatile char left[] = "left behind by a function";
            return left[0];
        });
    });
    EXPECT_TRUE(stack.Holds("left behind by a function"));
    EXPECT_FALSE(stack.Holds("left behind by a functioN"));
}

TEST_F(MachineProtectionTest, EqualTextsGiveDifferentBlobs) {
    const std::string first = Protect("secret");
    const std::string second = Protect("secret");
    EXPECT_NE(first.substr(1, 12), second.substr(1, 12));
    EXPECT_NE(first.substr(13), second.substr(13));
}

TEST_F(MachineProtectionTest, EveryBitOfTheBlobIsAuthenticated) {
    const std::string blob = Protect("secret");
    for (std::size_t at = 0; at < blob.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string changed = blob;
            changed[at] = static_cast<char>(changed[at] ^ (1 << bit));
            ASSERT_EQ(Unprotect(changed), Tampered) << at << " " << bit;
        }
    }
}

TEST_F(MachineProtectionTest, TruncatedOrLengthenedBlobFails) {
    const std::string blob = Protect("secret");
    for (std::size_t length = 0; length < blob.size(); ++length) {
        ASSERT_EQ(Unprotect(blob.substr(0, length)), Tampered) << length;
    }
    EXPECT_EQ(Unprotect(blob + "x"), Tampered);
}

TEST_F(MachineProtectionTest, OtherEntropyFailsEvenIfItDiffersOnlyByTrailingNul) {
    const std::string blob = Protect("secret", "entropy");
    for (const std::string& other : {std::string("Entropy"), std::string("entropy\0", 8),
                                     std::string("entrop"), std::string(), std::string(5000, 'e')}) {
        EXPECT_EQ(Unprotect(blob, other), Tampered);
    }
    const std::string longEntropy(100000, 'e');
    EXPECT_EQ(Unprotect(Protect("secret", longEntropy), longEntropy), "secret");
    EXPECT_EQ(Unprotect(Protect("secret", ""), ""), "secret");
    EXPECT_EQ(Unprotect(Protect("secret", ""), std::string(1, '\0')), Tampered);
}

TEST_F(MachineProtectionTest, CopyOnMachineWithAnotherIdentityFails) {
    const std::string blob = Protect("secret");
    machine.id = "fedcba9876543210fedcba9876543210";
    EXPECT_EQ(Unprotect(blob), Tampered);
    machine.id.clear();
    EXPECT_EQ(Unprotect(blob), Tampered);
}

TEST_F(MachineProtectionTest, CopyOnMachineWithAnotherKeyFails) {
    const std::string blob = Protect("secret");
    std::string key = directory.Read(keyFile);
    key[31] = static_cast<char>(key[31] ^ 1);
    directory.Write(keyFile, key);
    EXPECT_EQ(Unprotect(blob), Tampered);
}

TEST_F(MachineProtectionTest, CopyOnMachineWithoutKeyFailsAndMakesNone) {
    const std::string blob = Protect("secret");
    std::filesystem::remove_all(directory / "Quennet");
    EXPECT_EQ(Unprotect(blob), "error " + std::to_string(ENOENT));
    EXPECT_FALSE(std::filesystem::exists(directory / "Quennet"));
}

TEST_F(MachineProtectionTest, MachineWithoutIdentityIsProtectedByItsKeyAlone) {
    machine.id.clear();
    EXPECT_EQ(Unprotect(Protect("secret")), "secret");
}

TEST_F(MachineProtectionTest, ScopesHaveKeysOfTheirOwn) {
    const std::string ofMachine = Protect("secret", "e", Machine);
    EXPECT_FALSE(std::filesystem::exists(directory / "UserQuennet"));
    const std::string ofUser = Protect("secret", "e", User);
    EXPECT_EQ(Unprotect(ofMachine, "e", Machine), "secret");
    EXPECT_EQ(Unprotect(ofUser, "e", User), "secret");
    EXPECT_EQ(Unprotect(ofMachine, "e", User), Tampered);
    EXPECT_EQ(Unprotect(ofUser, "e", Machine), Tampered);
    EXPECT_EQ(directory.Read("UserQuennet/Keys/protection.key").size(), 32u);
}

TEST_F(MachineProtectionTest, UserInterfaceFlagPlaysNoPart) {
    EXPECT_EQ(Unprotect(Protect("secret", "e", 4), "e", 5), "secret");
    EXPECT_EQ(Unprotect(Protect("secret", "e", 0), "e", 1), "secret");
}

TEST_F(MachineProtectionTest, MoreThanTheCipherCanCountIsRefusedUnread) {
    constexpr std::size_t most = std::numeric_limits<int>::max();
    const AddressSpace plain(most + 1);
    EXPECT_EQ(protection.Protect(plain.Text(), "e", Machine).Error(), EFBIG);
    AddressSpace blob(1 + 12 + most + 1 + 16);
    blob.BeginWith("\1");
    EXPECT_EQ(protection.Unprotect(blob.Text(), "e", Machine).Error(), EFBIG);
    EXPECT_FALSE(std::filesystem::exists(directory / "Quennet"));
}

// The key file.

TEST_F(MachineProtectionTest, KeyIsThirtyTwoRandomBytesForItsOwnerOnlyAndMadeOnce) {
    const Mask mask(0);
    Protect("secret");
    const std::string key = directory.Read(keyFile);
    EXPECT_EQ(key.size(), 32u);
    EXPECT_GT(std::set<char>(key.begin(), key.end()).size(), 8u);
    EXPECT_EQ(ModeOf(directory / keyFile), 0600u);
    EXPECT_EQ(ModeOf(directory / "Quennet"), 0700u);
    EXPECT_EQ(ModeOf(directory / "Quennet/Keys"), 0700u);
    Protect("other");
    EXPECT_EQ(directory.Read(keyFile), key);
    EXPECT_THAT(*Platform::Files().List(directory / "Quennet/Keys"), ElementsAre("protection.key"));
}

TEST_F(MachineProtectionTest, KeysOfTwoMachinesDiffer) {
    Protect("secret", "e", Machine);
    Protect("secret", "e", User);
    EXPECT_NE(directory.Read(keyFile), directory.Read("UserQuennet/Keys/protection.key"));
}

TEST_F(MachineProtectionTest, DamagedKeyFailsAndIsNeverReplaced) {
    const std::string blob = Protect("secret");
    for (const std::string& damaged : {std::string(), std::string(31, 'k'), std::string(33, 'k')}) {
        directory.Write(keyFile, damaged);
        EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), EBADMSG);
        EXPECT_EQ(Unprotect(blob), Tampered);
        EXPECT_EQ(directory.Read(keyFile), damaged);
    }
}

TEST_F(MachineProtectionTest, KeyThatOthersMayUseIsRefusedWithARemedyAndNeverReplaced) {
    const std::string blob = Protect("secret");
    const std::string key = directory.Read(keyFile);
    for (const mode_t mode : {0640, 0620, 0610, 0604, 0602, 0601, 0666, 0777}) {
        ASSERT_EQ(chmod((directory / keyFile).c_str(), mode), 0);
        EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), EKEYREJECTED) << mode;
        EXPECT_EQ(Unprotect(blob), "error " + std::to_string(EKEYREJECTED)) << mode;
        EXPECT_EQ(directory.Read(keyFile), key);
        EXPECT_EQ(ModeOf(directory / keyFile), mode);
    }
    EXPECT_THAT(std::string(protection.Remedy(EKEYREJECTED)),
                testing::AllOf(testing::HasSubstr("Keys/protection.key"), testing::HasSubstr("0600")));
    EXPECT_EQ(protection.Remedy(EBADMSG), "");
    for (const mode_t mode : {0400, 0600, 0700}) {
        ASSERT_EQ(chmod((directory / keyFile).c_str(), mode), 0);
        EXPECT_EQ(Unprotect(blob), "secret") << mode;
    }
}

TEST_F(MachineProtectionTest, KeyOfRootOrOfTheUserIsUsedAndThatOfAnotherIsRefused) {
    if (geteuid() != 0) return LeaveOut("only root can give a file away");
    constexpr uid_t Nobody = 65534;
    const std::string blob = Protect("secret");
    ASSERT_EQ(chown((directory / keyFile).c_str(), Nobody, 0), 0);
    EXPECT_EQ(Unprotect(blob), "error " + std::to_string(EKEYREJECTED));
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), EKEYREJECTED);

    for (const std::string& folder : {std::string(), std::string("Quennet"), std::string("Quennet/Keys")})
        ASSERT_EQ(chown((directory / folder).c_str(), Nobody, 0), 0);
    ASSERT_EQ(seteuid(Nobody), 0);
    const std::string asOwner = Unprotect(blob);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(asOwner, "secret");

    ASSERT_EQ(chown((directory / keyFile).c_str(), 0, 0), 0);
    EXPECT_EQ(Unprotect(blob), "secret");
}

TEST_F(MachineProtectionTest, SecondNameOfTheKeyThatAKilledProcessLeftIsRemoved) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        SystemCalls calls;
        calls.Before([](const SystemCalls::Call& call) {
            if (call.name == "unlink") raise(SIGKILL);
        });
        Protect("secret");
        std::_Exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(Platform::Files().List(directory / "Quennet/Keys")->size(), 2u);
    const std::string key = directory.Read(keyFile);

    EXPECT_EQ(Unprotect(Protect("secret")), "secret");

    EXPECT_THAT(*Platform::Files().List(directory / "Quennet/Keys"), ElementsAre("protection.key"));
    EXPECT_EQ(directory.Read(keyFile), key);
}

TEST_F(MachineProtectionTest, KeyBehindSymbolicLinkIsRefused) {
    directory.Write("stolen", std::string(32, 'k'));
    std::filesystem::create_directories(directory / "Quennet/Keys");
    std::filesystem::create_symlink(directory / "stolen", directory / keyFile);
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), ELOOP);
}

TEST_F(MachineProtectionTest, AnythingElseInThePlaceOfTheKeyIsRefusedAndStays) {
    std::filesystem::create_directories(directory / keyFile);
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), EISDIR);
    ASSERT_TRUE(std::filesystem::remove(directory / keyFile));
    ASSERT_EQ(mkfifo((directory / keyFile).c_str(), 0600), 0);
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), EINVAL);
    EXPECT_TRUE(std::filesystem::is_fifo(directory / keyFile));
}

TEST_F(MachineProtectionTest, KeyIsOnTheDiskBeforeItGetsItsName) {
    SystemCalls calls;
    Protect("secret");
    const auto names = calls.Names();
    const auto at = [&](const std::string& name, auto from) { return std::find(from, names.end(), name); };
    const auto written = at("write", names.begin());
    const auto synced = at("fsync", written);
    const auto linked = at("link", synced);
    const auto folderSynced = at("fsync", linked);
    EXPECT_NE(folderSynced, names.end());
    // Two more for the folders that were made, each in its parent.
    EXPECT_EQ(std::count(names.begin(), names.end(), "fsync"), 4);
    EXPECT_EQ(std::count(names.begin(), names.end(), "rename"), 0);
}

TEST_F(MachineProtectionTest, WhoeverLosesTheRaceForTheKeyUsesTheWinners) {
    std::string blobOfWinner;
    std::string blobOfLoser;
    {
        SystemCalls calls;
        calls.Before([&](const SystemCalls::Call& call) {
            if (call.name == "link") blobOfWinner = Protect("winner");
        });
        blobOfLoser = Protect("loser");
    }
    EXPECT_EQ(Unprotect(blobOfWinner), "winner");
    EXPECT_EQ(Unprotect(blobOfLoser), "loser");
    EXPECT_THAT(*Platform::Files().List(directory / "Quennet/Keys"), ElementsAre("protection.key"));
}

TEST_F(MachineProtectionTest, ProcessesThatStartTogetherMakeOneKey) {
    std::vector<pid_t> children;
    for (int i = 0; i < 8; ++i) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const auto blob = protection.Protect("secret", "e", Machine);
            if (blob) directory.Write("blob" + std::to_string(i), **blob);
            std::_Exit(blob ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(Unprotect(directory.Read("blob" + std::to_string(i)), "e"), "secret");
    }
}

TEST_F(MachineProtectionTest, FailureOfAnyStepLeavesNoHalfKeyAndTheNextCallWorks) {
    std::vector<SystemCalls::Call> steps;
    // Looking for leftovers comes once a process and may fail.
    Platform::Linux::RemoveLeftoversOnce(directory / "Quennet/Keys");
    {
        SystemCalls calls;
        Protect("secret");
        steps = calls.Calls();
    }
    const std::size_t descriptors = OpenDescriptors();
    for (std::size_t n = 1; n <= steps.size(); ++n) {
        const SystemCalls::Call& step = steps[n - 1];
        const std::string shown = std::to_string(n) + " " + step.name + " " + step.text;
        // Nothing can be lost by closing what was read or synced, by removing a second name, or where a
        // folder stands already.
        const bool harmless = step.name == "close" || step.name == "unlink" ||
                              (step.name == "mkdir" && directory.Path().starts_with(step.text));
        std::filesystem::remove_all(directory / "Quennet");
        {
            SystemCalls calls;
            calls.FailNth(n, EIO);
            const auto blob = protection.Protect("secret", "entropy", Machine);
            EXPECT_TRUE(blob ? harmless : blob.Error() == EIO) << shown << " " << blob.Error();
        }
        EXPECT_EQ(Unprotect(Protect("again")), "again") << shown;
        EXPECT_EQ(directory.Read(keyFile).size(), 32u) << shown;
        EXPECT_EQ(OpenDescriptors(), descriptors) << shown;
    }
}

TEST_F(MachineProtectionTest, KeyWhoseFileCannotBeClosedIsNotUsed) {
    // Some file systems tell only then that a write has failed.
    {
        SystemCalls calls;
        calls.Before([&](const SystemCalls::Call& call) {
            if (call.name == "write") calls.Fail("close", EDQUOT);
        });
        EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), EDQUOT);
    }
    EXPECT_THAT(*Platform::Files().List(directory / "Quennet/Keys"), testing::IsEmpty());
    EXPECT_EQ(Unprotect(Protect("again")), "again");
}

TEST_F(MachineProtectionTest, NothingThatIsOpenedReachesAnotherProgram) {
    SystemCalls calls;
    Protect("makes the key");
    for (const SystemCalls::Call& call : calls.Calls()) {
        EXPECT_TRUE(call.name != "open" || (call.argument & O_CLOEXEC) != 0) << call.text;
    }
    EXPECT_GT(calls.Count("open"), 3u);
}

TEST_F(MachineProtectionTest, FolderThatCannotBeToldFailsWithItsNumber) {
    const std::string blob = Protect("secret");
    folders.programDataError = 71;
    folders.currentUserError = 72;
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), 71);
    EXPECT_EQ(protection.Protect("x", "e", User).Error(), 72);
    EXPECT_EQ(Unprotect(blob, "e", Machine), "error 71");
    EXPECT_EQ(Unprotect(blob, "e", User), "error 72");
}

TEST_F(MachineProtectionTest, SourceOfChanceThatFailsFailsTheCall) {
    Protect("makes the key");
    FakeRandom random;
    random.FailBytes(ENOSYS);
    const Platform::Testing::Replace<Platform::IRandom> replaced(random);
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), ENOSYS);
    std::filesystem::remove_all(directory / "Quennet");
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), ENOSYS);
    EXPECT_THAT(*Platform::Files().List(directory / "Quennet/Keys"), testing::IsEmpty());
}

TEST_F(MachineProtectionTest, NothingStaysInTheErrorQueue) {
    std::string blob = Protect("secret");
    blob.back() = static_cast<char>(blob.back() ^ 1);
    EXPECT_EQ(Unprotect(blob), Tampered);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(MachineProtectionTest, IdentityThatCannotBeReadFailsTheCallAndMakesNoKey) {
    const std::string blob = Protect("secret");
    machine.error = EMFILE;
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), EMFILE);
    EXPECT_EQ(Unprotect(blob), "error " + std::to_string(EMFILE));
    std::filesystem::remove_all(directory / "Quennet");
    EXPECT_EQ(protection.Protect("x", "e", Machine).Error(), EMFILE);
    EXPECT_FALSE(std::filesystem::exists(directory / "Quennet"));
    machine.error = 0;
    EXPECT_EQ(Unprotect(Protect("again")), "again");
}

TEST(MachineIdTest, IsTheFirstLineOfTheSystemsFileOrEmpty) {
    const auto id = Platform::Production<Platform::IMachineId>().MachineId();
    ASSERT_TRUE(id);
    std::ifstream file("/etc/machine-id");
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(*id, line == "uninitialized" ? "" : line);
}

class MachineIdFileTest : public testing::Test {
protected:
    /// The identity, or "error " and the number.
    std::string Id(const std::string& name = "id") const {
        const auto id = Platform::Linux::ReadMachineId(directory / name);
        return id ? *id : "error " + std::to_string(id.Error());
    }

    TemporaryDirectory directory;
};

TEST_F(MachineIdFileTest, MachineWithoutTheFileOrWithAnythingElseInItsPlaceHasNone) {
    EXPECT_EQ(Id(), "");
    std::filesystem::create_directory(directory / "folder");
    EXPECT_EQ(Id("folder"), "");
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(Id("pipe"), "");
    directory.Write("id", "");
    EXPECT_EQ(Id(), "");
}

TEST_F(MachineIdFileTest, ImageThatWasNeverStartedHasNone) {
    for (const std::string text : {"uninitialized\n", "uninitialized"}) {
        directory.Write("id", text);
        EXPECT_EQ(Id(), "") << text;
    }
}

TEST_F(MachineIdFileTest, FileBehindLinksIsTheIdentity) {
    directory.Write("elsewhere/id", "0123\n");
    std::filesystem::create_symlink("elsewhere/id", directory / "link");
    std::filesystem::create_symlink(directory / "link", directory / "id");
    EXPECT_EQ(Id(), "0123");
}

TEST_F(MachineIdFileTest, LinkThatLeadsNowhereOrInACircleIsAFailure) {
    std::filesystem::create_symlink(directory / "nowhere", directory / "id");
    EXPECT_EQ(Id(), "error " + std::to_string(ENOENT));
    std::filesystem::create_symlink(directory / "circle", directory / "circle");
    EXPECT_EQ(Id("circle"), "error " + std::to_string(ELOOP));
}

TEST_F(MachineIdFileTest, PathThroughAFileIsAFailure) {
    directory.Write("file", "");
    EXPECT_EQ(Id("file/id"), "error " + std::to_string(ENOTDIR));
}

TEST_F(MachineIdFileTest, FileThatCannotBeReadIsAFailure) {
    directory.Write("id", "0123\n");
    for (const int error : {EMFILE, ENFILE, ENOMEM, EIO, EACCES}) {
        SystemCalls calls;
        calls.Fail("open", error);
        EXPECT_EQ(Id(), "error " + std::to_string(error));
    }
    SystemCalls calls;
    calls.Fail("read", EIO);
    EXPECT_EQ(Id(), "error " + std::to_string(EIO));
}

}  // namespace
}  // namespace Ombry::Tests
