#pragma once

#include "Platform/IInspection.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace Ombry::Doctor {

/// Something in a folder; a folder behind a link is a folder here, as it is for the tool.
struct Entry {
    std::string name;
    Platform::FileDetails details;
};

/// Everything below some folders, as it was when this was made. Links to folders are followed, but for those
/// that lead back to a folder that they lie in.
class StateTree {
public:
    /// `neverBehindALink`: the one folder that the tool does not look for there.
    StateTree(const std::vector<std::string>& roots, const std::string& neverBehindALink);

    /// By name; none for what is no folder here.
    const std::vector<Entry>& Children(const std::string& folder) const;
    /// Null if there is no such thing in the folder.
    const Entry* Child(const std::string& folder, const std::string& name) const;
    /// The first path by name that the user may not look at and that lies in the folder, or on the way to it;
    /// empty for none. Of what lies there nothing is here.
    std::string HiddenOf(const std::string& folder) const;
    /// All folders by path, the roots that are there among them.
    const std::map<std::string, std::vector<Entry>>& Folders() const { return folders; }
    /// The roots that are there, each with what is known of it.
    const std::vector<Entry>& Roots() const { return roots; }
    /// The folders behind links, by the paths of the links.
    const std::set<std::string>& Links() const { return links; }

private:
    using Details = Platform::ValueOr<Platform::FileDetails>;

    /// What the tool would meet at a path of which that is known: of a link to a folder that folder. `above`:
    /// all folders on the way.
    Details Followed(const std::string& path, Details details,
                     const std::vector<Platform::FileDetails>& above);
    void HideIfForbidden(int error, const std::string& path);
    void AddFolder(const std::string& folder, const Platform::FileDetails& details,
                   std::vector<Platform::FileDetails>& above);
    std::vector<Entry> EntriesOf(const std::string& folder, const std::vector<Platform::FileDetails>& above);

    const std::string neverBehindALink;
    std::vector<Entry> roots;
    std::set<std::string> links;
    std::map<std::string, std::vector<Entry>> folders;
    std::set<std::string> hidden;
};

}  // namespace Ombry::Doctor
