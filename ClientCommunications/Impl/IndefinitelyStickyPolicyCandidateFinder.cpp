#include "ClientCommunications/Impl/IndefinitelyStickyPolicyCandidateFinder.h"

#include "Platform/IClock.h"

#include <stdexcept>

namespace Ombry::ClientCommunications {
namespace {

// How long a waiting thread goes without a look at its token.
constexpr Duration WaitSlice = std::chrono::milliseconds(250);

}  // namespace

IndefinitelyStickyPolicyCandidateFinder::IndefinitelyStickyPolicyCandidateFinder(
    std::shared_ptr<IndefinitelyStickyPolicyCandidateFinderFactory> theFactory,
    std::shared_ptr<IServiceFinder> theFinder)
    : factory(std::move(theFactory)),
      finder(std::move(theFinder)),
      selector(factory->failedServices, factory->logger, Cancellation::SleepUntil) {}

IndefinitelyStickyPolicyCandidateFinder::~IndefinitelyStickyPolicyCandidateFinder() {
    // Whatever ended the call, the others must not wait for it for ever.
    try {
        ReleaseSearch();
    } catch (...) {
        // The search is given back; the call has its own ending, which must not be replaced.
    }
}

ServiceCandidate IndefinitelyStickyPolicyCandidateFinder::GetNextCandidate(Cancellation::Token token) {
    ReleaseSearch();
    AwaitTurn(token);
    LoadCandidates(token);
    ServiceCandidate result = selector.Next(token);
    if (!isSearcher) return result;
    if (!result.service) {
        ReleaseSearch();
    } else if (usingFoundServices) {
        std::lock_guard guard(factory->mutex);
        factory->stickyService = result.service;
        factory->stickyIsLocal = result.isLocal;
        factory->searchThread = std::this_thread::get_id();
    }
    return result;
}

// Waits while another thread looks for the server, and takes the search over if there is still none.
void IndefinitelyStickyPolicyCandidateFinder::AwaitTurn(const Cancellation::Token& token) {
    std::unique_lock lock(factory->mutex);
    const auto isMyTurn = [this] {
        return factory->established || !factory->searching ||
               factory->searchThread == std::this_thread::get_id();
    };
    while (!Platform::WaitFor(factory->condition, lock, WaitSlice, isMyTurn))
        token.ThrowIfCancelled();
    isSearcher = !factory->established;
    if (isSearcher) factory->searching = true;
}

void IndefinitelyStickyPolicyCandidateFinder::LoadCandidates(const Cancellation::Token& token) {
    std::unique_lock lock(factory->mutex);
    const bool mySearch = factory->searchThread == std::this_thread::get_id();
    if (!candidatesLoaded && isSearcher && !mySearch) {
        lock.unlock();
        const std::shared_ptr<IFoundServices> found = finder->Find(token);
        selector.SetCandidates(found->GetLocal(), found->GetRemote());
        usingFoundServices = true;
    } else if (!candidatesLoaded || (usingFoundServices && !isSearcher)) {
        const ServiceCandidate sticky{factory->stickyService, factory->stickyIsLocal};
        const bool established = factory->established;
        lock.unlock();
        std::list<std::shared_ptr<IService>> alone;
        if (sticky.service) alone.push_back(sticky.service);
        if (sticky.isLocal) {
            selector.SetCandidates(std::move(alone), {});
        } else {
            selector.SetCandidates({}, std::move(alone));
        }
        if (usingFoundServices && established) selector.ForgetPassedFailures();
        usingFoundServices = false;
    }
    candidatesLoaded = true;
}

// Gives the search back, if this call holds it: its server, if it had one, has failed.
void IndefinitelyStickyPolicyCandidateFinder::ReleaseSearch() {
    if (!isSearcher) return;
    isSearcher = false;
    if (!HasStickyService()) {
        EndSearch();
        return;
    }
    try {
        selector.MarkFailure();
    } catch (const std::logic_error&) {
        // A selection that threw, or found nothing, has left the selector without a candidate.
    } catch (...) {
        if (usingFoundServices) EndSearch();
        throw;
    }
    // Otherwise the server was borrowed from a call further up on this thread, which holds the search.
    if (usingFoundServices) EndSearch();
}

bool IndefinitelyStickyPolicyCandidateFinder::HasStickyService() const {
    std::lock_guard guard(factory->mutex);
    return factory->stickyService != nullptr;
}

// Lets the next call look for a server. One that is established stays: there is never another search.
void IndefinitelyStickyPolicyCandidateFinder::EndSearch() {
    std::lock_guard guard(factory->mutex);
    if (!factory->established) {
        factory->stickyService = nullptr;
        factory->stickyIsLocal = false;
        factory->searchThread = std::thread::id();
    }
    factory->searching = false;
    factory->condition.notify_all();
}

void IndefinitelyStickyPolicyCandidateFinder::MarkSuccess() {
    selector.MarkSuccess();
    if (!isSearcher) return;
    isSearcher = false;
    std::lock_guard guard(factory->mutex);
    if (factory->established) return;
    factory->established = true;
    factory->searching = false;
    factory->searchThread = std::thread::id();
    factory->condition.notify_all();
}

}  // namespace Ombry::ClientCommunications
