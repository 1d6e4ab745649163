#include "ClientCommunications/Impl/ClientCommunications.h"

#include "ClientCommunications/Impl/AaSigningCertificateFinder.h"
#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "ClientCommunications/Impl/CachedSSDServiceFinder.h"
#include "ClientCommunications/Impl/ClientAuthenticator.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/DirectoryKeyValueStorage.h"
#include "ClientCommunications/Impl/EmptyAuthenticator.h"
#include "ClientCommunications/Impl/EndpointPaths.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"
#include "ClientCommunications/Impl/FailedServices.h"
#include "ClientCommunications/Impl/FileStorage.h"
#include "ClientCommunications/Impl/FixedTokenAuthenticator.h"
#include "ClientCommunications/Impl/HttpClientServiceGatewayFactory.h"
#include "ClientCommunications/Impl/JwtAuthenticator.h"
#include "ClientCommunications/Impl/LocalServiceFinderFactory.h"
#include "ClientCommunications/Impl/LocalServiceLookup.h"
#include "ClientCommunications/Impl/MachineFiles.h"
#include "ClientCommunications/Impl/NamedFileStorage.h"
#include "ClientCommunications/Impl/OAuth2ServiceGatewayClient.h"
#include "ClientCommunications/Impl/SSDFoundServicesCache.h"
#include "ClientCommunications/Impl/SafeFileStorage.h"
#include "ClientCommunications/Impl/SecretBuffer.h"
#include "ClientCommunications/Impl/Service.h"
#include "ClientCommunications/Impl/ServiceFinder.h"
#include "ClientCommunications/Impl/ServiceFinderFactory.h"
#include "ClientCommunications/Impl/ServiceGatewayFactory.h"
#include "ClientCommunications/Impl/ServiceIteratePolicyFactory.h"
#include "ClientCommunications/Impl/ServiceRequestFactory.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "ClientCommunications/LocalConfiguration.h"
#include "ObjectMapping/Serialization.h"

#include <functional>

namespace Ombry::ClientCommunications {
namespace {

constexpr Duration FirstRetryDelay = std::chrono::seconds(1);
constexpr Duration LongestRetryDelay = std::chrono::seconds(30);
constexpr Duration FailureRetention = std::chrono::minutes(30);
constexpr Duration TokenFreshnessLimit = std::chrono::seconds(10);

using GatewayFactoryMaker =
    std::function<std::shared_ptr<IServiceGatewayFactory>(std::shared_ptr<IAuthenticator>)>;

// The authenticator of all calls but those for tokens and those of the open gateway: it maintains the
// discovery list, and searches for the authorization service, for token calls as for its certificates.
std::shared_ptr<IAuthenticator> MakeAuthenticator(
    const CommunicationsParameters& parameters, const std::shared_ptr<IClientCredentials>& credentials,
    const std::shared_ptr<IServiceRequestFactory>& requestFactory,
    const std::shared_ptr<IServiceFinder>& aaFinder, const GatewayFactoryMaker& makeGatewayFactory) {
    if (!parameters.clientName.empty() || !parameters.userName.empty()) {
        const auto clientAuthenticator = std::make_shared<ClientAuthenticator>(credentials);
        const auto tokenGateway = makeGatewayFactory(clientAuthenticator)->Create(aaFinder);
        // The credentials are chosen by the client first, the path by the user first: with both given, the
        // client's secret goes to the users' endpoint. Callers give one of them.
        const char* const tokenPath =
            parameters.userName.empty() ? EndpointPaths::ClientTokens : EndpointPaths::UserTokens;
        const auto client = std::make_shared<OAuth2ServiceGatewayClient>(tokenGateway, requestFactory,
                                                                         tokenPath, parameters.logger);
        return std::make_shared<JwtAuthenticator>(client,
                                                  parameters.cacheDirectory + MachineFiles::TokenCache,
                                                  TokenFreshnessLimit, parameters.logger);
    }
    if (!parameters.fixedToken.empty())
        return std::make_shared<FixedTokenAuthenticator>(parameters.fixedToken);
    return std::make_shared<EmptyAuthenticator>();
}

}  // namespace

// Each step is a statement of its own: the steps fail in their order, and what the earlier ones started is
// joined.
ClientCommunications::ClientCommunications(
    const CommunicationsParameters& parameters,
    std::shared_ptr<IHttpClientServiceGatewayFactory> httpGatewayFactory)
    : logger(parameters.logger) {
    const auto credentials = CreateCredentials(parameters);
    const std::string datacenterId = GetDatacenterId(parameters);

    std::string clientId = credentials->GetClientId();
    const ScopedWipe wipe(clientId);
    requestFactory = std::make_shared<ServiceRequestFactory>(clientId, credentials->GetName(), datacenterId);

    const auto retryFactory =
        std::make_shared<ExponentialDelayRetryIteratorFactory>(FirstRetryDelay, LongestRetryDelay);
    const auto failedServices = std::make_shared<FailedServices>(retryFactory, FailureRetention);
    policyFactory = std::make_shared<ServiceIteratePolicyFactory>(failedServices, logger);
    const auto policy = policyFactory->CreateIterateAfterMaxFailures(1);
    if (!httpGatewayFactory)
        httpGatewayFactory = std::make_shared<HttpClientServiceGatewayFactory>(logger, parameters.verbose);
    const GatewayFactoryMaker makeGatewayFactory = [&](std::shared_ptr<IAuthenticator> authenticator) {
        return std::make_shared<ServiceGatewayFactory>(httpGatewayFactory, std::move(authenticator), policy);
    };

    const auto ssdsStorage =
        std::make_shared<SafeFileStorage>(parameters.cacheDirectory + MachineFiles::DiscoveryCache, false);
    const auto seeds = LoadBootstrapFoundServices(parameters);
    const auto ssdsCache = std::make_shared<SSDFoundServicesCache>(seeds, ssdsStorage, logger);
    const auto ssdsFinder = std::make_shared<CachedSSDServiceFinder>(ssdsCache);

    // Two gateways lead to the discovery service. This one goes out as nobody, on the open paths, and serves
    // what the authenticator itself stands on: with the token authenticator here a token call would search
    // for the authorization service, which would call for a token, without end.
    const auto openGateway = makeGatewayFactory(std::make_shared<EmptyAuthenticator>())->Create(ssdsFinder);
    const auto maintainerFinder = std::make_shared<ServiceFinder>(
        openGateway, requestFactory, nullptr, logger, EndpointPaths::OpenDiscoveryOfItself);
    maintainer = std::make_unique<SSDCacheMaintainer>(maintainerFinder, ssdsCache, logger);

    const auto finderCache =
        std::make_shared<DirectoryKeyValueStorage>(parameters.cacheDirectory + MachineFiles::FinderCache);
    const auto aaFinder = std::make_shared<ServiceFinder>(openGateway, requestFactory, finderCache, logger,
                                                          EndpointPaths::OpenDiscoveryOfAuthorization);
    const auto authenticator =
        MakeAuthenticator(parameters, credentials, requestFactory, aaFinder, makeGatewayFactory);
    certificateFinder = std::make_shared<AaSigningCertificateFinder>(aaFinder);
    gatewayFactory = makeGatewayFactory(authenticator);
    const auto secureGateway = gatewayFactory->Create(ssdsFinder);
    finderFactory =
        std::make_shared<ServiceFinderFactory>(secureGateway, requestFactory, finderCache, logger);

    const auto localRecords = std::make_shared<NamedFileStorage>(
        MachineFiles::ServicesOf(parameters.securityDirectory, parameters.clientName),
        MachineFiles::ServiceRecord, true);
    localFinderFactory = std::make_shared<LocalServiceFinderFactory>(
        std::make_shared<LocalServiceLookup>(localRecords), finderFactory);
}

std::shared_ptr<IClientCredentials> CreateCredentials(const CommunicationsParameters& parameters) {
    if (!parameters.clientName.empty()) {
        const auto store = CreateClientCredentialsStore(parameters.securityDirectory, true, nullptr);
        return LoadExisting(*store, parameters.clientName);
    }
    const auto make = [](const std::string& name, const std::string& secret) {
        return std::make_shared<ClientCredentials>(std::make_shared<WindowsInMemoryDataProtection>(), name,
                                                   name, secret);
    };
    if (!parameters.userName.empty()) return make(parameters.userName, parameters.password);
    if (!parameters.fixedToken.empty()) return make("FixedToken", parameters.fixedToken);
    return make("NoCreds", std::string());
}

std::shared_ptr<FoundServices> LoadBootstrapFoundServices(const CommunicationsParameters& parameters) {
    const std::string text = FileStorage(parameters.securityDirectory + MachineFiles::Bootstrap, true).Load();
    OmbrySecurityConfig config;
    ObjectMapping::DeserializeObject(config, text, nullptr, false);
    ServiceDto seed;
    seed.serviceName = EndpointPaths::DiscoveryService;
    seed.endpointUrl = config.ssdsUri;
    seed.endpointCert = getBootstrapSsdsCertificate(parameters);
    FoundServicesDto dto;
    dto.local.push_back(std::move(seed));
    return std::make_shared<FoundServices>(std::move(dto));
}

std::shared_ptr<IClientCommunications> MakeClientCommunications(const CommunicationsParameters& parameters) {
    auto communications = std::make_shared<ClientCommunications>(parameters);
    communications->StartMaintainer();
    return communications;
}

std::shared_ptr<IClientCommunications> MakeCommunications(const std::string& userName,
                                                          const std::string& password,
                                                          const std::string& clientName,
                                                          const std::string& token) {
    CommunicationsParameters parameters{std::string()};
    // The user name first: it does not move the cache directory, and the client name then no longer does.
    parameters.SetUserName(userName);
    parameters.SetPassword(password);
    parameters.SetClientName(clientName);
    parameters.SetFixedToken(token);
    return MakeClientCommunications(parameters);
}

}  // namespace Ombry::ClientCommunications
