#include "Doctor/Reports.h"

#include "Doctor/Texts.h"
#include "ObjectMapping/ListArray.h"
#include "ObjectMapping/Serialization.h"

#include <algorithm>
#include <iterator>
#include <list>
#include <string_view>

namespace Ombry::Doctor {
namespace {

// Goes up with each change that a reader of the documents has to know of; the schema says the same.
constexpr int SchemaVersion = 1;

// What is certain; nobody knows yet what the user may not see.
Findings DecidedOf(const Findings& findings) {
    Findings decided;
    std::copy_if(findings.begin(), findings.end(), std::back_inserter(decided),
                 [](const Finding& finding) { return !finding.isUndecided; });
    return decided;
}

std::size_t CountOf(const Findings& findings, Severity severity) {
    return static_cast<std::size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [severity](const Finding& finding) { return finding.severity == severity; }));
}

struct Look {
    const char* word;
    const char* colour;
};

Look LookOf(Severity severity) {
    switch (severity) {
        case Severity::Success:
            return {"ok      ", "\x1b[32m"};
        case Severity::Warning:
            return {"WARNING ", "\x1b[33m"};
        case Severity::Error:
            return {"ERROR   ", "\x1b[31m"};
        case Severity::Critical:
            break;
    }
    return {"CRITICAL", "\x1b[1;31m"};
}

// The name/value pairs of a finding, as an object.
class PairsRecord : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override {
        for (auto& [key, value] : pairs) {
            if (auto* const text = std::get_if<std::string>(&value)) *text = Utf8Of(*text);
            std::visit([&, name = key.c_str()](auto& held) { mapper.Field(name, held, nullptr); }, value);
        }
    }
    void Reset() override { pairs.clear(); }

    std::vector<std::pair<std::string, Value>> pairs;
};

class FindingRecord : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override {
        std::string severity = NameOf(finding.severity);
        mapper.Field("source", finding.source, nullptr);
        mapper.Field("name", finding.name, nullptr);
        mapper.Field("severity", severity, nullptr);
        mapper.Field("undecided", finding.isUndecided, nullptr);
        std::string message = Utf8Of(finding.message);  // names and files hold any bytes; JSON holds UTF-8
        mapper.Field("message", message, nullptr);
        PairsRecord pairs;
        pairs.pairs = finding.pairs;
        mapper.Field("pairs", pairs, nullptr);
        bool hasRemedy = !finding.remedy.empty();
        mapper.Field("remedy", finding.remedy, &hasRemedy);
    }
    void Reset() override { finding = {}; }

    Finding finding;
};

class Document : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override {
        int version = SchemaVersion;
        mapper.Field("version", version, nullptr);
        mapper.Field("time", time, nullptr);
        mapper.Field("state", state, nullptr);
        mapper.Field("status", status, nullptr);
        ObjectMapping::ListArray array(findings);
        mapper.Field("findings", array, nullptr);
    }
    void Reset() override { *this = Document(); }

    std::string time;
    std::string state;
    std::string status;
    std::list<FindingRecord> findings;
};

const char* NameOf(Status status) {
    switch (status) {
        case Status::Fine:
            return "ok";
        case Status::Warning:
            return "warning";
        case Status::Critical:
            return "critical";
        case Status::Unknown:
            break;
    }
    return "unknown";
}

// The worst of them; what comes first among equals has to be mended first.
const Finding* WorstOf(const Findings& findings) {
    const auto worst = std::max_element(
        findings.begin(), findings.end(),
        [](const Finding& left, const Finding& right) { return left.severity < right.severity; });
    return worst == findings.end() || worst->severity == Severity::Success ? nullptr : &*worst;
}

// The smallest number of that name in what a source has found; none if it has found none.
std::optional<long long> LeastOf(const Findings& findings, const std::string& source,
                                 const std::string& key) {
    std::optional<long long> least;
    for (const Finding& finding : findings) {
        if (finding.source != source) continue;
        for (const auto& [name, value] : finding.pairs) {
            const auto* number = std::get_if<long long>(&value);
            if (name == key && number && (!least || *number < *least)) least = *number;
        }
    }
    return least;
}

// For the line of monitoring, where a bar begins the figures.
std::string InOneField(const std::string& text) {
    std::string field = Printable(text);
    std::replace(field.begin(), field.end(), '|', '/');
    return field;
}

std::string Figure(const std::string& label, long long value, const std::string& thresholds) {
    return " " + label + "=" + std::to_string(value) + thresholds;
}

}  // namespace

const char* NameOf(Severity severity) {
    switch (severity) {
        case Severity::Success:
            return "success";
        case Severity::Warning:
            return "warning";
        case Severity::Error:
            return "error";
        case Severity::Critical:
            break;
    }
    return "critical";
}

std::string TableReport(const Machine& machine, const Findings& findings, bool colours) {
    constexpr std::size_t nameWidth = 21;
    std::string text = "State of this machine, below " + Printable(machine.Root()) + ", at " +
                       TimeText(machine.Now()) + "\n\n";
    const auto addColoured = [&](const char* colour, std::string_view part) {
        if (colours) text += colour;
        text += part;
        if (colours) text += "\x1b[0m";
    };
    for (const Finding& finding : findings) {
        const Look look = LookOf(finding.severity);
        addColoured(look.colour, look.word);
        const std::size_t name = (text += "  ").size();
        ((text += finding.source) += '.') += finding.name;
        text.resize(std::max(name + nameWidth, text.size() + 1), ' ');
        (text += Printable(finding.message)) += '\n';
        if (finding.remedy.empty()) continue;
        text += "          type: ";
        addColoured("\x1b[36m", Printable(finding.remedy));
        text += '\n';
    }
    return text + "\n" + std::to_string(CountOf(findings, Severity::Success)) + " ok, " +
           CountText(CountOf(findings, Severity::Warning), "warning") + ", " +
           CountText(CountOf(findings, Severity::Error), "error") + ", " +
           std::to_string(CountOf(findings, Severity::Critical)) + " critical\n";
}

std::string JsonReport(const Machine& machine, const Findings& findings) {
    Document document;
    document.time = TimeText(machine.Now());
    document.state = Utf8Of(machine.Root());
    document.status = NameOf(StatusOf(findings));
    for (const Finding& finding : findings)
        document.findings.emplace_back().finding = finding;
    return ObjectMapping::SerializeObject(document, nullptr) + "\n";
}

std::string UnknownReport(const std::string& failure) {
    return "OMBRY UNKNOWN - " + InOneField(failure) + "\n";
}

std::string MonitoringReport(const Findings& findings, const Wishes& wishes) {
    std::string status = NameOf(StatusOf(findings));
    std::transform(status.begin(), status.end(), status.begin(),
                   [](char c) { return static_cast<char>(c - 'a' + 'A'); });
    const Findings decided = DecidedOf(findings);
    std::string text = CountText(findings.size(), "finding") + ", nothing to do";
    if (const Finding* worst = WorstOf(StatusOf(findings) == Status::Unknown ? findings : decided)) {
        text = InOneField(worst->source + "." + worst->name + ": " + worst->message);
    }
    const auto errors = CountOf(decided, Severity::Error) + CountOf(decided, Severity::Critical);
    text = "OMBRY " + status + " - " + text + " |" +
           Figure("findings", static_cast<long long>(findings.size()), ";;;0") +
           Figure("warnings", static_cast<long long>(CountOf(decided, Severity::Warning)), ";0;;0") +
           Figure("errors", static_cast<long long>(errors), ";;0;0");
    for (const char* source : {"trust", "connect"}) {
        if (const auto days = LeastOf(findings, source, "days")) {
            text += Figure(std::string(source) + "_certificate_days", *days,
                           ";" + std::to_string(wishes.warnDays) + ":");
        }
    }
    return text + "\n";
}

}  // namespace Ombry::Doctor
