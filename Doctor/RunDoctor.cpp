#include "Doctor/RunDoctor.h"

#include "Doctor/ReadOnlyPlatform.h"
#include "Doctor/Reports.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace Ombry::Doctor {
namespace {

struct Options {
    Wishes wishes = {};
    bool json = false;
    bool monitoring = false;
    bool lists = false;
    std::string help = {};  // to be printed, if it is not empty
};

void CheckNames(const Wishes& wishes) {
    for (const std::string& name : wishes.only) {
        if (!IsCheck(name)) throw std::invalid_argument("--only knows no check '" + name + "'");
        const bool connects = name == "connect" || name.starts_with("connect.");
        if (connects && !wishes.connects) throw std::invalid_argument("--only " + name + " wants --connect");
    }
}

Options ParseOptions(int argc, char** argv) {
    Options options;
    CLI::App app(
        "Tells what state this machine is in, and what to type where that is not well. It writes nothing.\n"
        "The exit code is 0 if all is well, 1 for a warning, 2 for an error, 3 if it cannot be told.",
        "ombry-doctor");
    app.get_formatter()->column_width(28);
    app.set_help_flag("--help", "this text");
    app.add_flag("--connect", options.wishes.connects,
                 "also connect to the service and to each discovery server");
    auto* const json = app.add_flag("--json", options.json, "one JSON document");
    app.add_flag("--check", options.monitoring, "one line and figures, for monitoring")->excludes(json);
    app.add_flag("--list-checks", options.lists, "what is checked; nothing is looked at");
    app.add_option("--only", options.wishes.only, "a check, or a source of checks; may be repeated")
        ->type_name("NAME")
        ->allow_extra_args(false);
    app.add_option("--warn-days", options.wishes.warnDays, "warn so long before a certificate ends")
        ->type_name("DAYS")
        ->check(CLI::Range(0, 36500))
        ->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        options.help = app.help();
        return options;
    } catch (const CLI::ParseError& failure) {
        throw std::invalid_argument(failure.what());
    }
    CheckNames(options.wishes);
    return options;
}

std::string ListOfChecks() {
    constexpr std::size_t nameWidth = 22;
    std::string text;
    for (const Check& check : AllChecks()) {
        std::string name = check.FullName();
        name.resize(std::max(nameWidth, name.size() + 1), ' ');
        text += name + check.description + "\n";
    }
    return text;
}

int Run(const Options& options, std::ostream& out) {
    if (!options.help.empty() || options.lists) {
        out << (options.help.empty() ? ListOfChecks() : options.help);
        return 0;
    }
    const ReadOnlyPlatform nothingChanges;
    const Machine machine;
    const Findings findings = Examine(machine, options.wishes);
    if (options.json) {
        out << JsonReport(machine, findings);
    } else if (options.monitoring) {
        out << MonitoringReport(findings, options.wishes);
    } else {
        out << TableReport(machine, findings, Platform::Inspection().TakesColours());
    }
    return static_cast<int>(StatusOf(findings));
}

}  // namespace

int RunDoctor(int argc, char** argv, std::ostream& out, std::ostream& error) {
    // Looked for by hand: the options may be what is wrong, and monitoring shows the one line that it gets.
    const bool isMonitored = std::find(argv + 1, argv + argc, std::string_view("--check")) != argv + argc;
    try {
        const int exitCode = Run(ParseOptions(argc, argv), out);
        if (!out.flush()) throw std::runtime_error("The standard output could not be written.");
        return exitCode;
    } catch (const std::exception& failure) {
        error << "ombry-doctor: " << failure.what() << "\n";
        if (isMonitored) out << UnknownReport(failure.what()) << std::flush;
        return static_cast<int>(Status::Unknown);
    }
}

}  // namespace Ombry::Doctor
