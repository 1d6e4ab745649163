#include "Platform/IFiles.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/TemporaryFile.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Platform/Linux/Resources.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <iterator>
#include <set>
#include <thread>

namespace Ombry::Tests {
namespace {

using Platform::Durability;
using testing::ElementsAre;
using testing::IsEmpty;

class FilesTest : public testing::Test {
protected:
    // What the first save in a folder does has tests of its own.
    FilesTest() { Platform::Linux::RemoveLeftoversOnce(directory.Path()); }

    Platform::Result Save(const std::string& path, const std::string& data, Durability durability) {
        auto replacement = files.BeginReplace(path, data.size(), durability);
        if (!replacement) return Platform::Result::Failure(replacement.Error());
        return (*replacement)->Complete(data);
    }

    std::vector<std::string> Names() { return *files.List(directory.Path()); }

    TemporaryDirectory directory;
    Platform::IFiles& files = Platform::Production<Platform::IFiles>();
};

// The steps of a replacement.

TEST_F(FilesTest, SyncedReplacementIsOnTheDiskBeforeItIsRenamedAndItsFolderAfterwards) {
    SystemCalls calls;
    ASSERT_TRUE(Save(directory / "file", "data", Durability::Synced));
    EXPECT_THAT(calls.Names(),
                ElementsAre("open", "getrandom", "open", "flock", "fstat", "fcntl", "fallocate", "write",
                            "fsync", "close", "rename", "fsync", "close", "close"));
    EXPECT_EQ(calls.Calls()[0].text, directory.Path());
    EXPECT_EQ(calls.Calls()[8].argument, calls.Calls()[7].argument);  // the file that was written
    EXPECT_EQ(calls.Calls()[10].text, directory / "file");
    EXPECT_EQ(calls.Calls()[11].argument, calls.Calls()[12].argument);  // the folder
    EXPECT_NE(calls.Calls()[11].argument, calls.Calls()[8].argument);
}

TEST_F(FilesTest, UnsyncedReplacementIsOnTheDiskBeforeItIsRenamedAndItsFolderNeedNotBe) {
    SystemCalls calls;
    ASSERT_TRUE(Save(directory / "file", "data", Durability::Unsynced));
    EXPECT_THAT(calls.Names(), ElementsAre("getrandom", "open", "flock", "fstat", "fcntl", "fallocate",
                                           "write", "fsync", "close", "rename", "close"));
    EXPECT_EQ(calls.Calls()[7].argument, calls.Calls()[6].argument);  // the file that was written
}

TEST_F(FilesTest, SpaceIsReservedWhenTheReplacementBegins) {
    SystemCalls calls;
    const auto replacement = files.BeginReplace(directory / "file", 12345, Durability::Unsynced);
    ASSERT_TRUE(replacement);
    ASSERT_EQ(calls.Count("fallocate"), 1u);
    EXPECT_EQ(calls.Calls().back().argument, 12345);
}

TEST_F(FilesTest, ReservedSpaceIsNoPartOfTheFileThatAPowerCutCouldLeaveFullOfNuls) {
    for (const Durability durability : {Durability::Synced, Durability::Unsynced}) {
        const auto replacement = files.BeginReplace(directory / "file", 12345, durability);
        ASSERT_TRUE(replacement);
        ASSERT_EQ(Names().size(), 1u);
        EXPECT_EQ(std::filesystem::file_size(directory / Names()[0]), 0u);
    }
}

TEST_F(FilesTest, EmptyFileReservesNothing) {
    SystemCalls calls;
    ASSERT_TRUE(Save(directory / "file", "", Durability::Unsynced));
    EXPECT_EQ(calls.Count("fallocate"), 0u);
    EXPECT_EQ(directory.Read("file"), "");
}

TEST_F(FilesTest, FullDiskShowsWhenTheReplacementBegins) {
    directory.Write("file", "old");
    SystemCalls calls;
    calls.Fail("fallocate", ENOSPC);
    EXPECT_EQ(files.BeginReplace(directory / "file", 3, Durability::Synced).Error(), ENOSPC);
    EXPECT_THAT(Names(), ElementsAre("file"));
    EXPECT_EQ(directory.Read("file"), "old");
}

TEST_F(FilesTest, FullDiskShowsWhenTheReplacementBeginsAlsoWhereTheFileSystemCannotReserve) {
    directory.Write("file", "old");
    for (const int without : {EOPNOTSUPP, ENOSYS}) {
        SystemCalls calls;
        calls.Fail("fallocate", without);
        calls.Before([&](const SystemCalls::Call& call) {
            if (call.name == "posix_fallocate") calls.Fail("posix_fallocate", ENOSPC);
        });
        EXPECT_EQ(files.BeginReplace(directory / "file", 3, Durability::Synced).Error(), ENOSPC) << without;
        EXPECT_THAT(Names(), ElementsAre("file"));
        EXPECT_EQ(directory.Read("file"), "old");
    }
}

/// From now on this thread is told no limit of the process.
void KeepLimitsFromThisThread() {
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_prlimit64, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{std::size(steps), steps};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

TEST_F(FilesTest, LimitThatIsNotToldFailsASaveAtTheStart) {
    directory.Write("file", "old");
    int error = 0;
    std::thread([&] {
        KeepLimitsFromThisThread();
        error = files.BeginReplace(directory / "file", 3, Durability::Unsynced).Error();
    }).join();
    EXPECT_EQ(error, EPERM);
    EXPECT_THAT(Names(), ElementsAre("file"));
    EXPECT_EQ(directory.Read("file"), "old");
}

TEST_F(FilesTest, SizeBeyondWhatTheSystemAllowsFailsAtTheStart) {
    // The limit of the process stands in for that of the disk; the signal that comes with it is ignored.
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{1000, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const int error = files.BeginReplace(directory / "file", 1001, Durability::Unsynced).Error();
    const auto saved = Save(directory / "file", std::string(1000, 'x'), Durability::Unsynced);
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(error, EFBIG);
    EXPECT_TRUE(saved);
    EXPECT_EQ(files.BeginReplace(directory / "file", UINT64_MAX, Durability::Unsynced).Error(), EFBIG);
    EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(FilesTest, FileSystemThatCannotReserveOrSyncIsGoodEnough) {
    for (const int error : {0, EOPNOTSUPP, EINVAL, EINTR}) {
        SystemCalls calls;
        calls.Fail("fallocate", EOPNOTSUPP);
        calls.Before([&](const SystemCalls::Call& call) {
            if (call.name == "posix_fallocate" && calls.Count("posix_fallocate") == 1)
                calls.Fail("posix_fallocate", error);
        });
        EXPECT_TRUE(Save(directory / "file", "data", Durability::Synced)) << error;
        EXPECT_EQ(calls.Count("posix_fallocate"), error == EINTR ? 2u : 1u);
        EXPECT_EQ(directory.Read("file"), "data");
    }
    SystemCalls calls;
    calls.Fail("fsync", EINVAL, 2);
    EXPECT_TRUE(Save(directory / "file", "data", Durability::Synced));
}

TEST_F(FilesTest, FailureOfAnyStepIsReportedAndLeavesTheOldFileAndNothingElse) {
    directory.Write("file", "old");
    std::vector<std::string> names;
    {
        SystemCalls calls;
        ASSERT_TRUE(Save(directory / "file", "old", Durability::Synced));
        names = calls.Names();
    }
    const std::size_t descriptors = OpenDescriptors();
    const std::size_t renamed =
        static_cast<std::size_t>(std::find(names.begin(), names.end(), "rename") - names.begin());
    // All but the last two: those close the folder and give back the lock, with nothing left to lose.
    for (std::size_t n = 1; n + 1 < names.size(); ++n) {
        directory.Write("file", "old");
        int error = 0;
        {
            SystemCalls calls;
            calls.FailNth(n, EIO);
            error = Save(directory / "file", "new", Durability::Synced).Error();
        }
        EXPECT_EQ(error, EIO) << n << " " << names[n - 1];
        EXPECT_EQ(directory.Read("file"), n <= renamed + 1 ? "old" : "new") << n << " " << names[n - 1];
        EXPECT_THAT(Names(), ElementsAre("file")) << n << " " << names[n - 1];
        EXPECT_EQ(OpenDescriptors(), descriptors) << n << " " << names[n - 1];
    }
}

TEST_F(FilesTest, SignalsAndShortTransfersPlayNoPart) {
    const std::string data(10000, 'x');
    for (const std::string name : {"open", "fallocate", "write", "fsync", "read", "getrandom"}) {
        SystemCalls calls;
        calls.Fail(name, EINTR, 2);
        calls.LimitTransfers(999);
        ASSERT_TRUE(Save(directory / "file", data, Durability::Synced)) << name;
        const auto read = files.Read(directory / "file");
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(*read, data) << name;
    }
    SystemCalls calls;
    calls.Fail("close", EINTR);
    EXPECT_TRUE(Save(directory / "file", "x", Durability::Unsynced));
    EXPECT_EQ(calls.Count("close"), 2u);  // the file and its lock, each once
}

TEST_F(FilesTest, FileThatCannotBeLookedAtIsNotRead) {
    directory.Write("file", "content");
    SystemCalls calls;
    calls.Fail("fstat", EIO);
    EXPECT_EQ(files.Read(directory / "file").Error(), EIO);
    EXPECT_EQ(calls.Count("read"), 0u);
}

TEST_F(FilesTest, WriteThatMovesNothingIsAFailureAndNotTriedForEver) {
    auto replacement = files.BeginReplace(directory / "file", 4, Durability::Unsynced);
    ASSERT_TRUE(replacement);
    SystemCalls calls;
    calls.LimitTransfers(0);
    EXPECT_EQ((*replacement)->Complete("data").Error(), EIO);
    EXPECT_EQ(calls.Count("write"), 1u);
}

TEST_F(FilesTest, FolderOfAPathIsWhatStandsBeforeItsLastSeparator) {
    EXPECT_EQ(Platform::Linux::ParentOf("a/b/c"), "a/b");
    EXPECT_EQ(Platform::Linux::ParentOf("a/b/"), "a/b");
    EXPECT_EQ(Platform::Linux::ParentOf("/a/b"), "/a");
    EXPECT_EQ(Platform::Linux::ParentOf("/a"), "/");
    EXPECT_EQ(Platform::Linux::ParentOf("a"), ".");
    EXPECT_EQ(Platform::Linux::ParentOf(""), ".");
}

TEST_F(FilesTest, ReplacementIsCompletedOnce) {
    auto replacement = files.BeginReplace(directory / "file", 1, Durability::Unsynced);
    ASSERT_TRUE((*replacement)->Complete("a"));
    SystemCalls calls;
    EXPECT_EQ((*replacement)->Complete("b").Error(), EINVAL);
    EXPECT_THAT(calls.Names(), IsEmpty());
    EXPECT_EQ(directory.Read("file"), "a");
}

// The temporary file.

TEST_F(FilesTest, TemporaryFileLiesBesideItsTargetPrivateExclusiveAndUnforeseeable) {
    std::set<std::string> seen;
    const Mask mask(0);
    for (int i = 0; i < 20; ++i) {
        SystemCalls calls;
        const auto replacement = files.BeginReplace(directory / "file", 1, Durability::Unsynced);
        ASSERT_TRUE(replacement);
        const auto names = Names();
        ASSERT_EQ(names.size(), 1u);
        seen.insert(names[0]);
        EXPECT_EQ(names[0][0], '.');
        EXPECT_EQ(ModeOf(directory / names[0]), 0600u);
        const long long flags = calls.Calls()[1].argument;
        EXPECT_EQ(calls.Calls()[1].name, "open");
        EXPECT_EQ(flags & (O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC),
                  O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC);
    }
    EXPECT_EQ(seen.size(), 20u);
}

TEST_F(FilesTest, TakenTemporaryNameIsNotUsed) {
    SystemCalls calls;
    calls.Fail("open", EEXIST);
    ASSERT_TRUE(Save(directory / "file", "x", Durability::Unsynced));
    EXPECT_EQ(calls.Count("open"), 2u);
    EXPECT_EQ(calls.Count("getrandom"), 2u);
}

TEST_F(FilesTest, SavedFileIsPrivateWhateverTheMaskAndTheOldMode) {
    for (const mode_t mask : {0, 022, 077, 0777}) {
        const std::string path = directory.Write("file", "old");
        ASSERT_EQ(chmod(path.c_str(), 0666), 0);
        const Mask scoped(mask);
        ASSERT_TRUE(Save(path, "new", Durability::Unsynced));
        EXPECT_EQ(ModeOf(path), 0600u) << mask;
    }
}

TEST_F(FilesTest, LongestFileNameCanBeReplaced) {
    const std::string path = directory / std::string(255, 'n');
    EXPECT_TRUE(Save(path, "x", Durability::Synced));
    EXPECT_EQ(*files.Read(path), "x");
    EXPECT_EQ(files.BeginReplace(path + "n", 1, Durability::Unsynced).Error(), ENAMETOOLONG);
}

TEST_F(FilesTest, BareNameIsReplacedInTheWorkingDirectory) {
    const auto old = std::filesystem::current_path();
    std::filesystem::current_path(directory.Path());
    const auto result = Save("bare", "x", Durability::Synced);
    std::filesystem::current_path(old);
    EXPECT_TRUE(result);
    EXPECT_EQ(directory.Read("bare"), "x");
}

TEST_F(FilesTest, DeviceAndPipeAndDanglingLinkAreNoTargets) {
    EXPECT_EQ(files.BeginReplace("/dev/null", 1, Durability::Unsynced).Error(), EINVAL);
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(files.BeginReplace(directory / "pipe", 1, Durability::Unsynced).Error(), EINVAL);
    std::filesystem::create_symlink(directory / "nowhere", directory / "link");
    EXPECT_EQ(files.BeginReplace(directory / "link", 1, Durability::Unsynced).Error(), ELOOP);
    EXPECT_THAT(Names(), testing::UnorderedElementsAre("pipe", "link"));
}

TEST_F(FilesTest, LinkPutInPlaceMeanwhileIsReplacedAndNotFollowed) {
    directory.Write("victim", "precious");
    auto replacement = files.BeginReplace(directory / "file", 1, Durability::Unsynced);
    ASSERT_TRUE(replacement);
    std::filesystem::create_symlink(directory / "victim", directory / "file");
    EXPECT_TRUE((*replacement)->Complete("x"));
    EXPECT_EQ(directory.Read("victim"), "precious");
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(directory / "file")));
}

TEST_F(FilesTest, FolderPutInPlaceMeanwhileFailsTheReplacement) {
    {
        auto replacement = files.BeginReplace(directory / "file", 1, Durability::Unsynced);
        std::filesystem::create_directory(directory / "file");
        EXPECT_EQ((*replacement)->Complete("x").Error(), EISDIR);
        EXPECT_TRUE((*replacement)->IsRefused());
    }
    EXPECT_THAT(Names(), ElementsAre("file"));
}

TEST_F(FilesTest, OnlyNameThatCannotBeGivenIsRefusal) {
    for (const std::string name : {"write", "fsync", "close", "rename", "none"}) {
        SystemCalls calls;
        auto replacement = files.BeginReplace(directory / "file", 1, Durability::Synced);
        ASSERT_TRUE(replacement);
        calls.Fail(name, EPERM);
        EXPECT_EQ(static_cast<bool>((*replacement)->Complete("x")), name == "none") << name;
        EXPECT_EQ((*replacement)->IsRefused(), name == "rename") << name;
    }
    SystemCalls calls;
    auto replacement = files.BeginReplace(directory / "file", 1, Durability::Synced);
    calls.Before([&](const SystemCalls::Call& call) {
        if (call.name == "rename") calls.Fail("fsync", EIO);
    });
    EXPECT_EQ((*replacement)->Complete("y").Error(), EIO);
    EXPECT_FALSE(
        (*replacement)->IsRefused());  // the file has its name; only the folder may not be on the disk
}

// Reading.

TEST_F(FilesTest, ReadDoesNotWaitForTheWriterOfPipe) {
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(files.Read(directory / "pipe").Error(), EINVAL);
}

TEST_F(FilesTest, ReadNeverFollowsWaitsOrTakesATerminal) {
    const std::string path = directory.Write("file", "x");
    SystemCalls calls;
    ASSERT_TRUE(files.Read(path));
    EXPECT_EQ(calls.Calls()[0].name, "open");
    EXPECT_EQ(calls.Calls()[0].argument, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

TEST_F(FilesTest, DeviceCannotBeRead) {
    EXPECT_EQ(files.Read("/dev/zero").Error(), EINVAL);
}

TEST_F(FilesTest, FileLongerThanItSaysIsReadToItsEnd) {
    SystemCalls calls;
    const auto status = files.Read("/proc/self/status");  // of size 0
    ASSERT_TRUE(status);
    EXPECT_THAT(*status, testing::HasSubstr("Name:"));
    EXPECT_THAT(*status, testing::HasSubstr("nonvoluntary_ctxt_switches:"));
    EXPECT_EQ(calls.Count("read"), 2u) << "of one moment, and the end";
}

TEST_F(FilesTest, FileOfManyPagesThatSaysNoLengthIsReadToItsEnd) {
    const auto mappings = files.Read("/proc/self/smaps");
    ASSERT_TRUE(mappings);
    EXPECT_GT(mappings->size(), 8192u);
    EXPECT_THAT(mappings->substr(mappings->rfind("-") + 1), testing::HasSubstr("VmFlags:"));
    EXPECT_EQ(mappings->back(), '\n');
}

TEST_F(FilesTest, FailureOfAnyStepOfReadIsReportedAndClosesTheFile) {
    const std::string path = directory.Write("file", "x");
    const std::size_t descriptors = OpenDescriptors();
    for (const std::string name : {"open", "read"}) {
        SystemCalls calls;
        calls.Fail(name, EIO);
        EXPECT_EQ(files.Read(path).Error(), EIO) << name;
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(FilesTest, OpenedFilesAreCloseOnExec) {
    const std::string path = directory.Write("file", "x");
    SystemCalls calls;
    ASSERT_TRUE(files.Read(path));
    ASSERT_TRUE(Save(path, "y", Durability::Synced));
    ASSERT_EQ(calls.Count("open"), 3u);
    for (const auto& call : calls.Calls()) {
        EXPECT_TRUE(call.name != "open" || (call.argument & O_CLOEXEC) != 0) << call.text;
    }
}

// The state of a file.

TEST_F(FilesTest, StateIsWhatTheSystemKeepsOfTheFile) {
    const std::string path = directory.Write("file", "data");
    // Apart from the time of the last change, the times of a file are anybody's to set.
    const timespec times[] = {{1'000'000'000, 0}, {1'100'000'000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);

    const auto state = files.State(path);

    ASSERT_TRUE(state);
    EXPECT_EQ(state->device, std::uint64_t{major(status.st_dev)} << 32 | minor(status.st_dev));
    EXPECT_EQ(state->file, status.st_ino);
    EXPECT_EQ(state->size, 4u);
    EXPECT_EQ(state->changed.time_since_epoch().count(),
              status.st_ctim.tv_sec * TicksPerSecond + status.st_ctim.tv_nsec / 100);
}

TEST_F(FilesTest, StatesOfFilesThatDifferInOneThingDiffer) {
    const Platform::FileState state{1, 2, 3, TimePoint(Duration(4))};
    EXPECT_EQ(state, (Platform::FileState{1, 2, 3, TimePoint(Duration(4))}));
    EXPECT_NE(state, (Platform::FileState{0, 2, 3, TimePoint(Duration(4))}));
    EXPECT_NE(state, (Platform::FileState{1, 0, 3, TimePoint(Duration(4))}));
    EXPECT_NE(state, (Platform::FileState{1, 2, 0, TimePoint(Duration(4))}));
    EXPECT_NE(state, (Platform::FileState{1, 2, 3, TimePoint(Duration(5))}));
}

TEST_F(FilesTest, ReplacementIsAnotherFileThanTheOneItReplaces) {
    ASSERT_TRUE(Save(directory / "file", "old", Durability::Unsynced));
    for (int i = 0; i < 20; ++i) {
        const auto before = files.State(directory / "file");
        ASSERT_TRUE(Save(directory / "file", "new", Durability::Unsynced));
        EXPECT_NE(files.State(directory / "file")->file, before->file);
    }
}

TEST_F(FilesTest, StateIsAskedForWhereTheFileIsAndNoLinkIsFollowed) {
    const std::string path = directory.Write("file", "x");
    SystemCalls calls;
    ASSERT_TRUE(files.State(path));
    ASSERT_THAT(calls.Names(), ElementsAre("statx"));
    EXPECT_EQ(calls.Calls()[0].text, path);
    EXPECT_EQ(calls.Calls()[0].argument, AT_SYMLINK_NOFOLLOW | AT_STATX_FORCE_SYNC);
}

TEST_F(FilesTest, StateThatCannotBeHadGivesTheSystemsNumberAndSignalsPlayNoPart) {
    const std::string path = directory.Write("file", "x");
    SystemCalls calls;
    calls.Fail("statx", EINTR, 2);
    EXPECT_TRUE(files.State(path));
    calls.Fail("statx", EACCES);
    EXPECT_EQ(files.State(path).Error(), EACCES);
    EXPECT_EQ(files.State("/dev/null").Error(), EINVAL);
}

// Folders.

TEST_F(FilesTest, NewFoldersArePrivateWhateverTheMask) {
    for (const mode_t mask : {0, 022, 077, 0777}) {
        const std::string top = directory / std::to_string(mask);
        const Mask scoped(mask);
        ASSERT_TRUE(files.CreateDirectories(top + "/a/b", Durability::Unsynced));
        EXPECT_EQ(ModeOf(top), 0700u) << mask;
        EXPECT_EQ(ModeOf(top + "/a"), 0700u) << mask;
        EXPECT_EQ(ModeOf(top + "/a/b"), 0700u) << mask;
    }
}

TEST_F(FilesTest, ExistingFoldersKeepTheirMode) {
    ASSERT_TRUE(files.CreateDirectories(directory / "a", Durability::Unsynced));
    ASSERT_EQ(chmod((directory / "a").c_str(), 0755), 0);
    EXPECT_TRUE(files.CreateDirectories(directory / "a", Durability::Unsynced));
    EXPECT_TRUE(files.CreateDirectories(directory / "a/b", Durability::Unsynced));
    EXPECT_EQ(ModeOf(directory / "a"), 0755u);
    EXPECT_EQ(ModeOf(directory / "a/b"), 0700u);
}

TEST_F(FilesTest, LinkToFolderCountsAsFolderAndDanglingLinkDoesNot) {
    std::filesystem::create_directory(directory / "real");
    std::filesystem::create_directory_symlink(directory / "real", directory / "link");
    std::filesystem::create_symlink(directory / "nowhere", directory / "dangling");
    EXPECT_TRUE(files.CreateDirectories(directory / "link", Durability::Unsynced));
    EXPECT_TRUE(files.CreateDirectories(directory / "link/below", Durability::Unsynced));
    EXPECT_TRUE(std::filesystem::is_directory(directory / "real/below"));
    EXPECT_EQ(files.CreateDirectories(directory / "dangling", Durability::Unsynced).Error(), ENOTDIR);
    EXPECT_EQ(files.CreateDirectories(directory / "dangling/below", Durability::Unsynced).Error(), ENOTDIR);
}

TEST_F(FilesTest, FolderThatCannotBeLookedAtIsNotCalledAFile) {
    std::filesystem::create_symlink(directory / "there", directory / "back");
    std::filesystem::create_symlink(directory / "back", directory / "there");
    EXPECT_EQ(files.CreateDirectories(directory / "back", Durability::Unsynced).Error(), ELOOP);
    EXPECT_EQ(files.CreateDirectories(directory / "back/below", Durability::Unsynced).Error(), ELOOP);
}

TEST_F(FilesTest, FolderThatAnotherProcessMakesMeanwhileIsNoFailure) {
    SystemCalls calls;
    calls.Before([](const SystemCalls::Call& call) {
        if (call.name == "mkdir") std::filesystem::create_directory(call.text);
    });
    EXPECT_TRUE(files.CreateDirectories(directory / "a/b", Durability::Unsynced));
    EXPECT_TRUE(std::filesystem::is_directory(directory / "a/b"));
    EXPECT_EQ(calls.Count("chmod"), 0u);
}

TEST_F(FilesTest, ThreadsThatMakeTheSameFoldersAllSucceed) {
    for (int round = 0; round < 20; ++round) {
        const std::string path = directory / (std::to_string(round) + "/a/b/c/d");
        std::atomic<int> succeeded{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back(
                [&] { succeeded += files.CreateDirectories(path, Durability::Unsynced) ? 1 : 0; });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(succeeded, 4);
    }
}

TEST_F(FilesTest, FolderThatCannotBeMadeGivesTheSystemsNumber) {
    for (const int error : {EROFS, EACCES, ENOSPC}) {
        SystemCalls calls;
        calls.Fail("mkdir", error, 100);
        EXPECT_EQ(files.CreateDirectories(directory / "new", Durability::Unsynced).Error(), error);
    }
    SystemCalls calls;
    calls.Fail("chmod", EPERM);
    EXPECT_EQ(files.CreateDirectories(directory / "new", Durability::Unsynced).Error(), EPERM);
}

TEST_F(FilesTest, ParentsOnReadOnlyFileSystemAreNotInTheWay) {
    // Such a file system may answer EROFS for a folder that exists.
    std::filesystem::create_directory(directory / "here");
    SystemCalls calls;
    std::size_t above = 0;
    for (const char character : directory.Path())
        above += character == '/';
    calls.Fail("mkdir", EROFS, static_cast<int>(above) + 1);
    EXPECT_TRUE(files.CreateDirectories(directory / "here/new", Durability::Unsynced));
}

TEST_F(FilesTest, EachNewFolderIsSyncedIntoItsParentIfItIsToBeDurable) {
    std::filesystem::create_directory(directory / "here");
    SystemCalls calls;
    std::vector<std::string> steps;
    calls.Before([&](const SystemCalls::Call& call) {
        if (call.name == "mkdir" && std::filesystem::exists(call.text)) return;  // a parent that stands
        const bool named = call.text.starts_with(directory / "here");
        if (named || !steps.empty())
            steps.push_back(call.name + (named ? call.text.substr(directory.Path().size()) : ""));
    });
    ASSERT_TRUE(files.CreateDirectories(directory / "here/a/b", Durability::Synced));
    EXPECT_THAT(steps, ElementsAre("mkdir/here/a", "chmod/here/a", "open/here", "fsync", "close",
                                   "mkdir/here/a/b", "chmod/here/a/b", "open/here/a", "fsync", "close"));
}

TEST_F(FilesTest, NewFolderOfCachesDoesNotWaitForTheDisk) {
    SystemCalls calls;
    ASSERT_TRUE(files.CreateDirectories(directory / "a/b", Durability::Unsynced));
    EXPECT_EQ(calls.Count("fsync"), 0u);
}

TEST_F(FilesTest, FolderThatDoesNotReachTheDiskIsAFailure) {
    const std::size_t descriptors = OpenDescriptors();
    for (const std::string name : {"open", "fsync"}) {
        SystemCalls calls;
        calls.Fail(name, EIO);
        EXPECT_EQ(files.CreateDirectories(directory / name, Durability::Synced).Error(), EIO) << name;
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(FilesTest, FolderThatStandsCostsNoCallThatCouldChangeAnything) {
    std::filesystem::create_directories(directory / "a/b");
    SystemCalls calls;
    EXPECT_TRUE(files.CreateDirectories(directory / "a/b", Durability::Synced));
    EXPECT_THAT(calls.Names(), IsEmpty());
}

TEST_F(FilesTest, ListThatBreaksOffIsAFailureAndSignalsPlayNoPart) {
    directory.Write("a", "");
    directory.Write("b", "");
    const std::size_t descriptors = OpenDescriptors();
    {
        SystemCalls calls;
        calls.Fail("readdir", EIO);
        EXPECT_EQ(files.List(directory.Path()).Error(), EIO);
    }
    {
        SystemCalls calls;
        calls.FailNth(3, ENOENT);  // the second entry
        EXPECT_EQ(files.List(directory.Path()).Error(), ENOENT);
    }
    {
        SystemCalls calls;
        calls.Fail("opendir", EINTR, 2);
        EXPECT_EQ(files.List(directory.Path())->size(), 2u);
        EXPECT_EQ(calls.Count("opendir"), 3u);
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(FilesTest, ListGivesHiddenNamesAndManyOfThem) {
    std::set<std::string> expected;
    for (int i = 0; i < 500; ++i) {
        const std::string name = (i % 2 ? "." : "") + std::to_string(i);
        directory.Write(name, "");
        expected.insert(name);
    }
    const auto names = Names();
    EXPECT_EQ(names.size(), 500u);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), expected);
}

TEST_F(FilesTest, RemoveTakesLinkAndNotWhatItLeadsTo) {
    directory.Write("target", "x");
    std::filesystem::create_symlink(directory / "target", directory / "link");
    EXPECT_TRUE(files.Remove(directory / "link", Durability::Unsynced));
    EXPECT_THAT(Names(), ElementsAre("target"));
}

TEST_F(FilesTest, RemovalThatIsToBeDurableSyncsTheFolderThatWasOpenedBefore) {
    directory.Write("file", "x");
    SystemCalls calls;
    ASSERT_TRUE(files.Remove(directory / "file", Durability::Synced));
    EXPECT_THAT(calls.Names(), ElementsAre("open", "unlink", "fsync", "close"));
    EXPECT_EQ(calls.Calls()[0].text, directory.Path());
    EXPECT_EQ(calls.Calls()[2].argument, calls.Calls()[3].argument);
}

TEST_F(FilesTest, RemovalOfACacheDoesNotWaitForTheDisk) {
    directory.Write("file", "x");
    SystemCalls calls;
    ASSERT_TRUE(files.Remove(directory / "file", Durability::Unsynced));
    EXPECT_THAT(calls.Names(), ElementsAre("unlink"));
}

TEST_F(FilesTest, RemovalThatDoesNotReachTheDiskIsAFailureAndTakesTheFileAllTheSame) {
    const std::size_t descriptors = OpenDescriptors();
    for (const std::string name : {"open", "unlink", "fsync"}) {
        directory.Write("file", "x");
        {
            SystemCalls calls;
            calls.Fail(name, EIO);
            EXPECT_EQ(files.Remove(directory / "file", Durability::Synced).Error(), EIO) << name;
        }
        EXPECT_EQ(Names().empty(), name != "unlink") << name;
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(FilesTest, RenameAndRemoveGiveTheSystemsNumber) {
    directory.Write("file", "x");
    SystemCalls calls;
    calls.Fail("rename", EXDEV);
    EXPECT_EQ(files.Rename(directory / "file", directory / "other").Error(), EXDEV);
    calls.Fail("unlink", EROFS);
    EXPECT_EQ(files.Remove(directory / "file", Durability::Unsynced).Error(), EROFS);
    EXPECT_THAT(Names(), ElementsAre("file"));
}

}  // namespace
}  // namespace Ombry::Tests
