#include "ClientCommunications/Impl/RootAttempt.h"

namespace Ombry::ClientCommunications {

RootAttempt::RootAttempt(std::shared_ptr<IServiceRequest> request, int attempt)
    : ScopedNewHeader(std::move(request), KnownHeader::RootAttempt, std::to_string(attempt)) {}

}  // namespace Ombry::ClientCommunications
