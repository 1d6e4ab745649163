#include "ClientCommunications/Impl/SSDCacheMaintainer.h"

#include "ClientCommunications/RootRequestMetaData.h"
#include "LibraryLogger/LogCall.h"
#include "ObjectMapping/DateTime.h"
#include "Platform/IClock.h"
#include "Platform/IRandom.h"

namespace Ombry::ClientCommunications {
namespace {

using LibraryLogger::LogCall;

constexpr const char* MaintainName = "Ombry::ClientCommunications::SSDCacheMaintainer::MaintainCache";

// Now plus a number of units drawn evenly from a range, both ends included: the spread keeps many clients
// from refreshing at one moment.
template <class Unit>
TimePoint SometimeAfterNow(std::mt19937& generator, int least, int most) {
    const int drawn = std::uniform_int_distribution(least, most)(generator);
    return SaturatingAdd(Platform::Clock().Now(), Duration(Unit(drawn)));
}

}  // namespace

SSDCacheMaintainer::SSDCacheMaintainer(std::shared_ptr<IServiceFinder> finder,
                                       std::shared_ptr<IFoundServicesCache> cache,
                                       std::shared_ptr<LibraryLogger::ILogger> logger)
    : finder(std::move(finder)),
      cache(std::move(cache)),
      logger(std::move(logger)),
      metaData(RootRequestMetaData::createInfrastructure("UpdateSsdsSeedNodes")),
      cancel(Cancellation::CreateCancellable()) {}

SSDCacheMaintainer::~SSDCacheMaintainer() {
    if (!thread.joinable()) return;
    {
        std::lock_guard guard(mutex);
        stopping = true;
        cancel.Cancel();
        condition.notify_all();
    }
    if (thread.get_id() != std::this_thread::get_id()) thread.join();
}

void SSDCacheMaintainer::Start() {
    thread = std::thread(&SSDCacheMaintainer::MaintainCache, this);
}

void SSDCacheMaintainer::MaintainCache() {
    std::mt19937 generator(Platform::Random().SeedWord());
    TimePoint next = cache->GetNextRefreshTime();
    LogCall(logger, MaintainName, 1,
            "Thread started, next refresh time: ", [&] { return ObjectMapping::FormatDateTime(next); });
    while (true) {
        {
            std::unique_lock lock(mutex);
            if (Platform::WaitUntil(condition, lock, next, [this] { return stopping; })) break;
        }
        LogCall(logger, MaintainName, 1, "Refreshing SSDS cache");
        next = Refresh(generator);
    }
    LogCall(logger, MaintainName, 1, "Thread exiting.");
}

// One refresh; when the next is due. After a failure the cache stays as it was.
TimePoint SSDCacheMaintainer::Refresh(std::mt19937& generator) {
    try {
        const std::shared_ptr<IFoundServices> services = finder->Find(metaData, cancel);
        const TimePoint next = SometimeAfterNow<std::chrono::minutes>(generator, 1080, 1440);
        LogCall(logger, MaintainName, 1,
                "Next refresh time: ", [&] { return ObjectMapping::FormatDateTime(next); });
        cache->Save(services, next);
        return next;
    } catch (const std::exception& failure) {
        LogCall(logger, MaintainName, 4, "Failed to get fresh SSDS list due to exception: ", failure.what());
        const TimePoint next = SometimeAfterNow<std::chrono::seconds>(generator, 300, 14400);
        LogCall(logger, MaintainName, 1,
                "Next attempt time: ", [&] { return ObjectMapping::FormatDateTime(next); });
        return next;
    }
}

}  // namespace Ombry::ClientCommunications
