#pragma once

#include "LibraryLogger/LogCall.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephIOObjectIf.h"
#include "OmbryZephCore/ZephMutex.h"
#include "OmbryZephCore/ZephSSLConnectionIf.h"
#include "OmbryZephCore/ZephSSLNotifierIf.h"
#include "OmbryZephCore/ZephUserTaskIf.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <new>

namespace OmbryZephCore {

/// The stage that puts TLS between a byte stream below and the stage above, and can be switched on and off on
/// a live connection. It drives an engine that knows nothing of sockets; with TLS off it passes all calls
/// through.
///
/// Life: `Initialize`, `RegisterIOCompletionHandler` by the stage above, use,
/// `UnRegisterIOCompletionHandler`, `Terminate`, then again. Nothing that it is given is owned, and all of it
/// must live until `Terminate`.
///
/// Completions never come from inside the call that caused them: they come from a scheduled task, or from a
/// completion of the layer below, with no lock held, so that a handler may start the next transfer at once.
/// The stage must not be taken down from inside one of them. A failure is told to whoever has a transfer
/// open, or else to the notifier; nothing is closed here.
///
/// Bytes that reached this machine before the first byte of a request was handed to the socket are never its
/// answer: what was read and decrypted between `ExpectSilenceUntilSent` and that byte is a failure, whether
/// TLS is on or off, and the layer below is left at once, so that the request is not sent. What is no
/// plaintext (tickets, key updates, a HelloRequest, a close) is acted on as ever. The beginning of a record
/// counts as plaintext, but not on a connection that has carried no request yet: it is mostly a ticket's.
class ZephSSLIO : public ZephIOObjectIf, public ZephIOCompletionHandlerIf, public ZephTaskIf {
public:
    explicit ZephSSLIO(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger);
    ~ZephSSLIO() override;
    ZephSSLIO(const ZephSSLIO&) = delete;
    ZephSSLIO& operator=(const ZephSSLIO&) = delete;

    /// `nSessionId` only tells log lines apart; `pGate` may be null. 0 or `eRC_OutOfMemory`.
    std::uint32_t Initialize(ZephSSLConnectionManagerIf* pManager, ZephIOObjectIf* pNextLayer,
                             ZephUserTaskScheduleIf* pScheduler, std::uint32_t nSessionId,
                             ZephSSLNotifierIf* pNotifier, ZephUserTaskCancelIf* pCanceller,
                             ZephTaskGateIf* pGate);

    /// Gives the engine back and forgets everything but the two switches below. No close alert is sent.
    void Terminate();

    /// Turns TLS on; during a stop, once that has ended; with TLS on, does nothing. A result that is not 0
    /// was also reported as a fatal error.
    std::uint32_t StartSSL();

    /// Sends a close alert and turns TLS off, after the peer's own close alert if `bWaitForPeer`. Results as
    /// those of `StartSSL`.
    std::uint32_t StopSSL(bool bWaitForPeer);

    /// Turns trace lines on, here and in the engine; survives `Terminate`.
    void SetVerbose(bool b);

    /// Gives back the memory of both buffers and of the engine, where they hold nothing, until the next
    /// transfer.
    void ReleaseIdleMemory();

    /// With the guard on, nothing of a connection on which TLS was on ever travels in clear text: once TLS is
    /// off again the stream counts as closed. A read then completes with 0 bytes, a write fails with
    /// `eRC_IO_ConnectionFailed`, and bytes behind the peer's close alert, which anyone on the way could have
    /// put there, are dropped. Off by default; set it before `StartSSL`; survives `Terminate`.
    void SetClearTextGuard(bool bGuard);

    // ZephIOObjectIf

    std::uint32_t RegisterIOCompletionHandler(ZephIOCompletionHandlerIf* pHandler) override;
    /// Waits, by yielding, until no task of this stage is queued or running: never call it from a task-driven
    /// completion.
    void UnRegisterIOCompletionHandler() override;
    std::uint32_t StartRead(std::uint32_t nBytes, std::uint8_t* pBuffer) override;
    /// Completes when the engine took the bytes, or a part of them: before they were sent.
    std::uint32_t StartWrite(std::uint32_t nBytes, const std::uint8_t* pBuffer) override;
    std::uint32_t RequestDrainNotification() override;
    void ExpectSilenceUntilSent() override;
    bool HasUnread() override;

    // ZephIOCompletionHandlerIf, called by the layer below

    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override;
    void AbortTask(std::uint32_t nTaskType) override;
    void OnDrained() override;
    WriteTail TakeWriteTail() override;

    // ZephTaskIf, called by the scheduler

    void DoTask() override;

private:
    enum State : std::uint32_t {
        eState_Off = 0,         ///< bytes pass through, no engine
        eState_On = 1,          ///< the engine is in use
        eState_Stopping = 2,    ///< a shutdown is in progress
        eState_Restarting = 3,  ///< as above, and TLS was asked for again
    };

    /// How long bytes of the peer are nobody's.
    enum class Silence {
        Over,          ///< bytes of the peer are the answer
        UntilWritten,  ///< the engine, or the layer below, has not taken the first byte of the request
        UntilSent,     ///< it lies in m_WriteBuffer or the engine, behind m_AheadOfRequest bytes
    };

    /// A transfer that the stage above asked for; `pBuffer` is null when there is none.
    template <class Byte>
    struct UserTransfer {
        Byte* pBuffer = nullptr;
        std::uint32_t nBytes = 0;
        std::uint32_t nDone = 0;

        bool Exists() const { return pBuffer != nullptr; }
        /// Asked for, and nothing done yet.
        bool IsOpen() const { return Exists() && nDone == 0 && nBytes != 0; }
    };

    /// The transfers whose end is to be told, and to whom.
    struct Finished {
        UserTransfer<std::uint8_t> read;
        UserTransfer<const std::uint8_t> write;
        ZephIOCompletionHandlerIf* pHandler = nullptr;
    };

    /// What a completion of the layer below comes to.
    enum class Completion { PassThrough, Refused, Handled, Fatal };

    /// Where a step of the pump leads: back to the first step, to the question whether to go round, out with
    /// TLS off, or out with a fatal error.
    enum class Next { Again, Decide, Off, Failed };

    /// Ends the task that `BeginTask` began, on every way out of it.
    class RunningTask {
    public:
        explicit RunningTask(ZephSSLIO& stage) : m_Stage(stage) {}
        ~RunningTask() { m_Stage.EndTask(); }
        RunningTask(const RunningTask&) = delete;
        RunningTask& operator=(const RunningTask&) = delete;

    private:
        ZephSSLIO& m_Stage;
    };

    /// What one round of the pump did.
    struct Round {
        bool bInjected = false;
        bool bMoved = false;
    };

    // The pump, in ZephSSLIOPump.cpp; m_Mutex is held. Behind each wait its code has left the processor's
    // nearest cache and its branches are forgotten: a round is one piece of code (`inline`), and what is rare
    // stands apart from it (`cold`).
    static constexpr std::uint32_t BufferLength = 8096;
    std::uint32_t ContinueSSL();
    inline bool TakeBuffers();
    inline Next RunRound(Round& round);
    inline bool InjectCiphertext(Round& round);
    inline bool ExtractCiphertext(Round& round);
    bool FillWriteBuffer(Round& round);
    inline Next MovePlaintext(Round& round);
    inline Next ReadPlaintext(Round& round);
    inline Next WritePlaintext(Round& round);
    [[gnu::cold]] Next BeginStop(Round& round);
    [[gnu::cold]] Next ShutDownEngine(Round& round);
    [[gnu::cold]] Next ContinueStop(Round& round);
    [[gnu::cold]] bool TakeBackUnprocessed();
    inline bool MoreOutputFits();
    inline bool IsSilenceBroken();
    [[gnu::cold]] void RefuseUnasked();
    [[gnu::cold]] std::uint32_t HandOverOpenTransfers();
    std::uint32_t StartPendingIO();
    inline std::uint32_t StartPendingWrite();
    inline std::uint32_t StartPendingRead();

    // m_Mutex is held:
    void ForgetSetup();
    bool TakeEngine();
    std::uint32_t PassReadThrough(std::uint32_t nBytes, std::uint8_t* pBuffer);
    void ServeReadFromBuffer();
    inline bool EndTransfer(std::uint32_t nTaskType);
    [[gnu::cold]] Completion TakeLateRead(bool bSuccess, std::uint32_t nBytes);
    void NoteWritten();
    inline void NoteSent(std::uint32_t nBytes);
    /// Takes `nBytes` out of a buffer that holds `nFill` and moves the rest to the front.
    static void DropFront(ZephIOBuffer& buffer, std::uint32_t& nFill, std::uint32_t nBytes);
    bool IsClosed() const { return m_ClearTextGuard && m_WasOn && m_State == eState_Off; }
    /// Any progress completes a transfer, and so does the end of a guarded stream.
    template <class Byte>
    bool IsComplete(const UserTransfer<Byte>& transfer) const {
        return transfer.Exists() && (transfer.nDone != 0 || IsClosed());
    }

    inline Completion TakeCompletion(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes);
    inline Finished TakeFinished();

    // No lock is held:
    std::uint32_t EndControlCall(std::uint32_t nResult);
    std::uint32_t SchedulePendingNotifications();
    bool CancelOrFindTask();
    inline bool BeginTask();
    void EndTask();
    inline void DoPendingNotifications();
    void Notify(const Finished& finished);
    inline void DispatchRead(ZephIOCompletionHandlerIf* pHandler, bool bSuccess, std::uint32_t nBytes);
    inline void DispatchWrite(ZephIOCompletionHandlerIf* pHandler, bool bSuccess, std::uint32_t nBytes);
    void NotifyDrain();
    [[gnu::cold]] void HandleFatalError();
    ZephIOCompletionHandlerIf* GetHandler();

    /// The session id ends every line. One for whose text there is no memory is dropped: destructors log.
    template <class... Parts>
    [[gnu::cold, gnu::noinline]] void Log(const Ombry::LibraryLogger::Place& place, int nLevel,
                                          const Parts&... parts) const {
        try {
            Ombry::LibraryLogger::LogCall(m_Logger, place, nLevel, parts..., m_SessionId);
        } catch (const std::bad_alloc&) {
        }
    }

    template <class... Parts>
    void Trace(const Ombry::LibraryLogger::Place& place, const Parts&... parts) const {
        if (m_Verbose) [[unlikely]]
            Log(place, 0, parts...);
    }

    const std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;

    // When both mutexes are held, this one is taken first. It is held while the engine, its manager, the
    // layer below and `OnSSLStopped` are called, never while m_Handler is.
    ZephMutex m_Mutex;
    // Guarded by m_Mutex:
    State m_State = eState_Off;
    UserTransfer<std::uint8_t> m_UserRead;
    UserTransfer<const std::uint8_t> m_UserWrite;
    bool m_WaitForPeerClose = false;
    bool m_ClearTextGuard = false;
    bool m_WasOn = false;  // TLS was on since Initialize
    ZephIOCompletionHandlerIf* m_Handler = nullptr;
    ZephSSLConnectionIf* m_Connection = nullptr;
    // Ciphertext received and not yet injected; with TLS off, bytes that followed the close. While a read
    // runs, its free part belongs to the layer below: it is then neither consumed, nor added to, nor resized.
    ZephIOBuffer m_ReadBuffer;
    std::uint32_t m_ReadFill = 0;
    bool m_ReadInProgress = false;
    // Ciphertext extracted and not yet sent.
    ZephIOBuffer m_WriteBuffer;
    std::uint32_t m_WriteFill = 0;
    bool m_WriteInProgress = false;
    Silence m_Silence = Silence::Over;
    std::uint32_t m_AheadOfRequest = 0;
    bool m_CarriedRequest = false;  // the first byte of some request was handed to the socket

    // Written under m_Mutex, read anywhere.
    std::atomic<bool> m_Verbose = false;

    // Constant between Initialize and Terminate; not owned.
    ZephIOObjectIf* m_NextLayer = nullptr;
    ZephUserTaskScheduleIf* m_Scheduler = nullptr;
    std::uint32_t m_SessionId = 0;
    ZephSSLNotifierIf* m_Notifier = nullptr;
    ZephUserTaskCancelIf* m_Canceller = nullptr;
    ZephTaskGateIf* m_TaskGate = nullptr;
    ZephSSLConnectionManagerIf* m_ConnectionManager = nullptr;

    ZephMutex m_NotifyMutex;
    // Guarded by m_NotifyMutex:
    std::atomic<bool> m_DrainRequested = false;  // read anywhere
    bool m_LowerDrainRequested = false;
    bool m_DrainArrived = false;
    bool m_TaskPending = false;
    bool m_TaskRunning = false;
    bool m_Terminating = false;
};

}  // namespace OmbryZephCore
