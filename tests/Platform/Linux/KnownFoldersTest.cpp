#include "Platform/IKnownFolders.h"

#include <dlfcn.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>

namespace Ombry::Tests {
namespace {

/// What the password database says while the object lives.
struct ScriptedPasswords {
    ScriptedPasswords() { current = this; }
    ~ScriptedPasswords() { current = nullptr; }
    ScriptedPasswords(const ScriptedPasswords&) = delete;
    ScriptedPasswords& operator=(const ScriptedPasswords&) = delete;

    std::deque<int> errors;           ///< of the first calls
    std::optional<std::string> home;  ///< none: there is no such user
    bool hasHome = true;
    std::vector<std::size_t> rooms;  ///< that each call was given

    static inline ScriptedPasswords* current = nullptr;
};

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

TEST(KnownFoldersTest, RoomGrowsUntilTheEntryFitsAndSignalsPlayNoPart) {
    ScriptedPasswords passwords;
    passwords.errors = {ERANGE, EINTR, ERANGE};
    passwords.home = "/home/somebody";
    const auto folder = Platform::Production<Platform::IKnownFolders>().CurrentUserQuennet();
    ASSERT_TRUE(folder);
    EXPECT_EQ(*folder, "/home/somebody/.local/share/Quennet");
    EXPECT_EQ(passwords.rooms, (std::vector<std::size_t>{1024, 2048, 2048, 4096}));
}

TEST(KnownFoldersTest, DatabaseThatFailsGivesItsNumber) {
    ScriptedPasswords passwords;
    passwords.errors = {EIO};
    EXPECT_EQ(Platform::Production<Platform::IKnownFolders>().CurrentUserQuennet().Error(), EIO);
}

TEST(KnownFoldersTest, UserWithoutAHomeOfHisOwnHasNoFolder) {
    ScriptedPasswords passwords;
    const auto error = [] {
        return Platform::Production<Platform::IKnownFolders>().CurrentUserQuennet().Error();
    };
    EXPECT_EQ(error(), ENOENT);
    passwords.home = "";
    EXPECT_EQ(error(), ENOENT);
    passwords.home = "home/here";
    EXPECT_EQ(error(), ENOENT);
    passwords.hasHome = false;
    EXPECT_EQ(error(), ENOENT);
}

}  // namespace
}  // namespace Ombry::Tests

// Stands before the C library's function of the same name.
extern "C" int getpwuid_r(uid_t user, passwd* entry, char* room, size_t size, passwd** found) {
    auto* const script = Ombry::Tests::ScriptedPasswords::current;
    if (!script) {
        static const auto real = reinterpret_cast<decltype(getpwuid_r)*>(dlsym(RTLD_NEXT, "getpwuid_r"));
        return real(user, entry, room, size, found);
    }
    script->rooms.push_back(size);
    *found = nullptr;
    if (!script->errors.empty()) {
        const int error = script->errors.front();
        script->errors.pop_front();
        return error;
    }
    if (!script->home) return 0;
    std::strcpy(room, script->home->c_str());
    entry->pw_dir = script->hasHome ? room : nullptr;
    *found = entry;
    return 0;
}
