// Whole enrolment commands beside a script of curl and jq that makes the same calls to the same service: from
// an empty cache, and with discovery answers and tokens at hand.
//
//   bench_enrollment [rounds]      41 unless told otherwise

#include "bench/LocalServer.h"
#include "bench/Measurement.h"
#include "bench/SandboxService.h"
#include "bench/ToolRuns.h"

#include <array>
#include <filesystem>
#include <fstream>

namespace Ombry::Bench {
namespace {

constexpr int DefaultRounds = 41;
const std::string Tool = OMBRY_TOOL_HERE_PATH;

/// What is timed. A client and a service come and go; the service belongs to a client that stays, so that its
/// tokens stay good.
const std::array<std::string, 4> StepNames{"enroll-client", "unenroll-client", "enroll-service",
                                           "unenroll-service"};

/// One of the two ways to enrol, with a machine of its own.
struct Side {
    TemporaryFolder machine;
    std::string cacheFolder;
    std::vector<Command> steps;

    double TimeStep(std::size_t step, bool cold) const {
        if (cold) std::filesystem::remove_all(machine.Path(cacheFolder));
        return TimeRun(steps[step], 0, machine.Path());
    }
};

void PrepareTool(Side& side, const SandboxService& service) {
    const auto asUser = [](const std::string& command, const std::string& option, const std::string& client) {
        return Command{Tool,   command, "-u", SandboxService::User, "-p", SandboxService::Password,
                       option, client};
    };
    side.cacheFolder = "Quennet/OmbrySecurity/CS-cpp";
    side.steps = {asUser("enroll-client", "-nn", "guest"),
                  asUser("unenroll-client", "-un", "guest"),
                  {Tool, "enroll-service", "-n", "owner", "-owner", "owner", "-name", "service", "-namespace",
                   "space", "-hostname", "tool", "-url", "https://tool/x"},
                  {Tool, "unenroll-service", "-n", "owner", "-on", "owner", "-s", "service"}};
    TimeRun({Tool, "configure-bootstrap-url", "-t", SandboxService::InstallToken, "-d",
             SandboxService::DatacenterId, "-r", service.BaseUrl()},
            0, side.machine.Path());
    TimeRun(asUser("enroll-client", "-nn", "owner"), 0, side.machine.Path());
}

void PrepareScript(Side& side, const SandboxService& service) {
    const auto script = [&](Command words) {
        words.insert(words.begin(), {OMBRY_ENROLL_SCRIPT, side.machine.Path()});
        return words;
    };
    side.cacheFolder = "cache";
    side.steps = {script({"enroll-client", "guest"}), script({"unenroll-client", "guest"}),
                  script({"enroll-service", "owner", "service", "space", "script"}),
                  script({"unenroll-service", "owner", "service"})};
    std::ofstream(side.machine.Path("settings"))
        << "base=" << service.BaseUrl() << "\ndatacenter=" << SandboxService::DatacenterId
        << "\nuser=" << SandboxService::User << ":" << SandboxService::Password
        << "\npin=" << PublicKeyPinOf(service.IdentityFile()) << "\n";
    TimeRun(script({"enroll-client", "owner"}), 0, side.machine.Path());
}

void RunRounds(Report& report, const Side& ours, const Side& theirs, bool cold, double target, int rounds) {
    std::array<Rounds, StepNames.size()> times;
    for (int round = 0; round <= rounds; ++round) {
        for (std::size_t step = 0; step < StepNames.size(); ++step) {
            const bool oursFirst = round % 2 == 0;
            double mine = 0;
            if (oursFirst) mine = ours.TimeStep(step, cold);
            const double other = theirs.TimeStep(step, cold);
            if (!oursFirst) mine = ours.TimeStep(step, cold);
            if (round > 0) times[step].Add(mine, other);  // the first fills what is to be warm
        }
    }
    for (std::size_t step = 0; step < StepNames.size(); ++step)
        times[step].AtMost(report, StepNames[step] + (cold ? ", cold" : ", warm"), target);
}

/// What the script cannot do without, so that its times can be judged.
void TellStarts(Report& report, const TemporaryFolder& folder, int rounds) {
    for (const Command& command : {Command{"curl", "--version"}, Command{"jq", "-n", "1"}}) {
        std::vector<double> times;
        for (int round = 0; round < rounds; ++round)
            times.push_back(TimeRun(command, 0, folder.Path()) * 1e3);
        report.Plain("a start of " + command.front() + " alone, ms", Median(times));
    }
}

void RunAll(int rounds) {
    const SandboxService service;
    // A run is as fast as its processor; two that take turns must not sit on different ones.
    StayOnOneProcessor();
    Side ours, theirs;
    PrepareTool(ours, service);
    PrepareScript(theirs, service);
    Report report("Enrolment, times the script's");
    RunRounds(report, ours, theirs, false, 0.7, rounds);
    RunRounds(report, ours, theirs, true, 1.0, rounds);
    TellStarts(report, theirs.machine, rounds);
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    return RunBenchmark("bench_enrollment", RunAll, DefaultRounds, argc, argv);
}
