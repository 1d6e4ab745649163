// A disk without room: what stood on it before is not lost, and the same command works once there is room.

#include "tests/EndToEnd/Faults/DoctorsWord.h"
#include "tests/EndToEnd/Faults/OwnWindows.h"
#include "tests/EndToEnd/Sandbox.h"
#include "tests/Fakes/LeftOut.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Ombry::Tests {
namespace {

/// A disk of half a megabyte, mounted over a folder for this process and what it starts. Throws
/// `std::runtime_error` where the system does not let it be mounted.
class SmallDisk {
public:
    explicit SmallDisk(std::string path) : folder(std::move(path)) {
        Require(mount("none", folder.c_str(), "tmpfs", 0, "size=512k,mode=0700") == 0, "mount of memory");
    }
    ~SmallDisk() { umount2(folder.c_str(), MNT_DETACH); }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    /// In a mount namespace of its own a process takes its mounts with it, however it ends.
    static void KeepMountsToOurselves() {
        Require(unshare(CLONE_NEWNS) == 0, "unshare");
        Require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount");
    }

    /// The file that takes all the room.
    static inline const std::string Ballast = "ballast";
    void Fill() const {
        const int descriptor = open(BallastFile().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const std::string page(4096, 'x');
        while (write(descriptor, page.data(), page.size()) > 0) {
        }
        Require(errno == ENOSPC, "write");
        close(descriptor);
    }
    void MakeRoom() const { std::filesystem::remove(BallastFile()); }

private:
    std::string BallastFile() const { return folder + "/" + Ballast; }

    static void Require(bool done, const char* what) {
        if (!done) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    }

    const std::string folder;
};

class SmallDiskTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        try {
            SmallDisk::KeepMountsToOurselves();
        } catch (const std::runtime_error& failure) {
            reason = failure.what();
            return;
        }
        windows = std::make_unique<OwnWindows>();
    }
    static void TearDownTestSuite() { windows.reset(); }

    void SetUp() override {
        if (!windows) return LeaveOut("a disk cannot be mounted: " + reason);
        machine.emplace();
        disk.emplace(machine->Folder().Path());
    }

    static Words Configure(const Sandbox& sandbox, const std::string& name) {
        return {"configure-bootstrap-url", "-t", "t", "-dn", name, "-r", sandbox.Url()};
    }

    /// All files but the caches, whose loss costs a call each, and the ballast.
    Tree State() const {
        Tree state = TreeOf(machine->Folder().Path());
        std::erase_if(state, [](const auto& entry) {
            const bool isFolder = entry.second.ends_with("/");
            return isFolder || entry.first == SmallDisk::Ballast ||
                   entry.first.starts_with(SecurityFolder + "/CS-cpp");
        });
        return state;
    }

    /// Runs a command that needs more room than there is, and once more with all of it.
    void ExpectNeedsRoom(const Words& words, const std::string& text) {
        const Tree before = State();
        disk->Fill();

        ExpectException(machine->Run(words), text);

        EXPECT_EQ(State(), before) << words[0];
        DoctorsWord::ExpectNothingBroken(*machine);
        disk->MakeRoom();
        ExpectSuccess(machine->Run(words));
    }

    static inline std::unique_ptr<OwnWindows> windows;
    static inline std::string reason;
    std::optional<Machine> machine;
    std::optional<SmallDisk> disk;
};

std::string NotOpened(const std::string& file) {
    return "Ombry::ClientCommunications::FileStorage::Save: Failed to open file './" + file + "' for write.";
}

TEST_F(SmallDiskTest, CommandsThatFindNoRoomSayWhichFileLeaveTheStateAndWorkOnceThereIsRoom) {
    const Sandbox older{Words{"--install-token", "t", "--datacenter", "old=Old"}};
    const Sandbox newer{Words{"--install-token", "t", "--datacenter", "new=New"}};
    ExpectSuccess(machine->Run(Configure(older, "Old")));
    ExpectSuccess(machine->Run({"enroll-client", "-t", "t", "-nn", "c1"}));

    ExpectNeedsRoom({"enroll-client", "-t", "t", "-nn", "c2"},
                    NotOpened(SecurityFolder + "/Components/c2/ombrycomponent.config"));
    // The store of Windows is no file of this disk: there the new certificate is in it already.
    ExpectNeedsRoom(
        Configure(newer, "New"),
        ToolUnderTest::IsForWindows()
            ? NotOpened(SecurityFolder + "/ombrysecurity.config")
            : "Ombry::ClientCommunications::ClientConfig::saveBootstrapCertificate: CertOpenStore "
              "failed with last error = 28");
    if (!ToolUnderTest::IsForWindows()) return;
    std::filesystem::create_directory(machine->Folder() / "empty");
    // What the text does not say: by which error, and that nothing is left.
    Words words = ToolUnderTest::Program("platform_test");
    words.push_back("--gtest_filter=FilesTest.FullDiskShowsWhenTheReplacementBegins");
    const std::string folder = "OMBRY_SMALL_DISK=Z:" + (machine->Folder() / "empty");
    const ProcessOutcome outcome = RunProcess(words, {.environment = {folder}});
    EXPECT_NE(outcome.out.find("[  PASSED  ] 1 test"), std::string::npos) << outcome.out;
}

}  // namespace
}  // namespace Ombry::Tests
