#pragma once

#include "ClientCommunications/IServiceIteratePolicyExecutor.h"
#include "ClientCommunications/Impl/ICandidateServiceFinderFactory.h"
#include "LibraryLogger/ILogger.h"

#include <set>

namespace Ombry::ClientCommunications {

/// Runs the attempts of a call: one server after the other, until an answer ends the call, the retries or the
/// servers are used up, or the token fires. Holds no state of a call.
class ServiceIteratePolicyExecutor : public IServiceIteratePolicyExecutor {
public:
    ServiceIteratePolicyExecutor(std::shared_ptr<IServiceFinder> finder,
                                 std::shared_ptr<ICandidateServiceFinderFactory> candidateFinderFactory,
                                 std::shared_ptr<LibraryLogger::ILogger> logger);

    /// The answer that ended the call, otherwise the last answer of any server. Without one: what the token
    /// throws, or `CommunicationsError`. Exceptions that no other server can mend pass through.
    std::shared_ptr<IServiceResponse> Execute(std::shared_ptr<IServiceRequest> request,
                                              Cancellation::Token token, Attempt attempt) override;

private:
    struct Call;

    bool TryOnce(Call& call);
    bool PauseBeforeNextRound(const Call& call) const;
    bool ShouldTryNextServer(const IServiceResponse& response) const;
    std::shared_ptr<IServiceResponse> Conclude(const Call& call) const;

    const std::shared_ptr<IServiceFinder> finder;
    const std::shared_ptr<ICandidateServiceFinderFactory> candidateFinderFactory;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const std::set<int> retryStatuses{408, 410, 500, 501, 502, 503, 504, 507};
};

}  // namespace Ombry::ClientCommunications
