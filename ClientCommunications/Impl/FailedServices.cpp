#include "ClientCommunications/Impl/FailedServices.h"

#include "Platform/IClock.h"

namespace Ombry::ClientCommunications {

FailedServices::FailedServices(std::shared_ptr<IRetryDelayIteratorFactory> delayFactory, Duration retention)
    : delayFactory(std::move(delayFactory)), retention(retention), cleaner(&FailedServices::Clean, this) {}

FailedServices::~FailedServices() {
    {
        std::lock_guard guard(mutex);
        stopping = true;
        condition.notify_all();
    }
    if (cleaner.get_id() != std::this_thread::get_id()) cleaner.join();
}

bool FailedServices::IsForgotten(const Record& record, TimePoint now) const {
    return now > SaturatingAdd(record.nextRetryTime, retention);
}

FailureInfo FailedServices::Get(const std::string& id) {
    std::lock_guard guard(mutex);
    const auto found = records.find(id);
    if (found == records.end() || IsForgotten(*found->second, Platform::Clock().Now())) return FailureInfo();
    const Record& record = *found->second;
    return {true, record.isLocal, record.nextRetryTime, record.failureCount};
}

void FailedServices::RecordFailure(const std::string& id, bool isLocal) {
    std::lock_guard guard(mutex);
    const auto found = records.find(id);
    const std::shared_ptr<Record> record = found == records.end() ? MakeRecord(isLocal) : found->second;
    record->nextRetryTime = SaturatingAdd(Platform::Clock().Now(), record->delays->Next());
    ++record->failureCount;
    if (found == records.end()) records.emplace(id, record);
}

std::shared_ptr<FailedServices::Record> FailedServices::MakeRecord(bool isLocal) const {
    auto record = std::make_shared<Record>();
    record->delays = delayFactory->Create();
    record->isLocal = isLocal;  // a later failure does not change it
    return record;
}

void FailedServices::Remove(const std::string& id) {
    std::lock_guard guard(mutex);
    records.erase(id);
}

void FailedServices::Clean() {
    std::unique_lock lock(mutex);
    TimePoint lastSweep = Platform::Clock().Now();
    while (!stopping) {
        const TimePoint now = Platform::Clock().Now();
        if (now >= SaturatingAdd(lastSweep, retention)) {
            std::erase_if(records, [&](const auto& entry) { return IsForgotten(*entry.second, now); });
            lastSweep = now;
        }
        Platform::WaitUntil(condition, lock, SaturatingAdd(lastSweep, retention),
                            [this] { return stopping; });
    }
}

}  // namespace Ombry::ClientCommunications
