#pragma once

#include <string>

/// Where the files of this library lie on a machine: their names stand here and nowhere else in the house.
/// The platform names its own, such as its key, in its own folder; the collection for Ansible spells those
/// that it reads.
namespace Ombry::ClientCommunications::MachineFiles {

// Below the Quennet folder. That the certificate store is called as the first is a fact of its own
// (`CommunicationsParameters::storeName`).
inline constexpr const char* SecurityDirectory = "/OmbrySecurity";
inline constexpr const char* CommonConfig = "/common.config";

// Below the security directory.
inline constexpr const char* Bootstrap = "/ombrysecurity.config";
inline constexpr const char* DatacenterId = "/CS/datacenterid.config";
inline constexpr const char* Caches = "/CS-cpp/cache/";    ///< a folder for each client, by its name
inline constexpr const char* Components = "/Components/";  ///< a folder for each client, by its name

// Below a client's folder of the components.
inline constexpr const char* Credentials = "/ombrycomponent.config";
inline constexpr const char* Services = "/Services/";  ///< a record for each service, by its name
inline constexpr const char* ServiceRecord = ".config";
/// Beside a record: what the service was registered as, which the module for Ansible notes.
inline constexpr const char* ServiceRegistration = ".registration.json";

// Below a cache directory.
inline constexpr const char* DiscoveryCache = "/v1-service.cache";
inline constexpr const char* FinderCache = "/finder_cache";
inline constexpr const char* TokenCache = "/aa_token";

/// What stands before the name of a service in the path of its record; `ServiceRecord` stands behind it.
inline std::string ServicesOf(const std::string& securityDirectory, const std::string& clientName) {
    return securityDirectory + Components + clientName + Services;
}

}  // namespace Ombry::ClientCommunications::MachineFiles
