#pragma once

#include "tests/EndToEnd/Machine.h"

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// Whether a path is that of a file that has not got its name yet.
inline bool IsTemporary(const std::string& path) {
    static const std::regex name("/\\.ombry-[0-9a-f]{16}\\.tmp$");
    return std::regex_search(path, name);
}

/// Files of the machine that have not got their names, all or those below one folder.
inline std::vector<std::string> TemporariesOf(const Machine& machine, const std::string& folder = "") {
    std::vector<std::string> paths;
    for (const auto& [path, content] : TreeOf(machine.Folder().Path())) {
        if (path.starts_with(folder) && IsTemporary(path)) paths.push_back(path);
    }
    return paths;
}

/// What a killed run of the client "c1" or of an administrator left in the machine's caches stays until the
/// next save in that folder, and goes with it: this saves in each of them, where there is any.
inline void ExpectNoTemporariesBehindTheNextSaves(const Machine& machine) {
    EXPECT_EQ(TemporariesOf(machine), TemporariesOf(machine, CacheFolder)) << "elsewhere they are gone";
    if (TemporariesOf(machine).empty()) return;
    for (const auto& [path, content] : TreeOf(machine.Folder().Path())) {
        if (path.starts_with(CacheFolder) && path.ends_with("-p"))
            std::filesystem::remove(machine.Folder() / path);
    }
    if (!std::filesystem::exists(machine.Folder() /
                                 (SecurityFolder + "/Components/c1/ombrycomponent.config")))
        ExpectSuccess(machine.Run({"enroll-client", "-t", "t", "-nn", "c1"}));
    ExpectSuccess(machine.Run({"enroll-service", "-u", "admin", "-p", "secret", "-owner", "c1", "-name",
                               "other", "-url", "https://h:1/x", "-namespace", "ns", "-hostname", "h"}));
    ExpectSuccess(machine.Run({"unenroll-service", "-n", "c1", "-on", "c1", "-s", "other"}));
    EXPECT_EQ(TemporariesOf(machine), std::vector<std::string>());
}

}  // namespace Ombry::Tests
