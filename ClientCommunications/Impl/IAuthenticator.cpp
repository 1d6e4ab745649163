#include "ClientCommunications/IAuthenticator.h"

namespace Ombry::ClientCommunications {

bool IAuthenticator::AddFreshAuthentication(std::shared_ptr<IServiceRequest>, std::shared_ptr<IService>,
                                            Cancellation::Token) {
    return false;
}

}  // namespace Ombry::ClientCommunications
