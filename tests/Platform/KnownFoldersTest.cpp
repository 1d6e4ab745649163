#include "Platform/IKnownFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace Ombry::Tests {
namespace {

TEST(KnownFoldersTest, ProgramDataIsTheFolderOfTheBuildWithTheQuennetFolderInIt) {
    const auto folder = Platform::Production<Platform::IKnownFolders>().ProgramDataQuennet();
    ASSERT_TRUE(folder);
    EXPECT_EQ(*folder, L"/var/lib/Quennet");
}

TEST(KnownFoldersTest, HomeComesFromThePasswordDatabaseAndNotFromTheEnvironment) {
    const char* const old = std::getenv("HOME");
    const std::string kept = old ? old : "";
    setenv("HOME", "/somewhere/else", 1);
    setenv("XDG_DATA_HOME", "/elsewhere", 1);
    const auto folder = Platform::Production<Platform::IKnownFolders>().CurrentUserQuennet();
    unsetenv("XDG_DATA_HOME");
    if (old) {
        setenv("HOME", kept.c_str(), 1);
    } else {
        unsetenv("HOME");
    }
    ASSERT_TRUE(folder);
    EXPECT_EQ(*folder, std::string(getpwuid(geteuid())->pw_dir) + "/.local/share/Quennet");
}

}  // namespace
}  // namespace Ombry::Tests
