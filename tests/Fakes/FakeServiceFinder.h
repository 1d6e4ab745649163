#pragma once

#include "ClientCommunications/IServiceFinder.h"
#include "ClientCommunications/Impl/FoundServices.h"
#include "tests/Fakes/FakeService.h"

#include <functional>
#include <mutex>
#include <vector>

namespace Ombry::Tests {

/// A finder that answers with lists of ids, a new set of new objects each time, and keeps the tokens.
class FakeServiceFinder : public ClientCommunications::IServiceFinder {
public:
    explicit FakeServiceFinder(std::vector<std::string> local = {}, std::vector<std::string> remote = {})
        : local(std::move(local)), remote(std::move(remote)) {}

    std::shared_ptr<ClientCommunications::IFoundServices> Find(
        std::shared_ptr<ClientCommunications::IRootRequestMetaData>, Cancellation::Token token) override {
        ADD_FAILURE() << "who searches for a call says that it is a search, by the other form";
        return Find(std::move(token));
    }

    std::shared_ptr<ClientCommunications::IFoundServices> Find(Cancellation::Token token) override {
        std::function<void()> hook;
        {
            std::lock_guard guard(mutex);
            tokens.push_back(token);
            hook = onFind;
        }
        if (hook) hook();
        std::lock_guard guard(mutex);
        auto found = std::make_shared<ClientCommunications::FoundServices>();
        found->AddLocal(MakeServices(local));
        found->AddRemote(MakeServices(remote));
        return found;
    }

    void Set(std::vector<std::string> newLocal, std::vector<std::string> newRemote) {
        std::lock_guard guard(mutex);
        local = std::move(newLocal);
        remote = std::move(newRemote);
    }

    /// Called at the beginning of each `Find`; may throw, or wait.
    void OnFind(std::function<void()> hook) {
        std::lock_guard guard(mutex);
        onFind = std::move(hook);
    }

    std::vector<Cancellation::Token> Tokens() const {
        std::lock_guard guard(mutex);
        return tokens;
    }

    std::size_t Calls() const { return Tokens().size(); }

private:
    mutable std::mutex mutex;
    // Guarded by mutex:
    std::vector<std::string> local;
    std::vector<std::string> remote;
    std::vector<Cancellation::Token> tokens;
    std::function<void()> onFind;
};

}  // namespace Ombry::Tests
