#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/IServiceRequestFactory.h"
#include "LibraryLogger/ILogger.h"

namespace Ombry::ClientCommunications {

// The parts of the small gateway stack that works before a machine is configured. Nothing but `ClientConfig`
// uses them.

/// Makes plain requests, without the headers that tell a service who calls from where: there is no such
/// knowledge yet.
class BootstrapServiceRequestFactory : public IServiceRequestFactory {
public:
    /// The metadata is dropped.
    std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                            const std::string& contractVersion,
                                            std::shared_ptr<IRootRequestMetaData> metaData) override;
    std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                            const std::string& contractVersion) override;
};

/// Puts a bearer token on each request that it asks for anew each time; nothing is kept between calls.
class NoncachingOAuth2Authenticator : public IAuthenticator {
public:
    NoncachingOAuth2Authenticator(std::shared_ptr<LibraryLogger::ILogger> logger,
                                  std::shared_ptr<IServiceGateway> tokenGateway,
                                  std::shared_ptr<IServiceRequestFactory> requestFactory,
                                  std::string serviceName, std::string tokenPath);

    void AddAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService> service,
                           Cancellation::Token token) override;

private:
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const std::shared_ptr<IServiceGateway> tokenGateway;
    const std::shared_ptr<IServiceRequestFactory> requestFactory;
    const std::string serviceName;
    const std::string tokenPath;
};

/// Authenticates each request and passes the call on. A refusal is the answer: there is no second try here.
class AuthenticatingServiceGateway : public IServiceGateway {
public:
    AuthenticatingServiceGateway(std::shared_ptr<IAuthenticator> authenticator,
                                 std::shared_ptr<IServiceGateway> inner)
        : authenticator(std::move(authenticator)), inner(std::move(inner)) {}

    std::shared_ptr<IStringServiceResponse> CallForString(std::shared_ptr<IServiceRequest> request,
                                                          Cancellation::Token token) override;
    std::shared_ptr<IStreamServiceResponse> CallForStream(std::shared_ptr<IServiceRequest> request,
                                                          std::shared_ptr<ISyncWriter> writer,
                                                          Cancellation::Token token) override;

private:
    const std::shared_ptr<IAuthenticator> authenticator;
    const std::shared_ptr<IServiceGateway> inner;
};

}  // namespace Ombry::ClientCommunications
