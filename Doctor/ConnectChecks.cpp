#include "Doctor/ConnectChecks.h"

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "Doctor/CacheChecks.h"
#include "Doctor/Probe.h"
#include "Doctor/Texts.h"
#include "Doctor/TrustChecks.h"
#include "OmbryZephCore/ZephWindowsCertificateValidation.h"
#include "Platform/Base64Text.h"

#include <algorithm>
#include <span>

namespace Ombry::Doctor {
namespace {

using Step = ProbeOutcome::Step;

constexpr Duration Limit = std::chrono::seconds(5);
/// More than any service has; a list that was damaged could hold a hundred thousand.
constexpr std::size_t MostServers = 64;

struct Target {
    std::string url;
    std::string trusted;                  ///< Base64 text of the certificate whose key counts, or empty
    std::vector<std::string> lists = {};  ///< of discovery servers, that name it
    bool isBootstrap = false;
};

/// Base64 text of the certificate that trust begins with; empty if there is none to be read.
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
        if (!isSame) targets.push_back({server.url, server.certificate, std::move(server.lists), false});
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

Platform::CertificateContext ContextOf(const std::string& encoded) {
    return {Platform::CertificateEncoding, reinterpret_cast<const std::uint8_t*>(encoded.data()),
            static_cast<std::uint32_t>(encoded.size())};
}

/// Whether the tool would go on behind the handshake: with the same comparison.
bool IsTrusted(const std::string& shown, const std::string& trusted) {
    const Platform::CertificateContext context = ContextOf(shown);
    Platform::CertificateContextPointer pointer = &context;
    return OmbryZephCore::ZephWindowsCertificateValidation::CheckPublicKeyCallback(trusted)(&pointer);
}

std::string RemedyFor(const Machine& machine, const Target& target) {
    if (target.isBootstrap) return machine.ConfigureCommand();
    std::string command = "rm -f --";
    for (const std::string& list : target.lists)
        command += " " + Quoted(list);
    return command;
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
    if (days < warnDays) finding.severity = std::max(finding.severity, Severity::Warning);
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
    if (finding.severity != Severity::Success) finding.remedy = RemedyFor(machine, target);
    return finding;
}

/// While one server answers as it should, commands come through; without any, none does.
void Weigh(Findings& findings) {
    const bool isOneGood = std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.severity < Severity::Error;
    });
    for (Finding& finding : findings) {
        if (finding.severity == Severity::Error)
            finding.severity = isOneGood ? Severity::Warning : Severity::Critical;
    }
}

}  // namespace

Findings CheckConnections(const Machine& machine, long long warnDays) {
    std::vector<Target> targets = TargetsOf(machine);
    if (targets.empty()) {
        return {{.severity = Severity::Critical,
                 .message = "There is no address to connect to",
                 .remedy = machine.ConfigureCommand()}};
    }
    const std::size_t known = targets.size();
    if (known > MostServers) targets.resize(MostServers);
    std::vector<std::string> urls;
    for (const Target& target : targets)
        urls.push_back(target.url);
    const std::vector<ProbeOutcome> outcomes = ProbeAll(urls, Limit);
    Findings findings;
    for (std::size_t place = 0; place < targets.size(); ++place)
        findings.push_back(Judge(machine, targets[place], outcomes[place], warnDays));
    Weigh(findings);
    if (known > targets.size()) {
        findings.push_back({.message = CountText(known - targets.size(), "more server") + " not connected to",
                            .pairs = {{"left_out", static_cast<long long>(known - targets.size())}}});
    }
    return findings;
}

}  // namespace Ombry::Doctor
