#pragma once

#include "Cancellation/Token.h"
#include "ClientCommunications/ServiceCandidate.h"

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

}  // namespace Ombry::ClientCommunications
