#pragma once

#include "OmbryZephCore/ZephIOCompletionHandlerIf.h"

#include <cstdint>

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

    /// Said before a request is begun: until the first byte of what is written next was handed to the socket,
    /// bytes of the peer are no answer to it. If any come, the read that is open fails, and nothing more is
    /// sent or received; a write that is open may never be heard of. A stage without bytes of its own need
    /// not know.
    virtual void ExpectSilenceUntilSent() {}

    /// Whether this stage holds bytes of the peer, or the beginning of some, that the stage above has not
    /// read. Asked while no read is open.
    virtual bool HasUnread() { return false; }
};

}  // namespace OmbryZephCore
