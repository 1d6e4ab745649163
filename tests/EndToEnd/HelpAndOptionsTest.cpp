// What the executable says without a server.

#include "tests/EndToEnd/Machine.h"
#include "tests/Ombry.SecClientConfig/UsageTexts.h"

namespace Ombry::Tests {
namespace {

ProcessOutcome Tool(Words words) {
    return Machine().Run(std::move(words));
}

TEST(HelpAndOptionsTest, GeneralHelpIsAnErrorUnlessItIsAskedForByName) {
    for (const Words& words :
         {Words{}, Words{"help"}, Words{"HELP"}, Words{"nosuch", "help"}, Words{"help", "nosuch"}})
        ExpectFailure(Tool(words), GeneralHelp);
    ExpectSuccess(Tool({"help", "help"}), GeneralHelp);
}

TEST(HelpAndOptionsTest, HelpPrintsTheUsageOfEachCommand) {
    for (const auto& [command, usage] : Usages)
        ExpectSuccess(Tool({"help", command, "extra"}), usage);
}

TEST(HelpAndOptionsTest, InstalledToolAndTheOneOfTheTestsSayTheSame) {
    ExpectSuccess(RunProcess({OMBRY_TOOL, "help", "help"}), GeneralHelp);
}

TEST(HelpAndOptionsTest, OddNumberOfWordsPrintsNothingButTheUsage) {
    for (const auto& [command, usage] : Usages)
        ExpectFailure(Tool({command, "-x"}), usage);
    ExpectFailure(Tool({"get-datacenters", "-x", "1", "-y", "2", "-r"}), Usages.at("get-datacenters"));
}

TEST(HelpAndOptionsTest, EveryFaultIsReportedBeforeTheUsage) {
    ExpectFailure(Tool({"get-datacenters", "-x", "1", "-y", "2"}),
                  "ERROR: Unrecognized option -x\n"
                  "ERROR: Unrecognized option -y\n"
                  "ERROR: No userName and password, client name or token was provided.\n"
                  "ERROR: Required option -r is missing.\n\n" +
                      Usages.at("get-datacenters"));
    ExpectFailure(Tool({"configure-bootstrap-url", "-n", "c", "-u", "a", "-u", "b", "-t", "c"}),
                  "ERROR: Unrecognized option -n\n"
                  "ERROR: Option -u was specified more than once.\n"
                  "ERROR: When a userName or password is provided then the other must be provided as well.\n"
                  "ERROR: Neither a datacenterId nor a datacenterName was provided.\n"
                  "ERROR: Neither a sfsUrl nor a sfsHost was provided.\n\n" +
                      Usages.at("configure-bootstrap-url"));
    ExpectFailure(Tool({"enroll-client", "-u", "a", "-p", "b", "-t", "c"}),
                  "ERROR: Required option -nn is missing.\n"
                  "ERROR: Only one of username/password, client name or token is allowed.\n\n" +
                      Usages.at("enroll-client"));
}

TEST(HelpAndOptionsTest, EmptyValuesCountAsNotGiven) {
    ExpectFailure(Tool({"get-datacenters", "-u", "", "-p", "", "-n", "", "-t", "", "-r", ""}),
                  "ERROR: No userName and password, client name or token was provided.\n"
                  "ERROR: Required option -r is missing.\n\n" +
                      Usages.at("get-datacenters"));
}

TEST(HelpAndOptionsTest, UnknownOptionsAreRepeatedAsTheyAreWhateverTheyHold) {
    // The largest argument that the kernel takes is 128 KiB with its terminator.
    for (const std::string& name : {std::string("-\x1b[31m\a\n"), std::string("-\xff\xfe\xc0"), std::string(),
                                    std::string(128 * 1024 - 1, 'x')}) {
        ExpectFailure(Tool({"get-datacenters", name, "v", "-t", "t", "-r", "u"}),
                      "ERROR: Unrecognized option " + name + "\n\n" + Usages.at("get-datacenters"));
    }
}

TEST(HelpAndOptionsTest, NothingIsWrittenForHelpOrFaults) {
    const Machine machine{};
    machine.Run({"help", "enroll-client"});
    machine.Run({"configure-bootstrap-url", "-d", "x"});
    EXPECT_EQ(machine.Files(), Tree());
}

}  // namespace
}  // namespace Ombry::Tests
