#include "OmbryZephCore/ZephSocketIO.h"

#include "OmbryZephCore/ZephResultCodes.h"
#include "Platform/IClock.h"

namespace OmbryZephCore {

ZephSocketIO::~ZephSocketIO() {
    ZephSocketIO::UnRegisterIOCompletionHandler();
}

std::uint32_t ZephSocketIO::Initialize(Ombry::Platform::SocketHandle h, ZephIOTaskManagerIf* pIOManager,
                                       ZephUserTaskScheduleIf* pScheduler, ZephTaskGateIf* pGate) {
    // Handle numbers are reused at once: a stale registration would answer for the new socket.
    UnRegisterIOCompletionHandler();
    m_Socket = h;
    m_IOManager = pIOManager;
    m_Scheduler = pScheduler;
    m_TaskGate = pGate;
    return pIOManager->RegisterForIOCompletion(h, this);
}

std::uint32_t ZephSocketIO::RegisterIOCompletionHandler(ZephIOCompletionHandlerIf* pHandler) {
    if (!m_IOManager) return eRC_NotInitialized;
    m_Handler = pHandler;
    return eRC_Success;
}

void ZephSocketIO::UnRegisterIOCompletionHandler() {
    if (!m_IOManager) return;
    m_IOManager->UnRegisterForIOCompletion(m_Socket);
    m_Socket = Ombry::Platform::InvalidSocket;
    m_IOManager = nullptr;
    m_Scheduler = nullptr;
    m_TaskGate = nullptr;
    m_Handler = nullptr;
}

std::uint32_t ZephSocketIO::StartRead(std::uint32_t nBytes, std::uint8_t* pBuffer) {
    return StartIO(TaskTypeRead, nBytes, pBuffer);
}

std::uint32_t ZephSocketIO::StartWrite(std::uint32_t nBytes, const std::uint8_t* pBuffer) {
    // One call of the manager serves both directions; a write only reads the buffer.
    return StartIO(TaskTypeWrite, nBytes, const_cast<std::uint8_t*>(pBuffer));
}

std::uint32_t ZephSocketIO::StartIO(std::uint32_t nTaskType, std::uint32_t nBytes, std::uint8_t* pBuffer) {
    if (!m_Handler) return eRC_NotInitialized;
    const std::int64_t nNow = Ombry::Platform::WallSeconds();
    {
        const std::lock_guard guard(m_Mutex);
        m_LastActivity = nNow;
    }
    return m_IOManager->StartIO(nTaskType, m_Socket, nBytes, pBuffer);
}

std::uint32_t ZephSocketIO::RequestDrainNotification() {
    if (!m_IOManager) return eRC_NotInitialized;
    // The refusal itself is the result, and it reads as success: callers treat a closed gate as "not needed".
    if (m_TaskGate && !m_TaskGate->TryAcquire()) return static_cast<std::uint32_t>(false);
    return m_Scheduler->ScheduleTask(this);
}

void ZephSocketIO::CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) {
    const RunningCallback running(*this);
    if (m_Handler) m_Handler->CompleteTask(nTaskType, bSuccess, nBytes);
}

void ZephSocketIO::AbortTask(std::uint32_t nTaskType) {
    const RunningCallback running(*this);
    if (m_Handler) m_Handler->AbortTask(nTaskType);
}

void ZephSocketIO::DoTask() {
    // The task stays in the queue when this object is unbound, so both may be gone.
    if (m_Handler) m_Handler->OnDrained();
    if (m_TaskGate) m_TaskGate->Release();
}

std::int64_t ZephSocketIO::GetLastActivity() const {
    const std::lock_guard guard(m_Mutex);
    return m_LastActivity;
}

std::int32_t ZephSocketIO::GetCallbacksInProgress() const {
    const std::lock_guard guard(m_Mutex);
    return m_CallbacksInProgress;
}

void ZephSocketIO::BeginCallback() {
    const std::lock_guard guard(m_Mutex);
    ++m_CallbacksInProgress;
}

void ZephSocketIO::EndCallback() {
    const std::int64_t nNow = Ombry::Platform::WallSeconds();
    const std::lock_guard guard(m_Mutex);
    --m_CallbacksInProgress;
    m_LastActivity = nNow;
}

}  // namespace OmbryZephCore
