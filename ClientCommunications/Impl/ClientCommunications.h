#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IClientCommunications.h"
#include "ClientCommunications/IClientCredentials.h"
#include "ClientCommunications/IHttpClientServiceGatewayFactory.h"
#include "ClientCommunications/Impl/FoundServices.h"
#include "ClientCommunications/Impl/SSDCacheMaintainer.h"

namespace Ombry::ClientCommunications {

/// The composition root: its constructor is the design. It owns, through the factories, the one memory of
/// failures, the one connection pool, the caches and the authenticator.
class ClientCommunications : public IClientCommunications {
public:
    /// `httpGatewayFactory`: what carries an exchange with one server; null, as by default, for HTTP over a
    /// connection pool of its own.
    explicit ClientCommunications(
        const CommunicationsParameters& parameters,
        std::shared_ptr<IHttpClientServiceGatewayFactory> httpGatewayFactory = nullptr);

    std::shared_ptr<IServiceGatewayFactory> GetServiceGatewayFactory() override { return gatewayFactory; }
    std::shared_ptr<IServiceFinderFactory> GetServiceFinderFactory() override { return finderFactory; }
    std::shared_ptr<ILocalServiceFinderFactory> GetLocalServiceFinderFactory() override {
        return localFinderFactory;
    }
    std::shared_ptr<IServiceIteratePolicyFactory> GetServiceIteratePolicyFactory() override {
        return policyFactory;
    }
    std::shared_ptr<IServiceRequestFactory> GetServiceRequestFactory() override { return requestFactory; }
    std::shared_ptr<IAaSigningCertificateFinder> GetAaSigningCertificateFinder() override {
        return certificateFinder;
    }

    void StartMaintainer() { maintainer->Start(); }

private:
    std::shared_ptr<LibraryLogger::ILogger> logger;
    std::shared_ptr<IServiceRequestFactory> requestFactory;
    std::shared_ptr<IServiceIteratePolicyFactory> policyFactory;
    std::shared_ptr<IServiceGatewayFactory> gatewayFactory;
    std::shared_ptr<IServiceFinderFactory> finderFactory;
    std::shared_ptr<ILocalServiceFinderFactory> localFinderFactory;
    std::shared_ptr<IAaSigningCertificateFinder> certificateFinder;
    std::unique_ptr<SSDCacheMaintainer>
        maintainer;  // last: its thread stops before anything that it uses goes
};

/// Who acts, by the first of client name, user name and fixed token that is given.
std::shared_ptr<IClientCredentials> CreateCredentials(const CommunicationsParameters& parameters);

/// The seed of the discovery cache: the service that this machine was tied to, with the certificate that it
/// showed.
std::shared_ptr<FoundServices> LoadBootstrapFoundServices(const CommunicationsParameters& parameters);

}  // namespace Ombry::ClientCommunications
