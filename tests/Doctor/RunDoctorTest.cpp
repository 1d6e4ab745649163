#include "Doctor/Reports.h"
#include "Doctor/RunDoctor.h"
#include "tests/Doctor/DoctorFixture.h"
#include "tests/EndToEnd/Machine.h"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

namespace Ombry::Tests {
namespace {

using namespace Doctor;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

struct DoctorRun {
    int exitCode;
    std::string out;
    std::string error;
};

class RunDoctorTest : public DoctorFixture {
protected:
    static DoctorRun RunWith(Words words) {
        words.insert(words.begin(), "ombry-doctor");
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        std::ostringstream out, error;
        const int exitCode = RunDoctor(static_cast<int>(words.size()), argv.data(), out, error);
        return {exitCode, out.str(), error.str()};
    }

    /// A machine with something to say of each check.
    void MakeIll() {
        Chmod(Address, 0644);
        folder.Write(Caches + "v1-service.cache-p", "damaged");
        PutEntry("c1/aa_token", "v1-auth", TokenFor("v1-auth", clock.Now()));
        folder.Write(Record, "{}");
        std::filesystem::remove(folder / Datacenter);
    }
};

TEST_F(RunDoctorTest, MachineThatIsWellIsFineInEachForm) {
    const DoctorRun table = RunWith({});
    EXPECT_EQ(table.exitCode, 0);
    EXPECT_THAT(table.out, StartsWith("State of this machine, below " + (folder / "Quennet")));
    EXPECT_THAT(table.out, EndsWith("15 ok, 0 warnings, 0 errors, 0 critical\n"));
    EXPECT_THAT(table.out, Not(HasSubstr("\x1b")));
    const DoctorRun line = RunWith({"--check"});
    EXPECT_EQ(line.exitCode, 0);
    EXPECT_EQ(line.out,
              "OMBRY OK - 15 findings, nothing to do | findings=15;;;0 warnings=0;0;;0 "
              "errors=0;;0;0 trust_certificate_days=100;30:\n");
    EXPECT_EQ(RunWith({"--json"}).exitCode, 0);
}

TEST_F(RunDoctorTest, DocumentKeepsItsSchema) {
    EXPECT_EQ(SchemaViolation(RunWith({"--json"}).out), "");
    MakeIll();
    const std::string ill = RunWith({"--json"}).out;
    EXPECT_EQ(SchemaViolation(ill), "");
    EXPECT_THAT(ill, HasSubstr("\"severity\": \"critical\""));
    const auto with = [&ill](const std::string& from, const std::string& to) {
        std::string other = ill;
        EXPECT_NE(other.find(from), std::string::npos) << from;
        return other.replace(other.find(from), from.size(), to);
    };
    // The schema refuses what is none of its documents.
    for (const auto& [from, to] :
         std::vector<std::pair<std::string, std::string>>{{"\"version\": 1", "\"version\": 2"},
                                                          {"\"success\"", "\"good\""},
                                                          {"\"pairs\"", "\"pears\""},
                                                          {"\"source\": \"trust\"", "\"source\": \"\""},
                                                          {"Z\",", "\","}})
        EXPECT_NE(SchemaViolation(with(from, to)), "") << from;
    // And takes what may come without another version of it.
    EXPECT_EQ(SchemaViolation(with("\"version\"", "\"more\": 1, \"version\"")), "");
    EXPECT_EQ(SchemaViolation(with("\"severity\"", "\"more\": 1, \"severity\"")), "");
    EXPECT_EQ(SchemaViolation(with("\"source\": \"trust\"", "\"source\": \"luck\"")), "");
}

TEST_F(RunDoctorTest, DocumentIsUtf8WhateverBytesFilesAndNamesHold) {
    folder.Write(Datacenter, "dc-\xff-\xc3\xbc");
    folder.Write(Security + "/Components/c\xfe/ombrycomponent.config", "damaged");
    const std::string document = RunWith({"--json"}).out;
    EXPECT_EQ(SchemaViolation(document), "");
    EXPECT_THAT(document, HasSubstr("dc-\xef\xbf\xbd-\xc3\xbc"));
    EXPECT_THAT(document, HasSubstr("enroll-client -u USER -p PASSWORD -nn $'c\\\\xfe'"))
        << "the bytes themselves";
}

TEST_F(RunDoctorTest, WorstFindingDecidesAndIsNamed) {
    Chmod(Address, 0644);
    EXPECT_EQ(RunWith({}).exitCode, 1);
    EXPECT_THAT(RunWith({"--check"}).out, StartsWith("OMBRY WARNING - state.modes: 1 file or folder can be"));
    MakeIll();
    EXPECT_EQ(RunWith({}).exitCode, 2);
    EXPECT_THAT(RunWith({"--check"}).out, StartsWith("OMBRY CRITICAL - bootstrap.datacenter: "));
    EXPECT_THAT(RunWith({"--check"}).out, HasSubstr(" warnings=2;0;;0 errors=2;;0;0"));
}

TEST_F(RunDoctorTest, EachSeverityHasItsCodeAndTheFirstOfTheWorstIsNamed) {
    const auto statusWith = [](std::vector<Severity> severities) {
        Findings findings;
        for (const Severity severity : severities)
            findings.push_back({.source = "s" + std::to_string(findings.size()), .severity = severity});
        const std::string line = MonitoringReport(findings, {});
        return std::to_string(static_cast<int>(StatusOf(findings))) + " " + line.substr(0, line.find(':'));
    };
    EXPECT_EQ(statusWith({Severity::Success, Severity::Warning, Severity::Warning}), "1 OMBRY WARNING - s1.");
    EXPECT_EQ(statusWith({Severity::Warning, Severity::Error, Severity::Error}), "2 OMBRY CRITICAL - s1.");
    EXPECT_EQ(statusWith({Severity::Error, Severity::Critical}), "2 OMBRY CRITICAL - s1.");
}

TEST_F(RunDoctorTest, WhatIsCertainIsNamedAndCountedBeforeWhatTheUserMayNotSee) {
    const Finding hidden{.source = "hidden", .severity = Severity::Critical, .isUndecided = true};
    const Finding broken{.source = "broken", .severity = Severity::Error};
    const Finding doubtful{.source = "doubtful", .severity = Severity::Warning};
    const auto lineOf = [](const Findings& findings) {
        const std::string line = MonitoringReport(findings, {});
        return line.substr(0, line.find('.')) + line.substr(line.find(" findings="));
    };
    EXPECT_EQ(lineOf({hidden, broken, hidden}),
              "OMBRY CRITICAL - broken findings=3;;;0 warnings=0;0;;0 errors=1;;0;0\n");
    EXPECT_EQ(lineOf({doubtful, hidden}),
              "OMBRY UNKNOWN - hidden findings=2;;;0 warnings=1;0;;0 errors=0;;0;0\n");
}

TEST_F(RunDoctorTest, FiguresCarryTheThresholdThatWasGiven) {
    EXPECT_THAT(RunWith({"--check"}).out, HasSubstr(" trust_certificate_days=100;30:"));
    EXPECT_THAT(RunWith({"--check", "--warn-days", "14"}).out, HasSubstr(" trust_certificate_days=100;14:"));
}

TEST_F(RunDoctorTest, WhatTheUserMayNotSeeIsUnknown) {
    inspection.forbidden = folder / "Quennet";
    const DoctorRun run = RunWith({"--check", "--only", "state.place"});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_THAT(run.out, StartsWith("OMBRY UNKNOWN - "));
}

/// While it lives, the process is one of a user who may not do everything.
class OrdinaryUser {
public:
    OrdinaryUser() { EXPECT_EQ(seteuid(before == 0 ? 65534 : before), 0); }
    ~OrdinaryUser() { EXPECT_EQ(seteuid(before), 0); }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
    const uid_t before = geteuid();
};

TEST_F(RunDoctorTest, NoCheckTakesWhatTheUserMayNotSeeForWhatIsNotThere) {
    const std::string keys = "Quennet/Keys", components = Security + "/Components";
    const std::vector<std::pair<std::string, Words>> folders{
        {"Quennet", {}},
        {Security,
         {"state", "bootstrap", "caches", "tokens", "clients.credentials", "clients.service", "connect"}},
        {components, {"state", "clients.credentials", "clients.service"}},
        {components + "/c1", {"state", "clients.credentials", "clients.service"}},
        {Security + "/CS-cpp/cache", {"state", "caches", "tokens"}},
        {Security + "/CS", {"state", "bootstrap.datacenter", "bootstrap.whole"}},
        {Store, {"state", "bootstrap.whole", "trust"}},
        {keys, {"state", "clients.key", "clients.credentials"}},
    };
    chmod(folder.Path().c_str(), 0755);
    folder.Write(Caches + "v1-service.cache-p", "{}");
    RunProcess({"chmod", "-R", "a+rX", folder / "Quennet"});
    for (const auto& [hidden, sources] : folders) {
        for (const unsigned mode : {0000u, 0444u}) {
            Chmod(hidden, mode);
            for (const Check& check : AllChecks()) {
                const bool isSaid =
                    sources.empty() ||
                    std::find(sources.begin(), sources.end(), check.source) != sources.end() ||
                    std::find(sources.begin(), sources.end(), check.FullName()) != sources.end();
                if (!isSaid) continue;
                const OrdinaryUser user;
                Words words{"--only", check.FullName()};
                if (check.connects) words.push_back("--connect");
                const DoctorRun run = RunWith(words);
                EXPECT_EQ(run.exitCode, 3) << hidden << " " << mode << "\n" << run.out;
                EXPECT_THAT(run.out, HasSubstr("type: sudo ombry-doctor\n")) << hidden;
            }
            Chmod(hidden, 0755);
        }
    }
    // Without clients a key that is missing is none that is lost.
    std::filesystem::remove(folder / Key);
    Chmod(components, 0000);
    {
        const OrdinaryUser user;
        EXPECT_EQ(RunWith({"--only", "clients.key"}).exitCode, 3);
    }
    Chmod(components, 0755);
}

TEST_F(RunDoctorTest, NoCheckTakesWhatLiesBehindALinkThatTheUserMayNotFollowForWhatIsNotThere) {
    const std::string components = folder / (Security + "/Components");
    chmod(folder.Path().c_str(), 0755);
    std::filesystem::create_directory(folder / "hidden");
    std::filesystem::rename(components, folder / "hidden/components");
    std::filesystem::create_directory_symlink(folder / "hidden/components", components);
    RunProcess({"chmod", "-R", "a+rX", folder / "Quennet"});
    Chmod("hidden", 0000);
    for (const std::string check : {"state.place", "clients.credentials", "clients.service"}) {
        const OrdinaryUser user;
        const DoctorRun run = RunWith({"--only", check});
        EXPECT_EQ(run.exitCode, 3) << run.out;
        EXPECT_THAT(run.out, HasSubstr(components + " may not be looked at by this user"));
    }
    Chmod("hidden", 0755);
}

TEST_F(RunDoctorTest, FileThatIsTooLongToBeLookedAtIsAWarningSinceTheToolMayTakeIt) {
    const std::string certificate =
        std::filesystem::directory_iterator(folder / Store)->path().lexically_relative(folder.Path());
    const std::vector<std::pair<std::string, std::string>> files{{Address, "bootstrap.address"},
                                                                 {Datacenter, "bootstrap.datacenter"},
                                                                 {Credentials, "clients.credentials"},
                                                                 {Record, "clients.service"},
                                                                 {certificate, "trust"}};
    for (const auto& [path, check] : files) {
        std::filesystem::resize_file(folder / path, LongestFile + 1);
        const DoctorRun run = RunWith({"--only", check});
        EXPECT_EQ(run.exitCode, 1) << run.out;
        EXPECT_THAT(run.out, HasSubstr("longer than 64 MiB, as nothing is that the tool saves"));
    }
}

TEST_F(RunDoctorTest, MemoryThatWouldHideASecretHoldsNothingAndGivesNothing) {
    const ReadOnlyPlatform nothingChanges;
    std::vector<std::uint8_t> bytes(32, 's');
    EXPECT_TRUE(Platform::MemoryProtection().Protect(bytes, 0));
    EXPECT_THAT(bytes, testing::Each(0));
    EXPECT_FALSE(Platform::MemoryProtection().Unprotect(bytes, 0));
}

TEST_F(RunDoctorTest, LineStaysOneLineWithOneBarWhateverNamesHold) {
    folder.Write(Security + "/Components/a|b\n\x1b[2J/ombrycomponent.config", "damaged");
    const std::string line = RunWith({"--check", "--only", "clients.credentials"}).out;
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
    EXPECT_EQ(std::count(line.begin(), line.end(), '|'), 1);
    EXPECT_THAT(line, Not(HasSubstr("\x1b")));
    EXPECT_THAT(RunWith({}).out, Not(HasSubstr("\x1b")));
    EXPECT_EQ(SchemaViolation(RunWith({"--json"}).out), "");
}

TEST_F(RunDoctorTest, TerminalGetsColours) {
    inspection.takesColours = true;
    Chmod(Address, 0644);
    const std::string table = RunWith({}).out;
    EXPECT_THAT(table, HasSubstr("\x1b[32mok      \x1b[0m  state.place"));
    EXPECT_THAT(table, HasSubstr("\x1b[33mWARNING \x1b[0m  state.modes"));
    EXPECT_THAT(RunWith({"--json"}).out, Not(HasSubstr("\x1b")));
    EXPECT_THAT(RunWith({"--check"}).out, Not(HasSubstr("\x1b")));
}

TEST_F(RunDoctorTest, OnlyWhatIsNamedIsChecked) {
    const std::string table = RunWith({"--only", "trust", "--only", "state.place"}).out;
    EXPECT_THAT(table, HasSubstr("trust.certificate"));
    EXPECT_THAT(table, HasSubstr("state.place"));
    EXPECT_THAT(table, EndsWith("2 ok, 0 warnings, 0 errors, 0 critical\n"));
}

TEST_F(RunDoctorTest, ChecksAreListedWithoutALook) {
    folders.programDataError = 5;
    const DoctorRun run = RunWith({"--list-checks"});
    EXPECT_EQ(run.exitCode, 0);
    for (const Check& check : AllChecks())
        EXPECT_THAT(run.out, HasSubstr(check.FullName() + " "));
}

TEST_F(RunDoctorTest, BadOptionsAreUnknownAndSaySo) {
    const std::vector<std::pair<Words, std::string>> bad{
        {{"--only", "luck"}, "ombry-doctor: --only knows no check 'luck'\n"},
        {{"--none"}, "ombry-doctor: The following argument was not expected: --none\n"},
        {{"--check", "--json"}, "ombry-doctor: --json excludes --check\n"},
        {{"--json", "--warn-days", "x"}, "ombry-doctor: "}};
    for (const auto& [words, error] : bad) {
        const DoctorRun run = RunWith(words);
        EXPECT_EQ(run.exitCode, 3);
        EXPECT_THAT(run.error, StartsWith(error));
        // Monitoring shows the line that it gets, and has none of the other stream.
        const bool isMonitored = words[0] == "--check";
        EXPECT_EQ(run.out, isMonitored ? "OMBRY UNKNOWN - --json excludes --check\n" : "");
    }
    EXPECT_EQ(RunWith({"--help"}).exitCode, 0);
}

TEST_F(RunDoctorTest, SystemThatDoesNotTellWhereToLookIsUnknown) {
    folders.programDataError = 5;
    const DoctorRun run = RunWith({});
    EXPECT_EQ(run.exitCode, 3);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.error, StartsWith("ombry-doctor: "));
    const DoctorRun document = RunWith({"--json"});
    EXPECT_EQ(document.exitCode, 3);
    EXPECT_EQ(document.out, "");
    EXPECT_EQ(document.error, run.error);
    EXPECT_THAT(RunWith({"--check"}).out, StartsWith("OMBRY UNKNOWN - Ombry::ClientCommunications: "));
}

/// The inputs that the fuzz targets begin with: damage of every kind.
Words InputsOfFuzzTargets() {
    Words inputs;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(OMBRY_SOURCE_DIR "/fuzz/corpus")) {
        std::ifstream file(entry.path(), std::ios::binary);
        if (entry.is_regular_file())
            inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

TEST_F(RunDoctorTest, DamageOfEveryKindInEachFileIsToldInDocumentsAndWithoutASecret) {
    folder.Write("Quennet/common.config", "<X><DatacenterId></DatacenterId></X>");
    folder.Write(Caches + "v1-service.cache-p",
                 R"({"expiryTime": 1, "local": [{"serviceName": "v1-x", "endpointUrl": "https://a"}]})");
    PutEntry("finder_cache", "v1-x", folder.Read(Caches + "v1-service.cache-p"));
    PutEntry("c1/aa_token", "v1-auth", TokenFor("v1-auth", clock.Now()));
    const std::string key = folder.Read(Key);
    std::string hex;
    for (const char byte : key) {
        constexpr char digits[] = "0123456789abcdef";
        hex += digits[static_cast<unsigned char>(byte) >> 4];
        hex += digits[byte & 0x0F];
    }
    const Words secrets{Secret.substr(0, Secret.size() / 2), Secret.substr(Secret.size() / 2),
                        key.substr(0, 8), hex.substr(0, 16)};
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path())) {
        const std::string path = entry.path().lexically_relative(folder.Path());
        if (entry.is_regular_file()) files[path] = folder.Read(path);
    }
    const Words inputs = InputsOfFuzzTargets();
    ASSERT_EQ(files.size(), 10u);
    ASSERT_GT(inputs.size(), 200u);
    const ReadOnlyPlatform nothingChanges;
    std::size_t turn = 0;
    for (const auto& [path, content] : files) {
        // Each input meets two of the files.
        for (std::size_t place = turn++ % 5; place < inputs.size(); place += 5) {
            const std::string& input = inputs[place];
            // In the place of what was there, or amidst it.
            const std::size_t half = input.size() % 2 == 0 ? 0 : content.size() / 2;
            folder.Write(path,
                         content.substr(0, half) + input + content.substr(half == 0 ? content.size() : half));
            const Doctor::Machine machine;
            const Findings findings = Examine(machine, {});
            const std::string document = JsonReport(machine, findings);
            EXPECT_EQ(SchemaViolation(document), "") << path << "\n" << document;
            for (const std::string& said :
                 {document, TableReport(machine, findings, false), MonitoringReport(findings, {})}) {
                for (const std::string& secret : secrets)
                    ASSERT_THAT(said, Not(HasSubstr(secret))) << path;
            }
        }
        folder.Write(path, content);
    }
}

TEST_F(RunDoctorTest, NothingIsChangedAndNoSecretIsTold) {
    folder.Write(Security + "/.ombry-0123456789abcdef.tmp", "left");
    folder.Write("Quennet/Keys/.ombry-0123456789abcdef.tmp", "left");
    folder.Write(Caches + "v1-service.cache-s", "{}");
    folder.Write(Caches + "c1/v1-service.cache-s", "{}");  // alone: a reader would give it its name
    PutEntry("aa_token", "v1-auth", TokenFor("v1-auth", clock.Now() - std::chrono::hours(9)));
    MakeIll();
    const auto stampsOf = [this] {
        std::map<std::string, std::pair<std::filesystem::file_time_type, std::uintmax_t>> stamps;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path()))
            stamps[entry.path()] = {entry.last_write_time(), entry.hard_link_count()};
        return stamps;
    };
    const Tree before = TreeOf(folder.Path());
    const auto stamps = stampsOf();
    for (const Words& words : {Words{}, Words{"--json"}, Words{"--check"}})
        EXPECT_THAT(RunWith(words).out, Not(HasSubstr(Secret)));
    EXPECT_EQ(TreeOf(folder.Path()), before);
    EXPECT_EQ(stampsOf(), stamps);
}

}  // namespace
}  // namespace Ombry::Tests
