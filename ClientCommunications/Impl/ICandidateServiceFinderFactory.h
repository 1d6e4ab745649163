#pragma once

#include "ClientCommunications/IServiceFinder.h"
#include "ClientCommunications/Impl/ICandidateServiceFinder.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// What a policy remembers between the calls of one gateway. Any number of threads.
class ICandidateServiceFinderFactory : public Interface {
public:
    virtual std::unique_ptr<ICandidateServiceFinder> Create(std::shared_ptr<IServiceFinder> finder) = 0;
};

}  // namespace Ombry::ClientCommunications
