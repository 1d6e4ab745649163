#include "Platform/IClock.h"
#include "Platform/IInspection.h"
#include "Platform/IMachineProtection.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <openssl/err.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace Ombry::Tests {
namespace {

using Platform::FileKind;
using Platform::KeyState;

class InspectionTest : public testing::Test {
protected:
    KeyState::Verdict KeyVerdict() { return inspection.MachineKey()->verdict; }

    const TemporaryDirectory folder;
    FakeKnownFolders folders{folder.Path()};
    FakeMachineId machineId{"machine"};
    const Platform::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const Platform::Replace<Platform::IMachineId> replacedMachineId{machineId};
    Platform::IInspection& inspection = Platform::Production<Platform::IInspection>();
};

TEST_F(InspectionTest, DetailsAreOfTheThingItselfAndTheTargetOfWhatALinkLeadsTo) {
    const std::string file = folder.Write("file", "12345");
    chmod(file.c_str(), 0640);
    std::filesystem::create_hard_link(file, folder / "again");
    std::filesystem::create_symlink("file", folder / "link");
    const auto details = inspection.Details(file);
    EXPECT_EQ(details->kind, FileKind::File);
    EXPECT_EQ(details->mode, 0640u);
    EXPECT_EQ(details->owner, geteuid());
    EXPECT_EQ(details->links, 2u);
    EXPECT_EQ(details->size, 5u);
    EXPECT_EQ(inspection.Details(folder / "link")->kind, FileKind::Link);
    EXPECT_EQ(inspection.Target(folder / "link")->file, details->file);
    EXPECT_EQ(inspection.Details(folder.Path())->kind, FileKind::Folder);
    EXPECT_EQ(inspection.Details("/dev/null")->kind, FileKind::Other);
    EXPECT_EQ(inspection.Details(folder / "none").Error(), ENOENT);
    EXPECT_TRUE(inspection.MeansForbidden(EACCES));
    EXPECT_TRUE(inspection.MeansForbidden(EPERM));
    EXPECT_FALSE(inspection.MeansForbidden(ENOENT));
}

TEST_F(InspectionTest, HolderOfALockIsKnownWithoutTakingIt) {
    const int file = open(folder.Write("file", "").c_str(), O_WRONLY | O_CLOEXEC);
    const auto details = *inspection.Details(folder / "file");
    EXPECT_FALSE(inspection.LockHolder(details));
    ASSERT_EQ(flock(file, LOCK_SH), 0);
    EXPECT_FALSE(inspection.LockHolder(details)) << "a reader is in nobody's way";
    ASSERT_EQ(flock(file, LOCK_EX), 0);
    EXPECT_EQ(inspection.LockHolder(details), getpid());
    close(file);
    EXPECT_FALSE(inspection.LockHolder(details));
}

TEST_F(InspectionTest, UnnamedFilesAreKnownByTheirNames) {
    EXPECT_TRUE(inspection.IsUnnamed(".ombry-0123456789abcdef.tmp"));
    for (const char* name :
         {"", ".ombry-.tmp", ".ombry-0123456789abcdeF.tmp", "x.ombry-0123456789abcdef.tmp"})
        EXPECT_FALSE(inspection.IsUnnamed(name)) << name;
}

TEST_F(InspectionTest, KeyIsJudgedAndNotMade) {
    EXPECT_EQ(inspection.MachineKey()->path, folder / "Quennet/Keys/protection.key");
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::Missing);
    EXPECT_FALSE(std::filesystem::exists(folder / "Quennet"));
    const std::string key = folder.Write("Quennet/Keys/protection.key", std::string(32, 'k'));
    chmod(key.c_str(), 0600);
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::Whole);
    machineId.error = EIO;
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::NoIdentity);
    EXPECT_EQ(inspection.MachineKey()->error, EIO);
    EXPECT_EQ(inspection.MachineKey()->identity, "/etc/machine-id");
    std::filesystem::rename(key, folder / "aside");
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::NoIdentity) << "nothing could be enciphered";
    std::filesystem::rename(folder / "aside", key);
    machineId.error = 0;
    chmod(key.c_str(), 0604);
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::NotPrivate);
    chmod(key.c_str(), 0600);
    folder.Write("Quennet/Keys/protection.key", std::string(31, 'k'));
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::Damaged);
    std::filesystem::remove(key);
    std::filesystem::create_directory(key);
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::Damaged);
    std::filesystem::remove_all(folder / "Quennet/Keys");
    folder.Write("Quennet/Keys", "");
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::Missing);
}

TEST_F(InspectionTest, CertificateSaysOfItselfWhatItHolds) {
    CertificateRecipe recipe;
    recipe.commonName = "M\xc3\xbcller, Ltd";
    recipe.key = KeyNamed("ec256");
    const std::string der = DerOf(MakeCertificate(recipe));
    const auto facts = inspection.Facts(ContextOf(der));
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->subject, "CN=M\xc3\xbcller\\, Ltd");
    EXPECT_EQ(facts->keyType, "EC");
    EXPECT_EQ(facts->keyBits, 256);
    EXPECT_EQ(facts->notAfter - facts->notBefore, Duration(std::chrono::hours(48)));
    recipe.key = KeyNamed("rsa1024");
    const std::string rsa = DerOf(MakeCertificate(recipe));
    EXPECT_EQ(inspection.Facts(ContextOf(rsa))->keyType, "RSA");
    EXPECT_EQ(inspection.Facts(ContextOf(rsa))->keyBits, 1024);
    const std::string none = "no certificate";
    EXPECT_FALSE(inspection.Facts(ContextOf(none)));
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(InspectionTest, CertificateWithAKeyThatNobodyKnowsSaysTheRest) {
    CertificateRecipe recipe;
    recipe.commonName = "server";
    recipe.key = KeyNamed("rsa1024");
    std::string der = DerOf(MakeCertificate(recipe));
    const std::string rsaEncryption = "\x2a\x86\x48\x86\xf7\x0d\x01\x01\x01";  // RFC 8017, appendix A
    const std::size_t at = der.find(rsaEncryption);
    ASSERT_NE(at, std::string::npos);
    der[at + rsaEncryption.size() - 1] = '\x7f';
    const auto facts = inspection.Facts(ContextOf(der));
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->subject, "CN=server");
    EXPECT_EQ(facts->keyType, "");
    EXPECT_EQ(facts->keyBits, 0);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(InspectionTest, TimeOfACertificateThatIsNoneIsTheBeginningOf1970) {
    CertificateRecipe recipe;
    recipe.key = KeyNamed("ec256");
    std::string der = DerOf(MakeCertificate(recipe));
    const std::string utcTime = "\x17\x0d";  // tag and length (RFC 5280, section 4.1.2.5.1)
    const std::size_t at = der.find(utcTime);
    ASSERT_NE(at, std::string::npos);
    der[at + utcTime.size()] = 'x';
    const auto facts = inspection.Facts(ContextOf(der));
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->notBefore, TimePoint());
    EXPECT_GT(facts->notAfter, TimePoint());
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(InspectionTest, KeyWhosePathIsTooLongIsOutOfReach) {
    FakeKnownFolders far{folder / std::string(5000, 'x')};
    const Platform::Replace<Platform::IKnownFolders> replaced{far};
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::OutOfReach);
}

TEST_F(InspectionTest, StoreLiesBesideTheStateAndTheUserIsTheOneWhoLooks) {
    EXPECT_EQ(*inspection.StoreFolder(L"Store"), folder / "Quennet/CertificateStores/Store");
    EXPECT_EQ(inspection.StoreFolder(L"../Store").Error(), EINVAL);
    EXPECT_EQ(inspection.User(), geteuid());
}

TEST_F(InspectionTest, ColoursAreForTerminalsWhoseUserHasNotRefusedThem) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal) | unlockpt(terminal), 0);
    const int user = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(user, 0);
    const int file = open((folder / "out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const int before = dup(STDOUT_FILENO);
    unsetenv("NO_COLOR");
    dup2(user, STDOUT_FILENO);
    const bool onTerminal = inspection.TakesColours();
    setenv("NO_COLOR", "1", 1);
    const bool refused = inspection.TakesColours();
    setenv("NO_COLOR", "", 1);
    const bool empty = inspection.TakesColours();
    dup2(file, STDOUT_FILENO);
    const bool inFile = inspection.TakesColours();
    dup2(before, STDOUT_FILENO);
    unsetenv("NO_COLOR");
    for (const int descriptor : {terminal, user, file, before})
        close(descriptor);
    EXPECT_TRUE(onTerminal);
    EXPECT_FALSE(refused);
    EXPECT_TRUE(empty);
    EXPECT_FALSE(inFile);
}

TEST_F(InspectionTest, NamesOfAFolderEndWhereTheyMay) {
    for (const char* name : {"a", "b", "c"})
        folder.Write(std::string("names/") + name, "");
    EXPECT_EQ(inspection.Names(folder / "names", 2)->size(), 2u);
    EXPECT_EQ(inspection.Names(folder / "names", 4)->size(), 3u);
    EXPECT_EQ(inspection.Names(folder / "none", 4).Error(), ENOENT);
}

TEST_F(InspectionTest, FileThatIsLongerThanAskedForIsNotRead) {
    folder.Write("file", "12345");
    EXPECT_EQ(*inspection.Read(folder / "file", 5), "12345");
    EXPECT_EQ(inspection.Read(folder / "file", 4).Error(), EINVAL);
    EXPECT_EQ(inspection.Read(folder.Path(), 5).Error(), EISDIR);
}

TEST_F(InspectionTest, KeyOfManyGigabytesIsDamagedAndNotRead) {
    const std::string key = folder.Write("Quennet/Keys/protection.key", "");
    chmod(key.c_str(), 0600);
    std::filesystem::resize_file(key, std::uintmax_t{1} << 40);
    EXPECT_EQ(KeyVerdict(), KeyState::Verdict::Damaged);
}

TEST_F(InspectionTest, TimeThatNoTicksReachStaysOneOfTheFuture) {
    // As far as the file system has it; some end before ticks do.
    const timespec far{std::int64_t{1} << 60, 0};
    const timespec times[] = {far, far};
    const std::string file = folder.Write("file", "");
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    EXPECT_GT(inspection.Details(file)->modified,
              Platform::Production<Platform::IClock>().Now() + std::chrono::hours(24 * 365));
}

}  // namespace
}  // namespace Ombry::Tests
