#pragma once

#include "Platform/IInspection.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Ombry::Doctor {

/// Something in a folder.
struct Entry {
    std::string name;
    Platform::FileDetails details;
};

/// Everything below some folders, as it was when this was made. Links are not followed.
class StateTree {
public:
    explicit StateTree(const std::vector<std::string>& roots);

    /// By name; none for what is no folder here.
    const std::vector<Entry>& Children(const std::string& folder) const;
    /// Null if there is no such thing in the folder.
    const Entry* Child(const std::string& folder, const std::string& name) const;
    /// The first path by name that the user may not look at and that lies in the folder, or on the way to it;
    /// empty for none. Of what lies there nothing is here.
    std::string HiddenOf(const std::string& folder) const;
    /// All folders by path, the roots that are there among them.
    const std::map<std::string, std::vector<Entry>>& Folders() const { return folders; }

private:
    void HideIfForbidden(int error, const std::string& path);
    std::vector<Entry> EntriesOf(const std::string& folder);

    std::map<std::string, std::vector<Entry>> folders;
    std::set<std::string> hidden;
};

}  // namespace Ombry::Doctor
