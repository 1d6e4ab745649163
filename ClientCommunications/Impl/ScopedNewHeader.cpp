#include "ClientCommunications/Impl/ScopedNewHeader.h"

#include "ClientCommunications/Impl/ServiceRequest.h"

namespace Ombry::ClientCommunications {

ScopedNewHeader::ScopedNewHeader(std::shared_ptr<IServiceRequest> onRequest, std::string newName,
                                 const std::string& value)
    : name(std::move(newName)) {
    Put(std::move(onRequest), value);
}

ScopedNewHeader::ScopedNewHeader(const std::shared_ptr<IServiceRequest>& onRequest, KnownHeader header,
                                 const std::string& value)
    : header(header) {
    PutKnown(onRequest, value, [&] { ours->Share(header, {std::shared_ptr<void>(), &value}); });
}

ScopedNewHeader::ScopedNewHeader(const std::shared_ptr<IServiceRequest>& onRequest, KnownHeader header,
                                 std::string&& value)
    : header(header) {
    PutKnown(onRequest, value, [&] { ours->Set(header, std::move(value)); });
}

template <class PutOnOurs>
void ScopedNewHeader::PutKnown(const std::shared_ptr<IServiceRequest>& onRequest, const std::string& value,
                               const PutOnOurs& putOnOurs) {
    ServiceRequest* const ourRequest = onRequest ? ServiceRequest::Of(*onRequest) : nullptr;
    if (!ourRequest) {
        name = NameOf(header);
        Put(onRequest, value);
    } else if (ourRequest->Headers().IsEmpty(header)) {
        ours = &ourRequest->Headers();
        putOnOurs();
    }
}

void ScopedNewHeader::Put(std::shared_ptr<IServiceRequest> onRequest, const std::string& value) {
    if (!onRequest || !onRequest->GetHeader(name).empty()) return;
    onRequest->SetHeader(name, value);
    request = std::move(onRequest);
}

ScopedNewHeader::~ScopedNewHeader() {
    if (ours) ours->Remove(header);
    if (request) request->RemoveHeader(name);
}

}  // namespace Ombry::ClientCommunications
