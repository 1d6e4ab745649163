// What the manual says is to be typed where a machine is to forget all: tried with a tool that does as the
// real one.

#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Packaging/Programs.h"

#include <gtest/gtest.h>

#include <string>

namespace Ombry::Tests {
namespace {

class RemovalTest : public ::testing::Test {
protected:
    /// A machine with these clients, each with its credentials.
    void Enroll(const std::string& clients) {
        ASSERT_EQ(
            Shell("cd " + folder.Path() +
                  " && mkdir -p lib/Quennet/Keys bin work && touch lib/Quennet/Keys/protection.key work/file")
                .exitCode,
            0);
        Do("for client in " + clients +
           "; do mkdir -p \"Components/$client\"; touch \"Components/$client/ombrycomponent.config\"; done");
    }

    void Do(const std::string& command) {
        const ShellRun run = Shell("mkdir -p " + security + " && cd " + security + " && " + command);
        ASSERT_EQ(run.exitCode, 0) << run.output;
    }

    /// Types the commands, and tells what is left of the state.
    std::string Type(const std::string& unreachable = "") {
        const std::string tool = folder / "bin/Ombry.SecClientConfig";
        const std::string commands = folder / "commands";
        EXPECT_EQ(Shell("cat >" + tool + " <<'END' && chmod +x " + tool + R"(
#!/bin/sh
case " )" + unreachable +
                        R"( " in *" $3 "*) exit 255;; esac
[ "$1 $2" = "unenroll-client-self -n" ] && rm )" +
                        security +
                        R"(/Components/"$3"/ombrycomponent.config || exit 255
END
                        )" OMBRY_SOURCE_DIR "/packaging/tests/removal-commands " OMBRY_SOURCE_DIR
                        "/packaging/Ombry.SecClientConfig.1 | sed 's,@OMBRY_PROGRAM_DATA_DIR@," +
                        (folder / "lib") + ",' >" + commands + " && [ -s " + commands + " ]")
                      .exitCode,
                  0);
        said = Shell("cd " + (folder / "work") + " && PATH=" + (folder / "bin") + ":$PATH sh " + commands)
                   .output;
        return Shell("cd " + (folder / "lib") + " && find . -type f | LC_ALL=C sort").output;
    }

    const TemporaryDirectory folder;
    const std::string security = folder / "lib/Quennet/OmbrySecurity";
    std::string said;  ///< by the commands
};

TEST_F(RemovalTest, TakesEachClientAndThenTheFolder) {
    Enroll("printer 'first floor' deep/er");
    EXPECT_EQ(Type(), "") << said;
    EXPECT_EQ(said, "");
    EXPECT_NE(Shell("ls -d " + (folder / "lib/Quennet")).exitCode, 0);
}

TEST_F(RemovalTest, LeavesTheIdentityOfAClientThatTheServiceStillHas) {
    Enroll("printer scanner");
    EXPECT_EQ(
        Type("printer"),
        "./Quennet/Keys/protection.key\n./Quennet/OmbrySecurity/Components/printer/ombrycomponent.config\n");
    EXPECT_EQ(Type(), "") << said;
}

TEST_F(RemovalTest, NeedsNoClient) {
    Enroll("");
    EXPECT_EQ(Type(), "") << said;
}

TEST_F(RemovalTest, IsNotHeldUpByTheFolderOfAClientThatIsGone) {
    Enroll("printer");
    Do("mkdir -p Components/gone/Services");
    EXPECT_EQ(Type(), "") << said;
    EXPECT_EQ(said, "");
}

}  // namespace
}  // namespace Ombry::Tests
