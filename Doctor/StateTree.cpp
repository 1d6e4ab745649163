#include "Doctor/StateTree.h"

#include "Doctor/SideBySide.h"

#include <algorithm>
#include <cerrno>

namespace Ombry::Doctor {
namespace {

bool IsIn(const std::string& path, const std::string& place) {
    return path.starts_with(place) && (path.size() == place.size() || path[place.size()] == '/');
}

bool IsSame(const Platform::FileDetails& left, const Platform::FileDetails& right) {
    return left.device == right.device && left.file == right.file;
}

// The folders that a folder lies in, up to the one that lies in itself.
std::vector<Platform::FileDetails> FoldersAbove(const std::string& path) {
    std::vector<Platform::FileDetails> above;
    for (std::string parent = path + "/..";; parent += "/..") {
        const auto details = Platform::Inspection().Target(parent);
        if (!details || (!above.empty() && IsSame(above.back(), *details))) return above;
        above.push_back(*details);
    }
}

}  // namespace

StateTree::StateTree(const std::vector<std::string>& paths, Habits habits, std::size_t most)
    : habits(std::move(habits)), most(most) {
    for (const std::string& path : paths) {
        auto above = FoldersAbove(path);
        const auto details = Followed(path, Platform::Inspection().Details(path), above);
        if (!details) {
            HideIfForbidden(details.Error(), path);
            continue;
        }
        roots.push_back({path, *details});
        if (details->kind == Platform::FileKind::Folder) AddFolder(path, *details, above);
    }
}

void StateTree::AddFolder(const std::string& folder, const Platform::FileDetails& details,
                          std::vector<Platform::FileDetails>& above) {
    above.push_back(details);
    const std::vector<Entry>& entries = folders[folder] = EntriesOf(folder, above);
    NoteSharedLinks(folder, entries);
    for (const Entry& entry : entries) {
        if (entry.details.kind != Platform::FileKind::Folder) continue;
        const std::string path = folder + "/" + entry.name;
        if (habits.opens(path, IsShared(folder))) AddFolder(path, entry.details, above);
    }
    above.pop_back();
}

void StateTree::NoteSharedLinks(const std::string& folder, const std::vector<Entry>& entries) {
    if (links.empty()) return;
    const auto other = std::find_if(entries.begin(), entries.end(),
                                    [&](const Entry& entry) { return !habits.makes(folder, entry); });
    if (other == entries.end()) return;
    for (const std::string& link : links) {
        if (IsIn(folder, link)) sharedLinks.try_emplace(link, folder + "/" + other->name);
    }
}

bool StateTree::IsShared(const std::string& folder) const {
    return std::any_of(sharedLinks.begin(), sharedLinks.end(),
                       [&](const auto& link) { return IsIn(folder, link.first); });
}

StateTree::Details StateTree::Followed(const std::string& path, Details details,
                                       const std::vector<Platform::FileDetails>& above) {
    if (!details || details->kind != Platform::FileKind::Link || !habits.follows(path)) return details;
    if (IsShared(path)) return details;
    auto target = Platform::Inspection().Target(path);
    if (!target) HideIfForbidden(target.Error(), path);
    if (!target || target->kind != Platform::FileKind::Folder) return details;
    const bool isCircle = std::any_of(above.begin(), above.end(), [&](const Platform::FileDetails& folder) {
        return IsSame(folder, *target);
    });
    if (isCircle) {
        sharedLinks.try_emplace(path, path);
        return details;
    }
    links.insert(path);
    return target;
}

void StateTree::HideIfForbidden(int error, const std::string& path) {
    if (Platform::Inspection().MeansForbidden(error)) hidden.emplace(path, error);
}

// What was there a moment ago may be gone by now, as the temporary of a save.
void StateTree::HideUnlessGone(int error, const std::string& path) {
    if (error != ENOENT && error != ENOTDIR) hidden.emplace(path, error);
}

std::vector<Entry> StateTree::EntriesOf(const std::string& folder,
                                        const std::vector<Platform::FileDetails>& above) {
    const std::size_t left = most - count;
    auto names = Platform::Inspection().Names(folder, left + 1);
    if (!names) {
        HideUnlessGone(names.Error(), folder);
        return {};
    }
    if (names->size() > left) {
        names->pop_back();
        if (cutAt.empty()) cutAt = folder;
    }
    count += names->size();
    std::sort(names->begin(), names->end());
    std::vector<Details> looks(names->size(), Platform::Result::Failure(0));
    SideBySide(names->size(), [&](std::size_t place) {
        looks[place] = Platform::Inspection().Details(folder + "/" + (*names)[place]);
    });
    std::vector<Entry> entries;
    entries.reserve(names->size());
    for (std::size_t place = 0; place < names->size(); ++place) {
        std::string& name = (*names)[place];
        auto details = looks[place];
        if (!details) {
            const bool isFolderForbidden = Platform::Inspection().MeansForbidden(details.Error());
            HideUnlessGone(details.Error(), isFolderForbidden ? folder : folder + "/" + name);
            continue;
        }
        if (details->kind == Platform::FileKind::Link)
            details = Followed(folder + "/" + name, details, above);
        entries.push_back({std::move(name), *details});
    }
    return entries;
}

std::string StateTree::HiddenOf(const std::string& folder) const {
    const auto found = std::find_if(hidden.begin(), hidden.end(), [&](const auto& place) {
        return IsIn(place.first, folder) || IsIn(folder, place.first);
    });
    return found == hidden.end() ? std::string() : found->first;
}

const std::vector<Entry>& StateTree::Children(const std::string& folder) const {
    static const std::vector<Entry>& none = *new std::vector<Entry>;
    const auto found = folders.find(folder);
    return found == folders.end() ? none : found->second;
}

const Entry* StateTree::Child(const std::string& folder, const std::string& name) const {
    const std::vector<Entry>& entries = Children(folder);
    const auto found =
        std::lower_bound(entries.begin(), entries.end(), name,
                         [](const Entry& entry, const std::string& wanted) { return entry.name < wanted; });
    return found != entries.end() && found->name == name ? &*found : nullptr;
}

}  // namespace Ombry::Doctor
