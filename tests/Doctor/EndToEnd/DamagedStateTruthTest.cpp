// What the doctor says of a machine whose state is damaged is held against the commands themselves: what it
// calls fine, they find fine; what it calls broken, fails; and what it advises to type makes it well.

#include "tests/Doctor/EndToEnd/Patient.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <functional>

namespace Ombry::Tests {
namespace {

namespace fs = std::filesystem;

const std::string CredentialsFile = SecurityFolder + "/Components/c1/ombrycomponent.config";
const std::string RecordFile = SecurityFolder + "/Components/c1/Services/svc.config";
const std::string KeyFile = "Quennet/Keys/protection.key";
const std::string UnnamedFile = "/.ombry-0123456789abcdef.tmp";

const Words EnrollServiceAsClient{
    "enroll-service", "-n",         "c1", "-owner",    "c1", "-name", "svc", "-url",
    "https://h:1/x",  "-namespace", "ns", "-hostname", "h"};

/// A state of the machine: what has happened to it.
struct State {
    std::string name;
    std::function<void(const TemporaryDirectory& machine)> happen;
};

/// One sandbox, and a machine that was used against it; each state begins as a copy of that.
class DamagedStateTruthTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        sandbox = std::make_unique<Sandbox>(Words{"--install-token", "t", "--client-rights",
                                                  "enroll-clients,enroll-services,unenroll-services"});
        used = std::make_unique<Machine>();
        ExpectSuccess(
            used->Run({"configure-bootstrap-url", "-t", "t", "-dn", "Sandbox", "-r", sandbox->Url()}));
        ExpectSuccess(used->Run({"enroll-client", "-t", "t", "-nn", "c1"}));
        ExpectSuccess(used->Run({"enroll-client", "-u", "admin", "-p", "secret", "-nn", "c2"}));
        ExpectSuccess(used->Run(EnrollServiceAsClient));
    }
    static void TearDownTestSuite() {
        used.reset();
        sandbox.reset();
    }

    /// The commands that a machine in this state is used with, each on a copy of its own; what failed. None
    /// takes the client from the service, which the states to come want there.
    static std::string Failures(const TemporaryDirectory& machine) {
        const auto isThere = [&](const std::string& path) {
            struct stat status {};
            return lstat((machine / path).c_str(), &status) == 0;
        };
        std::vector<Words> commands{{"enroll-client", "-t", "t", "-nn", "new"},
                                    {"enroll-client", "-u", "admin", "-p", "secret", "-nn", "new"}};
        if (isThere(CredentialsFile)) {
            commands.push_back(EnrollServiceAsClient);
            commands.push_back({"enroll-client", "-n", "c1", "-nn", "new"});
        }
        if (isThere(RecordFile))
            commands.push_back({"unenroll-service", "-t", "t", "-on", "c1", "-s", "svc"});
        for (const std::string name : {"c1", "c2"}) {
            const std::string place = SecurityFolder + "/Components/" + name;
            if (isThere(place) && !fs::is_directory(machine / place))
                commands.push_back({"enroll-client", "-t", "t", "-nn", name});
        }
        std::string failures;
        const auto run = [&](const CopiedMachine& copy, const Words& words) {
            const ProcessOutcome outcome = copy.Run(words);
            if (outcome.exitCode != 0) failures += words[0] + " " + words[1] + ": " + outcome.error;
        };
        for (const Words& words : commands)
            run(CopiedMachine(machine.Path()), words);
        // The service of tokens is searched for by whoever has none.
        const CopiedMachine withoutTokens(machine.Path());
        withoutTokens.Remove(CacheFolder + "/aa_token");
        run(withoutTokens, commands[1]);
        return failures;
    }

    static void ExpectTruth(const State& state) {
        SCOPED_TRACE(state.name);
        const TemporaryDirectory machine;
        ASSERT_EQ(RunProcess({"cp", "-a", used->Folder() / "Quennet", machine.Path()}).exitCode, 0);
        state.happen(machine);
        const Verdict verdict = Examine(machine.Path());
        const std::string failures = Failures(machine);
        EXPECT_EQ(verdict.IsBroken(), !failures.empty()) << verdict.Text() << failures;
        EXPECT_NE(verdict.exitCode, 3);
        TypeRemedies(machine.Path(), verdict, sandbox->Url());
        const Verdict mended = Examine(machine.Path());
        EXPECT_TRUE(mended.IsFine()) << verdict.Text() << "and then\n" << mended.Text();
        EXPECT_EQ(Failures(machine), "") << verdict.Text();
    }

    /// Two at a time.
    static void ExpectTruthOfEach(const std::vector<State>& states) {
        std::atomic<std::size_t> next = 0;
        const auto work = [&] {
            for (std::size_t place; (place = next++) < states.size();)
                ExpectTruth(states[place]);
        };
        std::thread second(work);
        work();
        second.join();
    }

    /// All files of the machine, or of a part of it.
    static Words FilesOf(const std::string& part) {
        Words files;
        for (const auto& [path, content] : used->Files()) {
            if (path.starts_with(part) && content.starts_with("600 ")) files.push_back(path);
        }
        return files;
    }

    static inline std::unique_ptr<Sandbox> sandbox;
    static inline std::unique_ptr<Machine> used;
};

/// What can happen to a file; each leaves nothing of it but what it says.
std::vector<State> DamagesOf(const std::string& path) {
    const auto replaced = [path](const char* name, const std::function<std::string(const std::string&)>& by) {
        return State{path + " " + name,
                     [=](const TemporaryDirectory& machine) { machine.Write(path, by(machine.Read(path))); }};
    };
    const auto gone = [path](const char* name, const std::function<void(const fs::path&)>& then) {
        return State{path + " " + name, [=](const TemporaryDirectory& machine) {
                         fs::remove(machine / path);
                         then(machine / path);
                     }};
    };
    return {
        replaced("empty", [](const std::string&) { return std::string(); }),
        replaced("half", [](const std::string& text) { return text.substr(0, text.size() / 2); }),
        replaced("zeros", [](const std::string& text) { return std::string(text.size(), '\0'); }),
        gone("gone", [](const fs::path&) {}),
        gone("folder", [](const fs::path& place) { fs::create_directories(place / "kept"); }),
        gone("link", [](const fs::path& place) { fs::create_symlink("nowhere", place); }),
    };
}

TEST_F(DamagedStateTruthTest, MachineThatWasUsedIsFine) {
    EXPECT_TRUE(Examine(used->Folder().Path()).IsFine()) << Examine(used->Folder().Path()).Text();
    EXPECT_TRUE(Examine(used->Folder().Path(), {"--connect"}).IsFine())
        << Examine(used->Folder().Path(), {"--connect"}).Text();
    EXPECT_EQ(Failures(used->Folder()), "");
}

TEST_F(DamagedStateTruthTest, IdentityTrustAndConfigurationThatAreDamaged) {
    std::vector<State> states;
    for (const std::string& path : FilesOf("Quennet")) {
        if (path.starts_with(CacheFolder) || path.find("/c2/") != std::string::npos) continue;
        for (State& state : DamagesOf(path)) {
            // Half of an id is an id; which one is right is known to the service alone.
            if (state.name != DatacenterFile + " half") states.push_back(std::move(state));
        }
    }
    ASSERT_EQ(states.size(), 6u * 6u - 1u);
    ExpectTruthOfEach(states);
}

TEST_F(DamagedStateTruthTest, CachesThatAreDamaged) {
    std::vector<State> states;
    for (const std::string& path : FilesOf(CacheFolder)) {
        for (State& state : DamagesOf(path))
            states.push_back(std::move(state));
    }
    ASSERT_GT(states.size(), 50u);
    ExpectTruthOfEach(states);
}

TEST_F(DamagedStateTruthTest, FoldersThatSomethingElseStandsInThePlaceOf) {
    std::vector<State> states;
    for (const auto& [path, content] : used->Files()) {
        if (content != "700/") continue;
        states.push_back({path + " file", [path = path](const TemporaryDirectory& machine) {
                              fs::remove_all(machine / path);
                              machine.Write(path, "");
                              fs::permissions(machine / path, fs::perms(0600));
                          }});
        states.push_back({path + " gone", [path = path](const TemporaryDirectory& machine) {
                              fs::remove_all(machine / path);
                          }});
    }
    // Of a client that is to come.
    const std::string folder = SecurityFolder + "/Components/new";
    states.push_back({folder + " file", [=](const TemporaryDirectory& machine) {
                          machine.Write(folder, "");
                          fs::permissions(machine / folder, fs::perms(0600));
                      }});
    states.push_back({folder + " link", [=](const TemporaryDirectory& machine) {
                          fs::create_symlink("nowhere", machine / folder);
                      }});
    ExpectTruthOfEach(states);
}

/// Moves a folder to another place of the machine, and has a link lead there. The link is a short one, so
/// that a copy of the machine leads to its own.
void MoveBehindALink(const TemporaryDirectory& machine, const std::string& path) {
    fs::rename(machine / path, machine / "elsewhere");
    fs::create_symlink(fs::path("elsewhere").lexically_relative(fs::path(path).parent_path()),
                       machine / path);
}

/// All that was looked at and how it is.
Words SeveritiesOf(const Verdict& verdict) {
    Words severities;
    for (const Diagnosis& finding : verdict.findings)
        severities.push_back(finding.check + " " + finding.severity);
    return severities;
}

TEST_F(DamagedStateTruthTest, FoldersThatWereMovedAndALinkLeadsThere) {
    const Words whole = SeveritiesOf(Examine(used->Folder().Path()));
    for (const auto& [path, content] : used->Files()) {
        if (content != "700/" || path == StoreFolder) continue;
        const TemporaryDirectory machine;
        ASSERT_EQ(RunProcess({"cp", "-a", used->Folder() / "Quennet", machine.Path()}).exitCode, 0);
        MoveBehindALink(machine, path);
        EXPECT_EQ(SeveritiesOf(Examine(machine.Path())), whole) << path;
    }
    std::vector<State> states;
    for (const std::string& path : {std::string("Quennet/Keys"), StoreFolder, SecurityFolder, CacheFolder,
                                    SecurityFolder + "/Components/c1"}) {
        states.push_back({path + " moved, and open to others", [=](const TemporaryDirectory& machine) {
                              MoveBehindALink(machine, path);
                              RunProcess({"chmod", "-R", "a+rwX", machine / "elsewhere"});
                              if (geteuid() == 0) RunProcess({"chown", "-R", "4711", machine / "elsewhere"});
                          }});
    }
    ExpectTruthOfEach(states);
}

/// A text in which something that is there was replaced.
std::string Replaced(const std::string& text, const std::string& what, const std::string& by) {
    const std::string replaced = std::regex_replace(text, std::regex(what), by);
    EXPECT_NE(replaced, text);
    return replaced;
}

TEST_F(DamagedStateTruthTest, RightsKeysAndLeftovers) {
    const auto bend = [](const TemporaryDirectory& machine, const std::string& path) {
        std::string content = machine.Read(path);
        content[content.size() / 2] ^= 1;
        machine.Write(path, content);
    };
    std::vector<State> states{
        {"open folder",
         [](const auto& machine) { fs::permissions(machine / SecurityFolder, fs::perms(0755)); }},
        {"open key", [](const auto& machine) { fs::permissions(machine / KeyFile, fs::perms(0644)); }},
        {"bent key", [=](const auto& machine) { bend(machine, KeyFile); }},
        {"bent credentials", [=](const auto& machine) { bend(machine, CredentialsFile); }},
        {"killed saves",
         [](const auto& machine) {
             for (const std::string& place :
                  {SecurityFolder, StoreFolder, CacheFolder, std::string("Quennet/Keys")})
                 machine.Write(place + UnnamedFile, "half");
             machine.Write(CacheFolder + "/v1-service.cache-s", "{");
             RunProcess({"chmod", "-R", "go=", machine.Path()});
         }},
        {"second name of the key",
         [](const auto& machine) {
             fs::create_hard_link(machine / KeyFile, machine / ("Quennet/Keys" + UnnamedFile));
         }},
        {"second certificate",
         [](const auto& machine) {
             machine.Write(StoreFolder + "/zz",
                           machine.Read(StoreFolder + "/" + FingerprintOf(sandbox->Certificate())));
             fs::permissions(machine / (StoreFolder + "/zz"), fs::perms(0600));
         }},
        {"bent certificate",
         [](const auto& machine) {
             machine.Write(StoreFolder + "/" + FingerprintOf(sandbox->Certificate()),
                           StoredCertificate(Bent(sandbox->Certificate(), false)));
         }},
        {"save that was cut off",
         [](const auto& machine) {
             fs::rename(machine / (CacheFolder + "/v1-service.cache-p"),
                        machine / (CacheFolder + "/v1-service.cache-s"));
         }},
        {"no client", [](const auto& machine) { fs::remove(machine / CredentialsFile); }},
        {"datacenter with a line break",
         [](const auto& machine) { machine.Write(DatacenterFile, machine.Read(DatacenterFile) + "\n"); }},
        {"datacenter of others is blank",
         [](const auto& machine) {
             machine.Write("Quennet/common.config", "<DatacenterId> </DatacenterId>");
         }},
        {"record without an id", [](const auto& machine) { machine.Write(RecordFile, "{}"); }},
        {"record that is not whole",
         [](const auto& machine) {
             machine.Write(RecordFile, Replaced(machine.Read(RecordFile), "\"Version\": \"1.0\",", ""));
         }},
        {"damaged record and no client",
         [](const auto& machine) {
             fs::remove(machine / CredentialsFile);
             machine.Write(RecordFile, "damaged");
         }},
        {"token from the future",
         [](const auto& machine) {
             const auto token = fs::directory_iterator(machine / (CacheFolder + "/c1/aa_token"));
             const std::string path = token->path().lexically_relative(machine.Path());
             machine.Write(path, Replaced(machine.Read(path), "\"lastRefreshed\": \"20[0-9]{2}",
                                          "\"lastRefreshed\": \"2099"));
         }},
        {"searches among things of others",
         [](const auto& machine) {
             fs::remove_all(machine / (CacheFolder + "/finder_cache"));
             machine.Write("elsewhere/it's/notes", "");
             RunProcess({"chmod", "-R", "a+rwX", machine / "elsewhere"});
             fs::create_symlink("../../../../elsewhere", machine / (CacheFolder + "/finder_cache"));
         }},
        {"searches behind a link to all",
         [](const auto& machine) {
             fs::remove_all(machine / (CacheFolder + "/c1/finder_cache"));
             fs::create_symlink("../../../../..", machine / (CacheFolder + "/c1/finder_cache"));
         }},
        {"pipe in the place of a list",
         [](const auto& machine) {
             const std::string list = machine / (CacheFolder + "/v1-service.cache-p");
             fs::remove(list);
             EXPECT_EQ(mkfifo(list.c_str(), 0600), 0);
         }},
        {"list that is too long",
         [](const auto& machine) {
             // With zeros behind its text, which the tool takes.
             fs::resize_file(machine / (CacheFolder + "/v1-service.cache-p"), (64u << 20) + 1);
             machine.Write(CacheFolder + "/finder_cache/notes-p", "of somebody");
             fs::permissions(machine / (CacheFolder + "/finder_cache/notes-p"), fs::perms(0600));
         }},
        {"certificate, address and record that are too long",
         [](const auto& machine) {
             for (const std::string& path : {StoreFolder + "/" + FingerprintOf(sandbox->Certificate()),
                                             SecurityFolder + "/ombrysecurity.config", RecordFile})
                 fs::resize_file(machine / path, (64u << 20) + 1);
         }},
        {"file from the future",
         [](const auto& machine) {
             RunProcess({"touch", "-d", "2099-01-01", machine / RecordFile});
         }},
        {"shared folder and file that others may write",
         [](const auto& machine) {
             machine.Write("Quennet/common.config", "<x/>");
             fs::permissions(machine / "Quennet/common.config", fs::perms(0666));
             fs::permissions(machine / "Quennet", fs::perms(0777));
         }},
    };
    if (geteuid() == 0) {
        states.push_back({"shared folder and file of another", [](const auto& machine) {
                              machine.Write("Quennet/common.config", "<x/>");
                              for (const char* path : {"Quennet", "Quennet/common.config"})
                                  EXPECT_EQ(chown((machine / path).c_str(), 4711, 0), 0);
                          }});
        states.push_back({"key of another", [](const auto& machine) {
                              EXPECT_EQ(chown((machine / KeyFile).c_str(), 4711, 0), 0);
                          }});
    }
    ExpectTruthOfEach(states);
}

}  // namespace
}  // namespace Ombry::Tests
