#include "ClientCommunications/Impl/CachedSSDServiceFinder.h"

namespace Ombry::ClientCommunications {

std::shared_ptr<IFoundServices> CachedSSDServiceFinder::Find(std::shared_ptr<IRootRequestMetaData>,
                                                             Cancellation::Token) {
    return Find(Cancellation::Token());
}

std::shared_ptr<IFoundServices> CachedSSDServiceFinder::Find(Cancellation::Token) {
    return cache->GetFoundServices();
}

}  // namespace Ombry::ClientCommunications
