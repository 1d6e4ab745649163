#pragma once

#include "ClientCommunications/IFailedServices.h"
#include "ClientCommunications/IRetryDelayIterator.h"
#include "ClientCommunications/IRetryDelayIteratorFactory.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace Ombry::ClientCommunications {

/// The memory of failures of one process, shared by all gateways. A thread of its own forgets records that
/// are past their next retry time by `retention`. `Get` takes them for forgotten at once; a failure that is
/// recorded before the thread has come by goes on with the old count and delay.
class FailedServices : public IFailedServices {
public:
    FailedServices(std::shared_ptr<IRetryDelayIteratorFactory> delayFactory, Duration retention);
    ~FailedServices() override;
    FailedServices(const FailedServices&) = delete;
    FailedServices& operator=(const FailedServices&) = delete;

    FailureInfo Get(const std::string& id) override;
    void RecordFailure(const std::string& id, bool isLocal) override;
    void Remove(const std::string& id) override;

private:
    struct Record {
        std::unique_ptr<IRetryDelayIterator> delays;
        bool isLocal = true;
        TimePoint nextRetryTime{};
        int failureCount = 0;
    };

    std::shared_ptr<Record> MakeRecord(bool isLocal) const;
    bool IsForgotten(const Record& record, TimePoint now) const;
    void Clean();

    const std::shared_ptr<IRetryDelayIteratorFactory> delayFactory;
    const Duration retention;
    std::condition_variable condition;
    std::mutex mutex;
    // Guarded by mutex:
    std::map<std::string, std::shared_ptr<Record>> records;
    bool stopping = false;

    std::thread cleaner;
};

}  // namespace Ombry::ClientCommunications
