#include "bench/SandboxService.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace Ombry::Bench {
namespace {

constexpr double StartSeconds = 15;

/// The first line of a growing file.
std::string AwaitLine(const std::string& path) {
    for (const double end = Now() + StartSeconds; Now() < end; usleep(10'000)) {
        std::ifstream file(path);
        std::string line;
        if (std::getline(file, line) && !file.eof()) return line;
    }
    throw std::runtime_error("The sandbox service did not start.");
}

}  // namespace

SandboxService::SandboxService()
    : output(folder.Path("ready")),
      descriptor(open(output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)),
      process({OMBRY_SANDBOX_PATH, "--state", folder.Path("state"), "--install-token", InstallToken, "--user",
               User, "--password", Password, "--datacenter", std::string(DatacenterId) + "=Bench",
               "--datacenter", std::string(OtherDatacenterId) + "=Elsewhere",
               // A benchmark is over long before its caches are too old.
               "--cache-control", "max-age=86400, stale-while-revalidate=604500", "--token-seconds", "86400"},
              descriptor) {
    const std::string line = AwaitLine(output);
    const std::string key = "\"baseUrl\":\"";
    const std::size_t begin = line.find(key) + key.size();
    baseUrl = line.substr(begin, line.find('"', begin) - begin);
}

SandboxService::~SandboxService() {
    close(descriptor);
}

}  // namespace Ombry::Bench
