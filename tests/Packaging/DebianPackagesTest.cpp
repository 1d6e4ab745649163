// Packs the build and looks at the packages as Debian's own tools see them.

#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Packaging/Programs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace Ombry::Tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// Packing takes its time, so all tests look at the same packages.
class DebianPackagesTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        directory = std::make_unique<TemporaryDirectory>();
        packed = Shell("cd " OMBRY_BUILD_DIR " && cpack -B " + directory->Path());
    }
    static void TearDownTestSuite() { directory.reset(); }

    void SetUp() override { ASSERT_EQ(packed.exitCode, 0) << packed.output; }

    static std::string Package(const std::string& name) {
        return directory->Path() + "/" + name + "_1.0.0_*.deb";
    }

    static inline std::unique_ptr<TemporaryDirectory> directory;
    static inline ShellRun packed;
};

/// Lintian reads each object of an archive for longer than a compiler takes to make it. The archives are made
/// alike, so that it gets the smallest of them. What it says for information is for a release:
/// scripts/try-packages.
TEST_F(DebianPackagesTest, AreFour_AndLintianFindsNothingInThem) {
    EXPECT_EQ(Shell("ls " + directory->Path() + "/*.deb").Lines().size(), 4u);
    const ShellRun reduced =
        Shell("cd " + directory->Path() + R"( && dpkg-deb -R libombry-dev_*.deb reduced && cd reduced &&
        for archive in $(ls -S usr/lib/*.a | sed '$d'); do rm $archive; sed -i "\,$archive,d" DEBIAN/md5sums; done &&
        ls usr/lib/*.a && dpkg-deb --root-owner-group -b . ../reduced.deb)");
    ASSERT_EQ(reduced.exitCode, 0) << reduced.output;
    const ShellRun checked =
        Shell("lintian --allow-root --pedantic " + Package("ombry-sec-client-config") + " " +
              directory->Path() + "/reduced.deb " + Package("libombry-doc") + " " + Package("ombry-sandbox"));
    EXPECT_EQ(checked.exitCode, 0);
    EXPECT_EQ(checked.output, "");
}

/// A line behind two blanks would be shown as it stands, without being wrapped.
TEST_F(DebianPackagesTest, DescriptionsAreParagraphs) {
    for (const char* name : {"ombry-sec-client-config", "libombry-dev", "libombry-doc", "ombry-sandbox"}) {
        const ShellRun description = Shell("dpkg-deb -f " + Package(name) + " Description");
        EXPECT_GE(description.Lines().size(), 3u);
        EXPECT_THAT(description.output, Not(HasSubstr("\n  ")));
    }
}

TEST_F(DebianPackagesTest, PurgeTakesTheCachesAlone) {
    const TemporaryDirectory control;
    ASSERT_EQ(Shell("dpkg-deb -e " + Package("ombry-sec-client-config") + " " + control.Path()).exitCode, 0);
    // The script, with the machine's folder in the place of the real one.
    const std::string state = control / "Quennet/OmbrySecurity";
    ASSERT_EQ(Shell("mkdir -p " + state + "/CS-cpp/cache/c1 " + state + "/CS && touch " + state +
                    "/CS-cpp/cache/c1/entry " + state + "/CS/datacenterid.config && sed -i 's,/var/lib," +
                    control.Path() + ",' " + (control / "postrm"))
                  .exitCode,
              0);
    for (const char* step : {"remove", "upgrade", "purge"}) {
        EXPECT_EQ(Shell((control / "postrm") + " " + step + " && find " + state + " -type f").Lines().size(),
                  std::string(step) == "purge" ? 1u : 2u)
            << step;
    }
}

TEST_F(DebianPackagesTest, ToolNeedsItsSharedLibraries_AndBringsNoneOfTheDevelopersFiles) {
    const std::string package = Package("ombry-sec-client-config");
    const ShellRun depends = Shell("dpkg-deb -f " + package + " Depends");
    EXPECT_THAT(depends.output, HasSubstr("libssl3"));
    EXPECT_THAT(depends.output, HasSubstr("libc6"));
    const ShellRun content = Shell("dpkg-deb -c " + package);
    EXPECT_THAT(content.output, HasSubstr(" ./usr/bin/Ombry.SecClientConfig\n"));
    EXPECT_THAT(content.output, HasSubstr(" ./usr/share/man/man1/Ombry.SecClientConfig.1.gz\n"));
    EXPECT_THAT(content.output,
                HasSubstr(" ./usr/share/bash-completion/completions/Ombry.SecClientConfig\n"));
    EXPECT_THAT(content.output, HasSubstr(" ./usr/bin/ombry-doctor\n"));
    EXPECT_THAT(content.output, HasSubstr(" ./usr/share/man/man1/ombry-doctor.1.gz\n"));
    EXPECT_THAT(content.output, Not(HasSubstr("/usr/include")));
    EXPECT_THAT(content.output, Not(HasSubstr(".a\n")));
}

TEST_F(DebianPackagesTest, SandboxBringsItsUnitAndItsManual_AndNeedsNoScriptOfAMaintainer) {
    const std::string package = Package("ombry-sandbox");
    const ShellRun content = Shell("dpkg-deb -c " + package + " | grep -v '/$' | sed 's/.* //'");
    EXPECT_EQ(content.output,
              "./usr/bin/ombry-sandbox\n./usr/lib/systemd/system/ombry-sandbox.service\n"
              "./usr/share/doc/ombry-sandbox/changelog.gz\n./usr/share/doc/ombry-sandbox/copyright\n"
              "./usr/share/man/man1/ombry-sandbox.1.gz\n");
    EXPECT_THAT(Shell("dpkg-deb -f " + package + " Depends").output, HasSubstr("libsqlite3-0"));
    EXPECT_EQ(Shell("dpkg-deb --ctrl-tarfile " + package + " | tar -t | sort").output,
              "./control\n./md5sums\n");
}

TEST_F(DebianPackagesTest, LibrariesNeedThoseThatTheirUsersLink_AndBringNoExecutable) {
    const std::string package = Package("libombry-dev");
    EXPECT_EQ(Shell("dpkg-deb -f " + package + " Depends").output, "libssl-dev (>= 3)\n");
    const ShellRun content = Shell("dpkg-deb -c " + package);
    EXPECT_THAT(content.output, HasSubstr("/usr/include/ombry/ClientCommunications/IServiceGateway.h\n"));
    EXPECT_THAT(content.output, HasSubstr("/cmake/Ombry/OmbryConfig.cmake\n"));
    EXPECT_THAT(content.output, HasSubstr("/libombry_client_communications.a\n"));
    EXPECT_THAT(content.output, Not(HasSubstr("/usr/bin")));
}

TEST_F(DebianPackagesTest, ReferenceHasAPageForWhatAProgramIsGiven_AndNoneForWhatIsInside) {
    const ShellRun content = Shell("dpkg-deb -c " + Package("libombry-doc"));
    const std::string pages = " ./usr/share/doc/libombry-doc/html/";
    EXPECT_THAT(content.output, HasSubstr(pages + "index.html\n"));
    EXPECT_THAT(content.output,
                HasSubstr(pages + "classOmbry_1_1ClientCommunications_1_1IServiceRequest.html\n"));
    EXPECT_THAT(content.output, HasSubstr(pages + "classOmbryZephCore_1_1ZephSorrelSyncHttpClient.html\n"));
    EXPECT_THAT(content.output, HasSubstr(pages + "classOmbryZephCore_1_1ZephHttpHeaderCopy.html\n"));
    EXPECT_THAT(content.output, Not(HasSubstr("IAuthenticator.html")));
    EXPECT_THAT(content.output, Not(HasSubstr("Impl")));
}

TEST_F(DebianPackagesTest, ReferenceListsTheFunctionsOfEachNamespace) {
    const ShellRun functions =
        Shell("dpkg-deb --fsys-tarfile " + Package("libombry-doc") +
              " | tar -xO ./usr/share/doc/libombry-doc/html/namespacemembers_func.html");
    for (const char* name : {"EnrollClient()", "MakeClientCommunications()", "CreateJSONSerializer()"})
        EXPECT_THAT(functions.output, HasSubstr(name));
}

}  // namespace
}  // namespace Ombry::Tests
