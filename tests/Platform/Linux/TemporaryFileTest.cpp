#include "Platform/IFiles.h"
#include "Platform/Linux/TemporaryFile.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Platform/Linux/Resources.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

namespace Ombry::Tests {
namespace {

using Platform::Durability;
using Platform::Linux::RemoveLeftovers;
using Platform::Linux::TemporaryFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const std::string Leftover = ".ombry-0123456789abcdef.tmp";

class TemporaryFileTest : public testing::Test {
protected:
    Platform::Result Save(const std::string& name, const std::string& data) {
        auto replacement = files.BeginReplace(directory / name, data.size(), Durability::Unsynced);
        if (!replacement) return Platform::Result::Failure(replacement.Error());
        return (*replacement)->Complete(data);
    }

    std::vector<std::string> Names() { return *files.List(directory.Path()); }

    TemporaryDirectory directory;
    Platform::IFiles& files = Platform::Production<Platform::IFiles>();
};

TEST_F(TemporaryFileTest, FileOfAProcessThatWasKilledIsRemovedByTheFirstSaveOfTheNext) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const auto begun = files.BeginReplace(directory / "file", 3, Durability::Synced);
        if (begun) raise(SIGKILL);
        std::_Exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(Names().size(), 1u);

    ASSERT_TRUE(Save("another", "x"));

    EXPECT_THAT(Names(), ElementsAre("another"));
}

TEST_F(TemporaryFileTest, FolderIsListedOnceAProcess) {
    SystemCalls calls;
    ASSERT_TRUE(Save("file", "x"));
    ASSERT_TRUE(Save("file", "y"));
    EXPECT_EQ(calls.Count("opendir"), 1u);
}

TEST_F(TemporaryFileTest, FileOfALivingProcessStays) {
    const auto file = TemporaryFile::CreateBeside(directory / "file");
    ASSERT_TRUE(file);
    RemoveLeftovers(directory.Path());
    EXPECT_EQ(Names().size(), 1u);
}

TEST_F(TemporaryFileTest, FileIsHeldUntilItHasItsName) {
    ASSERT_TRUE(Save("file", "old"));
    for (const std::string name : {"posix_fallocate", "fallocate", "write", "fsync", "close", "rename"}) {
        SystemCalls calls;
        calls.Before([&](const SystemCalls::Call& call) {
            if (call.name == name) RemoveLeftovers(directory.Path());
        });
        EXPECT_TRUE(Save("file", name)) << name;
        EXPECT_EQ(directory.Read("file"), name);
    }
}

TEST_F(TemporaryFileTest, FileThatIsTakenForALeftoverBeforeItIsLockedIsMadeAnew) {
    SystemCalls calls;
    int times = 0;
    calls.Before([&](const SystemCalls::Call& call) {
        if (call.name == "flock" && ++times <= 2) RemoveLeftovers(directory.Path());
    });
    EXPECT_TRUE(Save("file", "x"));
    EXPECT_EQ(times, 3);
    EXPECT_EQ(directory.Read("file"), "x");
    EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(TemporaryFileTest, FileThatAnotherProcessIsAboutToRemoveIsMadeAnew) {
    const std::size_t descriptors = OpenDescriptors();
    int other = -1;
    {
        SystemCalls calls;
        calls.Before([&](const SystemCalls::Call& call) {
            if (call.name != "flock" || other >= 0) return;
            other = open((directory / Names()[0]).c_str(), O_RDWR);
            flock(other, LOCK_EX);
        });
        EXPECT_TRUE(Save("file", "x"));
        EXPECT_EQ(calls.Count("open"), 2u);
    }
    close(other);
    EXPECT_EQ(directory.Read("file"), "x");
    EXPECT_THAT(Names(), ElementsAre("file"));
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(TemporaryFileTest, NoSaveIsLostWhileOthersTidyUpAllTheTime) {
    std::atomic<bool> done = false;
    std::thread other([&] {
        while (!done)
            RemoveLeftovers(directory.Path());
    });
    for (int i = 0; i < 2000; ++i) {
        const std::string data = std::to_string(i);
        EXPECT_TRUE(Save("file", data));
        EXPECT_EQ(directory.Read("file"), data);
    }
    done = true;
    other.join();
    EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(TemporaryFileTest, OnlyRegularFilesWithOurNamesAreRemoved) {
    for (const std::string name :
         {".0123456789abcdef.tmp", ".ombry-0123456789abcde.tmp", ".ombry-0123456789abcdef0.tmp",
          ".ombry-0123456789ABCDEF.tmp", ".ombry-0123456789abcdeg.tmp", "ombry-0123456789abcdef.tmp",
          ".ombry-0123456789abcdef.tm", ".ombry-0123456789abcdef.tmp~", "x.ombry-0123456789abcdef.tmp"}) {
        directory.Write(name, "foreign");
    }
    std::filesystem::create_directory(directory / ".ombry-00000000000000d0.tmp");
    std::filesystem::create_symlink(directory / "nowhere", directory / ".ombry-0000000000000011.tmp");
    ASSERT_EQ(mkfifo((directory / ".ombry-00000000000000f0.tmp").c_str(), 0600), 0);
    const std::size_t foreign = Names().size();
    directory.Write(Leftover, "ours");

    RemoveLeftovers(directory.Path());

    EXPECT_EQ(Names().size(), foreign);
    EXPECT_FALSE(std::filesystem::exists(directory / Leftover));
}

TEST_F(TemporaryFileTest, FileOfAnotherUserStays) {
    if (geteuid() != 0) return LeaveOut("only root can give a file away");
    ASSERT_EQ(chown(directory.Write(Leftover, "x").c_str(), 65534, 65534), 0);
    RemoveLeftovers(directory.Path());
    EXPECT_THAT(Names(), ElementsAre(Leftover));
}

TEST_F(TemporaryFileTest, WithoutLocksFilesAreSavedAndLeftoversStay) {
    for (const int error : {ENOLCK, EOPNOTSUPP, ENOSYS, EINVAL}) {
        directory.Write(Leftover, "");
        SystemCalls calls;
        calls.Fail("flock", error, 100);
        EXPECT_TRUE(Save("file", "x")) << error;
        RemoveLeftovers(directory.Path());
        EXPECT_THAT(Names(), UnorderedElementsAre("file", Leftover)) << error;
    }
}

TEST_F(TemporaryFileTest, LockThatFailsForAnotherReasonFailsTheSave) {
    ASSERT_TRUE(Save("file", "old"));
    SystemCalls calls;
    calls.Fail("flock", EIO);
    EXPECT_EQ(Save("file", "new").Error(), EIO);
    EXPECT_THAT(Names(), ElementsAre("file"));
    EXPECT_EQ(directory.Read("file"), "old");
}

TEST_F(TemporaryFileTest, FileWhoseModeCannotBeSetFailsTheSave) {
    const Mask mask(0777);
    SystemCalls calls;
    calls.Fail("fchmod", EPERM);
    EXPECT_EQ(Save("file", "x").Error(), EPERM);
    EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(TemporaryFileTest, LeftoverThatCannotBeLookedAtStays) {
    directory.Write(Leftover, "");
    SystemCalls calls;
    calls.Fail("fstat", EIO);
    RemoveLeftovers(directory.Path());
    EXPECT_EQ(calls.Count("fstat"), 1u);
    EXPECT_THAT(Names(), ElementsAre(Leftover));
}

TEST_F(TemporaryFileTest, FileSystemOnWhichEachLockIsHeldFailsTheSaveAfterAHundredTries) {
    SystemCalls calls;
    calls.Fail("flock", EWOULDBLOCK, 1000);
    EXPECT_EQ(Save("file", "x").Error(), EWOULDBLOCK);
    EXPECT_EQ(calls.Count("flock"), 100u);
    EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(TemporaryFileTest, FailureToTidyUpFailsNothing) {
    for (const std::string name : {"opendir", "readdir", "unlink"}) {
        const TemporaryDirectory another;
        another.Write(Leftover, "");
        SystemCalls calls;
        calls.Fail(name, EIO);
        const auto file = TemporaryFile::CreateBeside(another / "file");
        EXPECT_TRUE(file) << name;
        EXPECT_EQ(calls.Count(name), 1u);
    }
}

}  // namespace
}  // namespace Ombry::Tests
