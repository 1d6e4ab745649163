#include "ClientCommunications/Impl/NextCandidateSelector.h"

#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "LibraryLogger/LogCall.h"
#include "Platform/IClock.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {
namespace {

// Whether a failed server is a better last resort than the one at hand; all equal, the one met first stays.
bool IsBetterFallback(const FailureInfo& info, const FailureInfo& than) {
    if (info.nextRetryTime != than.nextRetryTime) return info.nextRetryTime < than.nextRetryTime;
    if (info.failureCount != than.failureCount) return info.failureCount < than.failureCount;
    return info.isLocal && !than.isLocal;
}

}  // namespace

NextCandidateSelector::NextCandidateSelector(std::shared_ptr<IFailedServices> failedServices,
                                             std::shared_ptr<LibraryLogger::ILogger> logger, Sleeper sleeper)
    : failedServices(std::move(failedServices)), logger(std::move(logger)), sleeper(std::move(sleeper)) {}

void NextCandidateSelector::SetCandidates(Services local, Services remote) {
    ownLocal = std::move(local);
    ownRemote = std::move(remote);
    localCandidates = &ownLocal;
    remoteCandidates = &ownRemote;
}

void NextCandidateSelector::BorrowCandidates(const Services* local, const Services* remote) {
    ownLocal.clear();
    ownRemote.clear();
    localCandidates = local ? local : &ownLocal;
    remoteCandidates = remote ? remote : &ownRemote;
}

ServiceCandidate NextCandidateSelector::Next(const Cancellation::Token& token) {
    SelectNext();
    if (current.candidate.service) StartAttempt(token);
    return current.candidate;
}

void NextCandidateSelector::SelectNext() {
    if (current.candidate.service) MarkFailure();
    Choice best;
    Choice fallback;
    FailureInfo fallbackInfo;
    Scan(*localCandidates, true, best, fallback, fallbackInfo);
    if (!best.candidate.service) Scan(*remoteCandidates, false, best, fallback, fallbackInfo);
    current = std::move(best.candidate.service ? best : fallback);
}

void NextCandidateSelector::Scan(const Services& list, bool isLocal, Choice& best, Choice& fallback,
                                 FailureInfo& fallbackInfo) const {
    for (const std::shared_ptr<IService>& service : list) {
        std::string id = service->GetId();
        if (triedIds.contains(id)) continue;
        const FailureInfo info = failedServices->Get(id);
        if (!info.failed) {
            best = {{service, isLocal}, std::move(id)};
            return;
        }
        if (!fallback.candidate.service || IsBetterFallback(info, fallbackInfo)) {
            fallback = {{service, isLocal}, std::move(id)};
            fallbackInfo = info;
        }
    }
}

void NextCandidateSelector::StartAttempt(const Cancellation::Token& token) {
    const FailureInfo info = failedServices->Get(current.id);
    if (!info.failed) return;
    const TimePoint now = Platform::Clock().Now();
    if (info.nextRetryTime <= now) return;
    const std::int64_t waitMs = (info.nextRetryTime - now).count() / 10'000;
    LibraryLogger::LogCall(
        logger, "Ombry::ClientCommunications::NextCandidateSelector::StartAttempt", 1, "Waiting ", waitMs,
        " milliseconds before trying to call ",
        [this] { return current.candidate.service->GetEndpointUrl(); }, " again.");
    if (!sleeper) throw BadFunctionCall();
    sleeper(info.nextRetryTime, token);
}

void NextCandidateSelector::RetryCurrent(const Cancellation::Token& token) {
    verifyHaveCurrentCandidate();
    failedServices->RecordFailure(current.id, current.candidate.isLocal);
    StartAttempt(token);
}

void NextCandidateSelector::MarkFailure() {
    verifyHaveCurrentCandidate();
    failedServices->RecordFailure(current.id, current.candidate.isLocal);
    triedIds.insert(std::move(current.id));
    current = Choice();
}

void NextCandidateSelector::MarkSuccess() {
    verifyHaveCurrentCandidate();
    failedServices->Remove(current.id);
    current = Choice();
}

void NextCandidateSelector::ForgetPassedFailures() {
    std::erase_if(triedIds, [this](const std::string& id) { return !failedServices->Get(id).failed; });
}

void NextCandidateSelector::verifyHaveCurrentCandidate() const {
    if (current.candidate.service) return;
    throw std::logic_error("NextCandidateSelector::verifyHaveCurrentCandidate: No candidate selected.");
}

}  // namespace Ombry::ClientCommunications
