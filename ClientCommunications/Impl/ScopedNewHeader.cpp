#include "ClientCommunications/Impl/ScopedNewHeader.h"

namespace Ombry::ClientCommunications {

ScopedNewHeader::ScopedNewHeader(std::shared_ptr<IServiceRequest> onRequest, std::string newName,
                                 const std::string& value)
    : ownName(std::move(newName)), name(ownName) {
    Put(std::move(onRequest), value);
}

ScopedNewHeader::ScopedNewHeader(std::shared_ptr<IServiceRequest> onRequest, KnownHeader header,
                                 const std::string& value)
    : name(NameOf(header)) {
    Put(std::move(onRequest), value);
}

void ScopedNewHeader::Put(std::shared_ptr<IServiceRequest> onRequest, const std::string& value) {
    if (!onRequest || !onRequest->GetHeader(name).empty()) return;
    onRequest->SetHeader(name, value);
    request = std::move(onRequest);
}

ScopedNewHeader::~ScopedNewHeader() {
    if (request) request->RemoveHeader(name);
}

}  // namespace Ombry::ClientCommunications
