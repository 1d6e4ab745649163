#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"

#include "OmbryZephCore/ZephMutex.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSorrelSyncConnection.h"
#include "Platform/IClock.h"

#include <algorithm>
#include <map>
#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

namespace OmbryZephCore {

struct ZephSorrelSyncConnectionPool::SharedState {
    struct ZephIdleConnection {
        std::int64_t nReturnedAt;  // seconds of the wall clock
        std::unique_ptr<PoolConnection> pConnection;
    };
    // The connections of one destination, the newest at the back, with room for those that are lent: they go
    // back without a search, and without taking memory.
    struct Queue {
        std::vector<ZephIdleConnection> idle;
        std::size_t nLent = 0;
    };
    using Queues = std::map<ZephSorrelConnectionParameters, Queue>;

    explicit SharedState(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger)
        : m_Logger(std::move(logger)) {}

    void EvictUntilStopped();
    void Evict(bool bAll, std::int64_t nNow);
    Queues::iterator Find(const ZephSorrelConnectionParameters& params);
    void Leave(Queues::iterator home);
    Queues::iterator Erase(Queues::iterator home);
    void StopThread();

    const std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    std::atomic<bool> m_Verbose = false;

    // Never held together with m_StopMutex.
    ZephMutex m_Mutex;
    // Guarded by m_Mutex:
    Queues m_Idle;
    Queues::iterator m_Latest = m_Idle.end();  // what was asked for last: most programs have one destination

    // Constant while the thread runs:
    std::uint32_t m_MaxIdleSeconds = 0;
    std::uint32_t m_ScanIntervalSeconds = 0;

    std::mutex m_StopMutex;
    std::condition_variable m_Condition;
    bool m_Stop = true;  // guarded by m_StopMutex

    std::thread m_Thread;
};

class ZephSorrelSyncConnectionPool::PoolConnection final : public ZephSorrelSyncConnection {
public:
    PoolConnection(const SharedState* pOwner, SharedState::Queues::iterator home,
                   std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose)
        : ZephSorrelSyncConnection(std::move(logger), bVerbose), m_Owner(pOwner), m_Home(home) {}

    bool IsOf(const SharedState* pOwner) const { return m_Owner == pOwner; }
    SharedState::Queues::iterator GetHome() const { return m_Home; }

private:
    const SharedState* m_Owner;
    const SharedState::Queues::iterator m_Home;
};

void ZephSorrelSyncConnectionPool::SharedState::EvictUntilStopped() {
    constexpr std::uint32_t nLongestScan = 864000;
    const auto interval = std::chrono::seconds(std::min(m_ScanIntervalSeconds, nLongestScan));
    bool bStop = false;
    while (!bStop) {
        {
            std::unique_lock lock(m_StopMutex);
            bStop = Ombry::Platform::WaitFor(m_Condition, lock, interval, [this] { return m_Stop; });
        }
        Evict(bStop, Ombry::Platform::WallSeconds());
    }
}

void ZephSorrelSyncConnectionPool::SharedState::Evict(bool bAll, std::int64_t nNow) {
    std::lock_guard guard(m_Mutex);
    for (auto it = m_Idle.begin(); it != m_Idle.end();) {
        auto& [queue, nLent] = it->second;
        // Signed, so that a clock that was set back makes a connection young and not old.
        const auto young = std::find_if(queue.begin(), queue.end(), [&](const ZephIdleConnection& idle) {
            return !bAll && nNow - idle.nReturnedAt <= static_cast<std::int64_t>(m_MaxIdleSeconds);
        });
        queue.erase(queue.begin(), young);
        for (const ZephIdleConnection& idle : queue)
            idle.pConnection->ReleaseIdleMemory();
        it = queue.empty() && nLent == 0 ? Erase(it) : std::next(it);
    }
}

// The queue of these parameters, new if there is none; m_Mutex is held.
ZephSorrelSyncConnectionPool::SharedState::Queues::iterator ZephSorrelSyncConnectionPool::SharedState::Find(
    const ZephSorrelConnectionParameters& params) {
    if (m_Latest == m_Idle.end() || !(m_Latest->first == params)) m_Latest = m_Idle.try_emplace(params).first;
    return m_Latest;
}

// m_Mutex is held.
ZephSorrelSyncConnectionPool::SharedState::Queues::iterator ZephSorrelSyncConnectionPool::SharedState::Erase(
    Queues::iterator home) {
    if (m_Latest == home) m_Latest = m_Idle.end();
    return m_Idle.erase(home);
}

// A connection is lent no more; m_Mutex is held.
void ZephSorrelSyncConnectionPool::SharedState::Leave(Queues::iterator home) {
    --home->second.nLent;
    if (home->second.nLent == 0 && home->second.idle.empty()) Erase(home);
}

void ZephSorrelSyncConnectionPool::SharedState::StopThread() {
    if (!m_Thread.joinable()) return;
    {
        std::lock_guard guard(m_StopMutex);
        m_Stop = true;
        m_Condition.notify_all();
    }
    m_Thread.join();
}

ZephSorrelSyncConnectionPool::ZephSorrelSyncConnectionPool(
    std::shared_ptr<Ombry::LibraryLogger::ILogger> logger)
    : m_State(std::make_unique<SharedState>(std::move(logger))) {}

ZephSorrelSyncConnectionPool::~ZephSorrelSyncConnectionPool() {
    // The last pass of the thread deletes all idle connections; without a thread they go with the map.
    m_State->StopThread();
}

void ZephSorrelSyncConnectionPool::SetVerbose(bool bVerbose) {
    m_State->m_Verbose = bVerbose;
}

std::uint32_t ZephSorrelSyncConnectionPool::Start(std::uint32_t nMaxIdleSeconds,
                                                  std::uint32_t nScanIntervalSeconds) {
    m_State->StopThread();
    m_State->m_MaxIdleSeconds = nMaxIdleSeconds;
    m_State->m_ScanIntervalSeconds = nScanIntervalSeconds;
    {
        std::lock_guard guard(m_State->m_StopMutex);
        m_State->m_Stop = false;
    }
    m_State->m_Thread = std::thread(&SharedState::EvictUntilStopped, m_State.get());
    return eRC_Success;
}

ZephSorrelSyncConnectionIf* ZephSorrelSyncConnectionPool::GetConnection(
    const ZephSorrelConnectionParameters& params) {
    SharedState::Queues::iterator home;
    {
        std::lock_guard guard(m_State->m_Mutex);
        home = m_State->Find(params);
        auto& [idle, nLent] = home->second;
        ++nLent;
        if (!idle.empty()) {
            std::unique_ptr<PoolConnection> newest = std::move(idle.back().pConnection);
            idle.pop_back();
            return newest.release();
        }
    }
    try {
        {
            std::lock_guard guard(m_State->m_Mutex);
            home->second.idle.reserve(home->second.idle.size() + home->second.nLent);
        }
        auto connection =
            std::make_unique<PoolConnection>(m_State.get(), home, m_State->m_Logger, m_State->m_Verbose);
        connection->Configure(params);
        return connection.release();
    } catch (...) {
        std::lock_guard guard(m_State->m_Mutex);
        m_State->Leave(home);
        throw;
    }
}

std::uint32_t ZephSorrelSyncConnectionPool::ReleaseConnection(ZephSorrelSyncConnectionIf* pConnection) {
    if (!pConnection || typeid(*pConnection) != typeid(PoolConnection)) return eRC_Success;
    auto* const pOurs = static_cast<PoolConnection*>(pConnection);
    if (!pOurs->IsOf(m_State.get())) return eRC_Success;
    // What is not kept goes behind the lock: taking a TLS stack down takes its time.
    std::unique_ptr<PoolConnection> connection(pOurs);
    const bool bKeep = connection->IsConnected() && !connection->GetHttpConnection().IsCloseRequested();
    const std::int64_t nNow = Ombry::Platform::WallSeconds();
    std::lock_guard guard(m_State->m_Mutex);
    const auto home = connection->GetHome();
    if (bKeep) home->second.idle.push_back({nNow, std::move(connection)});
    m_State->Leave(home);
    return eRC_Success;
}

}  // namespace OmbryZephCore
