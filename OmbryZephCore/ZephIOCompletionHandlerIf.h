#pragma once

#include <cstdint>

namespace OmbryZephCore {

inline constexpr std::uint32_t TaskTypeRead = 0;
inline constexpr std::uint32_t TaskTypeWrite = 1;

/// The upper side of a stage's seam: hears of the transfers that it started. All calls come from inside
/// `ZephSyncIOControllerIf::DoPendingIO`, on its thread. The stack must not be taken down from inside one of
/// them: schedule a task instead. Seam inside: a program has no stages.
class ZephIOCompletionHandlerIf {
public:
    virtual ~ZephIOCompletionHandlerIf() = default;

    /// The end of one transfer. `nTaskType` is 0 for a read and 1 for a write. With `bSuccess` false,
    /// `nBytes` carries nothing of use; with `bSuccess` true, 0 bytes of a read mean that the peer closed in
    /// good order.
    virtual void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) = 0;

    /// A started transfer will not complete: a fatal error of the stream.
    virtual void AbortTask(std::uint32_t nTaskType) = 0;

    /// Answer to `ZephIOObjectIf::RequestDrainNotification`.
    virtual void OnDrained() = 0;

    /// What goes with a write, or behind it.
    struct WriteTail {
        std::uint32_t nBytes = 0;   ///< that lie behind those of the write by now, and are to go with them
        bool bMoreFollows = false;  ///< the completion of this write starts another one at once
    };

    /// Asked just before a write goes out. The write is longer by the tail from then on.
    virtual WriteTail TakeWriteTail() { return {}; }
};

}  // namespace OmbryZephCore
