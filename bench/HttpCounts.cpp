// What one request on a kept-alive connection costs in system calls and in heap allocations. System calls are
// counted by strace over a copy of this program, once with many requests and once with a few; the difference
// belongs to the requests.

#include "bench/AllocationCount.h"
#include "bench/HttpClients.h"
#include "bench/LocalServer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Ombry::Bench {
namespace {

constexpr int Few = 10;
constexpr int Many = 1010;
constexpr const char* ChildWord = "child";
constexpr const char* NewConnection = "GET-anew";

/// One run of a client.
struct Exchange {
    std::string client;
    std::string method;
};

std::unique_ptr<HttpClient> MakeClient(const std::string& name, const Target& target) {
    return name == "ours" ? MakeOmbryClient(target) : MakeCurlClient(target);
}

void Repeat(HttpClient& client, const std::string& method, int count) {
    const std::string body(300, 'b');
    for (int i = 0; i < count; ++i) {
        if (method == "GET") {
            client.Get("/small");
        } else if (method == NewConnection) {
            client.GetAnew("/small");
        } else {
            client.Post("/submit", body);
        }
    }
}

double AllocationsOf(const Exchange& exchange, const Target& target) {
    const auto client = MakeClient(exchange.client, target);
    Repeat(*client, exchange.method, Few);
    const std::uint64_t before = AllocationCount();
    Repeat(*client, exchange.method, Many);
    return static_cast<double>(AllocationCount() - before) / Many;
}

/// The calls in the last line of strace's table: "100.00  0.012  3  2040  12 total".
double ReadTotal(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        if (!line.ends_with(" total")) continue;
        std::istringstream fields(line);
        double percent = 0, seconds = 0, average = 0, calls = 0;
        if (fields >> percent >> seconds >> average >> calls) return calls;
    }
    throw std::runtime_error("strace counted nothing.");
}

std::string OwnPath() {
    return std::filesystem::read_symlink("/proc/self/exe");
}

double TotalCalls(const Exchange& exchange, const Target& target, int count) {
    const TemporaryFolder folder;
    const std::string table = folder.Path("calls");
    if (Run({"strace", "-f", "-c", "-o", table, OwnPath(), ChildWord, exchange.client, exchange.method,
             std::to_string(count), std::to_string(target.port), target.certificate, target.pin}) != 0) {
        throw std::runtime_error("The traced run failed.");
    }
    return ReadTotal(table);
}

double SystemCallsOf(const Exchange& exchange, const Target& target) {
    return (TotalCalls(exchange, target, Many) - TotalCalls(exchange, target, Few)) / (Many - Few);
}

int RunChild(char** argv) {
    Target target;
    target.port = static_cast<std::uint16_t>(std::atoi(argv[5]));
    target.certificate = argv[6];
    target.pin = argv[7];
    Repeat(*MakeClient(argv[2], target), argv[3], std::atoi(argv[4]));
    return 0;
}

void RunAll() {
    StayOnOneProcessor();
    const LocalServer server;
    const Target target{server.Port(), server.Certificate(), server.PublicKeyPin()};
    Report report("One request on a kept-alive connection");
    const auto compare = [&](const std::string& name, const std::string& method, double most,
                             double (*measure)(const Exchange&, const Target&)) {
        const double ours = measure({"ours", method}, target);
        char remark[48];
        std::snprintf(remark, sizeof remark, "libcurl: %.2f", measure({"libcurl", method}, target));
        report.AtMost(name, ours, most, remark);
    };
    compare("system calls, small GET", "GET", 4, SystemCallsOf);
    compare("system calls, small POST", "POST", 6, SystemCallsOf);
    compare("heap allocations, small GET", "GET", 30, AllocationsOf);
    compare("heap allocations, small POST", "POST", 30, AllocationsOf);
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    try {
        if (argc == 8 && std::strcmp(argv[1], ChildWord) == 0) return RunChild(argv);
        RunAll();
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench_http_counts: %s\n", failure.what());
        return 1;
    }
}
