#pragma once

#include <functional>
#include <memory>

#include "ClientCommunications/IServiceRequest.h"
#include "ClientCommunications/IServiceResponse.h"

namespace Ombry::ClientCommunications {

/// Runs the attempts of one call. May be used by several threads at once.
class IServiceIteratePolicyExecutor : public Interface {
public:
    using Attempt = std::function<std::shared_ptr<IServiceResponse>(std::shared_ptr<IService>, bool isLocal,
                                                                    Cancellation::Token)>;

    virtual std::shared_ptr<IServiceResponse> Execute(std::shared_ptr<IServiceRequest> request,
                                                      Cancellation::Token token, Attempt attempt) = 0;
};

}  // namespace Ombry::ClientCommunications
