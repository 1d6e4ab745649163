// What a run of the tool costs from its start to its end, beside programs that do as much: one that links
// OpenSSL and does nothing, and curl with the same request to the same service.
//
//   bench_tool [rounds]      201 unless told otherwise

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "bench/LocalServer.h"
#include "bench/Measurement.h"

namespace Ombry::Bench {
namespace {

constexpr int DefaultRounds = 201;
constexpr const char* Token = "install-token";

using Command = std::vector<std::string>;

/// The first line of a growing file.
std::string AwaitLine(const std::string& path) {
    for (const double end = Now() + 15; Now() < end; usleep(10'000)) {
        std::ifstream file(path);
        std::string line;
        if (std::getline(file, line) && !file.eof()) return line;
    }
    throw std::runtime_error("The sandbox service did not start.");
}

/// The service of the repository, on a port of its own choice.
class Sandbox {
public:
    Sandbox()
        : output(folder.Path("ready")),
          descriptor(open(output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)),
          process({OMBRY_SANDBOX_PATH, "--state", folder.Path("state"), "--install-token", Token},
                  descriptor) {
        const std::string line = AwaitLine(output);
        const std::string key = "\"baseUrl\":\"";
        const std::size_t begin = line.find(key) + key.size();
        baseUrl = line.substr(begin, line.find('"', begin) - begin);
    }
    ~Sandbox() { close(descriptor); }

    const std::string& BaseUrl() const { return baseUrl; }

private:
    TemporaryFolder folder;
    const std::string output;
    const int descriptor;
    Background process;
    std::string baseUrl;
};

double TimeRun(const Command& command, int expected, const TemporaryFolder& folder) {
    const double start = Now();
    const int code = Run(command, -1, folder.Path().c_str());
    const double end = Now();
    if (code != expected) {
        throw std::runtime_error(command.front() + " ended with exit code " + std::to_string(code));
    }
    return end - start;
}

void Compare(Report& report, const std::string& name, double target, int rounds, const Command& ours,
             int oursEnds, const Command& theirs) {
    const TemporaryFolder folder;
    std::vector<double> ourTimes, theirTimes, ratios;
    for (int round = 0; round <= rounds; ++round) {
        const bool oursFirst = round % 2 == 0;
        double mine = 0;
        if (oursFirst) mine = TimeRun(ours, oursEnds, folder);
        const double other = TimeRun(theirs, 0, folder);
        if (!oursFirst) mine = TimeRun(ours, oursEnds, folder);
        if (round == 0) continue;  // the programs come from the disk
        ourTimes.push_back(mine);
        theirTimes.push_back(other);
        ratios.push_back(mine / other);
    }
    char remark[96];
    std::snprintf(remark, sizeof remark, "%.2f ms against %.2f ms", Median(ourTimes) * 1e3,
                  Median(theirTimes) * 1e3);
    report.AtMost(name, Median(ratios), target, remark);
}

void RunAll(int rounds) {
    // A run is as fast as its processor; two that take turns must not sit on different ones.
    const Sandbox sandbox;
    StayOnOneProcessor();
    Report report("A run of the tool, times the other's");
    // A bare "help" is an error by design, and prints the same text.
    Compare(report, "help, against a program that only links OpenSSL", 1.3, rounds, {OMBRY_TOOL_PATH, "help"},
            255, {OMBRY_IDLE_PATH});
    Compare(report, "get-datacenters -t, against curl", 0.75, rounds,
            {OMBRY_TOOL_HERE_PATH, "get-datacenters", "-t", Token, "-r", sandbox.BaseUrl()}, 0,
            {"curl", "--silent", "--fail", "--insecure", "--header",
             std::string("Authorization: Bearer ") + Token, sandbox.BaseUrl() + "/v1/ddb/datacenters"});
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    try {
        const int rounds = argc > 1 ? std::atoi(argv[1]) : Ombry::Bench::DefaultRounds;
        Ombry::Bench::RunAll(rounds > 0 ? rounds : Ombry::Bench::DefaultRounds);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench_tool: %s\n", failure.what());
        return 1;
    }
}
