#include "Doctor/StateTree.h"

#include "Platform/IFiles.h"

#include <algorithm>

namespace Ombry::Doctor {

StateTree::StateTree(const std::vector<std::string>& roots) {
    std::vector<std::string> open;
    for (const std::string& root : roots) {
        const auto details = Platform::Inspection().Details(root);
        if (!details) {
            HideIfForbidden(details.Error(), root);
        } else if (details->kind == Platform::FileKind::Folder) {
            open.push_back(root);
        }
    }
    while (!open.empty()) {
        const std::string folder = std::move(open.back());
        open.pop_back();
        const std::vector<Entry>& entries = folders[folder] = EntriesOf(folder);
        for (const Entry& entry : entries) {
            if (entry.details.kind == Platform::FileKind::Folder) open.push_back(folder + "/" + entry.name);
        }
    }
}

void StateTree::HideIfForbidden(int error, const std::string& path) {
    if (Platform::Inspection().MeansForbidden(error)) hidden.insert(path);
}

std::vector<Entry> StateTree::EntriesOf(const std::string& folder) {
    auto names = Platform::Files().List(folder);
    if (!names) {
        HideIfForbidden(names.Error(), folder);
        return {};
    }
    std::sort(names->begin(), names->end());
    std::vector<Entry> entries;
    entries.reserve(names->size());
    for (std::string& name : *names) {
        const auto details = Platform::Inspection().Details(folder + "/" + name);
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
