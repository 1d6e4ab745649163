#include "Doctor/StateChecks.h"
#include "Doctor/Texts.h"
#include "tests/Doctor/DoctorFixture.h"
#include "tests/EndToEnd/Machine.h"

#include <gmock/gmock.h>

#include <sys/file.h>
#include <unistd.h>

namespace Ombry::Tests {
namespace {

using namespace Doctor;
using testing::HasSubstr;
using testing::Not;

class StateChecksTest : public DoctorFixture {
protected:
    using Names = std::vector<std::string>;

    void MoveBehindALink(const std::string& path, const std::string& place) const {
        std::filesystem::rename(folder / path, folder / place);
        std::filesystem::create_directory_symlink(folder / place, folder / path);
    }

    const std::string temporary = ".ombry-0123456789abcdef.tmp";
};

TEST_F(StateChecksTest, MachineThatIsWellIsFine) {
    for (auto* check : {CheckPlace, CheckOwners, CheckModes, CheckLeftovers, CheckClock}) {
        const Finding finding = RunForOne(check);
        EXPECT_EQ(finding.severity, Severity::Success) << finding.message;
        EXPECT_EQ(finding.remedy, "");
    }
    EXPECT_THAT(RunForOne(CheckPlace).message, HasSubstr(folder / "Quennet"));
}

TEST_F(StateChecksTest, NoStateIsCriticalAndBeginsWithConfiguring) {
    std::filesystem::remove_all(folder / "Quennet");
    const Finding finding = RunForOne(CheckPlace);
    EXPECT_EQ(finding.severity, Severity::Critical);
    EXPECT_EQ(finding.remedy,
              "Ombry.SecClientConfig configure-bootstrap-url -u USER -p PASSWORD -dn DATACENTER -r URL");
    EXPECT_FALSE(finding.isUndecided);
}

TEST_F(StateChecksTest, StateThatMayNotBeLookedAtIsLeftOpen) {
    inspection.forbidden = folder / "Quennet";
    const Finding finding = RunForOne(CheckPlace);
    EXPECT_TRUE(finding.isUndecided);
    EXPECT_EQ(finding.remedy, "sudo ombry-doctor");
}

TEST_F(StateChecksTest, WhatCannotBeLookedAtIsLeftOpenUnlessItIsGone) {
    for (const std::string& path : {folder / Record, folder / (Security + "/Components/c1/Services")}) {
        for (const int error : {ENAMETOOLONG, EIO}) {
            inspection.errors = {{path, error}};
            for (auto* check : {CheckPlace, CheckOwners, CheckModes, CheckLeftovers, CheckClock}) {
                const Finding finding = RunForOne(check);
                EXPECT_TRUE(finding.isUndecided) << finding.message;
                EXPECT_EQ(finding.message,
                          path + " cannot be looked at, with error " + std::to_string(error));
                EXPECT_EQ(finding.remedy, "ls -la -- " + path);
            }
        }
        inspection.errors = {{path, ENOENT}};
        EXPECT_EQ(RunForOne(CheckModes).severity, Severity::Success);
    }
    const std::string services = folder / (Security + "/Components/c1/Services");
    inspection.errors = {{services + "/", EIO}};
    EXPECT_EQ(RunForOne(CheckModes).message, services + " cannot be looked at, with error 5") << "its names";
}

TEST_F(StateChecksTest, FileInThePlaceOfAFolderIsInTheWay) {
    const std::vector<std::pair<std::string, Severity>> places{
        {"Quennet", Severity::Critical},
        {Security, Severity::Critical},
        {Security + "/CS", Severity::Critical},
        {Security + "/CS-cpp", Severity::Critical},
        {Security + "/CS-cpp/cache/c1", Severity::Error},
        {Security + "/CS-cpp/cache/c1/aa_token", Severity::Error},
        {Security + "/CS-cpp/cache/finder_cache", Severity::Error},
        {Security + "/Components", Severity::Error},
        {Security + "/Components/c1/Services", Severity::Error},
        {"Quennet/Keys", Severity::Error},
        {Store, Severity::Critical}};
    for (const auto& [path, severity] : places) {
        SCOPED_TRACE(path);
        std::filesystem::remove_all(folder / "Quennet");
        std::filesystem::create_directories(folder / (Security + "/Components/c1"));
        std::filesystem::create_directories(folder / (Security + "/CS-cpp/cache"));
        std::filesystem::remove_all(folder / path);
        folder.Write(path, "in the way");
        const Finding finding = RunForOne(CheckPlace);
        EXPECT_EQ(finding.severity, severity);
        EXPECT_EQ(finding.remedy, "rm -f -- " + (folder / path));
    }
}

TEST_F(StateChecksTest, FileInThePlaceOfAClientsFolderIsInTheWayOfThatClientAlone) {
    folder.Write(Security + "/Components/next", "");
    folder.Write(Security + "/Components/.ombry-0123456789abcdef.tmp", "a save that was cut off");
    const Finding finding = RunForOne(CheckPlace);
    EXPECT_EQ(finding.severity, Severity::Error);
    EXPECT_EQ(finding.remedy, "rm -f -- " + (folder / (Security + "/Components/next")));
}

TEST_F(StateChecksTest, LinkIsAFolderUnlessItIsTheOneOfTheCertificates) {
    for (const std::string& path : {Security, Store}) {
        std::filesystem::rename(folder / path, folder / "elsewhere");
        std::filesystem::create_symlink(folder / "elsewhere", folder / path);
        const Finding finding = RunForOne(CheckPlace);
        EXPECT_EQ(finding.severity, path == Store ? Severity::Critical : Severity::Success) << path;
        std::filesystem::remove(folder / path);
        std::filesystem::rename(folder / "elsewhere", folder / path);
    }
}

TEST_F(StateChecksTest, WhatLiesBehindALinkIsJudgedAndMendedThere) {
    // One of the tool's own folders, and one below another of them.
    const std::string components = Security + "/Components";
    MoveBehindALink("Quennet/Keys", "keys");
    MoveBehindALink(components, "components");
    Chmod(Key, 0640);
    Chmod(Credentials, 0604);
    const std::string credentials = folder / Credentials;
    inspection.owners[credentials] = inspection.owners[folder / Key] = 4711;
    for (auto* check : {CheckModes, CheckOwners}) {
        const Finding finding = RunForOne(check);
        EXPECT_EQ(Text(finding, "count"), "2");
        EXPECT_THAT(
            finding.remedy,
            testing::EndsWith(" -- " + (folder / Security) + " " + (folder / "Quennet/CertificateStores") +
                              " " + (folder / "Quennet/Keys/ ") + (folder / components) + "/"));
    }
    folder.Write(components + "/" + temporary, "half");
    EXPECT_EQ(RunForOne(CheckLeftovers).remedy, "rm -f -- " + (folder / (components + "/" + temporary)));
}

TEST_F(StateChecksTest, LinkToAFileIsNoneAndIsJudgedItself) {
    std::filesystem::rename(folder / Address, folder / "address");
    std::filesystem::create_symlink(folder / "address", folder / Address);
    Chmod("address", 0666);
    EXPECT_EQ(RunForOne(CheckModes).severity, Severity::Success) << "the tool does not read it";
}

TEST_F(StateChecksTest, LinksThatLeadInACircleAreFollowedOnce) {
    const std::string components = folder / (Security + "/Components");
    std::filesystem::create_directory_symlink(components, components + "/c1/up");
    std::filesystem::create_directory_symlink(".", components + "/c1/here");
    std::filesystem::create_directory_symlink(components + "/c1", components + "/c2");
    inspection.owners[folder / Credentials] = 4711;
    EXPECT_EQ(Text(RunForOne(CheckOwners), "count"), "1");
    Names names;
    const Doctor::Machine machine;
    for (const auto& [path, entries] : machine.Tree().Folders()) {
        if (path.starts_with(components)) names.push_back(path.substr(components.size()));
    }
    EXPECT_EQ(names, (Names{"", "/c1", "/c1/Services", "/c2", "/c2/Services"})) << "two names, no circle";
}

TEST_F(StateChecksTest, FolderOnAnotherDeviceThatHasTheNumberOfOneAboveIsNoCircle) {
    const std::string components = folder / (Security + "/Components");
    MoveBehindALink(Security + "/Components/c1", "elsewhere");
    const auto above = inspection.Details(components);
    ASSERT_TRUE(above);
    inspection.alter = [&](const std::string& path, Platform::FileDetails& details) {
        if (path != components + "/c1" || details.kind != Platform::FileKind::Folder) return;
        details.file = above->file;
        details.device = above->device + 1;
    };
    EXPECT_TRUE(Doctor::Machine().Tree().Folders().contains(components + "/c1/Services"));
}

TEST_F(StateChecksTest, FolderOfTheCertificatesBehindALinkIsNotLookedInto) {
    MoveBehindALink(Store, "store");
    Chmod("store", 0777);
    EXPECT_EQ(RunForOne(CheckModes).severity, Severity::Success) << "the link is to be removed";
}

TEST_F(StateChecksTest, LinkWhereTheToolOpensNoFolderIsNotFollowed) {
    folder.Write("elsewhere/file", "");
    Chmod("elsewhere", 0755);
    std::filesystem::create_directories(folder / (Caches + "finder_cache"));
    for (const std::string& place :
         {Security + "/x", Store + "/x", std::string("Quennet/Keys/x"), Caches + "finder_cache/x"}) {
        std::filesystem::create_directory_symlink(folder / "elsewhere", folder / place);
        EXPECT_EQ(RunForOne(CheckModes).severity, Severity::Success) << place;
        const Doctor::Machine machine;
        EXPECT_FALSE(machine.Tree().Folders().contains(folder / place));
    }
}

TEST_F(StateChecksTest, LinkOfCachesThatLeadsAmongThingsOfOthersIsToGoAndNothingElseThere) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"finder_cache", "notes"}, {"finder_cache", "bin/notes"}, {"c9", "notes"}, {"c9", "bin/notes"}};
    std::filesystem::create_directories(folder / Caches);
    for (const auto& [name, other] : cases) {
        SCOPED_TRACE(name + " " + other);
        folder.Write("elsewhere/" + other, "");
        folder.Write("elsewhere/" + temporary, "half");
        folder.Write("elsewhere/x-s", "");
        folder.Write("elsewhere/x-p", "");
        std::filesystem::create_directory_symlink("/", folder / "elsewhere/up");
        std::filesystem::create_directory_symlink(folder / "elsewhere", folder / (Caches + name));
        RunProcess({"chmod", "-R", "go=", folder / "Quennet"});
        RunProcess({"chmod", "-R", "a+rwX", folder / "elsewhere"});
        inspection.owners[folder / (Caches + name) + "/" + other] = 4711;
        inspection.owners[folder / (Caches + name)] = 4711;
        const Finding finding = RunForOne(CheckPlace);
        EXPECT_EQ(finding.severity, Severity::Warning);
        EXPECT_EQ(finding.remedy, "rm -f -- " + (folder / (Caches + name)));
        for (auto* check : {CheckOwners, CheckModes, CheckLeftovers, CheckClock})
            EXPECT_EQ(RunForOne(check).severity, Severity::Success) << RunForOne(check).remedy;
        std::filesystem::remove(folder / (Caches + name));
        std::filesystem::remove_all(folder / "elsewhere");
        inspection.owners.clear();
    }
}

TEST_F(StateChecksTest, LinkOfAClientThatLeadsAmongThingsOfOthersKeepsTheClientAndIsNotDescendedByAnyRemedy) {
    const std::string client = Security + "/Components/c1";
    MoveBehindALink(client, "elsewhere");
    folder.Write("elsewhere/notes", "");
    folder.Write("elsewhere/bin/deep/notes", "");
    RunProcess({"chmod", "-R", "a+rwX", folder / "elsewhere"});
    Chmod(Address, 0644);
    EXPECT_THAT(RunForOne(CheckModes).remedy, Not(HasSubstr("c1")));
    const Doctor::Machine machine;
    EXPECT_TRUE(machine.Tree().Child(folder / client, "ombrycomponent.config"));
    EXPECT_TRUE(machine.Tree().Child(folder / (client + "/Services"), "svc.config"));
    EXPECT_FALSE(machine.Tree().Folders().contains(folder / (client + "/bin")));
}

TEST_F(StateChecksTest, LinkThatLeadsBackAboveTheStateIsNotFollowed) {
    std::filesystem::create_directories(folder / Caches);
    for (const std::string& place : {folder / "Quennet", folder.Path(), std::string("/")}) {
        std::filesystem::create_directory_symlink(place, folder / (Caches + "x"));
        RunProcess({"chmod", "-R", "go=", folder / "Quennet"});
        const Finding finding = RunForOne(CheckPlace);
        EXPECT_EQ(finding.severity, Severity::Warning);
        EXPECT_EQ(finding.remedy, "rm -f -- " + (folder / (Caches + "x")));
        EXPECT_EQ(RunForOne(CheckModes).severity, Severity::Success);
        std::filesystem::remove(folder / (Caches + "x"));
    }
}

TEST_F(StateChecksTest, FoldersThatLeadToOneAnotherEndAtTheMostThatIsLookedAt) {
    const std::string components = folder / (Security + "/Components");
    for (const std::string from : {"1", "2", "3", "4", "5", "6", "7", "8"}) {
        std::filesystem::create_directory(components + "/" + from);
        for (const std::string to : {"1", "2", "3", "4", "5", "6", "7", "8"})
            std::filesystem::create_directory_symlink("../" + to, components + "/" + from + "/" + to);
    }
    constexpr std::size_t most = 300;
    const Doctor::Machine machine(most);
    std::size_t count = 0;
    for (const auto& [path, entries] : machine.Tree().Folders())
        count += entries.size();
    EXPECT_EQ(count, most);
    const Findings findings = CheckPlace(machine);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0].severity, Severity::Warning);
    EXPECT_THAT(findings[0].message, HasSubstr("more than 300 files and folders"));
    EXPECT_THAT(findings[0].remedy, testing::StartsWith("ls -lA -- " + components + "/"));
}

TEST_F(StateChecksTest, CachesThatHoldMoreThanIsLookedAtAreToGo) {
    constexpr std::size_t most = 100;
    for (std::size_t number = 0; number < 60; ++number)
        folder.Write(Caches + "c1/finder_cache/" + std::to_string(number), "");
    EXPECT_EQ(CheckPlace(Doctor::Machine(most)).at(0).severity, Severity::Success);
    for (std::size_t number = 60; number < 110; ++number)
        folder.Write(Caches + "c1/finder_cache/" + std::to_string(number), "");
    const std::string caches = folder / Caches.substr(0, Caches.size() - 1);
    EXPECT_EQ(CheckPlace(Doctor::Machine(most)).at(0).remedy, "rm -rf -- " + caches);
    std::filesystem::remove_all(caches);
    EXPECT_EQ(CheckPlace(Doctor::Machine(most)).at(0).severity, Severity::Success);
}

TEST_F(StateChecksTest, FilesOfSomebodyElseAreCounted) {
    for (const char* path : {"Quennet/Keys", "Quennet/OmbrySecurity"})
        inspection.owners[folder / path] = 4711;
    // Folders of others in the same place are their business.
    std::filesystem::create_directory(folder / "Quennet/Other");
    inspection.owners[folder / "Quennet/Other"] = 4711;
    const Finding finding = RunForOne(CheckOwners);
    EXPECT_EQ(finding.severity, Severity::Warning);
    EXPECT_EQ(Text(finding, "count"), "2");
    EXPECT_EQ(finding.remedy, "chown -hR " + std::to_string(geteuid()) + " -- " + (folder / Security) + " " +
                                  (folder / "Quennet/CertificateStores") + " " + (folder / "Quennet/Keys"));
}

TEST_F(StateChecksTest, FilesOfRootAreFineForWhoeverLooks) {
    inspection.user = 4711;
    for (const std::string& path :
         {Security, std::string("Quennet/CertificateStores"), std::string("Quennet/Keys")})
        inspection.owners[folder / path] = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path()))
        inspection.owners[entry.path()] = 0;
    inspection.owners[folder / Address] = 4711;
    EXPECT_EQ(RunForOne(CheckOwners).severity, Severity::Success);
    inspection.owners[folder / Address] = 4712;
    EXPECT_EQ(Text(RunForOne(CheckOwners), "count"), "1");
}

TEST_F(StateChecksTest, WhatOthersMayUseIsCounted) {
    Chmod(Address, 0640);
    Chmod(Key, 0601);
    std::filesystem::create_symlink("nowhere", folder / (Security + "/link"));  // has no mode of its own
    const Finding finding = RunForOne(CheckModes);
    EXPECT_EQ(finding.severity, Severity::Warning);
    EXPECT_EQ(Text(finding, "count"), "2");
    EXPECT_THAT(finding.remedy, testing::StartsWith("chmod -R go= -- " + (folder / Security)));
}

TEST_F(StateChecksTest, SharedFolderAndFileMayBeReadByOthersAndNotWritten) {
    folder.Write("Quennet/common.config", "");
    Chmod("Quennet", 0755);
    Chmod("Quennet/common.config", 0644);
    EXPECT_EQ(RunForOne(CheckModes).severity, Severity::Success);
    Chmod("Quennet", 0775);
    Chmod("Quennet/common.config", 0646);
    const Findings findings = Run(CheckModes);
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0].remedy, "chmod go-w -- " + (folder / "Quennet"));
    EXPECT_EQ(findings[1].remedy, "chmod go-w -- " + (folder / "Quennet/common.config"));
}

TEST_F(StateChecksTest, SharedFolderAndFileBelongToRootOrToWhoLooks) {
    const std::string common = folder.Write("Quennet/common.config", "");
    inspection.owners = {{folder / "Quennet", 0}, {common, 0}};
    inspection.user = 4711;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder / "Quennet"))
        inspection.owners[entry.path()] = 4711;
    EXPECT_EQ(RunForOne(CheckOwners).severity, Severity::Success);
    inspection.owners[folder / "Quennet"] = inspection.owners[common] = 4712;
    const Findings findings = Run(CheckOwners);
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0].severity, Severity::Warning);
    EXPECT_EQ(findings[0].remedy, "sudo chown -h 4711 -- " + (folder / "Quennet"));
    EXPECT_EQ(findings[1].remedy, "sudo chown -h 4711 -- " + common);
}

TEST_F(StateChecksTest, SharedFolderBehindALinkIsJudgedThere) {
    folder.Write("elsewhere/common.config", "");
    MoveBehindALink("Quennet", "behind");
    std::filesystem::create_symlink("../elsewhere/common.config", folder / "Quennet/common.config");
    Chmod("behind", 0722);
    Chmod("elsewhere/common.config", 0666);  // which is not read through a link
    EXPECT_EQ(RunForOne(CheckModes).remedy, "chmod go-w -- " + (folder / "Quennet/"));
    inspection.owners[folder / "Quennet"] = 4711;
    EXPECT_EQ(RunForOne(CheckOwners).remedy,
              "chown -h " + std::to_string(geteuid()) + " -- " + (folder / "Quennet/"));
}

TEST_F(StateChecksTest, WhatIsNoFolderIsNoneWhoseModesAreMended) {
    std::filesystem::remove_all(folder / "Quennet");
    folder.Write(Security, "");
    Chmod(Security, 0644);
    EXPECT_EQ(RunForOne(CheckModes).severity, Severity::Success) << "it is in the way, as state.place says";
    std::filesystem::remove_all(folder / "Quennet");
    folder.Write("elsewhere", "");
    Chmod("elsewhere", 0666);
    std::filesystem::create_symlink(folder / "elsewhere", folder / "Quennet");
    EXPECT_EQ(RunForOne(CheckModes).severity, Severity::Success);
}

TEST_F(StateChecksTest, WhatBelongsToRootIsChangedByRoot) {
    folder.Write("Quennet/common.config", "");
    inspection.user = 4711;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path()))
        inspection.owners[entry.path()] = 4711;
    Chmod(Address, 0644);
    Chmod("Quennet/common.config", 0666);
    EXPECT_THAT(Run(CheckModes).at(0).remedy, testing::StartsWith("chmod -R go= -- "));
    EXPECT_THAT(Run(CheckModes).at(1).remedy, testing::StartsWith("chmod go-w -- "));
    inspection.owners[folder / Datacenter] = inspection.owners[folder / "Quennet/common.config"] = 0;
    EXPECT_THAT(Run(CheckModes).at(0).remedy, testing::StartsWith("sudo chmod -R go= -- "));
    EXPECT_THAT(Run(CheckModes).at(1).remedy, testing::StartsWith("sudo chmod go-w -- "));
    inspection.owners[folder / Datacenter] = 4712;
    EXPECT_THAT(RunForOne(CheckOwners).remedy, testing::StartsWith("sudo chown -hR 4711 -- "));
}

TEST_F(StateChecksTest, TemporaryFileOfAKilledRunIsTold) {
    folder.Write(Security + "/" + temporary, "half");
    folder.Write(Security + "/.ombry-other.tmp", "not ours");
    clock.Advance(std::chrono::hours(3) + std::chrono::seconds(1));
    const Finding finding = RunForOne(CheckLeftovers);
    EXPECT_EQ(finding.severity, Severity::Warning);
    EXPECT_THAT(finding.message, HasSubstr("3 h old"));
    EXPECT_EQ(finding.remedy, "rm -f -- " + (folder / (Security + "/" + temporary)));
}

TEST_F(StateChecksTest, TemporaryFileOfALivingRunIsNone) {
    const int file = open(folder.Write(Security + "/" + temporary, "half").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(flock(file, LOCK_EX), 0);
    EXPECT_EQ(RunForOne(CheckLeftovers).severity, Severity::Success);
    close(file);
    EXPECT_EQ(RunForOne(CheckLeftovers).severity, Severity::Warning);
}

TEST_F(StateChecksTest, SecondNameOfTheKeyIsTold) {
    std::filesystem::last_write_time(folder / Key,
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(3));
    std::filesystem::create_hard_link(folder / Key, folder / ("Quennet/Keys/" + temporary));
    Chmod(Key, 0600);  // from then on it looks as young as this
    clock.Advance(std::chrono::seconds(630));
    EXPECT_THAT(RunForOne(CheckLeftovers).message,
                HasSubstr("second name of the key that a killed run left, at least 10 min old"));
}

TEST_F(StateChecksTest, StagedCopyIsALeftoverBesideTheCommittedOneAlone) {
    folder.Write(Caches + "v1-service.cache-s", "{}");
    EXPECT_EQ(RunForOne(CheckLeftovers).severity, Severity::Success);
    folder.Write(Caches + "v1-service.cache-p", "{}");
    EXPECT_EQ(RunForOne(CheckLeftovers).remedy, "rm -f -- " + (folder / (Caches + "v1-service.cache-s")));
    // Elsewhere a name may end as it likes.
    std::filesystem::remove(folder / (Caches + "v1-service.cache-s"));
    folder.Write(Security + "/x-s", "");
    folder.Write(Security + "/x-p", "");
    EXPECT_EQ(RunForOne(CheckLeftovers).severity, Severity::Success);
}

TEST_F(StateChecksTest, FileFromTheFutureIsAMatterOfTheClock) {
    clock.SetNow(clock.Now() - std::chrono::hours(1));
    const Finding finding = RunForOne(CheckClock);
    EXPECT_EQ(finding.severity, Severity::Warning);
    EXPECT_THAT(finding.message, HasSubstr("the clock has been set back"));
}

}  // namespace
}  // namespace Ombry::Tests
