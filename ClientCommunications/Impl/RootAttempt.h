#pragma once

#include "ClientCommunications/Impl/ScopedNewHeader.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// The number of an attempt on a request. Requests that were made with a number of their own, as those of
/// `ServiceRequestFactory` are, keep it.
class RootAttempt : public ScopedNewHeader {
public:
    RootAttempt(const std::shared_ptr<IServiceRequest>& request, int attempt);
};

}  // namespace Ombry::ClientCommunications
