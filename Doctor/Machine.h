#pragma once

#include "ClientCommunications/CommunicationsParameters.h"
#include "Doctor/StateTree.h"

#include <optional>
#include <string>
#include <vector>

namespace Ombry::Doctor {

/// A machine at one moment: where its state lies, what lies there, and what the readers of the libraries make
/// of the address and the datacenter. Throws `std::runtime_error` if the system does not tell where to look.
class Machine {
public:
    /// `most`: files and folders that are looked at.
    explicit Machine(std::size_t most = StateTree::Most);

    /// A file's content as a text, or why there is none.
    struct Reading {
        std::string text;
        std::string failure;       ///< empty for none
        bool isForbidden = false;  ///< the user may not read it
        bool isTooLong = false;    ///< it is not looked at, and the tool may take it
    };
    /// What is said of a file that is too long, behind its path.
    static constexpr const char* TooLong =
        "is longer than 64 MiB, as nothing is that the tool saves, and was not looked at";

    const ClientCommunications::CommunicationsParameters& Parameters() const { return parameters; }
    TimePoint Now() const { return now; }
    /// The folder of everything.
    const std::string& Root() const { return root; }
    const std::string& StoreFolder() const { return storeFolder; }
    const Platform::KeyState& Key() const { return key; }
    std::string KeyFolder() const;
    /// Without "/" at the end.
    std::string ComponentsFolder() const;
    /// Likewise.
    std::string CachesFolder() const;

    /// The folders that the tool makes and nobody else writes in: those of the configuration, of the
    /// certificates and of the key.
    std::vector<std::string> OwnFolders() const;
    /// All below them.
    const StateTree& Tree() const { return tree; }

    /// Where the service is.
    const Reading& Address() const { return address; }
    /// Which datacenter the machine belongs to.
    const Reading& Datacenter() const { return datacenter; }
    /// Whether that stands in the file that the tool does not write.
    bool IsDatacenterFromCommonFile() const { return isDatacenterCommon; }

    /// The command that ties the machine to its service, as far as it is known which one.
    std::string ConfigureCommand(bool withAddress = true, bool withDatacenter = true) const;

    /// Why a file cannot be read, in words that follow its path; empty if it can.
    Reading WhyUnreadable(const std::string& path) const;
    /// The first thing between the root and a file that should be a folder and is none; empty for none.
    std::string ObstacleTo(const std::string& path) const;
    /// How long ago; nothing less than nothing.
    Duration AgeOf(TimePoint time) const;

private:
    /// Of the tool.
    StateTree::Habits Habits() const;
    void ReadAddress();
    void ReadDatacenter();

    const TimePoint now;
    const ClientCommunications::CommunicationsParameters parameters;
    const std::string root;
    std::string storeFolder;
    Platform::KeyState key;
    const StateTree tree;
    Reading address;
    Reading datacenter;
    bool isDatacenterCommon = false;
};

/// Whether the tool could call that address, and would do it over TLS.
bool IsSecureAddress(const std::string& url);

/// Whether a text can stand in a header of a request without changing it.
bool IsHeaderText(const std::string& text);

}  // namespace Ombry::Doctor
