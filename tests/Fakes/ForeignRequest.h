#pragma once

#include "ClientCommunications/Impl/ServiceRequest.h"

namespace Ombry::Tests {

/// A request of a program's own class, which the libraries know by its interface alone.
class ForeignRequest : public ClientCommunications::ServiceRequest {
public:
    ForeignRequest() : ServiceRequest("GET", "/path", "1") {}
};

}  // namespace Ombry::Tests
