#pragma once

#include "Cancellation/Token.h"
#include "OmbryZephCore/ZephIOCompletionHandlerIf.h"
#include "Platform/ISockets.h"

#include <cstdint>

namespace OmbryZephCore {

/// Records transfers on registered handles and delivers their completions. Seam inside: a program calls
/// neither this nor what runs them.
class ZephIOTaskManagerIf {
public:
    virtual ~ZephIOTaskManagerIf() = default;
    virtual std::uint32_t RegisterForIOCompletion(Ombry::Platform::SocketHandle h,
                                                  ZephIOCompletionHandlerIf* pHandler) = 0;
    /// Removes the handle; nothing is delivered for a pending transfer. Returns the number of entries
    /// removed.
    virtual std::uint32_t UnRegisterForIOCompletion(Ombry::Platform::SocketHandle h) = 0;
    virtual bool ReleaseHandle(Ombry::Platform::SocketHandle h) = 0;
    /// Records one transfer; does no IO. `nTaskType` 0 is a read, any other value a write, which only reads
    /// `pBuffer`.
    virtual std::uint32_t StartIO(std::uint32_t nTaskType, Ombry::Platform::SocketHandle h,
                                  std::uint32_t nBytes, std::uint8_t* pBuffer) = 0;
    virtual void SetVerbose(bool bVerbose) = 0;
};

/// Runs what was recorded.
class ZephSyncIOControllerIf {
public:
    virtual ~ZephSyncIOControllerIf() = default;
    virtual bool HasPendingIO() const = 0;
    /// Runs until nothing is pending, or until `nTimeoutSeconds` (0: no limit) of silence, or until `token`
    /// fires, which is seen within about a second. Returns `eRC_Success` or `eRC_TimedOut`. Not to be called
    /// from a completion.
    virtual std::uint32_t DoPendingIO(std::uint32_t nTimeoutSeconds, Ombry::Cancellation::Token token) = 0;
};

}  // namespace OmbryZephCore
