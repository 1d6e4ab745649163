#pragma once

#include "tests/EndToEnd/ToolUnderTest.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace Ombry::Tests {

inline Tree TreeOf(const std::filesystem::path& folder) {
    namespace fs = std::filesystem;
    Tree tree;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        std::ostringstream text;
        struct stat status {};
        lstat(entry.path().c_str(), &status);
        text << std::oct << ToolUnderTest::ShownMode(status);
        if (entry.is_symlink()) {
            text << " -> " << fs::read_symlink(entry.path()).string();
        } else if (entry.is_directory()) {
            text << "/";
        } else if (entry.is_regular_file()) {
            text << " " << std::ifstream(entry.path(), std::ios::binary).rdbuf();
            text.clear();  // an empty file sets the fail bit
        }
        tree[entry.path().lexically_relative(folder).string()] = text.str();
    }
    return tree;
}

inline const std::string SecurityFolder = "Quennet/OmbrySecurity";
inline const std::string CacheFolder = SecurityFolder + "/CS-cpp/cache";
inline const std::string DatacenterFile = SecurityFolder + "/CS/datacenterid.config";

/// No host has this name, and no server of names is asked: a label is longer than any may be (RFC 1035,
/// section 2.3.4).
inline const std::string NoHost(64, 'h');

/// All that `configure-bootstrap-url` leaves on a machine that was empty.
inline Tree ConfiguredTree(const std::string& url, const std::string& datacenterId,
                           const TestCertificate& certificate) {
    return {
        {"Quennet", "700/"},
        {"Quennet/CertificateStores", "700/"},
        {StoreFolder, "700/"},
        {StoreFolder + "/" + FingerprintOf(certificate), "600 " + StoredCertificate(certificate)},
        {SecurityFolder, "700/"},
        {SecurityFolder + "/ombrysecurity.config", "600 {\n    \"ssdsUri\": \"" + url + "\"\n}"},
        {SecurityFolder + "/CS", "700/"},
        {DatacenterFile, "600 " + datacenterId},
    };
}

/// A machine of a test's own: a folder with the whole state of the tool, which runs there.
class Machine {
public:
    Machine() { ToolUnderTest::EmptyStore(); }

    ProcessOutcome Run(const Words& words) const {
        const ProcessOutcome outcome = RunBelow({}, words);
        // Wine, with much to do, ends one program in some thousands by 1 before its first line. The tool has
        // no such code.
        const bool begun = outcome.exitCode != 1 || !outcome.out.empty() || !outcome.error.empty();
        return begun || !ToolUnderTest::IsForWindows() ? outcome : RunBelow({}, words);
    }
    /// Runs the tool below another program, whose words come first.
    ProcessOutcome RunBelow(Words runner, const Words& words) const {
        const Words tool = ToolUnderTest::Here();
        runner.insert(runner.end(), tool.begin(), tool.end());
        runner.insert(runner.end(), words.begin(), words.end());
        return RunProcess(runner, {.folder = folder.Path()});
    }

    Tree Files() const {
        Tree tree = TreeOf(folder.Path());
        ToolUnderTest::AddStore(tree);
        return tree;
    }
    const TemporaryDirectory& Folder() const { return folder; }

private:
    TemporaryDirectory folder;
};

/// The tool must have succeeded with exactly this output.
inline void ExpectSuccess(const ProcessOutcome& outcome, const std::string& out = "") {
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.out, out);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.words;
}

/// The tool must have ended with -1 and exactly this text on its error stream.
inline void ExpectFailure(const ProcessOutcome& outcome, const std::string& error) {
    EXPECT_EQ(outcome.error, error);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.exitCode, 255) << outcome.words;
}

/// The same with the text of an exception.
inline void ExpectException(const ProcessOutcome& outcome, const std::string& text) {
    ExpectFailure(outcome, "Caught exception: " + text + "\n");
}

}  // namespace Ombry::Tests
