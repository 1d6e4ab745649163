#include "Platform/IFiles.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <cerrno>
#include <map>

namespace Ombry::Tests {
namespace {

using Platform::Durability;

/// The number with which each operation fails on a disk whose folder `root` holds "file" and "link".
std::map<std::string, int> NumbersOf(Platform::IFiles& files, const std::string& root) {
    const auto at = [&](const std::string& name) { return root + "/" + name; };
    EXPECT_TRUE(files.CreateDirectories(at("folder"), Durability::Unsynced));
    return {
        {"read missing", files.Read(at("missing")).Error()},
        {"read folder", files.Read(at("folder")).Error()},
        {"read link", files.Read(at("link")).Error()},
        {"state of missing", files.State(at("missing")).Error()},
        {"state of folder", files.State(at("folder")).Error()},
        {"state of link", files.State(at("link")).Error()},
        {"replace folder", files.BeginReplace(at("folder"), 1, Durability::Unsynced).Error()},
        {"replace link", files.BeginReplace(at("link"), 1, Durability::Unsynced).Error()},
        {"replace in missing folder", files.BeginReplace(at("missing/x"), 1, Durability::Unsynced).Error()},
        {"replace below file", files.BeginReplace(at("file/x"), 1, Durability::Unsynced).Error()},
        {"remove missing", files.Remove(at("missing"), Durability::Unsynced).Error()},
        {"remove folder", files.Remove(at("folder"), Durability::Unsynced).Error()},
        {"rename missing", files.Rename(at("missing"), at("file")).Error()},
        {"rename over folder", files.Rename(at("file"), at("folder")).Error()},
        {"list missing", files.List(at("missing")).Error()},
        {"list file", files.List(at("file")).Error()},
        {"folder where file stands", files.CreateDirectories(at("file"), Durability::Unsynced).Error()},
        {"folder below file", files.CreateDirectories(at("file/x"), Durability::Unsynced).Error()},
        {"folder without name", files.CreateDirectories("", Durability::Unsynced).Error()},
    };
}

TEST(FileErrorsTest, TheDiskAndTheOneInMemoryFailWithTheSameNumbers) {
    const std::map<std::string, int> expected{
        {"read missing", ENOENT},
        {"read folder", EISDIR},
        {"read link", ELOOP},
        {"state of missing", ENOENT},
        {"state of folder", EISDIR},
        {"state of link", ELOOP},
        {"replace folder", EISDIR},
        {"replace link", ELOOP},
        {"replace in missing folder", ENOENT},
        {"replace below file", ENOTDIR},
        {"remove missing", ENOENT},
        {"remove folder", EISDIR},
        {"rename missing", ENOENT},
        {"rename over folder", EISDIR},
        {"list missing", ENOENT},
        {"list file", ENOTDIR},
        {"folder where file stands", ENOTDIR},
        {"folder below file", ENOTDIR},
        {"folder without name", ENOENT},
    };
    const TemporaryDirectory directory;
    directory.Write("file", "x");
    std::filesystem::create_symlink(directory / "file", directory / "link");
    EXPECT_EQ(NumbersOf(Platform::Production<Platform::IFiles>(), directory.Path()), expected);

    MemoryFiles memory;
    memory.PutFolder("/root");
    memory.Put("/root/file", "x");
    memory.PutLink("/root/link");
    EXPECT_EQ(NumbersOf(memory, "/root"), expected);
}

}  // namespace
}  // namespace Ombry::Tests
