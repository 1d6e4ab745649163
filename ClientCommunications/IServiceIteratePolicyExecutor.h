#pragma once

#include "ClientCommunications/IServiceRequest.h"
#include "ClientCommunications/IServiceResponse.h"

#include <functional>
#include <memory>

namespace Ombry::ClientCommunications {

/// Runs the attempts of calls, and keeps between them which server works. May be used by several threads at
/// once.
class IServiceIteratePolicyExecutor : public Interface {
public:
    /// One attempt at one server; `isLocal` tells which list it is from. The answer may not be null. Throws
    /// as a gateway does.
    using Attempt = std::function<std::shared_ptr<IServiceResponse>(std::shared_ptr<IService>, bool isLocal,
                                                                    Cancellation::Token)>;

    /// Attempts until an answer ends the call, its limits are reached or no server is left; then the last
    /// answer, or the exception of a gateway if there was none. An exception of an attempt that no other
    /// server can mend passes through. `attempt` is not called once this has returned or thrown.
    virtual std::shared_ptr<IServiceResponse> Execute(std::shared_ptr<IServiceRequest> request,
                                                      Cancellation::Token token, Attempt attempt) = 0;
};

}  // namespace Ombry::ClientCommunications
