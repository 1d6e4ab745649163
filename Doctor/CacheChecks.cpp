#include "Doctor/CacheChecks.h"

#include "ClientCommunications/FoundServicesDto.h"
#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "ClientCommunications/Impl/EndpointPaths.h"
#include "ClientCommunications/Impl/JwtAuthenticator.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/Impl/SafeFileStorage.h"
#include "ClientCommunications/Impl/SecretBuffer.h"
#include "Doctor/Conclusion.h"
#include "Doctor/ReadOnlyPlatform.h"
#include "Doctor/SideBySide.h"
#include "Doctor/StateChecks.h"
#include "Doctor/Texts.h"
#include "ObjectMapping/Serialization.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <set>

namespace Ombry::Doctor {
namespace {

namespace MachineFiles = ClientCommunications::MachineFiles;
using ClientCommunications::FoundServicesDto;
using ClientCommunications::SafeFileStorage;
using Platform::FileKind;

constexpr const char* const CacheNames[] = {MachineFiles::FinderCache, MachineFiles::TokenCache};

// A blob of a cache: its two files, where they are, and what its reader gets.
class Blob {
public:
    Blob(const Machine& machine, std::string folder, const std::string& name)
        : folder(std::move(folder)), path(this->folder + "/" + name) {
        for (const Entry& entry : machine.Tree().Children(this->folder)) {
            if (entry.name == name || SafeFileStorage::BlobNameOf(entry.name) != name) continue;
            const bool isCommitted = entry.name == SafeFileStorage::CommittedPathOf(name);
            (isCommitted ? committed : staged) = &entry;
        }
    }
    Blob(std::string theFolder, const std::string& name, const Entry* committed, const Entry* staged)
        : folder(std::move(theFolder)), path(folder + "/" + name), committed(committed), staged(staged) {}

    bool Exists() const { return committed || staged; }
    const std::string& Path() const { return path; }
    // Nothing of what no reader of an entry would take: to open a pipe or a device is to act on it.
    std::string Load() const {
        return InTheWay().empty() && !IsTooLong() ? SafeFileStorage(path, false).Load() : std::string();
    }
    // Of the longer copy.
    std::uint64_t Size() const {
        std::uint64_t size = 0;
        for (const Entry* entry : {committed, staged}) {
            if (entry) size = std::max(size, entry->details.size);
        }
        return size;
    }
    bool IsTooLong() const { return Size() > LongestFile; }
    // When the copy that counts was written.
    TimePoint Modified() const {
        const bool isWhole = committed && committed->details.kind == FileKind::File;
        return (isWhole || !staged ? committed : staged)->details.modified;
    }
    // Something that is no file and takes the place of one; empty for none.
    std::string InTheWay() const {
        for (const Entry* entry : {committed, staged}) {
            if (entry && entry->details.kind != FileKind::File) return folder + "/" + entry->name;
        }
        return {};
    }
    // Whether what is in the way is where a save begins, which then fails.
    bool IsSaveBlocked() const { return staged && staged->details.kind != FileKind::File; }
    std::string RemoveCommand() const {
        std::string command = "rm -rf --";
        for (const Entry* entry : {committed, staged}) {
            if (entry) command += " " + Quoted(folder + "/" + entry->name);
        }
        return command;
    }

private:
    std::string folder;
    std::string path;
    const Entry* committed = nullptr;
    const Entry* staged = nullptr;
};

// A blob, and the folder whose owner it belongs to.
using CacheEntry = std::pair<const CacheFolder*, Blob>;

// Searches are read by the name of their key. Of tokens whoever looks for expired ones reads all copies of
// blobs, whatever their names, and ends at one that cannot be parsed.
bool IsSearchName(const std::string& name) {
    return ClientCommunications::DirectoryKeyValueStorage::IsEntryName(name);
}
bool IsTokenName(const std::string&) {
    return true;
}
using IsEntry = bool (*)(const std::string& name);

// All blobs of the cache of that name in a folder.
void GatherEntries(const Machine& machine, const CacheFolder& folder, const char* cache, IsEntry isEntry,
                   std::vector<CacheEntry>& gathered) {
    const std::string path = folder.path + cache;
    for (const Entry& entry : machine.Tree().Children(path)) {
        const std::string name = SafeFileStorage::BlobNameOf(entry.name);
        if (name == entry.name || !isEntry(name)) continue;
        // By name the committed copy comes before the staging copy of the same blob.
        if (entry.name == SafeFileStorage::CommittedPathOf(name)) {
            const Entry* staged = machine.Tree().Child(path, SafeFileStorage::StagedPathOf(name));
            gathered.emplace_back(&folder, Blob(path, name, &entry, staged));
        } else if (!machine.Tree().Child(path, SafeFileStorage::CommittedPathOf(name))) {
            gathered.emplace_back(&folder, Blob(path, name, nullptr, &entry));
        }
    }
}

std::optional<FoundServicesDto> Parse(const std::string& text) {
    try {
        FoundServicesDto dto;
        ObjectMapping::DeserializeObject(dto, text, nullptr, false);
        return dto;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string OwnerText(const CacheFolder& folder) {
    return folder.owner.empty() ? "users and tokens" : folder.owner;
}

Finding Begin(const CacheFolder& folder, const Blob& blob, const Machine& machine) {
    Finding finding;
    constexpr std::size_t mostPairs = 8;
    finding.pairs.reserve(mostPairs);
    finding.pairs.emplace_back("owner", folder.owner);
    finding.pairs.emplace_back("path", blob.Path());
    finding.pairs.emplace_back("age_seconds", machine.AgeOf(blob.Modified()).count() / TicksPerSecond);
    return finding;
}

// What holds for each cache alike. Nothing if the blob is a file that holds something.
std::optional<Finding> JudgePlace(const CacheFolder& folder, const Blob& blob, const Machine& machine,
                                  const std::string& text, const std::string& what) {
    if (!text.empty()) return std::nullopt;
    const std::string inTheWay = blob.InTheWay();
    Finding finding = Begin(folder, blob, machine);
    if (!inTheWay.empty()) {
        const bool fails = blob.IsSaveBlocked();
        finding.severity = fails ? Severity::Error : Severity::Warning;
        finding.message = inTheWay + " is in the way of " + what +
                          (fails ? ", which cannot be saved" : ", which is asked for each time");
        finding.remedy = blob.RemoveCommand();
        return finding;
    }
    if (blob.IsTooLong()) {
        finding.severity = Severity::Warning;
        finding.message = blob.Path() + " " + Machine::TooLong;
        finding.remedy = blob.RemoveCommand();
        return finding;
    }
    const auto reading = machine.WhyUnreadable(SafeFileStorage::CommittedPathOf(blob.Path()));
    if (reading.isForbidden) {
        finding.severity = Severity::Error;
        finding.message = blob.Path() + " " + reading.failure;
        finding.remedy = "sudo ombry-doctor";
        finding.isUndecided = true;
    } else {
        finding.message = OwnerText(folder) + ": " + what + " is empty, and will be asked for";
    }
    return finding;
}

void Damaged(const CacheFolder& folder, const Blob& blob, const std::string& what, Finding& finding) {
    finding.severity = Severity::Error;
    finding.message = OwnerText(folder) + ": " + what + " is damaged, and fails what needs it";
    finding.remedy = blob.RemoveCommand();
}

std::string ServersText(const FoundServicesDto& dto) {
    return std::to_string(dto.local.size()) + " local, " + std::to_string(dto.remote.size()) + " remote";
}

void AddServers(const FoundServicesDto& dto, Finding& finding) {
    finding.pairs.emplace_back("local", static_cast<long long>(dto.local.size()));
    finding.pairs.emplace_back("remote", static_cast<long long>(dto.remote.size()));
}

TimePoint AtSecond(long long seconds) {
    return TimePoint(Duration(SecondsToTicks(seconds)));
}

// How far a time is away, as a part of a sentence.
std::string FromNow(const Machine& machine, TimePoint time) {
    const std::int64_t ahead =
        SaturatingAdd(time.time_since_epoch().count(), -machine.Now().time_since_epoch().count());
    return ahead >= 0 ? "for " + LengthText(Duration(ahead)) : "no more";
}

std::string NameOfSearch(const FoundServicesDto& dto, const std::string& entry) {
    static const std::string authorization = ClientCommunications::DirectoryKeyValueStorage::EntryNameOf(
        ClientCommunications::EndpointPaths::OpenDiscoveryOfAuthorization);
    if (entry == authorization) return "the authorization service";
    for (const auto* servers : {&dto.local, &dto.remote}) {
        if (!servers->empty()) return servers->front().serviceName;
    }
    return "a service that was not found";
}

Finding JudgeDiscovery(const Machine& machine, const CacheFolder& folder, const Blob& blob) {
    const std::string text = blob.Load();
    const std::string what = "the list of discovery servers";
    if (auto finding = JudgePlace(folder, blob, machine, text, what)) return *finding;
    Finding finding = Begin(folder, blob, machine);
    const auto dto = Parse(text);
    if (!dto) {
        Damaged(folder, blob, what, finding);
        return finding;
    }
    const TimePoint due = AtSecond(dto->expiryTime);
    AddServers(*dto, finding);
    finding.pairs.emplace_back("fresh_until", TimeText(due));
    finding.message = OwnerText(folder) + ": discovery servers: " + ServersText(*dto) + ", " +
                      LengthText(machine.AgeOf(blob.Modified())) + " old, fresh " + FromNow(machine, due) +
                      ", and used until replaced";
    return finding;
}

Finding JudgeSearch(const Machine& machine, const CacheFolder& folder, const Blob& blob) {
    const std::string text = blob.Load();
    if (auto finding = JudgePlace(folder, blob, machine, text, "a search")) return *finding;
    Finding finding = Begin(folder, blob, machine);
    const auto dto = Parse(text);
    if (!dto) {
        Damaged(folder, blob, "a search, " + blob.Path() + ",", finding);
        return finding;
    }
    const TimePoint fresh = AtSecond(dto->expiryTime);
    const TimePoint stale = AtSecond(SaturatingAdd(dto->expiryTime, dto->maxStaleTime));
    const std::string service = NameOfSearch(*dto, blob.Path().substr(blob.Path().rfind('/') + 1));
    AddServers(*dto, finding);
    finding.pairs.emplace_back("service", service);
    finding.pairs.emplace_back("fresh_until", TimeText(fresh));
    finding.pairs.emplace_back("stale_until", TimeText(stale));
    finding.message = OwnerText(folder) + ": search for " + service + ": " + ServersText(*dto) + ", " +
                      LengthText(machine.AgeOf(blob.Modified())) + " old, fresh " + FromNow(machine, fresh) +
                      ", may serve " + FromNow(machine, stale);
    return finding;
}

bool ParseToken(const std::string& text, ClientCommunications::JwtCachedToken& token) {
    try {
        ObjectMapping::DeserializeObject(token, text, nullptr, false);
        return true;
    } catch (const std::exception&) {
        return false;  // what it says holds the token
    }
}

Finding JudgeToken(const Machine& machine, const CacheFolder& folder, const Blob& blob) {
    std::string text = blob.Load();
    const ClientCommunications::ScopedWipe wipe(text);
    if (auto finding = JudgePlace(folder, blob, machine, text, "a token")) return *finding;
    Finding finding = Begin(folder, blob, machine);
    ClientCommunications::JwtCachedToken token;
    if (!ParseToken(text, token)) {
        Damaged(folder, blob, "a token, " + blob.Path() + ",", finding);
        return finding;
    }
    constexpr unsigned long long most = std::numeric_limits<std::int64_t>::max();
    const auto life = static_cast<std::int64_t>(std::min<unsigned long long>(token.token.expiresIn, most));
    const TimePoint end = SaturatingAdd(token.lastRefreshed, Duration(SecondsToTicks(life)));
    // Proved by the name of the file: damage can put other bytes of the entry there, those of the token too.
    const bool isNamed = blob.Path().ends_with(
        "/" + ClientCommunications::DirectoryKeyValueStorage::EntryNameOf(token.serviceName));
    const std::string service = isNamed ? token.serviceName : "a service that it does not name";
    finding.pairs.emplace_back("service", service);
    finding.pairs.emplace_back("asked_for", TimeText(token.lastRefreshed));
    finding.pairs.emplace_back("until", TimeText(end));
    finding.message = OwnerText(folder) + ": token for " + service + ", good " +
                      (token.IsExpired(machine.Now()) ? "no more" : FromNow(machine, end));
    if (token.lastRefreshed > SaturatingAdd(machine.Now(), ClockTolerance)) {
        finding.severity = Severity::Warning;
        finding.message +=
            ", from the future: while the clock is behind, it is kept though it may have ended";
        finding.remedy = blob.RemoveCommand();
    }
    return finding;
}

// So much of a cache is read, and no more.
constexpr std::uint64_t MostBytes = std::uint64_t{256} << 20;

// Takes the entries out that come when so much was read; says so if there are any.
std::optional<Finding> LeaveOutTheRest(std::vector<CacheEntry>& entries, const char* cache) {
    std::uint64_t size = 0;
    const auto rest = std::find_if(entries.begin(), entries.end(), [&size](const CacheEntry& entry) {
        const Blob& blob = entry.second;
        return !blob.IsTooLong() && (size += blob.Size()) > MostBytes;
    });
    if (rest == entries.end()) return std::nullopt;
    std::set<std::string> folders;
    for (auto entry = rest; entry != entries.end(); ++entry)
        folders.insert(entry->first->path + cache);
    const auto count = static_cast<std::size_t>(entries.end() - rest);
    Finding finding{.severity = Severity::Warning,
                    .message = CountText(count, "more file") + " in " + *folders.begin() +
                               " not read: there are more than 256 MiB",
                    .pairs = {{"left_out", static_cast<long long>(count)}, {"path", *folders.begin()}},
                    .remedy = "rm -rf --"};
    for (const std::string& folder : folders)
        finding.remedy += " " + Quoted(folder);
    entries.erase(rest, entries.end());
    return finding;
}

// Nearly all that the doctor does on a machine with many entries is reading them.
template <class Judge>
Findings JudgeEach(const Machine& machine, const char* cache, IsEntry isEntry, const char* none,
                   Judge judge) {
    const std::vector<CacheFolder> folders = CacheFoldersOf(machine);
    std::vector<CacheEntry> entries;
    for (const CacheFolder& folder : folders)
        GatherEntries(machine, folder, cache, isEntry, entries);
    const auto leftOut = LeaveOutTheRest(entries, cache);
    Findings findings(entries.size());
    SideBySide(entries.size(), [&](std::size_t place) {
        findings[place] = judge(machine, *entries[place].first, entries[place].second);
    });
    if (leftOut) findings.push_back(*leftOut);
    Conclude(machine, {machine.CachesFolder()}, {.message = none}, findings);
    return findings;
}

}  // namespace

std::vector<CacheFolder> CacheFoldersOf(const Machine& machine) {
    const std::string base = machine.CachesFolder();
    std::vector<CacheFolder> folders;
    for (const auto& folder : machine.Tree().Folders()) {
        const std::string& path = folder.first;
        if (path != base && !path.starts_with(base + "/")) continue;
        const bool isCache = std::any_of(std::begin(CacheNames), std::end(CacheNames), [&](const char* name) {
            return path.ends_with(name) || path.find(std::string(name) + "/") != std::string::npos;
        });
        if (isCache) continue;
        folders.push_back({path, path == base ? std::string() : path.substr(base.size() + 1)});
    }
    return folders;
}

std::string DiscoveryListOf(const Machine& machine, const std::string& owner) {
    const std::string folder = machine.CachesFolder() + (owner.empty() ? "" : "/" + owner);
    return SafeFileStorage::CommittedPathOf(folder + MachineFiles::DiscoveryCache);
}

Findings CheckDiscoveryCaches(const Machine& machine) {
    Findings findings;
    for (const CacheFolder& folder : CacheFoldersOf(machine)) {
        const Blob blob(machine, folder.path, std::string(MachineFiles::DiscoveryCache).substr(1));
        if (blob.Exists()) findings.push_back(JudgeDiscovery(machine, folder, blob));
    }
    Conclude(machine, {machine.CachesFolder()}, {.message = "No list of discovery servers was kept yet"},
             findings);
    return findings;
}

Findings CheckSearchCaches(const Machine& machine) {
    return JudgeEach(machine, MachineFiles::FinderCache, IsSearchName, "No search was kept", JudgeSearch);
}

Findings CheckTokens(const Machine& machine) {
    return JudgeEach(machine, MachineFiles::TokenCache, IsTokenName, "No token was kept", JudgeToken);
}

std::vector<KnownServer> DiscoveryServersOf(const Machine& machine) {
    std::map<std::pair<std::string, std::string>, std::size_t> places;
    std::vector<KnownServer> servers;
    for (const CacheFolder& folder : CacheFoldersOf(machine)) {
        const std::string path = folder.path + MachineFiles::DiscoveryCache;
        const auto dto = Parse(SafeFileStorage(path, false).Load());
        if (!dto) continue;
        for (const auto* list : {&dto->local, &dto->remote}) {
            for (const auto& server : *list) {
                const auto [place, isNew] =
                    places.try_emplace({server.endpointUrl, server.endpointCert}, servers.size());
                if (isNew) servers.push_back({server.endpointUrl, server.endpointCert, {}});
                std::vector<std::string>& lists = servers[place->second].lists;
                const std::string file = DiscoveryListOf(machine, folder.owner);
                if (lists.empty() || lists.back() != file) lists.push_back(file);
            }
        }
    }
    return servers;
}

}  // namespace Ombry::Doctor
