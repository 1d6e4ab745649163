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
    Words words = ToolUnderTest::Shipped();
    words.insert(words.end(), {"help", "help"});
    ExpectSuccess(RunProcess(words), GeneralHelp);
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
    Words names{"-\x1b[31m\a\n", "", "-\" \\\" \\\\", "-\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80"};
    // The largest argument that the kernel takes is 128 KiB with its terminator. On the other system a
    // command line is text, and has at most 32,767 letters.
    if (ToolUnderTest::IsForWindows()) {
        names.push_back(std::string(30000, 'x'));
    } else {
        names.insert(names.end(), {"-\xff\xfe\xc0", std::string(128 * 1024 - 1, 'x')});
    }
    for (const std::string& name : names) {
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
