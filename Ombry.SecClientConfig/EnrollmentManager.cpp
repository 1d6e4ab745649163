#include "Ombry.SecClientConfig/EnrollmentManager.h"

#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/GuidText.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/Impl/NamedFileStorage.h"
#include "ClientCommunications/Impl/SecretBuffer.h"
#include "ClientCommunications/LocalConfiguration.h"
#include "ClientCommunications/SfsGateway.h"
#include "ObjectMapping/Serialization.h"

#include <stdexcept>

namespace Ombry::SecClientConfig {
namespace {

namespace Communications = ClientCommunications;
namespace Sfs = ClientCommunications::SfsGateway;

// Credentials on their way into the store; wiped when they have arrived.
class NewCredentials : public Communications::IClientCredentials {
public:
    NewCredentials(std::string name, std::string clientId, std::string clientSecret)
        : name(std::move(name)), clientId(std::move(clientId)), clientSecret(std::move(clientSecret)) {}
    ~NewCredentials() override {
        for (std::string* text : {&name, &clientId, &clientSecret})
            Platform::SecureWipe(*text);
    }
    NewCredentials(const NewCredentials&) = delete;
    NewCredentials& operator=(const NewCredentials&) = delete;

    std::string GetName() override { return name; }
    std::string GetClientId() override { return clientId; }
    std::string GetClientSecret() override { return clientSecret; }

private:
    std::string name;
    std::string clientId;
    std::string clientSecret;
};

template <class T>
const T& Require(const std::optional<T>& property) {
    if (!property) throw std::runtime_error("property is not set");
    return *property;
}

template <class Property, class T>
void SetIfGiven(Property& property, const std::optional<T>& value) {
    if (value) property.Set(*value);
}

Communications::NamedFileStorage MakeServiceRecords(const std::string& securityDirectory,
                                                    const std::string& owner) {
    return Communications::NamedFileStorage(
        Communications::MachineFiles::ServicesOf(securityDirectory, owner),
        Communications::MachineFiles::ServiceRecord, true);
}

std::list<Sfs::ServicePropsInner> MakeServiceProps(const std::map<std::string, std::string>& pairs) {
    std::list<Sfs::ServicePropsInner> props;
    for (const auto& [key, value] : pairs) {
        Sfs::ServicePropsInner inner;
        inner.key.Set(key);
        inner.value.Set(value);
        props.push_back(std::move(inner));
    }
    return props;
}

}  // namespace

EnrollmentManager::EnrollmentManager(std::shared_ptr<Communications::IClientCommunications> communications)
    : communications(std::move(communications)),
      securityDirectory(Communications::CommunicationsParameters(std::string()).securityDirectory) {}

Communications::CommunicationsParameters EnrollmentManager::MakeParameters(
    const std::string& clientName) const {
    Communications::CommunicationsParameters parameters(clientName);
    parameters.SetSecurityDirectory(securityDirectory);
    return parameters;
}

std::shared_ptr<Communications::IClientCredentialsStore> EnrollmentManager::MakeStore(
    std::shared_ptr<Communications::IPostSaveHook> postSaveHook) const {
    return Communications::CreateClientCredentialsStore(securityDirectory, true, std::move(postSaveHook));
}

void EnrollmentManager::EnrollClient(ClientEnrollmentRequest request) {
    const std::string& name = Require(request.name);
    const Communications::CommunicationsParameters parameters = MakeParameters(name);
    const auto store = MakeStore(request.postSaveHook);
    RemoveEarlierEnrollment(*store, name);
    std::string clientId = Communications::MakeGuidText();
    const Communications::ScopedWipe wipeId(clientId);
    std::string clientSecret = Communications::MakeGuidText();
    const Communications::ScopedWipe wipeSecret(clientSecret);
    Sfs::LocationAwareClient client;
    client.id.Set(clientId);
    client.clientSecretId.Set(clientSecret);
    client.datacenterId.Set(Communications::GetDatacenterId(parameters));
    SetIfGiven(client.description, request.description);
    // Always empty: the service hands out roles by its own rules, and the roles of the request reach no part
    // of the body.
    client.rolesPerService.Set(Sfs::EmptyDictionary());
    Sfs::EnrollClient(communications, client);
    store->Save(std::make_shared<NewCredentials>(name, clientId, clientSecret));
}

// A first enrolment passes through here too, as a failed `Load`. Whatever goes wrong, the new enrolment goes
// on, so that a machine can always be enrolled anew.
void EnrollmentManager::RemoveEarlierEnrollment(Communications::IClientCredentialsStore& store,
                                                const std::string& name) {
    try {
        const auto old = Communications::LoadExisting(store, name);
        std::string id = old->GetClientId();
        const Communications::ScopedWipe wipe(id);
        Sfs::DeleteClientById(communications, id);
        store.Delete(name);
    } catch (const std::exception&) {
    }
}

void EnrollmentManager::UnenrollClient(const std::string& name) {
    const auto store = MakeStore();
    std::string id;
    const Communications::ScopedWipe wipe(id);
    try {
        id = Communications::LoadExisting(*store, name)->GetClientId();
    } catch (const std::exception&) {
        return;  // not enrolled from this machine
    }
    Sfs::DeleteClientById(communications, id);
    store->Delete(name);
}

void EnrollmentManager::UnenrollClientSelf(const std::string& name) {
    Sfs::DeleteClient(communications);
    MakeStore()->Delete(name);
}

void EnrollmentManager::EnrollService(ServiceEnrollmentRequest request) {
    const std::string& clientName = Require(request.clientName);
    const Communications::CommunicationsParameters parameters = MakeParameters(clientName);
    const auto owner = Communications::LoadExisting(*MakeStore(), clientName);
    const std::string& serviceNamespace = Require(request.serviceNamespace);
    const std::string& host = Require(request.serviceHostname);
    const std::string& name = Require(request.serviceName);
    RemoveEarlierRegistrations(name, serviceNamespace, host);

    const std::string serviceId = Communications::MakeGuidText();
    Sfs::ServiceEnrollment enrollment;
    enrollment.serviceId.Set(serviceId);
    enrollment.serviceName.Set(name);
    enrollment.clientId.Set(owner->GetClientId());
    enrollment.directUrl.Set(Require(request.directUrl));
    SetIfGiven(enrollment.directCert, request.directCert);
    enrollment.endpointUrl.Set(Require(request.endpointUrl));
    SetIfGiven(enrollment.endpointCert, request.endpointCert);
    enrollment.serviceHostname.Set(host);
    enrollment.serviceNamespace.Set(serviceNamespace);
    enrollment.datacenterId.Set(Communications::GetDatacenterId(parameters));
    SetIfGiven(enrollment.roles, request.roles);
    if (request.serviceProps) enrollment.serviceProps.Set(MakeServiceProps(*request.serviceProps));
    SetIfGiven(enrollment.ttlSeconds, request.ttlSeconds);
    Sfs::EnrollService(communications, enrollment);

    Communications::LocalServiceStorageDto record;
    record.guid = serviceId;
    auto records = MakeServiceRecords(securityDirectory, clientName);
    records.Get(name)->Save(ObjectMapping::SerializeObject(record, nullptr));
}

// A service is known by name, namespace and host. A deletion that fails ends the command.
void EnrollmentManager::RemoveEarlierRegistrations(const std::string& name,
                                                   const std::string& serviceNamespace,
                                                   const std::string& host) {
    const auto finder =
        communications->GetServiceFinderFactory()->CreateByNameNamespaceAndHost(name, serviceNamespace, host);
    const auto found = finder->Find(Cancellation::Token());
    for (const auto& service : found->GetAll())
        Sfs::DeleteServiceById(communications, service->GetId());
}

void EnrollmentManager::UnenrollService(const std::string& owner, const std::string& serviceName) {
    auto records = MakeServiceRecords(securityDirectory, owner);
    const auto file = records.Get(serviceName);
    std::string text;
    try {
        text = file->Load();
    } catch (const std::exception&) {
        return;  // not enrolled from this machine
    }
    // Not strict: a record that lacks its id asks the service for the deletion of none, and the service
    // judges that.
    Communications::LocalServiceStorageDto record;
    ObjectMapping::DeserializeObject(record, text, nullptr, false);
    Sfs::DeleteServiceById(communications, record.guid);
    records.Delete(serviceName);
}

}  // namespace Ombry::SecClientConfig
