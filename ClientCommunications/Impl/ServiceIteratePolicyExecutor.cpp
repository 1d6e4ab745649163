#include "ClientCommunications/Impl/ServiceIteratePolicyExecutor.h"

#include "ClientCommunications/CommunicationsError.h"
#include "LibraryLogger/LogCall.h"
#include "Platform/IClock.h"

namespace Ombry::ClientCommunications {
namespace {

using LibraryLogger::LogCall;

constexpr const char* ExecuteName = "Ombry::ClientCommunications::ServiceIteratePolicyExecutor::Execute";

// Pause after a round in which no server was even chosen: without it the loop would spin while discovery is
// down. Short enough for a call that is cancelled in it; of steady time, since a clock that is set back must
// not lengthen it.
constexpr Duration FruitlessRoundPause = std::chrono::milliseconds(250);

}  // namespace

struct ServiceIteratePolicyExecutor::Call {
    Cancellation::Token token;
    const Attempt& attempt;
    std::unique_ptr<ICandidateServiceFinder> candidates;
    unsigned maxAttempts;
    unsigned attemptNumber = 0;
    std::shared_ptr<IServiceResponse> lastResponse = nullptr;
    bool answered = false;  // the last response ends the call
};

ServiceIteratePolicyExecutor::ServiceIteratePolicyExecutor(
    std::shared_ptr<IServiceFinder> finder,
    std::shared_ptr<ICandidateServiceFinderFactory> candidateFinderFactory,
    std::shared_ptr<LibraryLogger::ILogger> logger)
    : finder(std::move(finder)),
      candidateFinderFactory(std::move(candidateFinderFactory)),
      logger(std::move(logger)) {}

std::shared_ptr<IServiceResponse> ServiceIteratePolicyExecutor::Execute(
    std::shared_ptr<IServiceRequest> request, Cancellation::Token token, Attempt attempt) {
    Call call{.token = Cancellation::Link(request->GetCancellationToken(), std::move(token)),
              .attempt = attempt,
              .candidates = candidateFinderFactory->Create(finder),
              .maxAttempts = static_cast<unsigned>(request->GetMaxRetries()) + 1};
    while (call.attemptNumber != call.maxAttempts && TryOnce(call))
        ++call.attemptNumber;
    if (call.answered) return call.lastResponse;
    return Conclude(call);
}

// One round. False: the loop is over.
bool ServiceIteratePolicyExecutor::TryOnce(Call& call) {
    ServiceCandidate candidate;
    try {
        candidate = call.candidates->GetNextCandidate(call.token);
        if (!candidate.service) return false;
        call.lastResponse = call.attempt(candidate.service, candidate.isLocal, call.token);
        if (ShouldTryNextServer(*call.lastResponse)) return true;
        call.candidates->MarkSuccess();
        call.answered = true;
        return false;
    } catch (const Cancellation::OperationCancelledException& failure) {
        LogCall(logger, ExecuteName, 1, "Caught exception: ", failure.what());
        // Otherwise the time-out was that of the single attempt, or of the search.
        if (call.token.IsCancelled()) return false;
    } catch (const CommunicationsError& failure) {
        LogCall(logger, ExecuteName, 1, "Caught exception: ", failure.what());
    }
    return candidate.service || PauseBeforeNextRound(call);
}

// False: the call was cancelled.
bool ServiceIteratePolicyExecutor::PauseBeforeNextRound(const Call& call) const {
    if (call.attemptNumber + 1 == call.maxAttempts) return true;  // there is none
    if (call.token.IsCancelled()) return false;
    Platform::Clock().Sleep(FruitlessRoundPause);
    return true;
}

bool ServiceIteratePolicyExecutor::ShouldTryNextServer(const IServiceResponse& response) const {
    const int status = response.GetStatusCode();
    if (retryStatuses.contains(status)) return true;
    // A bare web server that does not host the service says so in its own words; the service's own 404 is an
    // answer.
    return status == 404 && response.HasHeader("Server") &&
           response.GetHeader("Server").starts_with("Microsoft-IIS/");
}

std::shared_ptr<IServiceResponse> ServiceIteratePolicyExecutor::Conclude(const Call& call) const {
    if (call.token.IsCancelled()) {
        LogCall(logger, ExecuteName, 1, "Operation was cancelled.");
    } else if (call.attemptNumber == call.maxAttempts) {
        LogCall(logger, ExecuteName, 1, "maxRetries was reached.");
    } else {
        LogCall(logger, ExecuteName, 1, "Failure from all servers.");
    }
    if (!call.lastResponse) {
        call.token.ThrowIfCancelled();
        LogCall(logger, ExecuteName, 1, "Throwing exception since no server responded.");
        throw CommunicationsError("No IServiceResponse from any servers.");
    }
    LogCall(logger, ExecuteName, 1, "Returning last response from a server.");
    return call.lastResponse;
}

}  // namespace Ombry::ClientCommunications
