#pragma once

#include <cstdint>

#include "OmbryZephCore/ZephIOCompletionHandlerIf.h"

namespace OmbryZephCore {

/// One stage of a byte stream, as seen from above. Results are those of `ResultCode`, 0 for success.
class ZephIOObjectIf {
public:
    virtual ~ZephIOObjectIf() = default;

    /// Names the one object above this stage; not owned.
    virtual std::uint32_t RegisterIOCompletionHandler(ZephIOCompletionHandlerIf* pHandler) = 0;
    virtual void UnRegisterIOCompletionHandler() = 0;

    /// Begin one transfer of at most `nBytes` (never 0) and return at once. The buffer stays the caller's and
    /// must stay valid until the completion arrives, which may report fewer bytes.
    virtual std::uint32_t StartRead(std::uint32_t nBytes, std::uint8_t* pBuffer) = 0;
    virtual std::uint32_t StartWrite(std::uint32_t nBytes, const std::uint8_t* pBuffer) = 0;

    /// Asks for `OnDrained`, from a task, after all pending completions have been delivered.
    virtual std::uint32_t RequestDrainNotification() = 0;
};

}  // namespace OmbryZephCore
