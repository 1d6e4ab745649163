#include "Sandbox/Options.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <stdexcept>

namespace Ombry::Sandbox {
namespace {

long ParseNumber(const std::string& name, const std::string& value, long least, long most) {
    long number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number < least || number > most) {
        throw std::invalid_argument(name + " wants a number from " + std::to_string(least) + " to " +
                                    std::to_string(most) + ", not '" + value + "'");
    }
    return number;
}

std::vector<std::string> SplitList(const std::string& text) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        if (end > begin) parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

DatacenterOption ParseDatacenter(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == 0 || equals == std::string::npos || equals + 1 == text.size()) {
        throw std::invalid_argument("--datacenter wants ID=NAME, not '" + text + "'");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

std::vector<std::string> ParseRights(const std::string& text) {
    static constexpr std::string_view Known[] = {"enroll-clients", "unenroll-clients", "enroll-services",
                                                 "unenroll-services"};
    std::vector<std::string> rights = SplitList(text);
    for (const std::string& right : rights) {
        if (std::find(std::begin(Known), std::end(Known), right) == std::end(Known))
            throw std::invalid_argument("--client-rights knows no '" + right + "'");
    }
    return rights;
}

std::string ParseBasePath(std::string path) {
    if (!path.empty() && path.front() != '/') path.insert(0, 1, '/');
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path;
}

/// Fills in what depends on the datacenters, and refuses those that cannot be told apart.
void CompleteDatacenters(Options& options) {
    auto& datacenters = options.datacenters;
    if (datacenters.empty()) datacenters.push_back({"5ad7b0c2-0001-4c00-8000-000000000001", "Sandbox"});
    if (options.ownDatacenter.empty()) options.ownDatacenter = datacenters.front().id;
    const auto count = [&](const std::string& id) {
        return std::count_if(datacenters.begin(), datacenters.end(),
                             [&](const DatacenterOption& datacenter) { return datacenter.id == id; });
    };
    for (const DatacenterOption& datacenter : datacenters) {
        if (count(datacenter.id) > 1)
            throw std::invalid_argument("There are two datacenters '" + datacenter.id + "'");
    }
    if (count(options.ownDatacenter) == 0)
        throw std::invalid_argument("--own-datacenter is no datacenter: '" + options.ownDatacenter + "'");
}

}  // namespace

const char* const UsageText =
    "ombry-sandbox [options]\n"
    "\n"
    "A small Security Framework service to try the tool against. It prints one line of JSON when it is "
    "ready, logs\n"
    "one line a request on the standard error stream, and stops on SIGTERM or SIGINT. Of an option that is "
    "given\n"
    "twice and may not be repeated, the last one counts.\n"
    "\n"
    "    --address ADDRESS        listening address (127.0.0.1)\n"
    "    --port PORT              listening port; 0 lets the system pick (0)\n"
    "    --threads NUMBER         kept connections that are served at once; others wait (8)\n"
    "    --state FOLDER           key, certificate and database (sandbox-state); two instances may share "
    "one\n"
    "    --base-path PATH         base path of all calls (/securityframeworkservice)\n"
    "    --user NAME              the one user (admin)\n"
    "    --password PASSWORD      and its password (secret)\n"
    "    --install-token TOKEN    a fixed token that may enrol clients and services (none)\n"
    "    --datacenter ID=NAME     a datacenter; may be repeated (one, named Sandbox)\n"
    "    --own-datacenter ID      the one that this instance stands in (the first)\n"
    "    --client-rights LIST     what enrolled clients may do besides finding services and removing "
    "themselves:\n"
    "                             enroll-clients, unenroll-clients, enroll-services, unenroll-services\n"
    "                             (enroll-services,unenroll-services)\n"
    "    --cache-control VALUE    sent with discovery answers; empty leaves it out\n"
    "    --token-seconds SECONDS  life of a token (3600)\n"
    "    --datacenters-need-token the datacenter list wants a valid token\n"
    "    --plain-http             no TLS\n"
    "    --fault FAULT            PATH:COUNT:KIND for the next COUNT requests below PATH; KIND is "
    "status=CODE,\n"
    "                             delay=MILLISECONDS, reset, cut or silence; may be repeated, and added "
    "while it runs\n"
    "                             by a POST of the same text to BASE/sandbox/faults with the user's name and "
    "password\n"
    "    --help                   this text\n";

Options ParseOptions(int argc, char** argv) {
    Options options;
    const std::map<std::string, std::function<void()>> switches{
        {"--plain-http", [&] { options.plainHttp = true; }},
        {"--datacenters-need-token", [&] { options.tokenForDatacenters = true; }},
        {"--help", [&] { options.help = true; }},
    };
    using Take = std::function<void(const std::string&)>;
    const auto text = [](std::string& target) -> Take {
        return [&target](const std::string& value) { target = value; };
    };
    const auto filledText = [](const std::string& name, std::string& target) -> Take {
        return [&target, name](const std::string& value) {
            if (value.empty()) throw std::invalid_argument(name + " wants a value");
            target = value;
        };
    };
    const std::map<std::string, Take> valued{
        {"--address", filledText("--address", options.address)},
        {"--port",
         [&](const std::string& v) { options.port = static_cast<int>(ParseNumber("--port", v, 0, 65535)); }},
        {"--threads", [&](const std::string& v) { options.threads = ParseNumber("--threads", v, 1, 1000); }},
        {"--state", filledText("--state", options.stateFolder)},
        {"--base-path", [&](const std::string& v) { options.basePath = ParseBasePath(v); }},
        {"--user",
         [&](const std::string& v) {
             if (v.find(':') != std::string::npos)
                 throw std::invalid_argument("--user must not hold a colon");
             options.user = v;
         }},
        {"--password", text(options.password)},
        {"--install-token", text(options.installToken)},
        {"--datacenter", [&](const std::string& v) { options.datacenters.push_back(ParseDatacenter(v)); }},
        {"--own-datacenter", text(options.ownDatacenter)},
        {"--client-rights", [&](const std::string& v) { options.clientRights = ParseRights(v); }},
        {"--cache-control", text(options.cacheControl)},
        {"--token-seconds",
         [&](const std::string& v) {
             options.tokenSeconds = ParseNumber("--token-seconds", v, 0, 315360000);
         }},
        {"--fault", [&](const std::string& v) { options.faults.push_back(v); }},
    };
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (const auto found = switches.find(name); found != switches.end()) {
            found->second();
        } else if (const auto taker = valued.find(name); taker != valued.end()) {
            if (i + 1 == argc) throw std::invalid_argument(name + " wants a value");
            taker->second(argv[++i]);
        } else {
            throw std::invalid_argument("Unknown option '" + name + "'");
        }
    }
    CompleteDatacenters(options);
    return options;
}

}  // namespace Ombry::Sandbox
