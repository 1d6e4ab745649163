#pragma once

#include "tests/EndToEnd/ToolUnderTest.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <cstdlib>
#include <filesystem>
#include <string>

namespace Ombry::Tests {

/// A Windows that begins with this object and ends with it: Wine does its work in a process of its own, and
/// that of the Windows at hand sees neither the mounts of a test nor the end of what a test has killed. The
/// drive is that of the Windows at hand, the registry a copy. Nothing where the tool is the one for Linux.
class OwnWindows {
public:
    OwnWindows() {
        if (!ToolUnderTest::IsForWindows()) return;
        namespace fs = std::filesystem;
        const fs::path origin = std::getenv(Variable);
        const fs::path copy = folder.Path();
        for (const char* name : {".update-timestamp", "system.reg", "user.reg", "userdef.reg"})
            fs::copy_file(origin / name, copy / name);
        fs::create_symlink(origin / "drive_c", copy / "drive_c");
        fs::create_directory(copy / "dosdevices");
        fs::create_symlink("../drive_c", copy / "dosdevices/c:");
        fs::create_symlink("/", copy / "dosdevices/z:");
        former = origin.string();
        setenv(Variable, folder.Path().c_str(), 1);
        Shell("wineserver -p");
        // What a Windows starts with its first program would keep the streams of that one open.
        Shell("\"$OMBRY_WINE\" wineboot --init");
    }
    ~OwnWindows() {
        if (former.empty()) return;
        Shell("wineserver -k");
        setenv(Variable, former.c_str(), 1);
    }
    OwnWindows(const OwnWindows&) = delete;
    OwnWindows& operator=(const OwnWindows&) = delete;

private:
    static constexpr const char* Variable = "WINEPREFIX";

    static void Shell(const std::string& line) {
        RunProcess({"sh", "-c", "PATH=$PATH:/usr/lib/wine; " + line + " >/dev/null 2>&1 </dev/null"});
    }

    const TemporaryDirectory folder;
    std::string former;
};

}  // namespace Ombry::Tests
