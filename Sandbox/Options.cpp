#include "Sandbox/Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <stdexcept>
#include <type_traits>

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

// Fills in what depends on the datacenters, and refuses those that cannot be told apart.
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

Options ParseOptions(int argc, char** argv) {
    Options options;
    CLI::App app(
        "A small Security Framework service to try the tool against. It prints one line of JSON when it is "
        "ready,\n"
        "logs one line a request on the standard error stream, and stops on SIGTERM or SIGINT. Of an option "
        "that is\n"
        "given twice and may not be repeated, the last one counts.",
        "ombry-sandbox");
    app.get_formatter()->column_width(38);
    app.set_help_flag("--help", "this text");
    app.allow_extras();  // refused below, each by its name
    app.option_defaults()->take_last()->always_capture_default();

    const auto number = [&](const std::string& name, auto& target, long least, long most,
                            const char* description) {
        const auto take = [&target, name, least, most](const std::string& value) {
            target =
                static_cast<std::remove_reference_t<decltype(target)>>(ParseNumber(name, value, least, most));
        };
        return app.add_option_function<std::string>(name, take, description)
            ->default_str(std::to_string(target));
    };
    const auto filled = [&](const std::string& name, std::string& target, const char* description) {
        return app.add_option(name, target, description)->check([name](const std::string& value) {
            if (value.empty()) throw std::invalid_argument(name + " wants a value");
            return std::string();
        });
    };
    filled("--address", options.address, "listening address")->type_name("ADDRESS");
    number("--port", options.port, 0, 65535, "listening port; 0 lets the system pick")->type_name("PORT");
    number("--threads", options.threads, 1, 1000, "connections that are served at once; others wait")
        ->type_name("NUMBER");
    filled("--state", options.stateFolder, "key, certificate and database; two instances may share one")
        ->type_name("FOLDER");
    app.add_option("--base-path", options.basePath, "base path of all calls")->type_name("PATH");
    app.add_option("--user", options.user, "the one user")->type_name("NAME");
    app.add_option("--password", options.password, "and its password")->type_name("PASSWORD");
    filled("--password-file", options.passwordFile,
           "the password is its first line, and not that of --password; made with a\n"
           "random one, for its owner alone, where there is no such file")
        ->type_name("FILE")
        ->default_str("");
    app.add_option("--page-host", options.pageHosts,
                   "a name by which the page at / is reached, besides addresses and\n"
                   "localhost; may be repeated")
        ->type_name("NAME")
        ->default_str("")
        ->take_all()
        ->allow_extra_args(false);
    app.add_option("--install-token", options.installToken,
                   "a fixed token that may enrol clients and services; none unless given")
        ->type_name("TOKEN");
    app.add_option_function<std::vector<std::string>>(
           "--datacenter",
           [&](const std::vector<std::string>& texts) {
               std::transform(texts.begin(), texts.end(), std::back_inserter(options.datacenters),
                              ParseDatacenter);
           },
           "a datacenter; may be repeated. One, named Sandbox, unless given")
        ->type_name("ID=NAME")
        ->take_all()
        ->allow_extra_args(false);
    app.add_option("--own-datacenter", options.ownDatacenter,
                   "the one that this instance stands in; the first unless given")
        ->type_name("ID");
    app.add_option_function<std::string>(
           "--client-rights", [&](const std::string& list) { options.clientRights = ParseRights(list); },
           "what enrolled clients may do besides finding services and removing\n"
           "themselves: enroll-clients, unenroll-clients, enroll-services,\n"
           "unenroll-services")
        ->type_name("LIST")
        ->default_str(CLI::detail::join(options.clientRights));
    app.add_option("--cache-control", options.cacheControl,
                   "sent with discovery answers; an empty one leaves it out")
        ->type_name("VALUE");
    number("--token-seconds", options.tokenSeconds, 0, 315360000, "life of a token")->type_name("SECONDS");
    app.add_flag("--datacenters-need-token", options.tokenForDatacenters,
                 "the datacenter list wants a valid token");
    app.add_flag("--plain-http", options.plainHttp, "no TLS");
    app.add_option("--fault", options.faults,
                   "PATH:COUNT:KIND for the next COUNT requests below PATH; KIND is\n"
                   "status=CODE, delay=MILLISECONDS, reset, cut or silence; may be\n"
                   "repeated, and added while it runs by a POST of the same text to\n"
                   "BASE/sandbox/faults with the user's name and password")
        ->type_name("FAULT")
        ->default_str("")
        ->take_all()
        ->allow_extra_args(false);
    // The parser would take the next argument for the value that is empty behind an equals sign; it wants
    // them from the last to the first.
    std::vector<std::string> arguments;
    for (int i = argc - 1; i > 0; --i) {
        std::string argument = argv[i];
        if (argument.ends_with('=') && app.get_option_no_throw(argument.substr(0, argument.size() - 1))) {
            arguments.emplace_back();
            argument.pop_back();
        }
        arguments.push_back(std::move(argument));
    }
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::CallForHelp&) {
        options.help = app.help();
        return options;
    } catch (const CLI::ParseError& failure) {
        throw std::invalid_argument(failure.what());
    }
    if (app.remaining_size() > 0)
        throw std::invalid_argument("Unknown option '" + app.remaining().front() + "'");
    if (options.user.find(':') != std::string::npos)
        throw std::invalid_argument("--user must not hold a colon");
    options.basePath = ParseBasePath(options.basePath);
    CompleteDatacenters(options);
    return options;
}

}  // namespace Ombry::Sandbox
