#pragma once

#include "ClientCommunications/CommunicationsParameters.h"
#include "ClientCommunications/IClientCommunications.h"
#include "ClientCommunications/IClientCredentialsStore.h"
#include "ClientCommunications/IPostSaveHook.h"

#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace Ombry::SecClientConfig {

struct ClientEnrollmentRequest {
    std::optional<std::string> name;
    std::optional<std::string> description;
    std::shared_ptr<ClientCommunications::IPostSaveHook> postSaveHook;
    std::optional<std::map<std::string, std::list<std::string>>> rolesPerService;
};

struct ServiceEnrollmentRequest {
    std::optional<std::string> clientName;
    std::optional<std::string> serviceName;
    std::optional<std::string> directUrl;
    std::optional<std::string> directCert;
    std::optional<std::string> endpointUrl;
    std::optional<std::string> endpointCert;
    std::optional<std::string> serviceHostname;
    std::optional<std::string> serviceNamespace;
    std::optional<std::list<std::string>> roles;
    std::optional<int> ttlSeconds;
    std::optional<std::map<std::string, std::string>> serviceProps;
};

/// Enrols clients and services at the service and keeps their records on this machine. Failures are
/// exceptions; nothing is rolled back. One thread.
class EnrollmentManager {
public:
    explicit EnrollmentManager(std::shared_ptr<ClientCommunications::IClientCommunications> communications);

    /// An earlier enrolment of the name on this machine is removed first, as far as that works.
    void EnrollClient(ClientEnrollmentRequest request);
    /// Without a record on this machine there is nothing to do.
    void UnenrollClient(const std::string& name);
    /// Removes the client that the caller acts as.
    void UnenrollClientSelf(const std::string& name);
    /// Earlier registrations of the same name, namespace and host are removed first.
    void EnrollService(ServiceEnrollmentRequest request);
    /// Works from the record on this machine; without one there is nothing to do.
    void UnenrollService(const std::string& owner, const std::string& serviceName);

private:
    std::shared_ptr<ClientCommunications::IClientCredentialsStore> MakeStore(
        std::shared_ptr<ClientCommunications::IPostSaveHook> postSaveHook = nullptr) const;
    void RemoveEarlierEnrollment(ClientCommunications::IClientCredentialsStore& store,
                                 const std::string& name);
    void RemoveEarlierRegistrations(const std::string& name, const std::string& serviceNamespace,
                                    const std::string& host);
    ClientCommunications::CommunicationsParameters MakeParameters(const std::string& clientName) const;

    std::shared_ptr<ClientCommunications::IClientCommunications> communications;
    std::string securityDirectory;
};

}  // namespace Ombry::SecClientConfig
