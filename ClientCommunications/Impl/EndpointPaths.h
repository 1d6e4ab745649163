#pragma once

/// The paths of the calls, and the names of the services that they go to, here and nowhere else. To a path
/// that ends in "/" a name or an id is added, and to that of a name what narrows a search, which
/// `ServiceFinderFactory` spells.
namespace Ombry::ClientCommunications::EndpointPaths {

inline constexpr const char* AuthService = "v1-auth";
inline constexpr const char* DiscoveryService = "v1-service";
inline constexpr const char* DatacenterService = "v1-ddbmanagement";

inline constexpr const char* ClientTokens = "/v1/auth/clients/servicetokens";
inline constexpr const char* UserTokens = "/v1/auth/users/servicetokens";

inline constexpr const char* LocationAwareClients = "/v1/auth/locationawareclients";
inline constexpr const char* CallingClient = "/v1/auth/clients";
inline constexpr const char* ClientById = "/v1/auth/clients/";
inline constexpr const char* Services = "/v1/services/services";
inline constexpr const char* ServiceById = "/v1/services/services/";
inline constexpr const char* Datacenters = "/v1/ddb/datacenters";

// Discovery. The open paths answer to anybody, the others to whoever has a token.
inline constexpr const char* OpenDiscoveryOfItself = "/services/services/nonsecure/name/ssds";
inline constexpr const char* OpenDiscoveryOfAuthorization = "/services/services/nonsecure/name/aa";
inline constexpr const char* DiscoveryById = "/services/service/secure/id/";
inline constexpr const char* DiscoveryByName = "/services/services/secure/name/";

}  // namespace Ombry::ClientCommunications::EndpointPaths
