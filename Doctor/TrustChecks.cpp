#include "Doctor/TrustChecks.h"

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "ClientCommunications/Impl/LowerCase.h"
#include "Doctor/CacheChecks.h"
#include "Doctor/Conclusion.h"
#include "Doctor/StateChecks.h"
#include "Doctor/Texts.h"
#include "Platform/Base64Text.h"
#include "Platform/ICertificates.h"
#include "Platform/IClock.h"
#include "Platform/IHash.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

namespace Ombry::Doctor {
namespace {

// What the store gave: certificates, or none because it cannot be read.
using Certificates = std::optional<std::vector<std::string>>;

Certificates ReadStore(const Machine& machine) {
    try {
        return ClientCommunications::getBootstrapCertificates(machine.Parameters());
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

std::optional<std::int64_t> WriterOf(const Machine& machine) {
    const auto folder = Platform::Inspection().Details(machine.StoreFolder());
    return folder ? Platform::Inspection().LockHolder(*folder) : std::nullopt;
}

// A writer removes the old certificate before the new one is there: what is missing while one is at work
// may be there a moment later.
Certificates ReadBetweenWrites(const Machine& machine) {
    constexpr int mostTries = 20;
    constexpr Duration slice = std::chrono::milliseconds(100);
    Certificates certificates = ReadStore(machine);
    for (int tries = 0; tries < mostTries; ++tries) {
        const bool isWhole = certificates && !certificates->empty();
        if (isWhole || !WriterOf(machine)) break;
        Platform::Clock().Sleep(slice);
        certificates = ReadStore(machine);
    }
    return certificates;
}

bool IsFileName(const std::string& name) {
    constexpr std::size_t length = 64;  // of a fingerprint
    return name.size() == length;
}

// What is no file and stands where a certificate's file would: the new one could not be stored.
std::string RemoveWhatIsInTheWay(const Machine& machine) {
    std::string command;
    for (const Entry& entry : machine.Tree().Children(machine.StoreFolder())) {
        if (entry.details.kind == Platform::FileKind::File || !IsFileName(entry.name)) continue;
        command += (command.empty() ? "rm -rf -- " : " ") + Quoted(machine.StoreFolder() + "/" + entry.name);
    }
    return command.empty() ? command : command + " && ";
}

Finding Missing(const Machine& machine, bool isReadable) {
    Finding finding{.severity = Severity::Critical,
                    .pairs = {{"path", machine.StoreFolder()}},
                    .remedy = RemoveWhatIsInTheWay(machine) + machine.ConfigureCommand()};
    for (const Entry& entry : machine.Tree().Children(machine.StoreFolder())) {
        const std::string path = machine.StoreFolder() + "/" + entry.name;
        if (!machine.WhyUnreadable(path).isTooLong) continue;
        finding.severity = Severity::Warning;
        finding.message = path + " " + Machine::TooLong;
        finding.remedy = "rm -f -- " + Quoted(path) + " && " + machine.ConfigureCommand();
        return finding;
    }
    if (isReadable) {
        finding.message =
            "No certificate in " + machine.StoreFolder() + " is the one that the machine's trust begins with";
        return finding;
    }
    if (const std::string hidden = machine.Tree().HiddenOf(machine.StoreFolder()); !hidden.empty())
        return CannotLook(hidden, machine.Tree().WhyHidden(hidden));
    if (!Platform::Inspection().Target(machine.StoreFolder())) {
        finding.message = "There are no certificates: " + machine.StoreFolder() + " is missing";
        return finding;
    }
    for (const Entry& entry : machine.Tree().Children(machine.StoreFolder()))
        finding.isUndecided |= machine.WhyUnreadable(machine.StoreFolder() + "/" + entry.name).isForbidden;
    finding.message = "The certificates in " + machine.StoreFolder() + " cannot be read";
    if (finding.isUndecided) finding.remedy = "sudo ombry-doctor";
    return finding;
}

// What the dates say; the tool does not look at them.
void JudgeDates(const Machine& machine, const Platform::CertificateFacts& facts, long long warnDays,
                Finding& finding) {
    const long long days = DaysBetween(machine.Now(), facts.notAfter);
    if (facts.notBefore > SaturatingAdd(machine.Now(), ClockTolerance)) {
        finding.severity = Severity::Warning;
        finding.message += ". It begins in the future: is the clock right?";
        finding.remedy = "timedatectl set-ntp true";
    } else if (days < warnDays) {
        finding.severity = Severity::Warning;
        finding.message += days < 0 ? ". It has ended" : ". It ends soon";
        finding.message +=
            "; it is for the service's administrator to renew it first: a new one with another key is "
            "refused until the machine is tied again, which before that changes nothing";
        finding.remedy = machine.ConfigureCommand();
    }
}

// Whether the bytes of a certificate are not those that its file was named after. Files of other names are
// not the tool's. Looked at anew: a writer may have been at work since the tree was made.
bool WasChanged(const Machine& machine, const std::string& encoded) {
    const auto isThere = [&](const std::string& name) {
        return static_cast<bool>(Platform::Inspection().Details(machine.StoreFolder() + "/" + name));
    };
    const std::vector<Entry>& files = machine.Tree().Children(machine.StoreFolder());
    return !isThere(CertificateFileOf(encoded)) &&
           std::any_of(files.begin(), files.end(),
                       [&](const Entry& file) { return IsFileName(file.name) && isThere(file.name); });
}

// What a file of the store was named after, if a list of discovery servers has it still; empty if none has.
std::string AsItWasStored(const Machine& machine) {
    for (const KnownServer& server : DiscoveryServersOf(machine)) {
        const auto encoded = Platform::BytesOfBase64(server.certificate);
        if (encoded && machine.Tree().Child(machine.StoreFolder(), CertificateFileOf(*encoded)))
            return *encoded;
    }
    return {};
}

// The tool compares keys and nothing else.
void JudgeChange(const Machine& machine, const std::string& encoded, Finding& finding) {
    const std::string stored = AsItWasStored(machine);
    const bool isSameKey = Platform::Certificates().EqualPublicKeys(ContextOf(stored), ContextOf(encoded));
    const bool isOtherKey = !stored.empty() && !isSameKey;
    finding.severity = isOtherKey ? Severity::Critical : Severity::Warning;
    finding.message = "The certificate that the machine's trust begins with was changed since it was stored" +
                      std::string(isOtherKey  ? ", and its key with it: whoever has the key before is refused"
                                  : isSameKey ? ", but for its key"
                                              : "; if its key was, whoever has the one before is refused");
    finding.remedy = machine.ConfigureCommand();
}

Finding Told(const Machine& machine, const std::string& encoded, long long warnDays) {
    const Platform::CertificateContext context = ContextOf(encoded);
    Finding finding{.pairs = {{"alias", ClientCommunications::BootstrapCertificateName},
                              {"sha256", FingerprintOf(encoded)}}};
    const auto facts = Platform::Inspection().Facts(context);
    if (!facts) {
        finding.severity = Severity::Critical;
        finding.message = "The certificate that the machine's trust begins with is damaged";
        finding.remedy = machine.ConfigureCommand();
        return finding;
    }
    const long long days = DaysBetween(machine.Now(), facts->notAfter);
    finding.pairs.insert(finding.pairs.end(), {{"subject", facts->subject},
                                               {"key_type", facts->keyType},
                                               {"key_bits", static_cast<long long>(facts->keyBits)},
                                               {"not_before", TimeText(facts->notBefore)},
                                               {"not_after", TimeText(facts->notAfter)},
                                               {"days", days}});
    finding.message = facts->subject + ", " + facts->keyType + " " + std::to_string(facts->keyBits) +
                      ", until " + TimeText(facts->notAfter) + " (" + std::to_string(days) +
                      " days), SHA-256 " + FingerprintOf(encoded);
    if (WasChanged(machine, encoded)) {
        JudgeChange(machine, encoded, finding);
    } else {
        JudgeDates(machine, *facts, warnDays, finding);
    }
    return finding;
}

}  // namespace

Findings CheckTrust(const Machine& machine, long long warnDays) {
    const Certificates certificates = ReadBetweenWrites(machine);
    if (!certificates || certificates->empty()) return {Missing(machine, certificates.has_value())};
    Findings findings{Told(machine, certificates->front(), warnDays)};
    if (certificates->size() > 1) {
        findings.push_back({.severity = Severity::Warning,
                            .message = CountText(certificates->size(), "certificate") +
                                       " bear the name of the one that trust begins with; the first counts",
                            .pairs = {{"count", static_cast<long long>(certificates->size())},
                                      {"second_sha256", FingerprintOf((*certificates)[1])}},
                            .remedy = machine.ConfigureCommand()});
    }
    if (const auto process = WriterOf(machine)) {
        findings.push_back({.severity = Severity::Warning,
                            .message = "Process " + std::to_string(*process) +
                                       " holds the certificates locked; commands wait for it",
                            .pairs = {{"process", static_cast<long long>(*process)}},
                            .remedy = "flock --shared " + Quoted(machine.StoreFolder()) + " true"});
    }
    return findings;
}

std::string FingerprintOf(std::string_view encoded) {
    const auto provider = Platform::Hash().AcquireProvider();
    if (!provider) return {};
    const auto hash = (*provider)->CreateSha256();
    std::array<std::uint8_t, 32> value{};
    if (!hash || !(*hash)->Update(encoded) || !(*hash)->GetValue(value)) return {};
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : value) {
        if (!text.empty()) text += ':';
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

Platform::CertificateContext ContextOf(const std::string& encoded) {
    return {Platform::CertificateEncoding, reinterpret_cast<const std::uint8_t*>(encoded.data()),
            static_cast<std::uint32_t>(encoded.size())};
}

std::string CertificateFileOf(std::string_view encoded) {
    std::string name = FingerprintOf(encoded);
    std::erase(name, ':');
    return ClientCommunications::LowerCase(name);
}

long long DaysBetween(TimePoint from, TimePoint to) {
    constexpr std::int64_t day = TicksPerSecond * 24 * 60 * 60;
    const std::int64_t ticks = to.time_since_epoch().count() - from.time_since_epoch().count();
    return ticks >= 0 ? ticks / day : -((-ticks + day - 1) / day);
}

}  // namespace Ombry::Doctor
