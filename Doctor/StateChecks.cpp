#include "Doctor/StateChecks.h"

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/Impl/SafeFileStorage.h"
#include "Doctor/Conclusion.h"
#include "Doctor/Texts.h"

#include <algorithm>
#include <set>

namespace Ombry::Doctor {
namespace {

namespace MachineFiles = ClientCommunications::MachineFiles;
using ClientCommunications::SafeFileStorage;
using Platform::FileKind;

// The folders of the tool's own that are there, behind a command that descends and follows no links: those
// behind links are named, too, with a solidus that stands for what is behind; but none in which things of
// others lie.
std::string WithOwnFolders(const Machine& machine, std::string command) {
    const StateTree& tree = machine.Tree();
    std::set<std::string> links = tree.Links();
    const auto add = [&](const std::string& path, bool isLink) {
        if (!tree.IsShared(path)) command += " " + Quoted(isLink ? path + "/" : path);
    };
    for (const std::string& folder : machine.OwnFolders()) {
        if (tree.Folders().contains(folder)) add(folder, links.erase(folder) > 0);
    }
    for (const std::string& link : links)
        add(link, true);
    return command;
}

// What is another's is changed by root alone.
std::string AsWhoMay(std::uint32_t owner, const std::string& command) {
    const std::uint32_t user = Platform::Inspection().User();
    return user == 0 || owner == user ? command : "sudo " + command;
}

// The owner of the tool's own, or of what of it is another's than the user's.
std::uint32_t OwnerOfAll(const Machine& machine) {
    const std::uint32_t user = Platform::Inspection().User();
    std::uint32_t owner = user;
    const auto look = [&](const Entry& entry) {
        if (entry.details.owner != user) owner = entry.details.owner;
    };
    for (const Entry& root : machine.Tree().Roots())
        look(root);
    for (const auto& [folder, entries] : machine.Tree().Folders())
        std::for_each(entries.begin(), entries.end(), look);
    return owner;
}

// The two that are shared with other programs, which may want them to be read. A folder behind a link is
// told by a solidus.
std::vector<Entry> SharedPlaces(const Machine& machine) {
    Platform::IInspection& inspection = Platform::Inspection();
    std::vector<Entry> places;
    if (const auto target = inspection.Target(machine.Root())) {
        const auto itself = inspection.Details(machine.Root());
        const bool isLink = itself && itself->kind == FileKind::Link;
        if (!isLink || target->kind == FileKind::Folder)
            places.push_back({machine.Root() + (isLink ? "/" : ""), *target});
    }
    const std::string& common = machine.Parameters().commonConfigPath;
    const auto details = inspection.Details(common);
    if (details && details->kind != FileKind::Link) places.push_back({common, *details});
    return places;
}

// Everything of a kind among what is the tool's own, the folders themselves included: told as one. What lies
// behind a link among things of others is left to them.
class Summary {
public:
    template <class IsOne>
    Summary(const Machine& machine, IsOne isOne) {
        for (const Entry& root : machine.Tree().Roots()) {
            const bool isOwn = root.details.kind == FileKind::Folder && !machine.Tree().IsShared(root.name);
            if (isOwn && isOne(root.details)) Add({}, root.name);
        }
        for (const auto& [folder, entries] : machine.Tree().Folders()) {
            if (machine.Tree().IsShared(folder)) continue;
            for (const Entry& entry : entries) {
                const bool leadsAway = entry.details.kind == FileKind::Folder &&
                                       machine.Tree().SharedLinks().contains(folder + "/" + entry.name);
                if (!leadsAway && isOne(entry.details)) Add(folder + "/", entry.name);
            }
        }
    }

    bool IsEmpty() const { return count == 0; }
    const std::string& First() const { return first; }

    Finding Told(Severity severity, const std::string& what, std::string remedy) const {
        return {.severity = severity,
                .message = CountText(count, "file") + (count == 1 ? " or folder " : " or folders ") + what +
                           ", among them " + first,
                .pairs = {{"count", static_cast<long long>(count)}, {"first", first}},
                .remedy = std::move(remedy)};
    }

private:
    void Add(const std::string& folder, const std::string& name) {
        if (++count == 1) first = folder + name;
    }

    std::size_t count = 0;
    std::string first;
};

Finding Obstacle(const Machine& machine, const std::string& path) {
    const auto isBelow = [&path](const std::string& folder) { return path.starts_with(folder + "/"); };
    const bool ofAll = path != machine.KeyFolder() && path != machine.ComponentsFolder() &&
                       !isBelow(machine.ComponentsFolder()) && !isBelow(machine.CachesFolder());
    return {.severity = ofAll ? Severity::Critical : Severity::Error,
            .message = path + " is not the folder that it should be",
            .pairs = {{"path", path}},
            .remedy = "rm -f -- " + Quoted(path)};
}

// The folders of clients' caches and records that something else stands in the place of: what is to be saved
// there fails.
void AddObstaclesOfClients(const Machine& machine, std::set<std::string>& obstacles) {
    for (const auto& [folder, entries] : machine.Tree().Folders()) {
        if (!folder.starts_with(machine.CachesFolder())) continue;
        for (const char* cache : {MachineFiles::FinderCache, MachineFiles::TokenCache}) {
            const std::string obstacle = machine.ObstacleTo(folder + cache + "/entry");
            if (!obstacle.empty()) obstacles.insert(obstacle);
        }
    }
    for (const Entry& client : machine.Tree().Children(machine.ComponentsFolder())) {
        // A save that was cut off left no folder, and hinders no client.
        if (Platform::Inspection().IsUnnamed(client.name)) continue;
        for (const std::string& path :
             {machine.CachesFolder() + "/" + client.name + MachineFiles::DiscoveryCache,
              MachineFiles::ServicesOf(machine.Parameters().securityDirectory, client.name) + "record"}) {
            const std::string obstacle = machine.ObstacleTo(path);
            if (!obstacle.empty()) obstacles.insert(obstacle);
        }
    }
}

// The links of caches that lead among things of others: whatever lies there, caches may begin anew.
void AddSharedCaches(const Machine& machine, Findings& findings) {
    for (const auto& [link, other] : machine.Tree().SharedLinks()) {
        const bool isOfCaches =
            link == machine.CachesFolder() || link.starts_with(machine.CachesFolder() + "/");
        if (!isOfCaches || machine.Tree().IsShared(link.substr(0, link.rfind('/')))) continue;
        findings.push_back({.severity = Severity::Warning,
                            .message = link +
                                       (other == link ? " leads back to a folder that it lies in"
                                                      : " leads among things of others, such as " + other) +
                                       ": what lies there is not all judged",
                            .pairs = {{"path", link}, {"other", other}},
                            .remedy = "rm -f -- " + Quoted(link)});
    }
}

// What to do where there is more than is looked at. Caches may go at any time; what else may go is nothing
// that can be told from here.
std::string RemedyForMore(const Machine& machine) {
    const std::string caches = machine.CachesFolder();
    std::size_t inCaches = 0;
    for (const auto& [folder, entries] : machine.Tree().Folders()) {
        if (folder == caches || folder.starts_with(caches + "/")) inCaches += entries.size();
    }
    if (inCaches * 2 >= machine.Tree().MostEntries()) return "rm -rf -- " + Quoted(caches);
    return "ls -lA -- " + Quoted(machine.Tree().CutAt());
}

void AddMoreThanIsLookedAt(const Machine& machine, Findings& findings) {
    const std::string& cut = machine.Tree().CutAt();
    if (cut.empty()) return;
    const auto most = static_cast<long long>(machine.Tree().MostEntries());
    findings.push_back({.severity = Severity::Warning,
                        .message = "There are more than " + std::to_string(most) +
                                   " files and folders; what comes behind the first in " + cut +
                                   " was not looked at",
                        .pairs = {{"most", most}, {"path", cut}},
                        .remedy = RemedyForMore(machine)});
}

}  // namespace

Findings CheckPlace(const Machine& machine) {
    const std::string& root = machine.Root();
    Platform::IInspection& inspection = Platform::Inspection();
    const auto details = inspection.Target(root);
    if (!details && inspection.MeansForbidden(details.Error())) {
        return {CannotLook(root, details.Error())};
    }
    if (!inspection.Details(root)) {
        return {{.severity = Severity::Critical,
                 .message = "There is no state: the machine was never tied to a service",
                 .pairs = {{"path", root}},
                 .remedy = machine.ConfigureCommand()}};
    }
    const std::string& security = machine.Parameters().securityDirectory;
    std::set<std::string> obstacles;
    for (const std::string& path :
         {security + MachineFiles::Bootstrap, security + MachineFiles::DatacenterId, machine.Key().path,
          machine.ComponentsFolder() + "/client", machine.CachesFolder() + MachineFiles::DiscoveryCache,
          machine.StoreFolder() + "/certificate"}) {
        const std::string obstacle = machine.ObstacleTo(path);
        if (!obstacle.empty()) obstacles.insert(obstacle);
    }
    // The folder of the certificates itself is not looked for behind a link.
    const auto store = inspection.Details(machine.StoreFolder());
    if (store && store->kind == FileKind::Link) obstacles.insert(machine.StoreFolder());
    AddObstaclesOfClients(machine, obstacles);
    Findings findings;
    for (const std::string& obstacle : obstacles)
        findings.push_back(Obstacle(machine, obstacle));
    AddSharedCaches(machine, findings);
    AddMoreThanIsLookedAt(machine, findings);
    Conclude(machine, machine.OwnFolders(),
             {.message = "The state lies in " + root, .pairs = {{"path", root}}}, findings);
    return findings;
}

Findings CheckOwners(const Machine& machine) {
    const std::uint32_t user = Platform::Inspection().User();
    const auto isForeign = [user](const Platform::FileDetails& details) {
        return details.owner != 0 && details.owner != user;
    };
    const Summary foreign(machine, isForeign);
    Findings findings;
    if (!foreign.IsEmpty()) {
        findings.push_back(
            foreign.Told(Severity::Warning, "belong to somebody else",
                         WithOwnFolders(machine, AsWhoMay(0, "chown -hR " + std::to_string(user) + " --"))));
    }
    for (const Entry& place : SharedPlaces(machine)) {
        if (!isForeign(place.details)) continue;
        findings.push_back(
            {.severity = Severity::Warning,
             .message = place.name + " belongs to somebody else",
             .pairs = {{"path", place.name}},
             .remedy = AsWhoMay(0, "chown -h " + std::to_string(user) + " -- " + Quoted(place.name))});
    }
    Conclude(machine, machine.OwnFolders(),
             {.message = "Everything belongs to root or to the user who looks"}, findings);
    return findings;
}

Findings CheckModes(const Machine& machine) {
    constexpr std::uint32_t others = 077;
    constexpr std::uint32_t othersWrite = 022;
    Findings findings;
    const Summary open(machine, [](const Platform::FileDetails& details) {
        return details.kind != FileKind::Link && (details.mode & others) != 0;
    });
    if (!open.IsEmpty()) {
        findings.push_back(
            open.Told(Severity::Warning, "can be used by others than the owner",
                      WithOwnFolders(machine, AsWhoMay(OwnerOfAll(machine), "chmod -R go= --"))));
    }
    for (const Entry& place : SharedPlaces(machine)) {
        if ((place.details.mode & othersWrite) == 0) continue;
        findings.push_back({.severity = Severity::Warning,
                            .message = place.name + " can be written by others than the owner",
                            .pairs = {{"path", place.name}},
                            .remedy = AsWhoMay(place.details.owner, "chmod go-w -- " + Quoted(place.name))});
    }
    Conclude(machine, machine.OwnFolders(), {.message = "Nothing is open to others"}, findings);
    return findings;
}

Findings CheckLeftovers(const Machine& machine) {
    Platform::IInspection& inspection = Platform::Inspection();
    Findings findings;
    const auto add = [&](const std::string& path, TimePoint made, const char* what) {
        const Duration age = machine.AgeOf(made);
        findings.push_back({.severity = Severity::Warning,
                            .message = path + " is " + what + " " + LengthText(age) + " old",
                            .pairs = {{"path", path}, {"age_seconds", age.count() / TicksPerSecond}},
                            .remedy = "rm -f -- " + Quoted(path)});
    };
    for (const auto& [folder, entries] : machine.Tree().Folders()) {
        if (machine.Tree().IsShared(folder)) continue;
        const bool isCache = folder.starts_with(machine.CachesFolder());
        for (const Entry& entry : entries) {
            if (entry.details.kind != FileKind::File) continue;
            const std::string path = folder + "/" + entry.name;
            if (inspection.IsUnnamed(entry.name)) {
                if (inspection.LockHolder(entry.details)) continue;  // a save under way
                const bool isKey = folder == machine.KeyFolder() && entry.details.links > 1;
                if (isKey) {
                    // Written with the key, and made a name of it since: no later than its owner, its mode or
                    // its names changed for the last time.
                    add(path, entry.details.changed,
                        "a second name of the key that a killed run left, at least");
                } else {
                    add(path, entry.details.modified, "what a killed run left,");
                }
            } else if (isCache) {
                const std::string committed =
                    SafeFileStorage::CommittedPathOf(SafeFileStorage::BlobNameOf(entry.name));
                if (committed == entry.name || SafeFileStorage::BlobNameOf(entry.name) == entry.name)
                    continue;
                // Alone it is the entry: the next reader gives it its name.
                if (machine.Tree().Child(folder, committed)) {
                    add(path, entry.details.modified, "the copy of an entry that a killed run left,");
                }
            }
        }
    }
    Conclude(machine, machine.OwnFolders(), {.message = "No killed run has left anything"}, findings);
    return findings;
}

Findings CheckClock(const Machine& machine) {
    const TimePoint latest = SaturatingAdd(machine.Now(), ClockTolerance);
    const Summary fromFuture(
        machine, [latest](const Platform::FileDetails& details) { return details.modified > latest; });
    const std::string now = TimeText(machine.Now());
    Findings findings;
    if (!fromFuture.IsEmpty()) {
        findings.push_back({.severity = Severity::Warning,
                            .message = fromFuture.First() + " was written later than now, " + now +
                                       ": the clock has been set back",
                            .pairs = {{"now", now}, {"path", fromFuture.First()}},
                            .remedy = "timedatectl set-ntp true"});
    }
    Conclude(machine, machine.OwnFolders(), {.message = "It is " + now, .pairs = {{"now", now}}}, findings);
    return findings;
}

}  // namespace Ombry::Doctor
