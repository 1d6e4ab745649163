#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"

#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSorrelSyncConnection.h"
#include "Platform/IClock.h"

#include <deque>
#include <map>
#include <new>
#include <thread>

namespace OmbryZephCore {

class ZephSorrelSyncConnectionPool::PoolConnection : public ZephSorrelSyncConnection {
public:
    PoolConnection(const SharedState* pOwner, std::shared_ptr<Ombry::LibraryLogger::ILogger> logger,
                   bool bVerbose)
        : ZephSorrelSyncConnection(std::move(logger), bVerbose), m_Owner(pOwner) {}

    bool IsOf(const SharedState* pOwner) const { return m_Owner == pOwner; }

private:
    const SharedState* m_Owner;
};

struct ZephSorrelSyncConnectionPool::SharedState {
    struct ZephIdleConnection {
        std::int64_t nReturnedAt;  // seconds of the wall clock
        std::unique_ptr<PoolConnection> pConnection;
    };
    using Queue = std::deque<ZephIdleConnection>;

    explicit SharedState(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger)
        : m_Logger(std::move(logger)) {}

    void EvictUntilStopped();
    void Evict(bool bAll, std::int64_t nNow);
    void StopThread();

    const std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    std::atomic<bool> m_Verbose = false;

    // Never held together with m_StopMutex.
    std::mutex m_Mutex;
    // Guarded by m_Mutex. The newest connection of a queue stands at the back.
    std::map<ZephSorrelConnectionParameters, Queue> m_Idle;

    // Constant while the thread runs:
    std::uint32_t m_MaxIdleSeconds = 0;
    std::uint32_t m_ScanIntervalSeconds = 0;

    std::mutex m_StopMutex;
    std::condition_variable m_Condition;
    bool m_Stop = true;  // guarded by m_StopMutex

    std::thread m_Thread;
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
        Queue& queue = it->second;
        // Signed, so that a clock that was set back makes a connection young and not old.
        while (!queue.empty() &&
               (bAll || nNow - queue.front().nReturnedAt > static_cast<std::int64_t>(m_MaxIdleSeconds))) {
            queue.pop_front();
        }
        it = queue.empty() ? m_Idle.erase(it) : std::next(it);
    }
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
    {
        std::lock_guard guard(m_State->m_Mutex);
        const auto found = m_State->m_Idle.find(params);
        if (found != m_State->m_Idle.end() && !found->second.empty()) {
            std::unique_ptr<PoolConnection> newest = std::move(found->second.back().pConnection);
            found->second.pop_back();
            return newest.release();
        }
    }
    auto connection = std::make_unique<PoolConnection>(m_State.get(), m_State->m_Logger, m_State->m_Verbose);
    connection->Configure(params);
    return connection.release();
}

std::uint32_t ZephSorrelSyncConnectionPool::ReleaseConnection(ZephSorrelSyncConnectionIf* pConnection) {
    auto* pOurs = dynamic_cast<PoolConnection*>(pConnection);
    if (!pOurs || !pOurs->IsOf(m_State.get())) return eRC_Success;
    std::unique_ptr<PoolConnection> connection(pOurs);
    if (!connection->IsConnected() || connection->GetHttpConnection().IsCloseRequested()) return eRC_Success;
    const std::int64_t nNow = Ombry::Platform::WallSeconds();
    try {
        std::lock_guard guard(m_State->m_Mutex);
        SharedState::Queue& queue = m_State->m_Idle[connection->GetParameters()];
        queue.push_back({nNow, std::move(connection)});
    } catch (const std::bad_alloc&) {
        // Without room to keep it the connection goes, and the answer that it brought stays.
    }
    return eRC_Success;
}

}  // namespace OmbryZephCore
