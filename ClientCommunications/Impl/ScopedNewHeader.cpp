#include "ClientCommunications/Impl/ScopedNewHeader.h"

#include "ClientCommunications/Impl/RootAttempt.h"

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

}  // namespace Ombry::ClientCommunications
