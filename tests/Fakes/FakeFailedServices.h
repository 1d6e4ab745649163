#pragma once

#include "ClientCommunications/IFailedServices.h"

#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// A memory of failures that a test fills, and that keeps the changes asked of it as texts: "failed ID
/// local", "failed ID remote", "removed ID". A recorded failure counts, but sets no time.
class FakeFailedServices : public ClientCommunications::IFailedServices {
public:
    ClientCommunications::FailureInfo Get(const std::string& id) override {
        std::lock_guard guard(mutex);
        const auto found = infos.find(id);
        return found == infos.end() ? ClientCommunications::FailureInfo() : found->second;
    }

    void RecordFailure(const std::string& id, bool isLocal) override {
        std::lock_guard guard(mutex);
        changes.push_back("failed " + id + (isLocal ? " local" : " remote"));
        if (recordFailure) std::rethrow_exception(recordFailure);
        ClientCommunications::FailureInfo& info = infos[id];
        if (!info.failed) info.isLocal = isLocal;
        info.failed = true;
        ++info.failureCount;
    }

    void Remove(const std::string& id) override {
        std::lock_guard guard(mutex);
        changes.push_back("removed " + id);
        if (removeFailure) std::rethrow_exception(removeFailure);
        infos.erase(id);
    }

    void Set(const std::string& id, const ClientCommunications::FailureInfo& info) {
        std::lock_guard guard(mutex);
        infos[id] = info;
    }

    void Forget(const std::string& id) {
        std::lock_guard guard(mutex);
        infos.erase(id);
    }

    /// Makes `RecordFailure` throw from now on; null ends that.
    void FailRecording(std::exception_ptr failure) {
        std::lock_guard guard(mutex);
        recordFailure = std::move(failure);
    }

    /// Makes `Remove` throw from now on; null ends that.
    void FailRemoving(std::exception_ptr failure) {
        std::lock_guard guard(mutex);
        removeFailure = std::move(failure);
    }

    std::vector<std::string> Changes() const {
        std::lock_guard guard(mutex);
        return changes;
    }

    void ClearChanges() {
        std::lock_guard guard(mutex);
        changes.clear();
    }

private:
    mutable std::mutex mutex;
    // Guarded by mutex:
    std::map<std::string, ClientCommunications::FailureInfo> infos;
    std::vector<std::string> changes;
    std::exception_ptr recordFailure;
    std::exception_ptr removeFailure;
};

}  // namespace Ombry::Tests
