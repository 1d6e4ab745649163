#pragma once

#include <functional>
#include <memory>

#include "Cancellation/Token.h"
#include "ClientCommunications/IService.h"
#include "ClientCommunications/IServiceFinder.h"
#include "ClientCommunications/IServiceRequest.h"
#include "ClientCommunications/IServiceResponse.h"

namespace Ombry::ClientCommunications {

/// A server that may be tried next; a null service means that none is left.
struct ServiceCandidate {
    std::shared_ptr<IService> service;
    bool isLocal = false;
};

/// Runs the attempts of one call. May be used by several threads at once.
class IServiceIteratePolicyExecutor : public Interface {
public:
    using Attempt = std::function<std::shared_ptr<IServiceResponse>(std::shared_ptr<IService>, bool isLocal,
                                                                    Cancellation::Token)>;

    virtual std::shared_ptr<IServiceResponse> Execute(std::shared_ptr<IServiceRequest> request,
                                                      Cancellation::Token token, Attempt attempt) = 0;
};

/// In which order servers are tried, and when a working server is left for another.
class IServiceIteratePolicy : public Interface {
public:
    virtual std::shared_ptr<IServiceIteratePolicyExecutor> CreateExecutor(
        std::shared_ptr<IServiceFinder> finder) = 0;
};

class IServiceIteratePolicyFactory : public Interface {
public:
    virtual std::shared_ptr<IServiceIteratePolicy> CreateIndefinitelySticky() = 0;
    virtual std::shared_ptr<IServiceIteratePolicy> CreateIterateAfterMaxFailures(int maxFailures) = 0;
};

}  // namespace Ombry::ClientCommunications
