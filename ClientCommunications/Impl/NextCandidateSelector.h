#pragma once

#include "Cancellation/Token.h"
#include "ClientCommunications/IFailedServices.h"
#include "ClientCommunications/ServiceCandidate.h"
#include "LibraryLogger/ILogger.h"

#include <functional>
#include <list>
#include <set>

namespace Ombry::ClientCommunications {

/// Picks the next server for one call, and is the one place where a call waits: when all it has left is a
/// server that failed and is not due yet. One thread; lives as long as one call.
class NextCandidateSelector {
public:
    using Sleeper = std::function<void(TimePoint, const Cancellation::Token&)>;
    using Services = std::list<std::shared_ptr<IService>>;

    NextCandidateSelector(std::shared_ptr<IFailedServices> failedServices,
                          std::shared_ptr<LibraryLogger::ILogger> logger, Sleeper sleeper);
    virtual ~NextCandidateSelector() = default;
    NextCandidateSelector(const NextCandidateSelector&) = delete;
    NextCandidateSelector& operator=(const NextCandidateSelector&) = delete;

    void SetCandidates(Services local, Services remote);
    /// The same without a copy of lists that may be long: they stay with the caller, unchanged, as long as
    /// they are chosen from. Null for none.
    void BorrowCandidates(const Services* local, const Services* remote);
    /// A list of one, without the list.
    void SetCandidate(ServiceCandidate candidate);

    /// The candidate for the next attempt; empty if each has had its try. A candidate that is still current
    /// has failed. Throws what the sleeper throws.
    ServiceCandidate Next(const Cancellation::Token& token);

    /// These want a current candidate; `std::logic_error` without one.
    /// @{
    /// It failed and is to be tried again, after its delay.
    void RetryCurrent(const Cancellation::Token& token);
    void MarkFailure();
    void MarkSuccess();
    /// @}

    /// Gives servers whose failure is forgotten another chance in this call.
    void ForgetPassedFailures();

private:
    /// What is best of the candidates that were looked at.
    struct Choice {
        ServiceCandidate best;      // has not failed
        ServiceCandidate fallback;  // has, and `fallbackInfo` tells how
        FailureInfo fallbackInfo;
    };

    void SelectNext();
    void Scan(const Services& list, bool isLocal, Choice& choice) const;
    void Judge(const std::shared_ptr<IService>& service, bool isLocal, Choice& choice) const;
    void StartAttempt(const Cancellation::Token& token);
    void verifyHaveCurrentCandidate() const;

    std::shared_ptr<IFailedServices> failedServices;
    std::shared_ptr<LibraryLogger::ILogger> logger;
    Sleeper sleeper;
    Services ownLocal;
    Services ownRemote;
    const Services* localCandidates = &ownLocal;  // or borrowed
    const Services* remoteCandidates = &ownRemote;
    ServiceCandidate onlyCandidate;  // in the place of both lists, if there is one
    std::set<std::string> triedIds;
    ServiceCandidate current;
};

}  // namespace Ombry::ClientCommunications
