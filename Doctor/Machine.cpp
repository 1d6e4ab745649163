#include "Doctor/Machine.h"

#include "ClientCommunications/Impl/FileStorage.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/Impl/SafeFileStorage.h"
#include "ClientCommunications/LocalConfiguration.h"
#include "Doctor/ReadOnlyPlatform.h"
#include "Doctor/Texts.h"
#include "ObjectMapping/Serialization.h"
#include "OmbryZephCore/ZephUrl.h"
#include "Platform/ErrorNumber.h"
#include "Platform/IClock.h"
#include "Platform/IFiles.h"

#include <algorithm>
#include <stdexcept>

namespace Ombry::Doctor {
namespace {

namespace MachineFiles = ClientCommunications::MachineFiles;
using ClientCommunications::SafeFileStorage;
using Platform::FileKind;

template <class T>
T Required(Platform::ValueOr<T> value, const char* what) {
    if (value) return std::move(*value);
    throw std::runtime_error(std::string("It cannot be told where ") + what + ": error " +
                             Platform::ErrorNumber(value.Error()) + ".");
}

std::string WithoutSlash(std::string path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

std::string ParentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

bool IsBelow(const std::string& path, const std::string& folder) {
    return path.starts_with(folder + "/");
}

// The name of a certificate's file.
bool IsFingerprint(const std::string& name) {
    return name.size() == 64 && name.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// Whether a path below the folder of the caches is one of an entry.
bool IsInACache(const std::string& path) {
    return path.find(std::string(MachineFiles::FinderCache) + "/") != std::string::npos ||
           path.find(std::string(MachineFiles::TokenCache) + "/") != std::string::npos;
}

const char* NameOf(FileKind kind) {
    switch (kind) {
        case FileKind::Folder:
            return "is a folder";
        case FileKind::Link:
            return "is a symbolic link";
        case FileKind::File:
            return "is a file";
        case FileKind::Other:
            break;
    }
    return "is no regular file";
}

}  // namespace

Machine::Machine(std::size_t most)
    : now(Platform::Clock().Now()),
      parameters(std::string()),
      root(ClientCommunications::GetProgramDataQuennetPath()),
      storeFolder(Required(Platform::Inspection().StoreFolder(parameters.storeName), "certificates lie")),
      key(Required(Platform::Inspection().MachineKey(), "the key lies")),
      tree(OwnFolders(), Habits(), most) {
    ReadAddress();
    ReadDatacenter();
}

std::string Machine::KeyFolder() const {
    return ParentOf(key.path);
}

std::string Machine::ComponentsFolder() const {
    return WithoutSlash(parameters.securityDirectory + MachineFiles::Components);
}

std::string Machine::CachesFolder() const {
    return WithoutSlash(parameters.securityDirectory + MachineFiles::Caches);
}

std::vector<std::string> Machine::OwnFolders() const {
    return {parameters.securityDirectory, ParentOf(storeFolder), KeyFolder()};
}

StateTree::Habits Machine::Habits() const {
    const std::string caches = CachesFolder(), components = ComponentsFolder(),
                      datacenter = ParentOf(parameters.securityDirectory + MachineFiles::DatacenterId);
    const auto isEntry = [caches](const std::string& path) {
        return IsBelow(path, caches) && IsInACache(path.substr(caches.size()));
    };
    const auto follows = [=, store = storeFolder, own = OwnFolders()](const std::string& folder) {
        if (folder == store || isEntry(folder)) return false;
        return std::find(own.begin(), own.end(), folder) != own.end() || folder == datacenter ||
               IsBelow(caches, folder) || folder == caches || IsBelow(folder, caches) ||
               folder == components || IsBelow(folder, components);
    };
    const auto makes = [=, key = key.path](const std::string& folder, const Entry& entry) {
        const std::string& name = entry.name;
        const std::string path = folder + "/" + name;
        if (SafeFileStorage::BlobNameOf(name) != name || Platform::Inspection().IsUnnamed(name)) return true;
        if (entry.details.kind == FileKind::Folder) return !isEntry(path);
        // All files of the configuration end as a record does.
        return !IsBelow(path, caches) && (name.ends_with(MachineFiles::ServiceRecord) ||
                                          name.ends_with(MachineFiles::ServiceRegistration) ||
                                          key.ends_with("/" + name) || IsFingerprint(name));
    };
    const auto opens = [=](const std::string& folder, bool amongOthers) {
        if (isEntry(folder)) return false;
        if (!amongOthers) return true;
        const bool isOfAClient = IsBelow(folder, components) && ParentOf(folder) != components;
        return isOfAClient
                   ? (folder + "/").find(MachineFiles::Services, components.size()) != std::string::npos
                   : !IsBelow(folder, caches) || isEntry(folder + "/");
    };
    return {opens, follows, makes};
}

void Machine::ReadAddress() {
    const std::string path = parameters.securityDirectory + MachineFiles::Bootstrap;
    try {
        const std::string text = ClientCommunications::FileStorage(path, true).Load();
        ClientCommunications::OmbrySecurityConfig config;
        ObjectMapping::DeserializeObject(config, text, nullptr, false);
        address.text = config.ssdsUri;
        if (address.text.empty()) address.failure = "holds no address";
    } catch (const std::exception&) {
        address = WhyUnreadable(path);
        if (address.failure.empty()) address.failure = "is damaged";
    }
}

void Machine::ReadDatacenter() {
    auto fromCommonFile = parameters;
    fromCommonFile.securityDirectory = parameters.commonConfigPath;  // no folder, and nothing below it
    try {
        datacenter.text = ClientCommunications::GetDatacenterId(fromCommonFile);
        isDatacenterCommon = true;
    } catch (const std::exception&) {
        const std::string path = parameters.securityDirectory + MachineFiles::DatacenterId;
        try {
            datacenter.text = ClientCommunications::GetDatacenterId(parameters);
        } catch (const std::exception&) {
            datacenter = WhyUnreadable(path);
            if (datacenter.failure.empty()) datacenter.failure = "cannot be read";
            return;
        }
    }
    if (datacenter.text.empty()) {
        datacenter.failure = "is empty";
    } else if (!IsHeaderText(datacenter.text)) {
        datacenter.failure = "holds line breaks, control characters or blanks around the id";
    }
}

std::string Machine::ConfigureCommand(bool withAddress, bool withDatacenter) const {
    const bool knowsAddress = withAddress && address.failure.empty() && IsSecureAddress(address.text);
    const bool knowsDatacenter = withDatacenter && datacenter.failure.empty();
    return "Ombry.SecClientConfig configure-bootstrap-url -u USER -p PASSWORD " +
           (knowsDatacenter ? "-d " + Quoted(datacenter.text) : std::string("-dn DATACENTER")) + " -r " +
           (knowsAddress ? Quoted(address.text) : std::string("URL"));
}

Machine::Reading Machine::WhyUnreadable(const std::string& path) const {
    const auto content = Platform::Files().Read(path);
    if (content) return {};
    if (const std::string obstacle = ObstacleTo(path); !obstacle.empty()) {
        return {{}, "is out of reach behind " + obstacle, false};
    }
    const bool isForbidden = Platform::Inspection().MeansForbidden(content.Error());
    if (isForbidden) return {{}, "may not be read by this user", true};
    const auto details = Platform::Inspection().Details(path);
    if (!details) return {{}, "is missing", false};
    if (details->kind != FileKind::File) return {{}, NameOf(details->kind), false};
    if (details->size > LongestFile) return {{}, TooLong, false, true};
    return {{}, "cannot be read, with error " + Platform::ErrorNumber(content.Error()), false};
}

std::string Machine::ObstacleTo(const std::string& path) const {
    Platform::IInspection& inspection = Platform::Inspection();
    for (std::size_t end = root.size(); end != std::string::npos; end = path.find('/', end + 1)) {
        std::string folder = path.substr(0, end);
        if (!inspection.Details(folder)) return {};  // the tool makes it, or may not look
        const auto target = inspection.Target(folder);
        if (!target ? inspection.MeansForbidden(target.Error()) : target->kind == FileKind::Folder) continue;
        return folder;
    }
    return {};
}

Duration Machine::AgeOf(TimePoint time) const {
    return std::max(Duration::zero(), now - time);
}

bool IsSecureAddress(const std::string& url) {
    const OmbryZephCore::ZephUrlParts parts = OmbryZephCore::ParseUrl(url);
    return parts.scheme == "https" && !parts.host.empty();
}

bool IsHeaderText(const std::string& text) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    return !text.empty() && text.front() != ' ' && text.back() != ' ' &&
           std::none_of(text.begin(), text.end(), isControl);
}

}  // namespace Ombry::Doctor
