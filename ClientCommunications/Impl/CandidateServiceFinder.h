#pragma once

#include <memory>

#include "ClientCommunications/IServiceIteratePolicy.h"

namespace Ombry::ClientCommunications {

/// Gives out the candidates of one call, in the order of a policy. One thread.
class ICandidateServiceFinder : public Interface {
public:
    /// The next server to try; a null service if none is left. Asking again says that the last one failed.
    /// May wait, cancellably; throws what the token, the finder and the sleeper throw.
    virtual ServiceCandidate GetNextCandidate(Cancellation::Token token) = 0;
    /// The last candidate answered.
    virtual void MarkSuccess() = 0;
};

/// What a policy remembers between the calls of one gateway. Any number of threads.
class ICandidateServiceFinderFactory : public Interface {
public:
    virtual std::unique_ptr<ICandidateServiceFinder> Create(std::shared_ptr<IServiceFinder> finder) = 0;
};

}  // namespace Ombry::ClientCommunications
