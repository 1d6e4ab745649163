#pragma once

#include "tests/EndToEnd/ChildProcess.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <fcntl.h>
#include <linux/btrfs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// How a small file system of one kind is made and mounted. None of them puts anything on the disk by itself
/// within the time of a test.
struct FileSystem {
    std::string name;
    std::uintmax_t size;            ///< in bytes; hardly any of them are ever written
    std::vector<std::string> make;  ///< the image's path follows
    std::string mountOptions;

    friend void PrintTo(const FileSystem& kind, std::ostream* out) { *out << kind.name; }
};

inline const std::vector<FileSystem> FileSystems{
    // No work in the background on tables that mkfs left out.
    {"ext4", 64 << 20, {"mkfs.ext4", "-q", "-E", "lazy_itable_init=0,lazy_journal_init=0"}, "commit=300"},
    // One that cannot reserve space.
    {"ext3", 64 << 20, {"mkfs.ext3", "-q", "-E", "lazy_itable_init=0,lazy_journal_init=0"}, "commit=300"},
    // A copy has the identity of its original.
    {"xfs", 300 << 20, {"mkfs.xfs", "-q"}, "nouuid"},
    {"btrfs", 128 << 20, {"mkfs.btrfs", "-q"}, "commit=300"},
};

/// A folder for a mount, which ends with this object.
class MountPoint {
public:
    explicit MountPoint(std::string folder) : folder(std::move(folder)) {
        std::filesystem::create_directory(this->folder);
    }
    ~MountPoint() { umount2(folder.c_str(), MNT_DETACH); }
    MountPoint(const MountPoint&) = delete;
    MountPoint& operator=(const MountPoint&) = delete;

    const std::string& Folder() const { return folder; }

private:
    const std::string folder;
};

/// The disk of a machine: an image in a file, mounted. A copy of the image is what a power cut would leave at
/// that moment: what the file system has handed to the disk is in it, and what it still holds in memory is
/// not. Throws `std::runtime_error` if the system does not let it be made or mounted.
class Disk {
public:
    explicit Disk(const FileSystem& kind) : kind(kind) {
        KeepMountsToOurselves();
        // In memory, since the real disk would have to keep up with each sync of the images.
        Require(mount("none", images.Folder().c_str(), "tmpfs", 0, "size=50%") == 0, "mount of memory");
        const std::string image = images.Folder() + "/image";
        std::ofstream(image).close();
        std::filesystem::resize_file(image, kind.size);
        std::vector<std::string> words = kind.make;
        words.push_back(image);
        Do(words);
        Mount(image);
    }
    const std::string& Folder() const { return machine.Folder(); }

    /// Lets the file system put all names and sizes on the disk, as it does every few seconds, but no content
    /// that nobody asked it to put there.
    void Commit() const {
        if (kind.name != "btrfs") {
            // Whatever is to be durable takes with it what came before it in the journal.
            const std::string file = Folder() + "/unrelated";
            const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            Require(write(descriptor, "x", 1) == 1 && fsync(descriptor) == 0, "sync");
            close(descriptor);
            std::filesystem::remove(file);
            return;
        }
        const int descriptor = open(Folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        __u64 transaction = 0;
        Require(ioctl(descriptor, BTRFS_IOC_START_SYNC, &transaction) == 0 &&
                    ioctl(descriptor, BTRFS_IOC_WAIT_SYNC, &transaction) == 0,
                "commit");
        close(descriptor);
    }

    /// What a power cut would leave now, under a name of its own. The power stays on.
    std::string Cut() {
        const std::string copy = images.Folder() + "/cut" + std::to_string(++cuts);
        Do({"cp", "--sparse=always", mounted, copy});
        return copy;
    }

    /// Starts the machine again with what a power cut left, and goes on with it.
    void Restart(const std::string& image) {
        Require(umount(Folder().c_str()) == 0, "umount");
        // It would take the copy for an older state of the disk that it knows.
        if (kind.name == "btrfs") Do({"btrfs", "device", "scan", "--forget"});
        Mount(image);
    }

private:
    /// In a mount namespace of this process the mounts end with it, however it ends.
    static void KeepMountsToOurselves() {
        static bool kept = false;
        if (kept) return;
        Require(unshare(CLONE_NEWNS) == 0, "unshare");
        Require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount");
        kept = true;
    }

    void Mount(const std::string& image) {
        Do({"mount", "-t", kind.name, "-o", "loop," + kind.mountOptions, image, Folder()});
        mounted = image;
    }

    static void Do(const std::vector<std::string>& words) {
        const ProcessOutcome outcome = RunProcess(words);
        if (outcome.exitCode != 0) throw std::runtime_error(words[0] + ": " + outcome.error);
    }

    static void Require(bool done, const char* what) {
        if (!done) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    }

    const FileSystem kind;
    const TemporaryDirectory place;
    const MountPoint images{place / "images"};
    const MountPoint machine{place / "machine"};
    std::string mounted;
    int cuts = 0;
};

}  // namespace Ombry::Tests
