#include "OmbryZephCore/ZephIOTaskManager_Sync.h"

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephTaskIf.h"
#include "Platform/IClock.h"

#include <cassert>
#include <utility>

namespace OmbryZephCore {

using Ombry::LibraryLogger::LogCall;
using Ombry::LibraryLogger::Place;
using Ombry::Platform::SelectResult;
using Ombry::Platform::SocketHandle;
using Ombry::Platform::TransferResult;

namespace {

// How long a wait may be deaf to a token and to the time-out.
constexpr std::int64_t SliceMilliseconds = 1000;

// A readiness that turned out to be none: the transfer stays pending.
bool IsNothingYet(const TransferResult& result) {
    return result.count == -1 && result.error == Ombry::Platform::ErrorWouldBlock;
}

class FlagScope {
public:
    explicit FlagScope(bool& bFlag) : m_Flag(bFlag) { m_Flag = true; }
    ~FlagScope() { m_Flag = false; }
    FlagScope(const FlagScope&) = delete;
    FlagScope& operator=(const FlagScope&) = delete;

private:
    bool& m_Flag;
};

}  // namespace

ZephIOTaskManager_Sync::ZephIOTaskManager_Sync(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger)
    : m_Logger(std::move(logger)) {}

std::uint32_t ZephIOTaskManager_Sync::RegisterForIOCompletion(SocketHandle h,
                                                              ZephIOCompletionHandlerIf* pHandler) {
    if (m_Handles.contains(h)) {
        LogCall(m_Logger, "OmbryZephCore::ZephIOTaskManager_Sync::RegisterForIOCompletion", 4,
                "returning eRC_IO_HandleAlreadyRegistered.  h = ", h, ", pHandler = ", pHandler);
        return eRC_IO_HandleAlreadyRegistered;
    }
    if (m_Handles.size() >= Ombry::Platform::SocketSet::Capacity) {
        LogCall(m_Logger, "OmbryZephCore::ZephIOTaskManager_Sync::RegisterForIOCompletion", 4,
                "There are already FD_SETSIZE handles registered.  Returning eRC_Fail.  h = ", h,
                ", pHandler = ", pHandler);
        return eRC_Fail;
    }
    ZephHandleState& state = m_Handles[h];
    state.h = h;
    state.pHandler = pHandler;
    return eRC_Success;
}

std::uint32_t ZephIOTaskManager_Sync::UnRegisterForIOCompletion(SocketHandle h) {
    return static_cast<std::uint32_t>(m_Handles.erase(h));
}

bool ZephIOTaskManager_Sync::ReleaseHandle(SocketHandle h) {
    UnRegisterForIOCompletion(h);
    return true;
}

std::uint32_t ZephIOTaskManager_Sync::StartIO(std::uint32_t nTaskType, SocketHandle h, std::uint32_t nBytes,
                                              std::uint8_t* pBuffer) {
    constexpr const char* pFunction = "OmbryZephCore::ZephIOTaskManager_Sync::StartIO";
    const auto log = [&](const Place& place, int nLevel, const char* pWhat) {
        LogCall(m_Logger, place, nLevel, pWhat, "nTaskType = ", nTaskType, ", h = ", h, ", nBytes = ", nBytes,
                ", pBuffer = ", static_cast<const void*>(pBuffer));
    };
    const auto found = m_Handles.find(h);
    if (found == m_Handles.end()) {
        log(pFunction, 3, "returning eRC_IO_HandleNotRegistered. ");
        return eRC_IO_HandleNotRegistered;
    }
    ZephHandleState& state = found->second;
    if (nTaskType == TaskTypeRead) {
        if (state.bReadPending) {
            log(pFunction, 3, "returning eRC_IO_ReadAlreadyInProgress. ");
            return eRC_IO_ReadAlreadyInProgress;
        }
        state.bReadPending = true;
        state.nReadBytes = nBytes;
        state.pReadBuffer = pBuffer;
        if (m_Verbose) log(pFunction, 0, "Read operation started. ");
    } else {
        if (state.bWritePending) {
            log(pFunction, 3, "returning eRC_IO_WriteAlreadyInProgress. ");
            return eRC_IO_WriteAlreadyInProgress;
        }
        state.bWritePending = true;
        state.nWriteBytes = nBytes;
        state.pWriteBuffer = pBuffer;
        if (m_Verbose) log(pFunction, 0, "Write operation started. ");
    }
    return eRC_Success;
}

bool ZephIOTaskManager_Sync::HasPendingIO() const {
    if (!m_UserTasks.empty()) return true;
    for (const auto& [h, state] : m_Handles) {
        if (state.bReadPending || state.bWritePending) return true;
    }
    return false;
}

std::uint32_t ZephIOTaskManager_Sync::DoPendingIO(std::uint32_t nTimeoutSeconds,
                                                  Ombry::Cancellation::Token token) {
    assert(!m_InDoPendingIO && "DoPendingIO called from a completion or a task");
    const FlagScope running(m_InDoPendingIO);

    std::uint32_t nResult = eRC_Success;
    while (HasPendingIO()) {
        ProcessUserTasks();
        if (!HasPendingIO()) break;

        const SelectResult ready = WaitForIO(nTimeoutSeconds, token);
        bool bAbort = false;
        if (ready.count == 0) {
            // A fired token takes this road too: for the layers above it is a time-out.
            LogCall(m_Logger, "OmbryZephCore::ZephIOTaskManager_Sync::DoPendingIO", 3,
                    "Operation timed out.");
            bAbort = true;
            nResult = eRC_TimedOut;
        } else if (ready.count == -1) {
            // The result stays a success: the failure reaches the layers above by their completions alone.
            LogCall(m_Logger, "OmbryZephCore::ZephIOTaskManager_Sync::DoPendingIO", 3,
                    "select failed. Last error = ", ready.error);
            bAbort = true;
        }
        ProcessReadCompletions(bAbort);
        ProcessWriteCompletions(bAbort);
        if (bAbort) {
            // The failures may have scheduled the cleaning up of the stack.
            ProcessUserTasks();
            break;
        }
    }
    return nResult;
}

// Waits in slices until a handle is ready, the wait fails, or the silence is to end; 0 handles in that case.
SelectResult ZephIOTaskManager_Sync::WaitForIO(std::uint32_t nTimeoutSeconds,
                                               const Ombry::Cancellation::Token& token) {
    const std::int64_t nDeadline = Ombry::Platform::WallSeconds() + nTimeoutSeconds;
    for (;;) {
        BuildSets();
        const SelectResult ready =
            Ombry::Platform::Sockets().Select(&m_ReadSet, &m_WriteSet, &m_ExceptSet, SliceMilliseconds);
        if (ready.count != 0) return ready;
        if (nTimeoutSeconds != 0 && Ombry::Platform::WallSeconds() >= nDeadline) return ready;
        if (token.IsCancelled()) return ready;
    }
}

void ZephIOTaskManager_Sync::BuildSets() {
    m_ReadSet.Clear();
    m_WriteSet.Clear();
    m_ExceptSet.Clear();
    for (auto& [h, state] : m_Handles) {
        if (state.bReadPending) m_ReadSet.Add(h);
        if (state.bWritePending) m_WriteSet.Add(h);
        if (state.bReadPending || state.bWritePending) m_ExceptSet.Add(h);
        state.bReadAwaited = state.bReadPending;
        state.bWriteAwaited = state.bWritePending;
    }
}

std::uint32_t ZephIOTaskManager_Sync::ScheduleTask(ZephTaskIf* pTask) {
    if (m_Verbose) {
        LogCall(m_Logger, "OmbryZephCore::ZephIOTaskManager_Sync::ScheduleTask", 0,
                "Scheduling user task. pTask = ", pTask);
    }
    m_UserTasks.push_back(pTask);
    return eRC_Success;
}

void ZephIOTaskManager_Sync::CancelTask(ZephTaskIf* pTask) {
    std::erase(m_UserTasks, pTask);
}

void ZephIOTaskManager_Sync::ProcessUserTasks() {
    while (!m_UserTasks.empty()) {
        // Out of the queue before it runs: a task may schedule and cancel itself and others.
        ZephTaskIf* const pTask = m_UserTasks.front();
        m_UserTasks.pop_front();
        if (m_Verbose) {
            LogCall(m_Logger, "OmbryZephCore::ZephIOTaskManager_Sync::ProcessUserTasks", 0,
                    "Dispatching user task. pTask = ", pTask);
        }
        pTask->DoTask();
    }
}

void ZephIOTaskManager_Sync::ProcessReadCompletions(bool bAbort) {
    for (auto it = m_Handles.begin(); it != m_Handles.end();) {
        const SocketHandle h = it->first;
        if (it->second.bReadPending) ProcessRead(it->second, bAbort);
        // A handler may have removed any handle, its own included.
        it = m_Handles.upper_bound(h);
    }
}

void ZephIOTaskManager_Sync::ProcessWriteCompletions(bool bAbort) {
    for (auto it = m_Handles.begin(); it != m_Handles.end();) {
        const SocketHandle h = it->first;
        if (it->second.bWritePending) ProcessWrite(it->second, bAbort);
        it = m_Handles.upper_bound(h);
    }
}

void ZephIOTaskManager_Sync::ProcessRead(ZephHandleState& state, bool bAbort) {
    constexpr const char* pFunction = "OmbryZephCore::ZephIOTaskManager_Sync::ProcessReadCompletions";
    if (bAbort) return CompleteRead(state, false, 0);
    if (!state.bReadAwaited) return;
    if (IsInExceptSet(state.h, pFunction)) return CompleteRead(state, false, 0);
    if (!m_ReadSet.Contains(state.h)) return;

    const TransferResult result =
        Ombry::Platform::Sockets().Receive(state.h, state.pReadBuffer, state.nReadBytes);
    if (IsNothingYet(result)) return;
    if (result.count == -1) {
        LogCall(m_Logger, pFunction, 3, "recv failed. socket = ", state.h, ", Last error = ", result.error);
    } else if (m_Verbose) {
        LogCall(m_Logger, pFunction, 0, "Read operation completed. bytes read = ", result.count,
                ", socket = ", state.h);
    }
    state.nReadResult = result.count;
    CompleteRead(state, result.count != -1, static_cast<std::uint32_t>(result.count));
}

void ZephIOTaskManager_Sync::ProcessWrite(ZephHandleState& state, bool bAbort) {
    constexpr const char* pFunction = "OmbryZephCore::ZephIOTaskManager_Sync::ProcessWriteCompletions";
    if (bAbort) return CompleteWrite(state, false, 0);
    if (!state.bWriteAwaited) return;
    if (IsInExceptSet(state.h, pFunction)) return CompleteWrite(state, false, 0);
    if (!m_WriteSet.Contains(state.h)) return;

    const ZephIOCompletionHandlerIf::WriteTail tail = state.pHandler->TakeWriteTail();
    state.nWriteBytes += tail.nBytes;
    const TransferResult result =
        Ombry::Platform::Sockets().Send(state.h, state.pWriteBuffer, state.nWriteBytes, tail.bMoreFollows);
    if (IsNothingYet(result)) return;
    if (result.count == -1) {
        LogCall(m_Logger, pFunction, 3, "send failed. socket = ", state.h, ", Last error = ", result.error);
    } else if (m_Verbose) {
        LogCall(m_Logger, pFunction, 0, "Write operation completed. bytes written = ", result.count,
                ", socket = ", state.h);
    }
    state.nWriteResult = result.count;
    CompleteWrite(state, result.count != -1, static_cast<std::uint32_t>(result.count));
}

bool ZephIOTaskManager_Sync::IsInExceptSet(SocketHandle h, const Place& place) {
    if (!m_ExceptSet.Contains(h)) return false;
    LogCall(m_Logger, place, 3, "ExceptFD is set. socket = ", h);
    return true;
}

// The transfer is over before its handler hears of it, so that the handler may start the next one; the state
// may be gone when the handler returns.
void ZephIOTaskManager_Sync::CompleteRead(ZephHandleState& state, bool bSuccess, std::uint32_t nBytes) {
    state.bReadPending = false;
    state.bReadAwaited = false;
    state.nReadBytes = 0;
    state.pReadBuffer = nullptr;
    state.pHandler->CompleteTask(TaskTypeRead, bSuccess, nBytes);
}

void ZephIOTaskManager_Sync::CompleteWrite(ZephHandleState& state, bool bSuccess, std::uint32_t nBytes) {
    state.bWritePending = false;
    state.bWriteAwaited = false;
    state.nWriteBytes = 0;
    state.pWriteBuffer = nullptr;
    state.pHandler->CompleteTask(TaskTypeWrite, bSuccess, nBytes);
}

}  // namespace OmbryZephCore
