#include "ClientCommunications/Impl/NextCandidateSelector.h"

#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "ClientCommunications/Impl/Service.h"
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

ServiceText IdOf(const IService& service) {
    return ServiceText(service, &IService::GetId, &ServiceDto::id);
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
    onlyCandidate = ServiceCandidate();
}

void NextCandidateSelector::BorrowCandidates(const Services* local, const Services* remote) {
    ownLocal.clear();
    ownRemote.clear();
    localCandidates = local ? local : &ownLocal;
    remoteCandidates = remote ? remote : &ownRemote;
    onlyCandidate = ServiceCandidate();
}

void NextCandidateSelector::SetCandidate(ServiceCandidate candidate) {
    onlyCandidate = std::move(candidate);
}

ServiceCandidate NextCandidateSelector::Next(const Cancellation::Token& token) {
    SelectNext();
    if (current.service) StartAttempt(token);
    return current;
}

void NextCandidateSelector::SelectNext() {
    if (current.service) MarkFailure();
    Choice choice;
    if (onlyCandidate.service) {
        Judge(onlyCandidate.service, onlyCandidate.isLocal, choice);
    } else {
        Scan(*localCandidates, true, choice);
        if (!choice.best.service) Scan(*remoteCandidates, false, choice);
    }
    current = std::move(choice.best.service ? choice.best : choice.fallback);
}

void NextCandidateSelector::Scan(const Services& list, bool isLocal, Choice& choice) const {
    for (const std::shared_ptr<IService>& service : list) {
        Judge(service, isLocal, choice);
        if (choice.best.service) return;
    }
}

void NextCandidateSelector::Judge(const std::shared_ptr<IService>& service, bool isLocal,
                                  Choice& choice) const {
    const ServiceText id = IdOf(*service);
    if (triedIds.contains(id.Get())) return;
    const FailureInfo info = failedServices->Get(id.Get());
    if (!info.failed) {
        choice.best = {service, isLocal};
    } else if (!choice.fallback.service || IsBetterFallback(info, choice.fallbackInfo)) {
        choice.fallback = {service, isLocal};
        choice.fallbackInfo = info;
    }
}

void NextCandidateSelector::StartAttempt(const Cancellation::Token& token) {
    const FailureInfo info = failedServices->Get(IdOf(*current.service).Get());
    if (!info.failed) return;
    const TimePoint now = Platform::Clock().Now();
    if (info.nextRetryTime <= now) return;
    const std::int64_t waitMs = (info.nextRetryTime - now).count() / 10'000;
    LibraryLogger::LogCall(
        logger, "Ombry::ClientCommunications::NextCandidateSelector::StartAttempt", 1, "Waiting ", waitMs,
        " milliseconds before trying to call ", [this] { return current.service->GetEndpointUrl(); },
        " again.");
    if (!sleeper) throw BadFunctionCall();
    sleeper(info.nextRetryTime, token);
}

void NextCandidateSelector::RetryCurrent(const Cancellation::Token& token) {
    verifyHaveCurrentCandidate();
    failedServices->RecordFailure(IdOf(*current.service).Get(), current.isLocal);
    StartAttempt(token);
}

void NextCandidateSelector::MarkFailure() {
    verifyHaveCurrentCandidate();
    failedServices->RecordFailure(IdOf(*current.service).Get(), current.isLocal);
    triedIds.insert(IdOf(*current.service).Get());
    current = ServiceCandidate();
}

void NextCandidateSelector::MarkSuccess() {
    verifyHaveCurrentCandidate();
    failedServices->Remove(IdOf(*current.service).Get());
    current = ServiceCandidate();
}

void NextCandidateSelector::ForgetPassedFailures() {
    std::erase_if(triedIds, [this](const std::string& id) { return !failedServices->Get(id).failed; });
}

void NextCandidateSelector::verifyHaveCurrentCandidate() const {
    if (current.service) return;
    throw std::logic_error("NextCandidateSelector::verifyHaveCurrentCandidate: No candidate selected.");
}

}  // namespace Ombry::ClientCommunications
