#pragma once

#include "OmbryZephCore/ZephIOObjectIf.h"
#include "OmbryZephCore/ZephIOTaskManagerIf.h"
#include "OmbryZephCore/ZephMutex.h"
#include "OmbryZephCore/ZephTaskIf.h"
#include "OmbryZephCore/ZephUserTaskIf.h"

#include <mutex>

namespace OmbryZephCore {

/// The lowest stage of a stream stack: one connected socket as a `ZephIOObjectIf`. It owns neither the socket
/// nor anything that it is given, has no buffer, and hands the results of the task manager through. Runs on
/// the thread of the IO; must not be destroyed from inside a completion.
class ZephSocketIO : public ZephIOObjectIf, public ZephIOCompletionHandlerIf, public ZephTaskIf {
public:
    ZephSocketIO() = default;
    ~ZephSocketIO() override;
    ZephSocketIO(const ZephSocketIO&) = delete;
    ZephSocketIO& operator=(const ZephSocketIO&) = delete;

    /// Binds to a socket, after dropping any earlier one; `pGate` may be null. The arguments must live until
    /// this object is unbound. Returns the result of the registration with the manager.
    std::uint32_t Initialize(Ombry::Platform::SocketHandle h, ZephIOTaskManagerIf* pIOManager,
                             ZephUserTaskScheduleIf* pScheduler, ZephTaskGateIf* pGate);

    std::uint32_t RegisterIOCompletionHandler(ZephIOCompletionHandlerIf* pHandler) override;
    /// Unbinds; does not close the socket. Pending transfers are dropped without a completion.
    void UnRegisterIOCompletionHandler() override;
    std::uint32_t StartRead(std::uint32_t nBytes, std::uint8_t* pBuffer) override;
    std::uint32_t StartWrite(std::uint32_t nBytes, const std::uint8_t* pBuffer) override;
    /// A gate that refuses gives 0, although no notification will come.
    std::uint32_t RequestDrainNotification() override;

    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override;
    void AbortTask(std::uint32_t nTaskType) override;
    void OnDrained() override {}
    WriteTail TakeWriteTail() override { return m_Handler ? m_Handler->TakeWriteTail() : WriteTail(); }

    void DoTask() override;

    /// Wall-clock seconds of the last start or completion, 0 if there was none. A record only.
    std::int64_t GetLastActivity() const;
    /// Completions that are being delivered now.
    std::int32_t GetCallbacksInProgress() const;

private:
    std::uint32_t StartIO(std::uint32_t nTaskType, std::uint32_t nBytes, std::uint8_t* pBuffer);
    void BeginCallback();
    void EndCallback();

    /// A completion that is being delivered, until its handler returned or threw.
    class RunningCallback {
    public:
        explicit RunningCallback(ZephSocketIO& stage) : m_Stage(stage) { m_Stage.BeginCallback(); }
        ~RunningCallback() { m_Stage.EndCallback(); }
        RunningCallback(const RunningCallback&) = delete;
        RunningCallback& operator=(const RunningCallback&) = delete;

    private:
        ZephSocketIO& m_Stage;
    };

    Ombry::Platform::SocketHandle m_Socket = Ombry::Platform::InvalidSocket;
    ZephIOTaskManagerIf* m_IOManager = nullptr;
    ZephUserTaskScheduleIf* m_Scheduler = nullptr;
    ZephTaskGateIf* m_TaskGate = nullptr;
    ZephIOCompletionHandlerIf* m_Handler = nullptr;
    mutable ZephMutex m_Mutex;
    // Guarded by m_Mutex:
    std::int64_t m_LastActivity = 0;
    std::int32_t m_CallbacksInProgress = 0;
};

}  // namespace OmbryZephCore
