// What a run of the tool costs from its start to its end, beside programs that do as much: one that links
// OpenSSL and does nothing, and curl with the same request to the same service.
//
//   bench_tool [rounds]      201 unless told otherwise

#include "bench/Measurement.h"
#include "bench/SandboxService.h"
#include "bench/ToolRuns.h"

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>

namespace Ombry::Bench {
namespace {

constexpr int DefaultRounds = 201;

/// A machine that is tied to a service, with a client and with as many searches in its cache as are wanted.
class Machine {
public:
    explicit Machine(const SandboxService& sandbox) {
        Do({OMBRY_TOOL_HERE_PATH, "configure-bootstrap-url", "-t", SandboxService::InstallToken, "-d",
            SandboxService::DatacenterId, "-r", sandbox.BaseUrl()});
        Do({OMBRY_TOOL_HERE_PATH, "enroll-client", "-t", SandboxService::InstallToken, "-nn", "c1"});
    }

    const std::string& Folder() const { return folder.Path(); }

    /// Copies of one search that was made, with names as searches have.
    void FillCache(int entries) const {
        namespace fs = std::filesystem;
        const fs::path cache = folder.Path("Quennet/OmbrySecurity/CS-cpp/cache/finder_cache");
        const fs::path made = fs::directory_iterator(cache)->path();
        umask(077);
        for (int number = 0; number < entries; ++number) {
            const std::string digits = std::to_string(number);
            const std::string name = digits + std::string(43 - digits.size(), 'x') + "=-p";
            fs::copy_file(made, cache / name, fs::copy_options::skip_existing);
        }
    }

private:
    void Do(const Command& command) const { TimeRun(command, 0, folder.Path()); }

    const TemporaryFolder folder;
};

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

/// What the doctor may take: once and a half of `help`, and a millisecond for each hundred entries of caches.
void ExamineEntries(Report& report, int rounds, const Machine& machine, int entries) {
    machine.FillCache(entries);
    std::vector<double> ratios, figures;
    for (int round = 0; round <= rounds; ++round) {
        const double help = TimeRun({OMBRY_TOOL_PATH, "help"}, 255, machine.Folder());
        const double mine = TimeRun({OMBRY_DOCTOR_HERE_PATH}, 0, machine.Folder());
        if (round == 0) continue;  // in the first the programs come from the disk
        ratios.push_back(mine / (1.5 * help + entries * 1e-5));
        figures.push_back(mine);
    }
    char remark[96];
    std::snprintf(remark, sizeof remark, "%.2f ms", Median(figures) * 1e3);
    report.AtMost("ombry-doctor with " + std::to_string(entries) + " entries, times what it may take",
                  Median(ratios), 1.0, remark);
}

void RunAll(int rounds) {
    const SandboxService sandbox;
    const std::string token = SandboxService::InstallToken;
    Report report("A run of the tool, times the other's");
    const Machine machine(sandbox);
    for (const int entries : {0, 1000})
        ExamineEntries(report, rounds, machine, entries);  // which the doctor judges by two threads
    // A run is as fast as its processor; two that take turns must not sit on different ones.
    StayOnOneProcessor();
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
