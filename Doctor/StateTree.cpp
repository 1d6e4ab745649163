#include "Doctor/StateTree.h"

#include "Doctor/SideBySide.h"
#include "Platform/IFiles.h"

#include <algorithm>

namespace Ombry::Doctor {

StateTree::StateTree(const std::vector<std::string>& paths, const std::string& neverBehindALink)
    : neverBehindALink(neverBehindALink) {
    std::vector<Platform::FileDetails> above;
    for (const std::string& path : paths) {
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
    for (const Entry& entry : entries) {
        if (entry.details.kind == Platform::FileKind::Folder)
            AddFolder(folder + "/" + entry.name, entry.details, above);
    }
    above.pop_back();
}

StateTree::Details StateTree::Followed(const std::string& path, Details details,
                                       const std::vector<Platform::FileDetails>& above) {
    if (!details || details->kind != Platform::FileKind::Link || path == neverBehindALink) return details;
    auto target = Platform::Inspection().Target(path);
    if (!target) HideIfForbidden(target.Error(), path);
    if (!target || target->kind != Platform::FileKind::Folder) return details;
    const bool isCircle = std::any_of(above.begin(), above.end(), [&](const Platform::FileDetails& folder) {
        return folder.device == target->device && folder.file == target->file;
    });
    if (isCircle) return details;
    links.insert(path);
    return target;
}

void StateTree::HideIfForbidden(int error, const std::string& path) {
    if (Platform::Inspection().MeansForbidden(error)) hidden.insert(path);
}

std::vector<Entry> StateTree::EntriesOf(const std::string& folder,
                                        const std::vector<Platform::FileDetails>& above) {
    auto names = Platform::Files().List(folder);
    if (!names) {
        HideIfForbidden(names.Error(), folder);
        return {};
    }
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
        if (details && details->kind == Platform::FileKind::Link)
            details = Followed(folder + "/" + name, details, above);
        if (details) {
            entries.push_back({std::move(name), *details});
        } else {
            HideIfForbidden(details.Error(), folder);  // any other is gone by now: the temporary of a save
        }
    }
    return entries;
}

std::string StateTree::HiddenOf(const std::string& folder) const {
    const auto isIn = [](const std::string& path, const std::string& place) {
        return path == place || path.starts_with(place + "/");
    };
    const auto found = std::find_if(hidden.begin(), hidden.end(), [&](const std::string& path) {
        return isIn(path, folder) || isIn(folder, path);
    });
    return found == hidden.end() ? std::string() : *found;
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
