#include "ClientCommunications/Impl/AuthenticatingServiceGateway.h"

namespace Ombry::ClientCommunications {

std::shared_ptr<IStringServiceResponse> AuthenticatingServiceGateway::CallForString(
    std::shared_ptr<IServiceRequest> request, Cancellation::Token token) {
    authenticator->AddAuthentication(request, nullptr, token);
    return inner->CallForString(std::move(request), token);
}

std::shared_ptr<IStreamServiceResponse> AuthenticatingServiceGateway::CallForStream(
    std::shared_ptr<IServiceRequest> request, std::shared_ptr<ISyncWriter> writer,
    Cancellation::Token token) {
    authenticator->AddAuthentication(request, nullptr, token);
    return inner->CallForStream(std::move(request), std::move(writer), token);
}

}  // namespace Ombry::ClientCommunications
