#include "Doctor/ConnectChecks.h"

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "Doctor/CacheChecks.h"
#include "Doctor/ClientChecks.h"
#include "Doctor/Probe.h"
#include "Doctor/Texts.h"
#include "Doctor/TrustChecks.h"
#include "OmbryZephCore/ZephWindowsCertificateValidation.h"
#include "Platform/Base64Text.h"

#include <algorithm>
#include <map>

namespace Ombry::Doctor {
namespace {

using Step = ProbeOutcome::Step;

constexpr Duration Limit = std::chrono::seconds(5);
// More than any service has; a list that was damaged could hold a hundred thousand.
constexpr std::size_t MostServers = 64;

struct Target {
    std::string url;
    std::string trusted;                  // Base64 text of the certificate whose key counts, or empty
    std::vector<std::string> lists = {};  // of discovery servers, that name it
    bool isBootstrap = false;
};

// Base64 text of the certificate that trust begins with; empty if there is none to be read.
std::string TrustedCertificate(const Machine& machine) {
    try {
        const auto certificates = ClientCommunications::getBootstrapCertificates(machine.Parameters());
        if (certificates.empty()) return {};
        const std::string& encoded = certificates.front();
        const auto text =
            Platform::Base64Text({reinterpret_cast<const std::uint8_t*>(encoded.data()), encoded.size()});
        return text ? *text : std::string();
    } catch (const std::exception&) {
        return {};
    }
}

std::vector<Target> TargetsOf(const Machine& machine) {
    std::vector<Target> targets;
    if (machine.Address().failure.empty()) {
        targets.push_back({machine.Address().text, TrustedCertificate(machine), {}, true});
    }
    for (KnownServer& server : DiscoveryServersOf(machine)) {
        const bool isSame = !targets.empty() && targets.front().isBootstrap &&
                            server.url == targets.front().url &&
                            server.certificate == targets.front().trusted;
        if (isSame) {
            targets.front().lists = std::move(server.lists);
        } else {
            targets.push_back({server.url, server.certificate, std::move(server.lists), false});
        }
    }
    return targets;
}

const char* NameOf(Step step) {
    switch (step) {
        case Step::Resolve:
            return "the name is not resolved";
        case Step::Connect:
            return "nobody can be connected to";
        case Step::Handshake:
            return "no TLS handshake is made";
        case Step::Done:
            break;
    }
    return "";
}

long long Milliseconds(Duration length) {
    return length.count() / (TicksPerSecond / 1000);
}

// Whether the tool would go on behind the handshake: with the same comparison.
bool IsTrusted(const std::string& shown, const std::string& trusted) {
    const Platform::CertificateContext context = ContextOf(shown);
    Platform::CertificateContextPointer pointer = &context;
    return OmbryZephCore::ZephWindowsCertificateValidation::CheckPublicKeyCallback(trusted)(&pointer);
}

std::string RemoveListsCommand(const Target& target) {
    std::string command = "rm -f --";
    for (const std::string& list : target.lists)
        command += " " + Quoted(list);
    return command;
}

std::string RemedyFor(const Machine& machine, const Target& target, const ProbeOutcome& outcome) {
    if (!target.isBootstrap) return RemoveListsCommand(target);
    if (outcome.reached == Step::Done) return machine.ConfigureCommand();
    // Where nobody answers, the service has another address by now, or comes back by itself.
    return machine.ConfigureCommand(false) +
           (target.lists.empty() ? std::string() : " && " + RemoveListsCommand(target));
}

void JudgeCertificate(const Machine& machine, const Target& target, const ProbeOutcome& outcome,
                      long long warnDays, Finding& finding) {
    const bool isTrusted = IsTrusted(outcome.certificate, target.trusted);
    finding.pairs.emplace_back("key_trusted", isTrusted);
    const Platform::CertificateContext context = ContextOf(outcome.certificate);
    const auto facts = Platform::Inspection().Facts(context);
    if (target.trusted.empty()) {
        finding.severity = Severity::Warning;
        finding.message += "; no certificate is known for it, so that its key is not checked";
    } else if (!isTrusted) {
        finding.severity = Severity::Error;
        finding.message += "; its key is not the one that is trusted, SHA-256 of its certificate " +
                           FingerprintOf(outcome.certificate);
    } else {
        finding.message += "; its key is the trusted one";
    }
    if (!facts) return;
    const long long days = DaysBetween(machine.Now(), facts->notAfter);
    finding.pairs.emplace_back("days", days);
    finding.message += "; its certificate ends in " + std::to_string(days) + " days";
    if (days >= warnDays) return;
    finding.severity = std::max(finding.severity, Severity::Warning);
    finding.message += ", and is for the service's administrator to renew before the remedy helps";
}

Finding Judge(const Machine& machine, const Target& target, const ProbeOutcome& outcome, long long warnDays) {
    Finding finding{.pairs = {{"address", target.url},
                              {"bootstrap", target.isBootstrap},
                              {"resolve_ms", Milliseconds(outcome.resolve)},
                              {"connect_ms", Milliseconds(outcome.connect)},
                              {"handshake_ms", Milliseconds(outcome.handshake)}}};
    finding.message = target.url + ": ";
    if (outcome.reached != Step::Done) {
        finding.severity = Severity::Error;
        finding.message += NameOf(outcome.reached);
        if (!outcome.isOver) finding.message += " within " + LengthText(Limit);
    } else {
        finding.message += "resolved in " + std::to_string(Milliseconds(outcome.resolve)) +
                           " ms, connected in " + std::to_string(Milliseconds(outcome.connect)) + " ms";
        if (outcome.certificate.empty()) {
            finding.severity = Severity::Warning;
            finding.message += "; it is called in clear text";
        } else {
            finding.message += ", handshake in " + std::to_string(Milliseconds(outcome.handshake)) + " ms";
            JudgeCertificate(machine, target, outcome, warnDays, finding);
        }
    }
    if (target.isBootstrap && target.trusted.empty()) {
        finding.severity = Severity::Error;
        finding.message += "; commands want a certificate to trust, and there is none";
    }
    if (finding.severity != Severity::Success) finding.remedy = RemedyFor(machine, target, outcome);
    return finding;
}

// Those whose commands share a list of discovery servers: a client, or users and tokens.
struct Owner {
    std::string name = {};
    bool usesList = false;    // rather than the address of the service alone
    bool isAnswered = false;  // by a server that its commands ask
};
using Owners = std::map<std::string, Owner>;  // by the list

// A list serves while it names the address of the service, and with the trusted certificate alone: the
// commands throw any other away, and an owner without one has that address and nothing else.
Owners OwnersOf(const Machine& machine, const std::vector<Target>& targets, const std::vector<bool>& fails) {
    Owners owners;
    owners[DiscoveryListOf(machine, "")].name = "users and tokens";
    for (const std::string& client : ClientNamesOf(machine))
        owners[DiscoveryListOf(machine, client)].name = "client " + client;
    const Target& service = targets.front();
    for (const std::string& list : service.lists) {
        if (const auto owner = owners.find(list); owner != owners.end()) owner->second.usesList = true;
    }
    for (const Target& target : targets) {
        if (target.isBootstrap || target.url != service.url) continue;
        for (const std::string& list : target.lists) {
            if (const auto owner = owners.find(list); owner != owners.end()) owner->second.usesList = false;
        }
    }
    for (std::size_t place = 0; place < targets.size(); ++place) {
        for (const std::string& list : targets[place].lists) {
            const auto owner = owners.find(list);
            if (owner != owners.end()) owner->second.isAnswered |= owner->second.usesList && !fails[place];
        }
    }
    for (auto& [list, owner] : owners)
        owner.isAnswered |= !owner.usesList && !fails.front();
    return owners;
}

// The names of those whose commands ask that server, and get an answer from nobody.
std::vector<std::string> CutOffBy(const Target& target, const Owners& owners) {
    std::vector<std::string> names;
    for (const auto& [list, owner] : owners) {
        const bool asks = target.isBootstrap ||
                          (owner.usesList &&
                           std::find(target.lists.begin(), target.lists.end(), list) != target.lists.end());
        if (asks && !owner.isAnswered) names.push_back(owner.name);
    }
    return names;
}

// A server that fails is a warning where each owner's commands reach another, and critical where none do.
void Weigh(const std::vector<Target>& targets, const Owners& owners, Findings& findings) {
    for (std::size_t place = 0; place < findings.size(); ++place) {
        Finding& finding = findings[place];
        if (finding.severity != Severity::Error) continue;
        const std::vector<std::string> names = CutOffBy(targets[place], owners);
        finding.pairs.emplace_back("cut_off", static_cast<long long>(names.size()));
        if (names.empty()) {
            finding.severity = Severity::Warning;
        } else if (names.size() == owners.size()) {
            finding.severity = Severity::Critical;
        } else {
            finding.message += "; the commands of " + names.front() +
                               (names.size() > 1 ? " and " + CountText(names.size() - 1, "other") : "") +
                               " reach nobody else";
        }
    }
}

Finding NoAddress(const Machine& machine) {
    const bool isForbidden = machine.Address().isForbidden;
    return {.severity = Severity::Critical,
            .message = isForbidden ? "The address to connect to may not be read by this user"
                                   : "There is no address to connect to",
            .remedy = isForbidden ? "sudo ombry-doctor" : machine.ConfigureCommand(),
            .isUndecided = isForbidden};
}

}  // namespace

Findings CheckConnections(const Machine& machine, long long warnDays) {
    const std::vector<Target> targets = TargetsOf(machine);
    if (targets.empty() || !targets.front().isBootstrap) return {NoAddress(machine)};
    std::vector<std::string> urls;
    for (const Target& target : targets) {
        if (urls.size() < MostServers) urls.push_back(target.url);
    }
    const std::vector<ProbeOutcome> outcomes = ProbeAll(urls, Limit);
    Findings findings;
    std::vector<bool> fails(targets.size(), false);  // nobody knows it of those that are left out
    for (std::size_t place = 0; place < urls.size(); ++place) {
        findings.push_back(Judge(machine, targets[place], outcomes[place], warnDays));
        fails[place] = findings.back().severity >= Severity::Error;
    }
    Weigh(targets, OwnersOf(machine, targets, fails), findings);
    if (const std::size_t leftOut = targets.size() - urls.size(); leftOut > 0) {
        findings.push_back({.message = CountText(leftOut, "more server") + " not connected to",
                            .pairs = {{"left_out", static_cast<long long>(leftOut)}}});
    }
    return findings;
}

}  // namespace Ombry::Doctor
