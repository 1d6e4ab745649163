// What one pass of each road costs in instructions (callgrind), allocations and system calls (strace), beside
// the numbers in the tree. Each is counted over a copy of this program, which says where the passes of a road
// begin and end.
//
//   bench_roads NUMBERS            ends with exit code 1 if a count has grown by more than a thirtieth
//   bench_roads NUMBERS --renew    writes the numbers
//
// A count that cannot be compared is told in a line that begins with "SKIPPED: ".

#include "Ombry.SecClientConfig/Here/SeedsHere.h"
#include "Platform/IClock.h"
#include "bench/AllocationCount.h"
#include "bench/LocalServer.h"
#include "bench/Measurement.h"
#include "bench/Roads.h"

#include <openssl/crypto.h>

#include <gnu/libc-version.h>
#include <malloc.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace Ombry::Bench {
namespace {

constexpr const char* ChildWord = "child";
constexpr double MostGrowth = 1.03;
constexpr const char* BeginMark = "begin ";
constexpr const char* EndMark = "end ";

/// What one pass costs.
struct Costs {
    double instructions = 0;
    double allocations = 0;
    double systemCalls = 0;
};
using Kind = double Costs::*;
struct NamedKind {
    const char* name;
    Kind kind;
};
constexpr std::array<NamedKind, 3> Kinds{{{"instructions", &Costs::instructions},
                                          {"allocations", &Costs::allocations},
                                          {"system calls", &Costs::systemCalls}}};

/// The costs of each road, and what the instructions hang on.
struct Counts {
    std::string machine;
    std::vector<std::pair<std::string, Costs>> roads;
};

/// Instructions are those of one compiler, one C library and one TLS library, which has code of its own for
/// each kind of processor.
std::string Machine() {
#ifdef __x86_64__
    const char* const processor = __builtin_cpu_supports("avx2") ? "x86-64 with AVX2" : "x86-64 without AVX2";
#else
    const char* const processor = "not x86-64";
#endif
    return std::string("compiler ") + __VERSION__ + ", C library " + gnu_get_libc_version() + ", OpenSSL " +
           OpenSSL_version(OPENSSL_FULL_VERSION_STRING) + ", " + processor;
}

// The child

/// An hour ahead, so that a file that was just written counts as settled, as it does in every later call.
class ClockAhead : public Platform::IClock {
public:
    TimePoint Now() override { return real.Now() + std::chrono::hours(1); }
    Duration SteadyNow() override { return real.SteadyNow(); }
    void Wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
              Duration atMost) override {
        real.Wait(condition, lock, atMost);
    }
    void Sleep(Duration slice) override { real.Sleep(slice); }

private:
    Platform::IClock& real = Platform::Production<Platform::IClock>();
};

/// A system call that does nothing, for the eyes of strace.
void Mark(const std::string& text) {
    access(text.c_str(), F_OK);
}

/// Prints what the instructions hang on, and then for each road what it allocates in a pass.
void GoAll(const Target& target, const std::string& folder) {
    // Where the heap happens to begin would decide whether a pass gives memory back and takes it again.
    mallopt(M_TRIM_THRESHOLD, 32 << 20);
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    ClockAhead clock;
    const Platform::Testing::Replace<Platform::IClock> clockReplaced(clock);
    // The thread that refreshes tokens waits for hours.
    SecClientConfig::SeedsHere seeds;
    const Platform::Testing::Replace<Platform::IRandom> seedsReplaced(seeds);
    std::printf("%s\n", Machine().c_str());
    for (const Road& road : MakeRoads(target, folder)) {
        const auto repeat = [&] {
            for (int pass = 0; pass < road.passes; ++pass)
                road.go();
        };
        repeat();
        const std::string begin = BeginMark + road.name, end = EndMark + road.name;
        const std::uint64_t before = AllocationCount();
        Mark(begin);
        CALLGRIND_ZERO_STATS;
        repeat();
        CALLGRIND_DUMP_STATS_AT(road.name.c_str());
        Mark(end);
        const std::uint64_t after = AllocationCount();
        std::printf("%s %d %llu\n", road.name.c_str(), road.passes,
                    static_cast<unsigned long long>(after - before));
    }
}

// The parent

/// Runs the child below a program that counts; what it printed.
std::string RunChild(std::vector<std::string> command, const Target& target, const TemporaryFolder& folder) {
    const std::string output = folder.Path("output"), caches = folder.Path("caches");
    std::filesystem::create_directory(caches);
    for (const std::string& word :
         {std::filesystem::read_symlink("/proc/self/exe").string(), std::string(ChildWord),
          std::to_string(target.port), target.certificate, target.pin, caches}) {
        command.push_back(word);
    }
    std::FILE* const file = std::fopen(output.c_str(), "w");
    if (file == nullptr) throw std::runtime_error("Cannot write " + output);
    const int code = Run(command, fileno(file));
    std::fclose(file);
    if (code != 0) throw std::runtime_error("The counted run failed below " + command.front());
    std::ifstream read(output);
    return {std::istreambuf_iterator<char>(read), {}};
}

/// One dump of callgrind's for each road, which names it and ends in the sum.
std::map<std::string, double> ReadInstructions(const TemporaryFolder& folder) {
    std::map<std::string, double> sums;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        if (!entry.path().filename().string().starts_with("instructions.")) continue;
        const std::string nameStart = "desc: Trigger: Client Request: ", sumStart = "summary: ";
        std::ifstream file(entry.path());
        std::string name;
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with(nameStart)) name = line.substr(nameStart.size());
            if (line.starts_with(sumStart)) sums[name] = std::stod(line.substr(sumStart.size()));
        }
    }
    return sums;
}

/// The calls of the first thread between the marks of each road.
std::map<std::string, double> ReadSystemCalls(const std::string& table) {
    std::map<std::string, double> calls;
    std::ifstream file(table);
    std::string road;
    for (std::string line; std::getline(file, line);) {
        const std::string quote = "\"";
        const std::size_t begin = line.find(quote + BeginMark);
        if (begin != std::string::npos) {
            const std::size_t start = begin + quote.size() + std::strlen(BeginMark);
            road = line.substr(start, line.find('"', start) - start);
            calls[road] = 0;
        } else if (line.find(quote + EndMark) != std::string::npos) {
            road.clear();
        } else if (!road.empty() && line.find('(') != std::string::npos) {
            ++calls[road];
        }
    }
    return calls;
}

Counts Count() {
    const LocalServer server;
    const Target target{server.Port(), server.Certificate(), server.PublicKeyPin()};
    const TemporaryFolder valgrindFolder, straceFolder;
    RunChild({"valgrind", "--tool=callgrind", "--callgrind-out-file=" + valgrindFolder.Path("instructions")},
             target, valgrindFolder);
    const std::string table = straceFolder.Path("calls");
    std::istringstream output(RunChild({"strace", "-o", table}, target, straceFolder));
    const auto instructions = ReadInstructions(valgrindFolder);
    const auto systemCalls = ReadSystemCalls(table);

    Counts counts;
    std::getline(output, counts.machine);
    std::string name;
    double passes = 0, allocations = 0;
    while (output >> name >> passes >> allocations) {
        counts.roads.push_back(
            {name, {instructions.at(name) / passes, allocations / passes, systemCalls.at(name) / passes}});
    }
    if (counts.roads.empty()) throw std::runtime_error("No road was counted.");
    return counts;
}

Counts ReadNumbers(const std::string& path) {
    std::ifstream file(path);
    Counts counts;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line.front() == '#') continue;
        if (counts.machine.empty()) {
            counts.machine = line;
            continue;
        }
        std::istringstream fields(line);
        std::string name;
        Costs costs;
        if (!(fields >> name >> costs.instructions >> costs.allocations >> costs.systemCalls))
            throw std::runtime_error("Not a line of numbers in " + path + ": " + line);
        counts.roads.push_back({name, costs});
    }
    if (counts.roads.empty()) throw std::runtime_error("There are no numbers in " + path);
    return counts;
}

/// Keeps the comment at the head of the file.
void WriteNumbers(const std::string& path, const Counts& counts) {
    std::string text;
    {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line) && line.starts_with('#');)
            text += line + "\n";
    }
    text += counts.machine + "\n";
    for (const auto& [name, costs] : counts.roads) {
        char line[96];
        std::snprintf(line, sizeof line, "%-10s %9.0f %9.2f %9.2f\n", name.c_str(), costs.instructions,
                      costs.allocations, costs.systemCalls);
        text += line;
    }
    std::ofstream file(path);
    if (!(file << text).flush()) throw std::runtime_error("Cannot write " + path);
}

/// Whether nothing has grown.
bool Compare(const Counts& numbers, const Counts& counted) {
    const bool sameMachine = numbers.machine == counted.machine;
    if (!sameMachine) {
        std::printf("SKIPPED: instructions: counted with %s; the numbers are of %s\n",
                    counted.machine.c_str(), numbers.machine.c_str());
    }
    std::map<std::string, Costs> known(numbers.roads.begin(), numbers.roads.end());
    bool good = known.size() == counted.roads.size();
    if (!good) std::printf("FAILED: the numbers are of other roads\n");
    for (const auto& [road, costs] : counted.roads) {
        if (!known.contains(road)) continue;
        for (const auto& [name, kind] : Kinds) {
            if (kind == &Costs::instructions && !sameMachine) continue;
            const double before = known[road].*kind, now = costs.*kind;
            // A stray call among hundreds is no call of a pass, and the numbers have two digits.
            const bool grown = now > before * MostGrowth + 0.01;
            const bool shrunk = now * MostGrowth + 0.01 < before;
            good = good && !grown;
            std::printf("%-10s %-13s %10.2f, in the tree %10.2f%s\n", road.c_str(), name, now, before,
                        grown ? "   GROWN" : (shrunk ? "   less: renew the numbers" : ""));
        }
    }
    return good;
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    try {
        if (argc == 6 && std::strcmp(argv[1], ChildWord) == 0) {
            GoAll({static_cast<std::uint16_t>(std::stoi(argv[2])), argv[3], argv[4]}, argv[5]);
            return 0;
        }
        if (argc < 2) throw std::runtime_error("The file of the numbers is missing.");
        const Counts counted = Count();
        if (argc == 3 && std::strcmp(argv[2], "--renew") == 0) {
            WriteNumbers(argv[1], counted);
            return 0;
        }
        return Compare(ReadNumbers(argv[1]), counted) ? 0 : 1;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench_roads: %s\n", failure.what());
        return 1;
    }
}
