#pragma once

#include "ClientCommunications/IAuthenticator.h"

namespace Ombry::ClientCommunications {

/// Adds nothing: calls go out as nobody.
class EmptyAuthenticator : public IAuthenticator {
public:
    void AddAuthentication(std::shared_ptr<IServiceRequest>, std::shared_ptr<IService>,
                           Cancellation::Token) override {}
};

}  // namespace Ombry::ClientCommunications
