// What is made of the build for Windows, to be given to others: packed, unpacked, installed and removed below
// Wine. The environment names that build in OMBRY_WINDOWS_BUILD, Wine in OMBRY_WINE, and a Windows of its own
// in WINEPREFIX.

#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Packaging/Programs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace Ombry::Tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

std::string Named(const char* variable) {
    const char* const value = std::getenv(variable);
    if (!value) throw std::runtime_error(std::string(variable) + " is not set");
    return value;
}

class WindowsPackagesTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        directory = std::make_unique<TemporaryDirectory>();
        packed = Shell("cd " + Named("OMBRY_WINDOWS_BUILD") + " && cpack -B " + directory->Path());
    }
    static void TearDownTestSuite() { directory.reset(); }
    void SetUp() override { ASSERT_EQ(packed.exitCode, 0) << packed.output; }

    /// The folder that a component's archive was unpacked into.
    static std::string Unpacked(const std::string& package) {
        const std::string folder = *directory / ("unpacked-" + package);
        const std::string archive = *directory / (package + "-1.0.0-win64.zip");
        const ShellRun run = Shell("cmake -E make_directory " + folder + " && cd " + folder +
                                   " && cmake -E tar xf " + archive);
        EXPECT_EQ(run.exitCode, 0) << run.output;
        return folder;
    }
    static ShellRun Files(const std::string& folder) {
        return Shell("cd " + folder + " && find . -type f | LC_ALL=C sort");
    }
    /// Runs a program of Windows, and waits for what it leaves behind as well. Lines end as on Linux.
    static ShellRun Windows(const std::string& line) {
        ShellRun run = Shell(Named("OMBRY_WINE") + " " + line + " </dev/null");
        std::erase(run.output, '\r');
        Shell("PATH=$PATH:/usr/lib/wine wineserver -w");
        return run;
    }
    /// A path of the drive C: as Linux has it.
    static std::string OnDrive(const std::string& path) { return Named("WINEPREFIX") + "/drive_c/" + path; }

    static inline std::unique_ptr<TemporaryDirectory> directory;
    static inline ShellRun packed;
};

TEST_F(WindowsPackagesTest, AreAnInstallerAndTwoArchives) {
    EXPECT_THAT(Shell("cd " + directory->Path() + " && ls -d *.exe *.zip").Lines(),
                ElementsAre("libombry-dev-1.0.0-win64.zip", "ombry-sec-client-config-1.0.0-win64.exe",
                            "ombry-sec-client-config-1.0.0-win64.zip"));
}

TEST_F(WindowsPackagesTest, ArchiveOfTheToolHoldsItAndItsDocuments) {
    EXPECT_THAT(Files(Unpacked("ombry-sec-client-config")).Lines(),
                ElementsAre("./bin/Ombry.SecClientConfig.exe", "./doc/Ombry.SecClientConfig.html",
                            "./doc/Ombry.SecClientConfig.txt", "./doc/changelog.txt", "./doc/copyright.txt"));
}

TEST_F(WindowsPackagesTest, ToolNeedsNothingButTheSystem) {
    const std::string tool = Unpacked("ombry-sec-client-config") + "/bin/Ombry.SecClientConfig.exe";
    const ShellRun imported =
        Shell("x86_64-w64-mingw32-objdump -p " + tool + " | sed -n 's/.*DLL Name: //p' | tr A-Z a-z");
    EXPECT_THAT(imported.Lines(),
                UnorderedElementsAre("advapi32.dll", "crypt32.dll", "kernel32.dll", "msvcrt.dll",
                                     "rpcrt4.dll", "shell32.dll", "ws2_32.dll"));
    // The security provider is loaded when it is wanted, and there is no other engine; the source of random
    // bytes likewise, which advapi32 would have looked for beside the program.
    const std::string texts = Shell("strings -n 6 " + tool).output;
    EXPECT_THAT(texts, HasSubstr("\nSCHANNEL.DLL\n"));
    EXPECT_THAT(Shell("x86_64-w64-mingw32-objdump -p " + tool).output, Not(HasSubstr("SystemFunction036")));
    EXPECT_THAT(texts, Not(HasSubstr("OpenSSL")));
}

TEST_F(WindowsPackagesTest, ManualIsThatOfThisSystem) {
    const std::string documents = Unpacked("ombry-sec-client-config") + "/doc/";
    for (const std::string name : {"Ombry.SecClientConfig.html", "Ombry.SecClientConfig.txt"}) {
        const std::string manual = Shell("cat " + documents + name).output;
        EXPECT_THAT(manual, HasSubstr("ProgramData")) << name;
        EXPECT_THAT(manual, HasSubstr("certutil -store OmbrySecurity")) << name;
        EXPECT_THAT(manual, Not(HasSubstr("/var/lib"))) << name;
        EXPECT_THAT(manual, Not(HasSubstr("protection.key"))) << name;
    }
}

TEST_F(WindowsPackagesTest, InstallsAndGoesWithoutAQuestion_AndLeavesTheStateOfTheMachine) {
    const std::string installer = *directory / "ombry-sec-client-config-1.0.0-win64.exe";
    const std::string home = OnDrive("Program Files/Ombry");
    EXPECT_EQ(Windows(installer + " /S").exitCode, 0);
    EXPECT_THAT(
        Files("'" + home + "'").Lines(),
        ElementsAre("./Uninstall.exe", "./bin/Ombry.SecClientConfig.exe", "./doc/Ombry.SecClientConfig.html",
                    "./doc/Ombry.SecClientConfig.txt", "./doc/changelog.txt", "./doc/copyright.txt"));
    const ShellRun run = Windows("'" + home + "/bin/Ombry.SecClientConfig.exe' help help");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.output, HasSubstr("Ombry.SecClientConfig help command\n"));
    const std::string key =
        R"('HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\Ombry.SecClientConfig')";
    EXPECT_THAT(Windows("reg query " + key).output, HasSubstr("QuietUninstallString"));

    const std::string state = OnDrive("ProgramData/Quennet");
    // Of the list of who may do what Wine keeps what the mode of a folder says.
    EXPECT_EQ(Shell("stat -c %a '" + state + "'").output, "750\n");
    Shell("touch '" + state + "/common.config'");
    // A second time over the first: nothing is asked either.
    EXPECT_EQ(Windows(installer + " /S").exitCode, 0);
    EXPECT_EQ(Windows("'" + home + "/Uninstall.exe' /S").exitCode, 0);

    EXPECT_FALSE(std::filesystem::exists(home));
    EXPECT_THAT(Files(state).Lines(), ElementsAre("./common.config"));
    EXPECT_NE(Windows("reg query " + key).exitCode, 0);
    std::filesystem::remove_all(state);
}

TEST_F(WindowsPackagesTest, RemovalLeavesWhatSomebodyElsePutBesideTheTool) {
    const std::string installer = *directory / "ombry-sec-client-config-1.0.0-win64.exe";
    EXPECT_EQ(Windows(installer + R"( /S '/D=C:\own')").exitCode, 0);
    const std::string home = OnDrive("own");
    Shell("touch '" + home + "/mine.txt'");
    EXPECT_EQ(Windows("'" + home + "/Uninstall.exe' /S").exitCode, 0);
    EXPECT_THAT(Files("'" + home + "'").Lines(), ElementsAre("./mine.txt"));
    EXPECT_FALSE(std::filesystem::exists(OnDrive("ProgramData/Quennet")));  // which was empty
    std::filesystem::remove_all(home);
}

/// Configures and builds somebody's project against the archive of the libraries.
class WindowsConsumerTest : public WindowsPackagesTest {
protected:
    static ShellRun Build(const std::string& source, const std::string& build,
                          const std::string& options = "") {
        return Shell("cmake -G Ninja -S " + source + " -B " + build +
                     " -DCMAKE_TOOLCHAIN_FILE=" OMBRY_SOURCE_DIR "/cmake/toolchains/mingw-w64-x86_64.cmake" +
                     " -DOmbry_DIR=" + Unpacked("libombry-dev") + "/lib/cmake/Ombry -DWANTED_VERSION=1.0 " +
                     options + " && cmake --build " + build);
    }
};

TEST_F(WindowsConsumerTest, FindsThePackageBuildsAndRuns) {
    const std::string build = *directory / "consumer";
    const ShellRun built = Build(OMBRY_SOURCE_DIR "/tests/Packaging/Consumer", build);
    ASSERT_EQ(built.exitCode, 0) << built.output;
    const ShellRun run = Windows(build + "/consumer.exe");
    EXPECT_EQ(run.output,
              "lines 1\n1970-01-01T00:00:00.0000005Z\nclock runs 1\ncancelled 1\n1 Sandbox\n"
              "SF-Root-Request-Type: PrintLabels\ninvalid stoul argument\n");
}

// By the quick linker of the tests: that the compiler's own takes the libraries is shown above.
TEST_F(WindowsConsumerTest, ExampleBuildsOutsideTheTreeAndRuns) {
    const std::string build = *directory / "example";
    const ShellRun built = Build(OMBRY_SOURCE_DIR "/examples/long_running_client", build,
                                 "-DCMAKE_EXE_LINKER_FLAGS='-static -fno-use-linker-plugin -B" +
                                     Named("OMBRY_WINDOWS_BUILD") + "/linker'");
    ASSERT_EQ(built.exitCode, 0) << built.output;
    const ShellRun run = Windows(build + "/long_running_client.exe");
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.output, HasSubstr("long_running_client CLIENT SERVICE PATH"));
}

}  // namespace
}  // namespace Ombry::Tests
