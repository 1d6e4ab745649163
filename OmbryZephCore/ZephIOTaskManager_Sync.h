#pragma once

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephIOTaskManagerIf.h"
#include "OmbryZephCore/ZephUserTaskIf.h"

#include <deque>
#include <map>
#include <memory>

namespace OmbryZephCore {

/// A small reactor: the layers above start transfers and schedule tasks as if everything happened on its own,
/// while all of it runs inside `DoPendingIO`, on the caller's thread. There is no lock: every operation is to
/// be called on that thread, or between its calls. Handlers may start transfers, and register and unregister
/// any handle, from inside a completion; they must not call `DoPendingIO`. Handlers, tasks, buffers and
/// handles are not owned. At most 64 handles.
class ZephIOTaskManager_Sync : public ZephIOTaskManagerIf,
                               public ZephSyncIOControllerIf,
                               public ZephUserTaskScheduleIf,
                               public ZephUserTaskCancelIf {
public:
    explicit ZephIOTaskManager_Sync(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger);
    ZephIOTaskManager_Sync(const ZephIOTaskManager_Sync&) = delete;
    ZephIOTaskManager_Sync& operator=(const ZephIOTaskManager_Sync&) = delete;

    /// 0, `eRC_IO_HandleAlreadyRegistered`, or `eRC_Fail` if there are 64 handles.
    std::uint32_t RegisterForIOCompletion(Ombry::Platform::SocketHandle h,
                                          ZephIOCompletionHandlerIf* pHandler) override;
    std::uint32_t UnRegisterForIOCompletion(Ombry::Platform::SocketHandle h) override;
    /// Always true.
    bool ReleaseHandle(Ombry::Platform::SocketHandle h) override;
    /// 0, `eRC_IO_HandleNotRegistered`, `eRC_IO_ReadAlreadyInProgress` or `eRC_IO_WriteAlreadyInProgress`.
    std::uint32_t StartIO(std::uint32_t nTaskType, Ombry::Platform::SocketHandle h, std::uint32_t nBytes,
                          std::uint8_t* pBuffer) override;
    void SetVerbose(bool bVerbose) override { m_Verbose = bVerbose; }

    bool HasPendingIO() const override;

    /// The time-out limits silence, not the length of an exchange. It and the token are looked at only after
    /// a second in which nothing moved, so a peer that keeps sending is never timed out. Both fail every
    /// pending transfer and return `eRC_TimedOut`. A wait that fails does the same to the transfers, yet
    /// returns 0: only the completions tell.
    std::uint32_t DoPendingIO(std::uint32_t nTimeoutSeconds, Ombry::Cancellation::Token token) override;

    /// Always 0. A task scheduled by a task runs in the same round.
    std::uint32_t ScheduleTask(ZephTaskIf* pTask) override;
    void CancelTask(ZephTaskIf* pTask) override;

private:
    struct ZephHandleState {
        Ombry::Platform::SocketHandle h = Ombry::Platform::InvalidSocket;
        ZephIOCompletionHandlerIf* pHandler = nullptr;
        bool bWritePending = false;
        std::uint32_t nWriteBytes = 0;
        std::uint8_t* pWriteBuffer = nullptr;
        std::int32_t nWriteResult = 0;
        bool bReadPending = false;
        std::uint32_t nReadBytes = 0;
        std::uint8_t* pReadBuffer = nullptr;
        std::int32_t nReadResult = 0;
        // Pending when the sets were built. What a completion started, perhaps on a handle that got the
        // number of another, must not take the readiness of that other for its own.
        bool bWriteAwaited = false;
        bool bReadAwaited = false;
    };

    Ombry::Platform::SelectResult WaitForIO(std::uint32_t nTimeoutSeconds,
                                            const Ombry::Cancellation::Token& token);
    void BuildSets();
    void ProcessUserTasks();
    void ProcessReadCompletions(bool bAbort);
    void ProcessWriteCompletions(bool bAbort);
    void ProcessRead(ZephHandleState& state, bool bAbort);
    void ProcessWrite(ZephHandleState& state, bool bAbort);
    bool IsInExceptSet(Ombry::Platform::SocketHandle h, const Ombry::LibraryLogger::Place& place);
    static void CompleteRead(ZephHandleState& state, bool bSuccess, std::uint32_t nBytes);
    static void CompleteWrite(ZephHandleState& state, bool bSuccess, std::uint32_t nBytes);

    std::deque<ZephTaskIf*> m_UserTasks;
    std::map<Ombry::Platform::SocketHandle, ZephHandleState> m_Handles;
    bool m_Verbose = false;
    bool m_InDoPendingIO = false;  // only asserted on
    Ombry::Platform::SocketSet m_ReadSet;
    Ombry::Platform::SocketSet m_WriteSet;
    Ombry::Platform::SocketSet m_ExceptSet;
    std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
};

}  // namespace OmbryZephCore
