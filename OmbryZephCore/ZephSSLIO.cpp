#include "OmbryZephCore/ZephSSLIO.h"

#include "OmbryZephCore/ZephResultCodes.h"

#include <algorithm>
#include <cstring>
#include <thread>
#include <utility>

namespace OmbryZephCore {

namespace {

// A line bears the name of the step that it belongs to, whoever writes it.
constexpr const char* Notifying = "OmbryZephCore::ZephSSLIO::DoPendingNotifications";
constexpr const char* FailingFatally = "OmbryZephCore::ZephSSLIO::HandleFatalError";

}  // namespace

ZephSSLIO::ZephSSLIO(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger) : m_Logger(std::move(logger)) {}

ZephSSLIO::~ZephSSLIO() {
    Terminate();
}

std::uint32_t ZephSSLIO::Initialize(ZephSSLConnectionManagerIf* pManager, ZephIOObjectIf* pNextLayer,
                                    ZephUserTaskScheduleIf* pScheduler, std::uint32_t nSessionId,
                                    ZephSSLNotifierIf* pNotifier, ZephUserTaskCancelIf* pCanceller,
                                    ZephTaskGateIf* pGate) {
    constexpr const char* Name = "OmbryZephCore::ZephSSLIO::Initialize";
    std::lock_guard lock(m_Mutex);
    m_ConnectionManager = pManager;
    m_NextLayer = pNextLayer;
    m_Scheduler = pScheduler;
    m_SessionId = nSessionId;
    m_Notifier = pNotifier;
    m_Canceller = pCanceller;
    m_TaskGate = pGate;
    std::uint32_t nResult = m_ReadBuffer.SetLength(BufferLength);
    if (nResult != eRC_Success) {
        Log(Name, 4, "Failed to set read buffer length due to error ", nResult, ", sessionid = ");
        ForgetSetup();
        return nResult;
    }
    nResult = m_WriteBuffer.SetLength(BufferLength);
    if (nResult != eRC_Success) {
        Log(Name, 4, "Failed to set write buffer length due to error ", nResult, ", sessionid = ");
        ForgetSetup();
        return nResult;
    }
    Trace(Name, "Initialization succeeded.  sessionid = ");
    return eRC_Success;
}

void ZephSSLIO::ForgetSetup() {
    m_ConnectionManager = nullptr;
    m_NextLayer = nullptr;
    m_Scheduler = nullptr;
    m_SessionId = 0;
    m_Notifier = nullptr;
    m_Canceller = nullptr;
    m_TaskGate = nullptr;
}

void ZephSSLIO::Terminate() {
    std::lock_guard lock(m_Mutex);
    if (m_Connection) m_ConnectionManager->ReleaseConnection(m_Connection);
    m_Connection = nullptr;
    ForgetSetup();
    m_Handler = nullptr;
    m_State = eState_Off;
    m_UserRead = {};
    m_UserWrite = {};
    m_WaitForPeerClose = false;
    m_WasOn = false;
    m_ReadFill = 0;
    m_ReadInProgress = false;
    m_WriteFill = 0;
    m_WriteInProgress = false;
    m_Silence = Silence::Over;
    m_CarriedRequest = false;
    std::lock_guard notifyLock(m_NotifyMutex);
    m_DrainRequested = false;
    m_LowerDrainRequested = false;
    m_DrainArrived = false;
    m_TaskPending = false;
    m_TaskRunning = false;
    m_Terminating = false;
}

std::uint32_t ZephSSLIO::StartSSL() {
    std::uint32_t nResult = eRC_Fail;
    {
        std::lock_guard lock(m_Mutex);
        Trace("OmbryZephCore::ZephSSLIO::StartSSL", "state = ", m_State, ", sessionid = ");
        if (m_State == eState_Stopping) m_State = eState_Restarting;
        if (m_State != eState_Off) return eRC_Success;
        // First of all: without an engine too, nothing may pass through any more.
        m_State = eState_On;
        m_WasOn = true;
        if (TakeEngine()) nResult = ContinueSSL();
    }
    return EndControlCall(nResult);
}

std::uint32_t ZephSSLIO::StopSSL(bool bWaitForPeer) {
    std::uint32_t nResult = eRC_Success;
    {
        std::lock_guard lock(m_Mutex);
        Trace("OmbryZephCore::ZephSSLIO::StopSSL", "state = ", m_State, "sessionid = ");
        if (m_State != eState_On && m_State != eState_Restarting) return eRC_Success;
        m_State = eState_Stopping;
        m_WaitForPeerClose = bWaitForPeer;
        nResult = ContinueSSL();
    }
    return EndControlCall(nResult);
}

bool ZephSSLIO::TakeEngine() {
    m_Connection = m_ConnectionManager ? m_ConnectionManager->GetConnection() : nullptr;
    if (!m_Connection) {
        Log("OmbryZephCore::ZephSSLIO::StartSSL", 4,
            "failed to get connection from connection manager.  sessionid = ");
        return false;
    }
    m_Connection->SetVerbose(m_Verbose);
    return true;
}

// Callers of StartSSL and StopSSL have no transfer of their own that could report the failure.
std::uint32_t ZephSSLIO::EndControlCall(std::uint32_t nResult) {
    if (nResult != eRC_Success) {
        HandleFatalError();
        return nResult;
    }
    {
        std::lock_guard lock(m_Mutex);
        if (!IsComplete(m_UserRead) && !IsComplete(m_UserWrite)) return eRC_Success;
    }
    return SchedulePendingNotifications();
}

void ZephSSLIO::SetVerbose(bool b) {
    std::lock_guard lock(m_Mutex);
    m_Verbose = b;
    if (m_Connection) m_Connection->SetVerbose(b);
}

void ZephSSLIO::ReleaseIdleMemory() {
    std::lock_guard lock(m_Mutex);
    if (m_Connection) m_Connection->ReleaseIdleMemory();
    if (!m_ReadInProgress && m_ReadFill == 0) m_ReadBuffer.Release();
    if (m_WriteFill == 0) m_WriteBuffer.Release();  // what is being sent lies in it
}

void ZephSSLIO::SetClearTextGuard(bool bGuard) {
    std::lock_guard lock(m_Mutex);
    m_ClearTextGuard = bGuard;
}

std::uint32_t ZephSSLIO::RegisterIOCompletionHandler(ZephIOCompletionHandlerIf* pHandler) {
    if (!m_NextLayer) return eRC_NotInitialized;
    const std::uint32_t nResult = m_NextLayer->RegisterIOCompletionHandler(this);
    if (nResult != eRC_Success) {
        Log("OmbryZephCore::ZephSSLIO::RegisterIOCompletionHandler", 4,
            "Failed to register with comm layer due to error ", nResult, ". sessionid = ");
        return nResult;
    }
    std::lock_guard lock(m_Mutex);
    m_Handler = pHandler;
    return StartPendingIO();
}

void ZephSSLIO::UnRegisterIOCompletionHandler() {
    constexpr const char* Name = "OmbryZephCore::ZephSSLIO::UnRegisterIOCompletionHandler";
    Trace(Name, "sessionid = ");
    {
        std::lock_guard lock(m_NotifyMutex);
        m_Terminating = true;
    }
    Trace(Name, "Waiting for any outstanding tasks to complete.  sessionid = ");
    while (CancelOrFindTask())
        std::this_thread::yield();
    if (m_NextLayer) {
        Trace(Name, "Unregistering with next layer.  sessionid = ");
        m_NextLayer->UnRegisterIOCompletionHandler();
    } else {
        Trace(Name, "There is no next layer -- not unregistering with it.  sessionid = ");
    }
    std::lock_guard lock(m_Mutex);
    m_Handler = nullptr;
    std::lock_guard notifyLock(m_NotifyMutex);
    m_Terminating = false;
}

// Whether there was a task, queued or running; a queued one is taken out of the queue.
bool ZephSSLIO::CancelOrFindTask() {
    {
        std::lock_guard lock(m_NotifyMutex);
        if (!m_TaskPending) return m_TaskRunning;
    }
    if (!m_Canceller) return true;
    m_Canceller->CancelTask(this);
    std::lock_guard lock(m_NotifyMutex);
    // The scheduler may have started it in between; then DoTask gives the gate back.
    if (m_TaskPending && m_TaskGate) m_TaskGate->Release();
    m_TaskPending = false;
    return true;
}

std::uint32_t ZephSSLIO::StartRead(std::uint32_t nBytes, std::uint8_t* pBuffer) {
    {
        std::lock_guard lock(m_Mutex);
        if (m_State == eState_Off && !IsClosed() && m_ReadFill == 0 && !m_ReadInProgress)
            return PassReadThrough(nBytes, pBuffer);
        m_UserRead = {pBuffer, nBytes, 0};
        if (m_State != eState_Off) {
            if (const std::uint32_t nResult = ContinueSSL(); nResult != eRC_Success) return nResult;
        } else if (!IsClosed()) {
            if (m_ReadInProgress) return eRC_Success;  // begun under TLS; its bytes will come first
            Trace("OmbryZephCore::ZephSSLIO::StartRead",
                  "TLS is off -- satisfying read from local buffer.  sessionid = ");
            if (m_Silence != Silence::Over) {
                RefuseUnasked();
                return eRC_IO_ConnectionFailed;
            }
            ServeReadFromBuffer();
        }
    }
    return SchedulePendingNotifications();
}

std::uint32_t ZephSSLIO::PassReadThrough(std::uint32_t nBytes, std::uint8_t* pBuffer) {
    Trace("OmbryZephCore::ZephSSLIO::StartRead",
          "TLS is off -- passing through to next layer.  sessionid = ");
    return m_NextLayer ? m_NextLayer->StartRead(nBytes, pBuffer) : eRC_NotInitialized;
}

void ZephSSLIO::ServeReadFromBuffer() {
    m_UserRead.nDone = std::min(m_UserRead.nBytes, m_ReadFill);
    std::memcpy(m_UserRead.pBuffer, m_ReadBuffer.GetData(), m_UserRead.nDone);
    DropFront(m_ReadBuffer, m_ReadFill, m_UserRead.nDone);
}

std::uint32_t ZephSSLIO::StartWrite(std::uint32_t nBytes, const std::uint8_t* pBuffer) {
    bool bRefused = false;
    {
        std::lock_guard lock(m_Mutex);
        if (IsClosed()) return eRC_IO_ConnectionFailed;
        if (m_State == eState_Off) {
            Trace("OmbryZephCore::ZephSSLIO::StartWrite",
                  "TLS is off -- passing through to next layer.  sessionid = ");
            NoteWritten();
            return m_NextLayer ? m_NextLayer->StartWrite(nBytes, pBuffer) : eRC_NotInitialized;
        }
        m_UserWrite = {pBuffer, nBytes, 0};
        if (const std::uint32_t nResult = ContinueSSL(); nResult != eRC_Success) return nResult;
        bRefused = IsClosed() && m_UserWrite.nDone == 0;
        if (bRefused) m_UserWrite = {};
    }
    const std::uint32_t nScheduled = SchedulePendingNotifications();
    return bRefused ? eRC_IO_ConnectionFailed : nScheduled;
}

void ZephSSLIO::ExpectSilenceUntilSent() {
    std::lock_guard lock(m_Mutex);
    m_Silence = Silence::UntilWritten;
}

// The first bytes of a write were taken. What lies in m_WriteBuffer leaves before them.
void ZephSSLIO::NoteWritten() {
    if (m_Silence != Silence::UntilWritten) return;
    m_Silence = Silence::UntilSent;
    m_AheadOfRequest = m_WriteFill;
}

// The layer below has sent this much.
void ZephSSLIO::NoteSent(std::uint32_t nBytes) {
    if (m_Silence != Silence::UntilSent) return;
    if (nBytes <= m_AheadOfRequest) {
        m_AheadOfRequest -= nBytes;
    } else {
        m_Silence = Silence::Over;
        m_CarriedRequest = true;
    }
}

bool ZephSSLIO::HasUnread() {
    std::lock_guard lock(m_Mutex);
    return m_ReadFill != 0 || (m_Connection && m_Connection->HasUnread());
}

std::uint32_t ZephSSLIO::RequestDrainNotification() {
    {
        std::lock_guard lock(m_NotifyMutex);
        m_DrainRequested = true;
    }
    return SchedulePendingNotifications();
}

void ZephSSLIO::OnDrained() {
    {
        std::lock_guard lock(m_NotifyMutex);
        m_DrainArrived = true;
    }
    SchedulePendingNotifications();
}

// The engine may hold output that was made since the write began: the body of a small request, whose head is
// what is about to leave. What does not fit behind that, the completion of the write fetches. An engine
// never goes before its last write has ended.
ZephIOCompletionHandlerIf::WriteTail ZephSSLIO::TakeWriteTail() {
    std::lock_guard lock(m_Mutex);
    if (m_State != eState_On || !m_WriteInProgress || !m_Connection->IsOutputBlocked()) return {};
    const std::uint32_t nBefore = m_WriteFill;
    Round round;
    FillWriteBuffer(round);  // a failure shows again when the write is over
    return {m_WriteFill - nBefore, m_Connection->IsOutputBlocked()};
}

void ZephSSLIO::CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) {
    Completion completion = Completion::Fatal;
    Finished finished;
    {
        std::lock_guard lock(m_Mutex);
        completion = TakeCompletion(nTaskType, bSuccess, nBytes);
        if (completion == Completion::Handled) finished = TakeFinished();
    }
    switch (completion) {
        case Completion::PassThrough:
            Trace("OmbryZephCore::ZephSSLIO::CompleteTask",
                  "TLS is off -- passing through to next layer.  sessionid = ");
            if (ZephIOCompletionHandlerIf* const pHandler = GetHandler())
                pHandler->CompleteTask(nTaskType, bSuccess, nBytes);
            break;
        case Completion::Refused:
            DispatchRead(GetHandler(), false, 0);
            break;
        case Completion::Handled:
            Notify(finished);
            break;
        case Completion::Fatal:
            HandleFatalError();
            break;
    }
}

ZephSSLIO::Completion ZephSSLIO::TakeCompletion(std::uint32_t nTaskType, bool bSuccess,
                                                std::uint32_t nBytes) {
    constexpr const char* Name = "OmbryZephCore::ZephSSLIO::CompleteTask";
    const bool bOurs = EndTransfer(nTaskType);
    const bool bRead = nTaskType == TaskTypeRead;
    if (bSuccess && !bRead) NoteSent(nBytes);
    if (m_State == eState_Off) {
        if (bRead && bSuccess && nBytes != 0 && m_Silence != Silence::Over && !IsClosed()) {
            m_UserRead = {};
            RefuseUnasked();
            return Completion::Refused;
        }
        return bOurs ? TakeLateRead(bSuccess, nBytes) : Completion::PassThrough;
    }
    if (!bSuccess) {
        Trace(Name, "I/O operation failed.  sessionid = ");
        return Completion::Fatal;
    }
    // A transfer that was passed through before TLS came on ends as it began.
    if (!bOurs && nBytes != 0) return Completion::PassThrough;
    if (bRead) {
        Trace(Name, "read completion -- ", nBytes, " bytes transferred.  sessionid = ");
        m_ReadFill += std::min(nBytes, m_ReadBuffer.GetLength() - m_ReadFill);
    } else {
        Trace(Name, "write completion -- ", nBytes, " bytes transferred.  sessionid = ");
        DropFront(m_WriteBuffer, m_WriteFill, nBytes);
    }
    if (nBytes == 0) {
        Trace(Name,
              "socket closed gracefully but TLS was not shut down first-- reporting a fatal error.  "
              "sessionid = ");
        return Completion::Fatal;
    }
    return ContinueSSL() == eRC_Success ? Completion::Handled : Completion::Fatal;
}

// Notes the end of a transfer of the layer below; whether this stage had started it for itself.
bool ZephSSLIO::EndTransfer(std::uint32_t nTaskType) {
    return std::exchange(nTaskType == TaskTypeRead ? m_ReadInProgress : m_WriteInProgress, false);
}

// A read that was started for the engine and completes with TLS off: its bytes lie in m_ReadBuffer, not with
// the user, who may be waiting for them.
ZephSSLIO::Completion ZephSSLIO::TakeLateRead(bool bSuccess, std::uint32_t nBytes) {
    if (IsClosed()) return Completion::Handled;
    if (bSuccess) m_ReadFill += std::min(nBytes, m_ReadBuffer.GetLength() - m_ReadFill);
    if (!m_UserRead.IsOpen()) return Completion::Handled;
    if (m_ReadFill == 0) {
        m_UserRead = {};
        return Completion::PassThrough;  // a close or a failure is the user's own
    }
    ServeReadFromBuffer();
    return Completion::Handled;
}

void ZephSSLIO::AbortTask(std::uint32_t nTaskType) {
    Trace("OmbryZephCore::ZephSSLIO::AbortTask", nTaskType == TaskTypeRead ? "read" : "write",
          " operation cancelled.  sessionid = ");
    {
        std::lock_guard lock(m_Mutex);
        EndTransfer(nTaskType);
    }
    HandleFatalError();
}

std::uint32_t ZephSSLIO::SchedulePendingNotifications() {
    constexpr const char* Name = "OmbryZephCore::ZephSSLIO::SchedulePendingNotifications";
    std::lock_guard lock(m_NotifyMutex);
    if (m_TaskPending) {
        Trace(Name, "task already pending -- not doing anything.  sessionid = ");
        return eRC_Success;
    }
    if (m_Terminating) {
        Trace(Name, "termination is signaled -- not doing anything.  sessionid = ");
        return eRC_Success;
    }
    if (!m_Scheduler) return eRC_NotInitialized;
    if (m_TaskGate && !m_TaskGate->TryAcquire()) return eRC_TaskRefused;
    m_TaskPending = true;
    const std::uint32_t nResult = m_Scheduler->ScheduleTask(this);
    if (nResult == eRC_Success) return eRC_Success;
    m_TaskPending = false;
    if (m_TaskGate) m_TaskGate->Release();
    Trace(Name, "ScheduleTask failed with error ", nResult, ".  sessionid = ");
    return nResult;
}

void ZephSSLIO::DoTask() {
    constexpr const char* Name = "OmbryZephCore::ZephSSLIO::DoTask";
    Trace(Name, "entering.  sessionid = ");
    while (!BeginTask())
        std::this_thread::yield();
    // Another thread that waits for the end of the task may end this object as soon as it sees it: what comes
    // behind it touches nothing of this object.
    const auto logger = m_Verbose ? m_Logger : nullptr;
    const std::uint32_t nSessionId = m_SessionId;
    {
        // A handler that throws ends the task too, or whoever unregisters would wait for it for ever.
        const RunningTask running(*this);
        DoPendingNotifications();
    }
    Ombry::LibraryLogger::LogCall(logger, Name, 0, "exiting.  sessionid = ", nSessionId);
}

// False while the task runs on another thread.
bool ZephSSLIO::BeginTask() {
    std::lock_guard lock(m_NotifyMutex);
    if (m_TaskRunning) return false;
    m_TaskPending = false;
    m_TaskRunning = true;
    return true;
}

void ZephSSLIO::EndTask() {
    ZephTaskGateIf* const pGate = m_TaskGate;
    {
        std::lock_guard lock(m_NotifyMutex);
        m_TaskRunning = false;
    }
    if (pGate) pGate->Release();
}

void ZephSSLIO::DoPendingNotifications() {
    Finished finished;
    {
        std::lock_guard lock(m_Mutex);
        finished = TakeFinished();
    }
    Notify(finished);
}

ZephSSLIO::Finished ZephSSLIO::TakeFinished() {
    Finished finished;
    if (IsComplete(m_UserRead)) finished.read = std::exchange(m_UserRead, {});
    if (IsComplete(m_UserWrite)) finished.write = std::exchange(m_UserWrite, {});
    finished.pHandler = m_Handler;
    return finished;
}

// At most one read and one write completion, in this order, and then the answer to a drain request.
void ZephSSLIO::Notify(const Finished& finished) {
    ZephIOCompletionHandlerIf* pHandler = finished.pHandler;
    if (finished.read.Exists()) {
        DispatchRead(pHandler, true, finished.read.nDone);
        if (finished.write.Exists()) pHandler = GetHandler();  // it may have unregistered itself
    }
    // Only behind the guard is a write over of which nothing was done: it came too late.
    if (finished.write.Exists()) DispatchWrite(pHandler, finished.write.nDone != 0, finished.write.nDone);
    NotifyDrain();
}

void ZephSSLIO::NotifyDrain() {
    if (!m_DrainRequested) return;  // nearly always
    bool bBusy = false;
    {
        std::lock_guard lock(m_Mutex);
        bBusy = m_ReadInProgress || m_WriteInProgress;
    }
    if (bBusy) return;
    bool bArrived = false;
    {
        std::lock_guard lock(m_NotifyMutex);
        if (!m_DrainRequested) return;
        bArrived = m_DrainArrived;
        if (!bArrived && m_LowerDrainRequested) return;
        m_LowerDrainRequested = !bArrived;
        if (bArrived) m_DrainRequested = m_DrainArrived = false;
    }
    if (!bArrived) {
        if (m_NextLayer) m_NextLayer->RequestDrainNotification();
    } else if (ZephIOCompletionHandlerIf* const pHandler = GetHandler()) {
        pHandler->OnDrained();
    }
}

void ZephSSLIO::HandleFatalError() {
    Trace(FailingFatally, "sessionid = ");
    bool bRead = false;
    bool bWrite = false;
    {
        std::lock_guard lock(m_Mutex);
        bRead = std::exchange(m_UserRead, {}).Exists();
        bWrite = std::exchange(m_UserWrite, {}).Exists();
    }
    if (bRead) DispatchRead(GetHandler(), false, 0);
    if (bWrite) DispatchWrite(GetHandler(), false, 0);  // the first may have unregistered it
    if (!bRead && !bWrite && m_Notifier) m_Notifier->OnSSLFatalError();
}

void ZephSSLIO::DispatchRead(ZephIOCompletionHandlerIf* pHandler, bool bSuccess, std::uint32_t nBytes) {
    if (!pHandler) return;
    Trace(bSuccess ? Notifying : FailingFatally,
          bSuccess ? "Dispatching read completion notification.  sessionid = "
                   : "Dispatching read fail notification to the next layer.  sessionid = ");
    pHandler->CompleteTask(TaskTypeRead, bSuccess, nBytes);
}

void ZephSSLIO::DispatchWrite(ZephIOCompletionHandlerIf* pHandler, bool bSuccess, std::uint32_t nBytes) {
    if (!pHandler) return;
    Trace(bSuccess ? Notifying : FailingFatally,
          bSuccess ? "Dispatching write completion notification.  sessionid = "
                   : "Dispatching write fail notification to the next layer.  sessionid = ");
    pHandler->CompleteTask(TaskTypeWrite, bSuccess, nBytes);
}

ZephIOCompletionHandlerIf* ZephSSLIO::GetHandler() {
    std::lock_guard lock(m_Mutex);
    return m_Handler;
}

}  // namespace OmbryZephCore
