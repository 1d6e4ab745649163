#include "ClientCommunications/Impl/ClientConfig.h"

#include "ClientCommunications/Impl/AuthenticatingServiceGateway.h"
#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "ClientCommunications/Impl/ClientAuthenticator.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/EndpointPaths.h"
#include "ClientCommunications/Impl/FileStorage.h"
#include "ClientCommunications/Impl/FixedTokenAuthenticator.h"
#include "ClientCommunications/Impl/HttpClientServiceGateway.h"
#include "ClientCommunications/Impl/LowerCase.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/Impl/NoncachingOAuth2Authenticator.h"
#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "ClientCommunications/Impl/Service.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "ClientCommunications/LocalConfiguration.h"
#include "ObjectMapping/Serialization.h"
#include "ObjectMapping/VectorArray.h"
#include "OmbryZephCore/ZephUrl.h"

#include <algorithm>
#include <stdexcept>

namespace Ombry::ClientCommunications {

ClientConfig::ClientConfig(ClientConfigParameters given)
    : parameters(std::move(given)),
      connectionParameters(MakeConnectionParameters(parameters.sfsUrl)),
      requestFactory(std::make_shared<BootstrapServiceRequestFactory>()),
      gateway(MakeGateway()) {}

std::shared_ptr<OmbryZephCore::ZephSorrelConnectionParameters> MakeConnectionParameters(
    const std::string& url) {
    const OmbryZephCore::ZephUrlParts parts = OmbryZephCore::ParseUrl(LowerCase(url));
    const bool isHttps = parts.scheme == "https";
    std::uint16_t port = isHttps ? 443 : 80;
    if (!parts.port.empty()) port = static_cast<std::uint16_t>(ParseUnsigned32(parts.port) & 0xffff);
    auto connection = std::make_shared<OmbryZephCore::ZephSorrelConnectionParameters>(parts.host, port);
    connection->SetUseSSL(isHttps).SetCertificateValidation({OmbryZephCore::ValidateNothing, std::string()});
    return connection;
}

std::shared_ptr<IServiceGateway> ClientConfig::MakeGateway() const {
    ServiceDto dto;
    dto.endpointUrl = parameters.sfsUrl;
    const auto pool = std::make_shared<OmbryZephCore::ZephSorrelSyncConnectionPool>(parameters.logger);
    pool->SetVerbose(parameters.verbose);
    const auto base = std::make_shared<HttpClientServiceGateway>(std::make_shared<Service>(std::move(dto)),
                                                                 pool, parameters.logger, parameters.verbose);
    if (!parameters.clientName.empty()) {
        const auto store = CreateClientCredentialsStore(parameters.securityDirectory, true, nullptr);
        return MakeTokenGateway(base, LoadExisting(*store, parameters.clientName),
                                EndpointPaths::ClientTokens);
    }
    if (!parameters.userName.empty()) {
        const auto credentials = std::make_shared<ClientCredentials>(
            std::make_shared<WindowsInMemoryDataProtection>(), parameters.userName, parameters.userName,
            parameters.password);
        return MakeTokenGateway(base, credentials, EndpointPaths::UserTokens);
    }
    if (!parameters.fixedToken.empty()) {
        return std::make_shared<AuthenticatingServiceGateway>(
            std::make_shared<FixedTokenAuthenticator>(parameters.fixedToken), base);
    }
    return base;
}

// Two deep: the call for a token carries id and secret, every other call carries the token.
std::shared_ptr<IServiceGateway> ClientConfig::MakeTokenGateway(
    std::shared_ptr<IServiceGateway> base, std::shared_ptr<IClientCredentials> credentials,
    const std::string& tokenPath) const {
    const auto tokenCall = std::make_shared<AuthenticatingServiceGateway>(
        std::make_shared<ClientAuthenticator>(std::move(credentials)), base);
    const auto authenticator = std::make_shared<NoncachingOAuth2Authenticator>(
        parameters.logger, tokenCall, requestFactory, EndpointPaths::DatacenterService, tokenPath);
    return std::make_shared<AuthenticatingServiceGateway>(authenticator, base);
}

void ClientConfig::GetDatacenters(std::vector<Datacenter>& out) {
    const std::shared_ptr<IServiceRequest> request =
        requestFactory->Create("GET", EndpointPaths::Datacenters, "1");
    const auto response = gateway->CallForString(request, Cancellation::Token());
    if (response->GetStatusCode() != 200) {
        throw std::runtime_error(request->GetMethod() + " " + request->GetPath() +
                                 " failed with http status " + std::to_string(response->GetStatusCode()) +
                                 ".");
    }
    const auto deserializer = ObjectMapping::CreateJSONDeserializer(false);
    deserializer->Begin(response->GetBody());
    ObjectMapping::VectorArray array(out);
    deserializer->Field(nullptr, array, nullptr);
    deserializer->End();
}

void ClientConfig::Configure() {
    ResolveDatacenter();
    OmbryZephCore::ZephIOBuffer certificate(4096, 0x1000000);
    OmbryZephCore::ZephSorrelConnectionParameters connection(*connectionParameters);
    bootstrapCertificate =
        getCertificateByConnecting(certificate, parameters.logger, connection, parameters.verbose);
    saveBootstrapCertificate(parameters, certificate);
    StoreConfiguration();
}

// Finds the datacenter by its id, or failing that by its name, and keeps its id.
void ClientConfig::ResolveDatacenter() {
    std::vector<Datacenter> datacenters;
    GetDatacenters(datacenters);
    if (!datacenterId.empty() &&
        std::any_of(datacenters.begin(), datacenters.end(),
                    [&](const Datacenter& each) { return each.id == datacenterId; })) {
        return;
    }
    if (!datacenterName.empty()) {
        const auto found = std::find_if(datacenters.begin(), datacenters.end(),
                                        [&](const Datacenter& each) { return each.name == datacenterName; });
        if (found != datacenters.end()) {
            datacenterId = found->id;
            return;
        }
    }
    throw std::runtime_error("Unknown datacenter id '" + datacenterId + "' or name '" + datacenterName + "'");
}

void ClientConfig::StoreConfiguration() {
    OmbrySecurityConfig config;
    config.ssdsUri = parameters.sfsUrl;
    FileStorage(parameters.securityDirectory + MachineFiles::Bootstrap, true)
        .Save(ObjectMapping::SerializeObject(config, nullptr));
    FileStorage(parameters.securityDirectory + MachineFiles::DatacenterId, true).Save(datacenterId);
}

void Datacenter::Map(ObjectMapping::MapperIf& mapper) {
    mapper.Field("id", id, &hasId);
    mapper.Field("name", name, &hasName);
}

void Datacenter::Reset() {
    *this = Datacenter();
}

ClientConfigParameters& ClientConfigParameters::SetUserName(const std::string& name) {
    CommunicationsParameters::SetUserName(name);
    return *this;
}

ClientConfigParameters& ClientConfigParameters::SetPassword(const std::string& text) {
    CommunicationsParameters::SetPassword(text);
    return *this;
}

ClientConfigParameters& ClientConfigParameters::SetFixedToken(const std::string& token) {
    CommunicationsParameters::SetFixedToken(token);
    return *this;
}

ClientConfigParameters& ClientConfigParameters::SetSfsUrl(const std::string& url) {
    sfsUrl = url;
    return *this;
}

std::shared_ptr<IClientConfig> ClientConfigParameters::Build() const {
    return std::make_shared<ClientConfig>(*this);
}

}  // namespace Ombry::ClientCommunications
