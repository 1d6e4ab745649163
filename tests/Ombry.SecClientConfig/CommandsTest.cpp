#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/ScriptedSockets.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"
#include "tests/Ombry.SecClientConfig/UsageTexts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace Ombry::Tests {
namespace {

using Words = std::vector<std::string>;

const std::string NoDatacenter = "ERROR: Neither a datacenterId nor a datacenterName was provided.\n";
const std::string NoService = "ERROR: Neither a sfsUrl nor a sfsHost was provided.\n";

std::string Unrecognized(const std::string& name) {
    return "ERROR: Unrecognized option " + name + "\n";
}
std::string Missing(const std::string& name) {
    return "ERROR: Required option " + name + " is missing.\n";
}
std::string Twice(const std::string& name) {
    return "ERROR: Option " + name + " was specified more than once.\n";
}

/// The command must end with exactly these messages, a blank line and its usage.
void ExpectFaults(const Words& words, const std::string& messages) {
    const ToolRun run = Tool(words);
    EXPECT_EQ(run.exitCode, -1) << testing::PrintToString(words);
    EXPECT_EQ(run.error, messages + "\n" + Usages.at(words[0])) << testing::PrintToString(words);
    EXPECT_EQ(run.out, "");
}

/// A network in which no host is known.
class NoHosts : public ScriptedSockets {
public:
    Platform::ValueOr<std::vector<Entry>> GetAddressInfo(const char* host, const char*,
                                                         const Platform::AddressHints&) override {
        asked.push_back(host);
        return Platform::Result::Failure(8);
    }

    Words asked;
};

/// The command must have judged its options good and begun its work: the two that need no configured machine
/// look for their host; on a machine that was never configured the others fail without a word to the network.
void ExpectBeginsItsWork(const Words& words) {
    const bool needsNoMachine = words[0] == "get-datacenters" || words[0] == "configure-bootstrap-url";
    const auto client = std::find(words.begin(), words.end(), "-n");
    const std::string missing = client == words.end() || *(client + 1) == ""
                                    ? "CS/datacenterid.config"
                                    : "Components/" + *(client + 1) + "/ombrycomponent.config";
    NoHosts network;
    FakeKnownFolders folders(MemoryMachine());
    MemoryFiles files;
    const Platform::Testing::Replace<Platform::ISockets> replacedSockets(network);
    const Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders(folders);
    const Platform::Testing::Replace<Platform::IFiles> replacedFiles(files);
    const ToolRun run = Tool(words);
    EXPECT_EQ(run.exitCode, -1) << testing::PrintToString(words);
    EXPECT_EQ(run.error,
              needsNoMachine
                  ? "Caught exception: Error 11.0\n"
                  : "Caught exception: Ombry::ClientCommunications::FileStorage::Load: Failed to open file "
                    "'" +
                        MemoryMachine() + "/Quennet/OmbrySecurity/" + missing + "' for read.\n")
        << testing::PrintToString(words);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(network.asked.empty(), !needsNoMachine) << testing::PrintToString(words);
}

Words operator+(Words left, const Words& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct CommandOptions {
    std::string word;
    std::vector<std::string> names;
    Words good;  // with a token where there is an identity
};

/// The names of each command in the order in which it tries them, and one call that it accepts.
const std::vector<CommandOptions> AllCommands = {
    {"get-datacenters", {"-u", "-p", "-n", "-t", "-r"}, {"-t", "token", "-r", "url"}},
    {"configure-bootstrap-url",
     {"-u", "-p", "-t", "-d", "-dn", "-r", "-h"},
     {"-t", "token", "-d", "id", "-dn", "name", "-r", "url", "-h", "host"}},
    {"enroll-client",
     {"-u", "-p", "-n", "-t", "-nn", "-desc", "-rps"},
     {"-t", "token", "-nn", "new", "-desc", "text", "-rps", "[]"}},
    {"enroll-service",
     {"-u", "-p", "-n", "-t", "-owner", "-name", "-url", "-namespace", "-hostname"},
     {"-t", "token", "-owner", "o", "-name", "n", "-url", "u", "-namespace", "s", "-hostname", "h"}},
    {"unenroll-client-self", {"-n"}, {"-n", "client"}},
    {"unenroll-client", {"-u", "-p", "-n", "-t", "-un"}, {"-t", "token", "-un", "client"}},
    {"unenroll-service",
     {"-u", "-p", "-n", "-t", "-on", "-s"},
     {"-t", "token", "-on", "owner", "-s", "service"}},
};

TEST(CommandsTest, EachKnowsExactlyItsOwnNames) {
    std::set<std::string> everyName;
    for (const CommandOptions& command : AllCommands)
        everyName.insert(command.names.begin(), command.names.end());
    ASSERT_EQ(everyName.size(), 19u);

    for (const CommandOptions& command : AllCommands) {
        for (const std::string& name : everyName) {
            const bool known = std::count(command.names.begin(), command.names.end(), name) > 0;
            // The stray option keeps the command from its work whatever the name is.
            const ToolRun run = Tool({command.word, "-stray", "1", name, "value"});
            EXPECT_EQ(run.error.find(Unrecognized(name)) == std::string::npos, known) << command.word << name;
        }
    }
}

TEST(CommandsTest, EachKeepsEveryOptionApartFromTheOthers) {
    for (const CommandOptions& command : AllCommands) {
        Words words = {command.word, "-stray", "1"};
        for (const std::string& name : command.names)
            words = words + Words{name, "value"};

        EXPECT_EQ(Tool(words).error.find("more than once"), std::string::npos) << command.word;
    }
}

TEST(CommandsTest, EachReportsEveryOptionThatIsGivenTwice) {
    for (const CommandOptions& command : AllCommands) {
        Words words = {command.word, "-stray", "1"};
        std::string expected = Unrecognized("-stray");
        for (const std::string& name : command.names) {
            words = words + Words{name, "value", name, "other"};
            expected += Twice(name);
        }

        EXPECT_EQ(Tool(words).error.substr(0, expected.size()), expected) << command.word;
    }
}

TEST(CommandsTest, EachBeginsItsWorkWhenItsOptionsAreGood) {
    for (const CommandOptions& command : AllCommands)
        ExpectBeginsItsWork(Words{command.word} + command.good);
}

TEST(CommandsTest, EachTakesNamesInCaseSensitiveForm) {
    for (const CommandOptions& command : AllCommands) {
        for (std::string name : command.names) {
            std::transform(name.begin(), name.end(), name.begin(), [](char c) {
                return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
            });
            EXPECT_EQ(Tool({command.word, name, "v"}).error.find(Unrecognized(name)), 0u)
                << command.word << name;
        }
    }
}

TEST(CommandsTest, EachKeepsNothingBetweenTwoExecutions) {
    for (const CommandOptions& command : AllCommands) {
        ExpectBeginsItsWork(Words{command.word} + command.good);
        EXPECT_EQ(Tool({command.word}).error.find("ERROR: "), 0u) << command.word;
    }
}

TEST(CommandsTest, ChecksRunInTheOrderOfEachCommand) {
    ExpectFaults({"get-datacenters"}, NoIdentity + Missing("-r"));
    ExpectFaults({"configure-bootstrap-url"}, NoIdentity + NoDatacenter + NoService);
    ExpectFaults({"enroll-client"}, Missing("-nn") + NoIdentity);
    ExpectFaults({"enroll-service"}, NoIdentity + Missing("-owner") + Missing("-name") + Missing("-url") +
                                         Missing("-namespace") + Missing("-hostname"));
    ExpectFaults({"unenroll-client-self"}, Missing("-n"));
    ExpectFaults({"unenroll-client"}, Missing("-un") + NoIdentity);
    ExpectFaults({"unenroll-service"}, Missing("-on") + Missing("-s") + NoIdentity);
}

TEST(CommandsTest, EachRequiredOptionIsMissedAlone) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> required = {
        {"get-datacenters", {"-r"}},
        {"enroll-client", {"-nn"}},
        {"enroll-service", {"-owner", "-name", "-url", "-namespace", "-hostname"}},
        {"unenroll-client-self", {"-n"}},
        {"unenroll-client", {"-un"}},
        {"unenroll-service", {"-on", "-s"}},
    };
    for (const auto& [word, names] : required) {
        const auto command =
            std::find_if(AllCommands.begin(), AllCommands.end(),
                         [&, &wanted = word](const CommandOptions& other) { return other.word == wanted; });
        for (const std::string& name : names) {
            Words words = Words{word} + command->good;
            *(std::find(words.begin(), words.end(), name) + 1) = "";  // an empty value counts as not given
            ExpectFaults(words, Missing(name));
        }
    }
}

TEST(CommandsTest, IdentityIsJudgedAlikeByTheFiveThatTakeAllOfIt) {
    for (const CommandOptions& command : AllCommands) {
        if (command.word == "configure-bootstrap-url" || command.word == "unenroll-client-self") continue;
        Words rest(command.good.begin() + 2, command.good.end());
        const Words start = Words{command.word} + rest;
        ExpectFaults(start, NoIdentity);
        ExpectFaults(start + Words{"-u", "a"}, HalfIdentity);
        ExpectFaults(start + Words{"-p", "b"}, HalfIdentity);
        ExpectFaults(start + Words{"-u", "a", "-t", "b"}, HalfIdentity);
        ExpectFaults(start + Words{"-p", "b", "-n", "c"}, HalfIdentity);
        ExpectFaults(start + Words{"-u", "a", "-p", "b", "-t", "c"}, TwoIdentities);
        ExpectFaults(start + Words{"-u", "a", "-p", "b", "-n", "c"}, TwoIdentities);
        ExpectFaults(start + Words{"-n", "a", "-t", "c"}, TwoIdentities);
        ExpectBeginsItsWork(start + Words{"-u", "a", "-p", "b"});
        ExpectBeginsItsWork(start + Words{"-n", "c"});
        ExpectBeginsItsWork(start + Words{"-t", "c"});
    }
}

TEST(CommandsTest, DuplicateKeepsTheFirstValueAndAnEmptyFirstLeavesNoTrace) {
    ExpectFaults({"get-datacenters", "-u", "a", "-u", "b", "-p", "c", "-r", "url"}, Twice("-u"));
    ExpectBeginsItsWork({"get-datacenters", "-u", "", "-u", "b", "-p", "c", "-r", "url"});
}

TEST(CommandsTest, EveryFaultOfOneCallIsReportedTogether) {
    ExpectFaults({"get-datacenters", "-x", "1", "-y", "2"},
                 Unrecognized("-x") + Unrecognized("-y") + NoIdentity + Missing("-r"));
}

TEST(CommandsTest, ParityComesBeforeAnyMessage) {
    for (const Words& words : {Words{"get-datacenters", "-x", "1", "-y", "2", "-r"},
                               Words{"enroll-client", "-nn"}, Words{"unenroll-client-self", "stray"}}) {
        const ToolRun run = Tool(words);
        EXPECT_EQ(run.exitCode, -1);
        EXPECT_EQ(run.error, Usages.at(words[0]));
    }
}

TEST(ConfigureBootstrapUrlTest, HasNoClientIdentity) {
    const Words start = {"configure-bootstrap-url", "-d", "x", "-r", "y"};

    ExpectFaults(start + Words{"-n", "c", "-u", "a", "-p", "b"}, Unrecognized("-n"));
    ExpectFaults(start + Words{"-n", "c"}, Unrecognized("-n") + NoIdentity);
    ExpectFaults(start + Words{"-u", "a"}, HalfIdentity);
    ExpectFaults(start + Words{"-u", "a", "-p", "b", "-t", "c"}, TwoIdentities);
    ExpectBeginsItsWork(start + Words{"-u", "a", "-p", "b"});
    ExpectBeginsItsWork(start + Words{"-t", "c"});
}

TEST(ConfigureBootstrapUrlTest, OneOfEachPairIsEnough) {
    for (const std::string datacenter : {"-d", "-dn"}) {
        for (const std::string service : {"-r", "-h"})
            ExpectBeginsItsWork({"configure-bootstrap-url", "-t", "t", datacenter, "x", service, "y"});
        ExpectFaults({"configure-bootstrap-url", "-t", "t", datacenter, "x"}, NoService);
    }
    for (const std::string service : {"-r", "-h"})
        ExpectFaults({"configure-bootstrap-url", "-t", "t", service, "y"}, NoDatacenter);
}

TEST(ConfigureBootstrapUrlTest, BothOfAPairAreAcceptedThoughTheUsageSaysNot) {
    ExpectBeginsItsWork({"configure-bootstrap-url", "-t", "t", "-d", "x", "-dn", "n", "-r", "y", "-h", "h"});
}

TEST(EnrollClientTest, DescriptionAndRolesAreOptional) {
    ExpectBeginsItsWork({"enroll-client", "-t", "t", "-nn", "new"});
}

TEST(UnenrollClientSelfTest, TakesTheClientNameAlone) {
    ExpectFaults({"unenroll-client-self", "-n", "c", "-n", "d"}, Twice("-n"));
    ExpectFaults({"unenroll-client-self", "-u", "a", "-p", "b", "-n", "c"},
                 Unrecognized("-u") + Unrecognized("-p"));
    ExpectFaults({"unenroll-client-self", "-n", ""}, Missing("-n"));
}

TEST(CommandsTest, HugeOddAndInvalidValuesAreTaken) {
    const std::string huge(1 << 20, 'x');
    ExpectBeginsItsWork({"get-datacenters", "-t", huge, "-r", "\x01\x1b[31m\xff\xfe\n"});
    ExpectFaults({"unenroll-client-self", "-n", "c", huge, "\xff"}, Unrecognized(huge));
}

}  // namespace
}  // namespace Ombry::Tests
