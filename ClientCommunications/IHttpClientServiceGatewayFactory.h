#pragma once

#include "ClientCommunications/IServiceGateway.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// Makes a gateway to one instance of a service. Seam inside: no installed function takes or gives it.
class IHttpClientServiceGatewayFactory {
public:
    virtual std::shared_ptr<IServiceGateway> Create(std::shared_ptr<IService> service) = 0;
    virtual ~IHttpClientServiceGatewayFactory() = default;
};

}  // namespace Ombry::ClientCommunications
