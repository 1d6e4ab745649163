// What one request on a kept-alive connection costs in instructions, system calls and heap allocations.
// Instructions are counted by callgrind and system calls by strace over a copy of this program, once with
// many requests and once with a few; the difference belongs to the requests. These figures repeat, whatever
// else the machine does, to within one in a hundred.

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

constexpr int Few = 200;
constexpr int Many = 1200;
constexpr const char* ChildWord = "child";
constexpr const char* NewConnection = "GET-anew";

/// One run of a client.
struct Exchange {
    std::string client;
    std::string method;
};

void Repeat(HttpClient& client, const std::string& method, int count) {
    const std::string body(500, 'b');
    for (int i = 0; i < count; ++i) {
        if (method == "GET") {
            client.Get("/small");
        } else if (method == NewConnection) {
            client.GetAnew("/small", Handshake::Full);
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

std::vector<std::string> ChildOf(const Exchange& exchange, const Target& target, int count) {
    return {OwnPath(),
            ChildWord,
            exchange.client,
            exchange.method,
            std::to_string(count),
            std::to_string(target.port),
            target.certificate,
            target.pin};
}

double TotalCalls(const Exchange& exchange, const Target& target, int count) {
    const TemporaryFolder folder;
    const std::string table = folder.Path("calls");
    std::vector<std::string> command{"strace", "-f", "-c", "-o", table};
    for (const std::string& word : ChildOf(exchange, target, count))
        command.push_back(word);
    if (Run(command) != 0) throw std::runtime_error("The traced run failed.");
    return ReadTotal(table);
}

double SystemCallsOf(const Exchange& exchange, const Target& target) {
    return (TotalCalls(exchange, target, Many) - TotalCalls(exchange, target, Few)) / (Many - Few);
}

double TotalInstructions(const Exchange& exchange, const Target& target, int count) {
    const TemporaryFolder folder;
    const std::string table = folder.Path("instructions");
    std::vector<std::string> command{"valgrind", "--tool=callgrind", "--callgrind-out-file=" + table};
    for (const std::string& word : ChildOf(exchange, target, count))
        command.push_back(word);
    if (Run(command) != 0) throw std::runtime_error("The counted run failed.");
    std::ifstream file(table);
    const std::string start = "summary: ";
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(start)) return std::stod(line.substr(start.size()));
    }
    throw std::runtime_error("callgrind counted nothing.");
}

double InstructionsOf(const Exchange& exchange, const Target& target) {
    return (TotalInstructions(exchange, target, Many) - TotalInstructions(exchange, target, Few)) /
           (Many - Few);
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
        std::string remark;
        for (const char* peer : {"libcurl", "Beast", "OpenSSL alone", "OpenSSL in our steps"}) {
            char text[48];
            std::snprintf(text, sizeof text, "%s%s: %.0f", remark.empty() ? "" : ", ", peer,
                          measure({peer, method}, target));
            remark += text;
        }
        const double ours = measure({"ours", method}, target);
        most > 0 ? report.AtMost(name, ours, most, remark) : report.Plain(name, ours, remark);
    };
    compare("instructions, small GET", "GET", 24000, InstructionsOf);
    compare("instructions, POST of 500 bytes", "POST", 0, InstructionsOf);
    compare("system calls, small GET", "GET", 4, SystemCallsOf);
    compare("system calls, POST of 500 bytes", "POST", 5, SystemCallsOf);
    compare("heap allocations, small GET", "GET", 6, AllocationsOf);
    compare("heap allocations, POST of 500 bytes", "POST", 8, AllocationsOf);
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
