// Installs the build into a folder of its own, as an administrator or a packager does.

#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Packaging/Programs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Ombry::Tests {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

class InstallationTest : public ::testing::Test {
protected:
    void SetUp() override {
        const ShellRun installed = Shell("cmake --install " OMBRY_BUILD_DIR " --prefix " + prefix);
        ASSERT_EQ(installed.exitCode, 0) << installed.output;
    }

    ShellRun ConfigureConsumer(const std::string& version) {
        return Shell("cmake -G Ninja -S " OMBRY_SOURCE_DIR "/tests/Packaging/Consumer -B " +
                     (directory / "consumer") + " -DCMAKE_PREFIX_PATH=" + prefix +
                     " -DWANTED_VERSION=" + version);
    }

    const TemporaryDirectory directory;
    const std::string prefix = directory / "prefix";
};

TEST_F(InstallationTest, HoldsTheToolTheLibrariesAndTheirDocuments_AndNothingOfTheTests) {
    const ShellRun found = Shell(
        "cd " + prefix + " && find . -type f -not -path './include/*' -not -path '*/html/*' | LC_ALL=C sort");
    std::vector<std::string> lines = found.Lines();
    std::erase_if(lines, [](const std::string& line) { return line.find("/OmbryTargets") != line.npos; });
    EXPECT_THAT(
        lines,
        UnorderedElementsAre(
            "./bin/Ombry.SecClientConfig", "./bin/ombry-doctor", "./bin/ombry-sandbox",
            "./lib/cmake/Ombry/OmbryConfig.cmake", "./lib/cmake/Ombry/OmbryConfigVersion.cmake",
            "./lib/libombry_cancellation.a", "./lib/libombry_client_communications.a",
            "./lib/libombry_object_mapping.a", "./lib/libombry_platform.a", "./lib/libombry_zeph_core.a",
            "./lib/systemd/system/ombry-sandbox.service", EndsWith("/pkgconfig/ombry.pc"),
            "./share/bash-completion/completions/Ombry.SecClientConfig",
            "./share/bash-completion/completions/ombry-doctor", "./share/doc-base/libombry-doc",
            "./share/doc/libombry-dev/changelog.gz", "./share/doc/libombry-dev/copyright",
            "./share/doc/libombry-doc/changelog.gz", "./share/doc/libombry-doc/copyright",
            "./share/doc/ombry-sandbox/changelog.gz", "./share/doc/ombry-sandbox/copyright",
            "./share/doc/ombry-sec-client-config/changelog.gz",
            "./share/doc/ombry-sec-client-config/copyright",
            "./share/doc/ombry-sec-client-config/ombry-doctor.schema.json",
            "./share/man/man1/Ombry.SecClientConfig.1.gz", "./share/man/man1/ombry-doctor.1.gz",
            "./share/man/man1/ombry-sandbox.1.gz"));
}

TEST_F(InstallationTest, HoldsThePublicHeadersAndWhatTheyInclude_UnderTheNamesThatTheTreeIncludesThemBy) {
    const ShellRun wanted = Shell(
        "cd " OMBRY_SOURCE_DIR
        " && find Cancellation ClientCommunications LibraryLogger ObjectMapping -maxdepth 1 -name '*.h' | "
        "LC_ALL=C sort");
    const ShellRun found = Shell("cd " + prefix + "/include/ombry && find * -type f | LC_ALL=C sort");
    EXPECT_EQ(found.output, wanted.output + R"(OmbryZephCore/ZephHttpClientConnectionIf.h
OmbryZephCore/ZephHttpHeaderCopy.h
OmbryZephCore/ZephIOCompletionHandlerIf.h
OmbryZephCore/ZephIOTaskManagerIf.h
OmbryZephCore/ZephResultCodes.h
OmbryZephCore/ZephSorrelConnectionParameters.h
OmbryZephCore/ZephSorrelConnectionParametersIf.h
OmbryZephCore/ZephSorrelSyncConnectionIf.h
OmbryZephCore/ZephSorrelSyncConnectionPool.h
OmbryZephCore/ZephSorrelSyncHttpClient.h
OmbryZephCore/ZephSyncDataIf.h
Platform/Current.h
Platform/IClock.h
Platform/ISockets.h
Platform/Result.h
Platform/SecureWipe.h
Platform/Time.h
)");
    EXPECT_THAT(found.output, HasSubstr("ClientCommunications/IServiceGateway.h\n"));
}

TEST_F(InstallationTest, ToolRunsFromWhereItWasInstalled) {
    const ShellRun run = Shell(prefix + "/bin/Ombry.SecClientConfig help help");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.output, HasSubstr("Ombry.SecClientConfig help command\n"));
}

TEST_F(InstallationTest, DoctorRunsFromWhereItWasInstalled) {
    const ShellRun run = Shell(prefix + "/bin/ombry-doctor --list-checks");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.output, HasSubstr("trust.certificate "));
}

TEST_F(InstallationTest, ConsumerFindsThePackageBuildsAndRuns) {
    const ShellRun configured = ConfigureConsumer("1.0");
    ASSERT_EQ(configured.exitCode, 0) << configured.output;
    const ShellRun built = Shell("cmake --build " + (directory / "consumer"));
    ASSERT_EQ(built.exitCode, 0) << built.output;
    const ShellRun run = Shell(directory / "consumer/consumer");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output,
              "lines 1\n1970-01-01T00:00:00.0000005Z\nclock runs 1\ncancelled 1\n1 Sandbox\n"
              "SF-Root-Request-Type: PrintLabels\ninvalid stoul argument\n");
}

TEST_F(InstallationTest, ConsumerThatWantsAnotherMajorVersionIsRefused) {
    const ShellRun configured = ConfigureConsumer("2.0");
    EXPECT_NE(configured.exitCode, 0);
    EXPECT_THAT(configured.output, HasSubstr("OmbryConfig.cmake, version: 1.0.0\n"));
}

TEST_F(InstallationTest, ExampleBuildsOutsideTheTree) {
    const std::string example = directory / "example";
    std::filesystem::copy(OMBRY_SOURCE_DIR "/examples/long_running_client", example,
                          std::filesystem::copy_options::recursive);
    const ShellRun built =
        Shell("cmake -G Ninja -S " + example + " -B " + example + "/build -DCMAKE_PREFIX_PATH=" + prefix +
              " && cmake --build " + example + "/build");
    ASSERT_EQ(built.exitCode, 0) << built.output;
    EXPECT_EQ(Shell(example + "/build/long_running_client").exitCode, 2);
}

TEST_F(InstallationTest, MovedInstallationStillServes) {
    std::filesystem::rename(prefix, directory / "elsewhere");
    const ShellRun configured =
        Shell("cmake -G Ninja -S " OMBRY_SOURCE_DIR "/tests/Packaging/Consumer -B " +
              (directory / "consumer") + " -DCMAKE_PREFIX_PATH=" + (directory / "elsewhere"));
    EXPECT_EQ(configured.exitCode, 0) << configured.output;
}

}  // namespace
}  // namespace Ombry::Tests
