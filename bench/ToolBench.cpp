// What a run of the tool costs from its start to its end, beside programs that do as much: one that links
// OpenSSL and does nothing, and curl with the same request to the same service.
//
//   bench_tool [rounds]      201 unless told otherwise

#include "bench/Measurement.h"
#include "bench/SandboxService.h"
#include "bench/ToolRuns.h"

namespace Ombry::Bench {
namespace {

constexpr int DefaultRounds = 201;

void Compare(Report& report, const std::string& name, double target, int rounds, const Command& ours,
             int oursEnds, const Command& theirs) {
    const TemporaryFolder folder;
    Rounds times;
    for (int round = 0; round <= rounds; ++round) {
        const bool oursFirst = round % 2 == 0;
        double mine = 0;
        if (oursFirst) mine = TimeRun(ours, oursEnds, folder.Path());
        const double other = TimeRun(theirs, 0, folder.Path());
        if (!oursFirst) mine = TimeRun(ours, oursEnds, folder.Path());
        if (round > 0) times.Add(mine, other);  // in the first the programs come from the disk
    }
    times.AtMost(report, name, target);
}

void RunAll(int rounds) {
    // A run is as fast as its processor; two that take turns must not sit on different ones.
    const SandboxService sandbox;
    const std::string token = SandboxService::InstallToken;
    StayOnOneProcessor();
    Report report("A run of the tool, times the other's");
    // A bare "help" is an error by design, and prints the same text.
    Compare(report, "help, against a program that only links OpenSSL", 1.3, rounds, {OMBRY_TOOL_PATH, "help"},
            255, {OMBRY_IDLE_PATH});
    Compare(report, "get-datacenters -t, against curl", 0.75, rounds,
            {OMBRY_TOOL_HERE_PATH, "get-datacenters", "-t", token, "-r", sandbox.BaseUrl()}, 0,
            {"curl", "--silent", "--fail", "--insecure", "--header", "Authorization: Bearer " + token,
             sandbox.BaseUrl() + "/v1/ddb/datacenters"});
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    return RunBenchmark("bench_tool", RunAll, DefaultRounds, argc, argv);
}
