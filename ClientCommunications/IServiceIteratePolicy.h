#pragma once

#include "ClientCommunications/IServiceFinder.h"
#include "ClientCommunications/IServiceIteratePolicyExecutor.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// In which order servers are tried, and when a working server is left for another. Immutable.
class IServiceIteratePolicy : public Interface {
public:
    /// An executor over the servers that `finder` finds. Executors share nothing but the memory of failures.
    virtual std::shared_ptr<IServiceIteratePolicyExecutor> CreateExecutor(
        std::shared_ptr<IServiceFinder> finder) = 0;
};

}  // namespace Ombry::ClientCommunications
