#pragma once

#include "Platform/IInspection.h"

#include <functional>
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

/// Everything below some folders, as it was when this was made. Links to folders are followed where the tool
/// follows them, but for those that lead back to a folder that they lie in.
class StateTree {
public:
    /// How the tool looks at folders.
    struct Habits {
        /// Whether it opens something in the folder of that path. `amongOthers`: that lies behind a link,
        /// with what the tool does not make.
        std::function<bool(const std::string& folder, bool amongOthers)> opens = [](const std::string&,
                                                                                    bool) { return true; };
        /// Whether it would open that folder behind a link.
        std::function<bool(const std::string& folder)> follows = [](const std::string&) { return true; };
        /// Whether it makes such a thing in a folder.
        std::function<bool(const std::string& folder, const Entry& entry)> makes =
            [](const std::string&, const Entry&) { return true; };
    };

    /// So many files and folders are looked at, and no more.
    static constexpr std::size_t Most = 100'000;

    StateTree(const std::vector<std::string>& roots, Habits habits, std::size_t most = Most);

    /// By name; none for what is no folder here.
    const std::vector<Entry>& Children(const std::string& folder) const;
    /// Null if there is no such thing in the folder.
    const Entry* Child(const std::string& folder, const std::string& name) const;
    /// The first path by name that cannot be looked at and that lies in the folder, or on the way to it;
    /// empty for none. Of what lies there nothing is here.
    std::string HiddenOf(const std::string& folder) const;
    /// What the look at such a path failed with.
    int WhyHidden(const std::string& path) const { return hidden.at(path); }
    /// All folders by path, the roots that are there among them.
    const std::map<std::string, std::vector<Entry>>& Folders() const { return folders; }
    /// The roots that are there, each with what is known of it.
    const std::vector<Entry>& Roots() const { return roots; }
    /// The folders behind links, by the paths of the links.
    const std::set<std::string>& Links() const { return links; }
    /// Those of them behind which something lies that the tool does not make, with the path of the first
    /// such.
    const std::map<std::string, std::string>& SharedLinks() const { return sharedLinks; }
    /// Whether a folder is, or lies, behind one of those.
    bool IsShared(const std::string& folder) const;
    /// The folder in which the last of those that may be looked at were met; empty if there were not so many.
    const std::string& CutAt() const { return cutAt; }
    std::size_t MostEntries() const { return most; }

private:
    using Details = Platform::ValueOr<Platform::FileDetails>;

    /// What the tool would meet at a path of which that is known: of a link to a folder that folder. `above`:
    /// all folders on the way.
    Details Followed(const std::string& path, Details details,
                     const std::vector<Platform::FileDetails>& above);
    void HideIfForbidden(int error, const std::string& path);
    void HideUnlessGone(int error, const std::string& path);
    void AddFolder(const std::string& folder, const Platform::FileDetails& details,
                   std::vector<Platform::FileDetails>& above);
    std::vector<Entry> EntriesOf(const std::string& folder, const std::vector<Platform::FileDetails>& above);
    void NoteSharedLinks(const std::string& folder, const std::vector<Entry>& entries);

    const Habits habits;
    const std::size_t most;
    std::size_t count = 0;
    std::string cutAt;
    std::vector<Entry> roots;
    std::set<std::string> links;
    std::map<std::string, std::string> sharedLinks;
    std::map<std::string, std::vector<Entry>> folders;
    std::map<std::string, int> hidden;
};

}  // namespace Ombry::Doctor
