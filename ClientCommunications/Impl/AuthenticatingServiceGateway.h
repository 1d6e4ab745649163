#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/IStreamServiceResponse.h"
#include "ClientCommunications/IStringServiceResponse.h"

#include <memory>

namespace Ombry::ClientCommunications {

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
