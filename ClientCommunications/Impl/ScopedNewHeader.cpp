#include "ClientCommunications/Impl/ScopedNewHeader.h"

namespace Ombry::ClientCommunications {

ScopedNewHeader::ScopedNewHeader(std::shared_ptr<IServiceRequest> onRequest, std::string newName,
                                 const std::string& value) {
    if (!onRequest || !onRequest->GetHeader(newName).empty()) return;
    onRequest->SetHeader(newName, value);
    request = std::move(onRequest);
    name = std::move(newName);
}

ScopedNewHeader::~ScopedNewHeader() {
    if (request) request->RemoveHeader(name);
}

RootAttempt::RootAttempt(std::shared_ptr<IServiceRequest> request, int attempt)
    : ScopedNewHeader(std::move(request), "SF-Root-Attempt", std::to_string(attempt)) {}

}  // namespace Ombry::ClientCommunications
