#include "Sandbox/Faults.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <stdexcept>

namespace Ombry::Sandbox {
namespace {

int ParseNumber(const std::string& text, int least, int most) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < least || number > most) {
        throw std::invalid_argument("'" + text + "' is no number from " + std::to_string(least) + " to " +
                                    std::to_string(most));
    }
    return number;
}

struct Kind {
    Fault::Kind kind;
    const char* word;
};

constexpr Kind Kinds[] = {
    {Fault::Kind::Status, "status"}, {Fault::Kind::Delay, "delay"},     {Fault::Kind::Reset, "reset"},
    {Fault::Kind::Cut, "cut"},       {Fault::Kind::Silence, "silence"},
};

[[noreturn]] void FailKind(const std::string& text) {
    throw std::invalid_argument("'" + text +
                                "' is no fault; known are status=CODE, delay=MILLISECONDS, reset, cut "
                                "and silence");
}

Fault ParseKind(const std::string& text) {
    if (text == "reset") return {Fault::Kind::Reset, 0};
    if (text == "cut") return {Fault::Kind::Cut, 0};
    if (text == "silence") return {Fault::Kind::Silence, 0};
    if (text.starts_with("status=")) return {Fault::Kind::Status, ParseNumber(text.substr(7), 200, 599)};
    if (text.starts_with("delay=")) return {Fault::Kind::Delay, ParseNumber(text.substr(6), 0, 600000)};
    FailKind(text);
}

}  // namespace

std::string TextOf(const Fault& fault) {
    const auto* const kind = std::find_if(std::begin(Kinds), std::end(Kinds),
                                          [&](const Kind& each) { return each.kind == fault.kind; });
    const bool hasArgument = fault.kind == Fault::Kind::Status || fault.kind == Fault::Kind::Delay;
    return kind->word + (hasArgument ? "=" + std::to_string(fault.argument) : std::string());
}

void Faults::Add(const std::string& text) {
    const std::size_t last = text.rfind(':');
    const std::size_t first = last == std::string::npos || last == 0 ? last : text.rfind(':', last - 1);
    if (first == std::string::npos || last == 0) {
        throw std::invalid_argument("A fault is PATH:COUNT:KIND, not '" + text + "'");
    }
    const Fault fault = ParseKind(text.substr(last + 1));
    const long count = ParseNumber(text.substr(first + 1, last - first - 1), 1, 1000000);
    std::lock_guard guard(mutex);
    rules.push_back({text.substr(0, first), count, fault});
}

std::optional<Fault> Faults::Take(const std::string& path) {
    std::lock_guard guard(mutex);
    for (auto rule = rules.begin(); rule != rules.end(); ++rule) {
        if (!path.starts_with(rule->path)) continue;
        const Fault fault = rule->fault;
        if (--rule->count == 0) rules.erase(rule);
        return fault;
    }
    return std::nullopt;
}

std::vector<FaultRule> Faults::Waiting() const {
    std::lock_guard guard(mutex);
    return rules;
}

void Faults::Remove(const std::string& kind) {
    const auto* const found =
        std::find_if(std::begin(Kinds), std::end(Kinds), [&](const Kind& each) { return each.word == kind; });
    if (found == std::end(Kinds)) FailKind(kind);
    std::lock_guard guard(mutex);
    std::erase_if(rules, [&](const FaultRule& rule) { return rule.fault.kind == found->kind; });
}

}  // namespace Ombry::Sandbox
