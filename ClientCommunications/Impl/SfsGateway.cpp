#include "ClientCommunications/SfsGateway.h"

#include "ClientCommunications/Impl/EndpointPaths.h"
#include "ClientCommunications/Impl/KnownHeaders.h"
#include "ClientCommunications/Impl/SecretBuffer.h"
#include "ObjectMapping/Serialization.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>

namespace Ombry::ClientCommunications::SfsGateway {
namespace {

using EndpointPaths::AuthService;
using EndpointPaths::DiscoveryService;

constexpr const char* AuthContract = "1";
constexpr const char* ServiceContract = "1.0.0.0";

struct Operation {
    const char* function;  // as the failure names it
    const char* serviceName;
    const char* contractVersion;
    const char* method;
    std::string path;
    std::initializer_list<int> acceptedStatuses;
};

// Makes the call; `record` is its body and may be null. The answer's body is read only to quote it in a
// failure.
void Call(IClientCommunications& communications, const Operation& operation,
          ObjectMapping::ObjectIf* record) {
    const auto finder = communications.GetServiceFinderFactory()->CreateByName(operation.serviceName);
    const auto gateway = communications.GetServiceGatewayFactory()->Create(finder);
    const auto request = communications.GetServiceRequestFactory()->Create(operation.method, operation.path,
                                                                           operation.contractVersion);
    if (record) {
        request->SetHeader(NameOf(KnownHeader::ContentType), "application/json");
        std::string body = ObjectMapping::SerializeObject(*record, nullptr);
        const ScopedWipe wipe(body);
        request->SetBody(body);
    }
    const auto response = gateway->CallForString(request, Cancellation::Token());
    const int status = response->GetStatusCode();
    if (std::find(operation.acceptedStatuses.begin(), operation.acceptedStatuses.end(), status) !=
        operation.acceptedStatuses.end()) {
        return;
    }
    throw std::runtime_error(std::string(operation.function) + ": unexpected http status " +
                             std::to_string(status) + " body = '" + response->GetBody() + "'");
}

}  // namespace

void EnrollClient(std::shared_ptr<IClientCommunications> communications, const LocationAwareClient& client) {
    LocationAwareClient record = client;  // mapping takes a mutable object, whichever the direction
    Call(*communications,
         {"EnrollClient", AuthService, AuthContract, "POST", EndpointPaths::LocationAwareClients, {201}},
         &record);
}

void DeleteClient(std::shared_ptr<IClientCommunications> communications) {
    Call(*communications,
         {"DeleteClient", AuthService, AuthContract, "DELETE", EndpointPaths::CallingClient, {204, 404}},
         nullptr);
}

void DeleteClientById(std::shared_ptr<IClientCommunications> communications, const std::string& id) {
    Call(
        *communications,
        {"DeleteClientById", AuthService, AuthContract, "DELETE", EndpointPaths::ClientById + id, {204, 404}},
        nullptr);
}

void EnrollService(std::shared_ptr<IClientCommunications> communications, const ServiceEnrollment& service) {
    ServiceEnrollment record = service;
    Call(*communications,
         {"EnrollService", DiscoveryService, ServiceContract, "POST", EndpointPaths::Services, {201}},
         &record);
}

// Unlike a client's deletion, a service's is answered with 200.
void DeleteServiceById(std::shared_ptr<IClientCommunications> communications, const std::string& id) {
    Call(*communications,
         {"DeleteServiceById",
          DiscoveryService,
          ServiceContract,
          "DELETE",
          EndpointPaths::ServiceById + id,
          {200, 404}},
         nullptr);
}

}  // namespace Ombry::ClientCommunications::SfsGateway
