#include "ClientCommunications/Impl/RootAttempt.h"

namespace Ombry::ClientCommunications {

RootAttempt::RootAttempt(const std::shared_ptr<IServiceRequest>& request, int attempt)
    : ScopedNewHeader(request, KnownHeader::RootAttempt, std::to_string(attempt)) {}

}  // namespace Ombry::ClientCommunications
