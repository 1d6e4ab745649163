#pragma once

#include "Cancellation/Token.h"
#include "ClientCommunications/IService.h"
#include "ClientCommunications/IServiceRequest.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// How a gateway puts credentials on a request. May be called from several threads at once. Seam inside: no
/// installed function takes or gives it.
class IAuthenticator : public Interface {
public:
    /// Puts the usual credentials on `request`, which goes to `service`.
    virtual void AddAuthentication(std::shared_ptr<IServiceRequest> request,
                                   std::shared_ptr<IService> service, Cancellation::Token token) = 0;
    /// Tries to put better credentials on a request that was refused. True: worth sending again. The common
    /// body does nothing and returns false.
    virtual bool AddFreshAuthentication(std::shared_ptr<IServiceRequest> request,
                                        std::shared_ptr<IService> service, Cancellation::Token token);
};

}  // namespace Ombry::ClientCommunications
