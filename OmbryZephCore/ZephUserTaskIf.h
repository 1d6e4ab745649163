#pragma once

#include "OmbryZephCore/ZephTaskIf.h"

#include <cstdint>

namespace OmbryZephCore {

/// Runs tasks later, first in, first out. Tasks are not owned.
class ZephUserTaskScheduleIf {
public:
    virtual ~ZephUserTaskScheduleIf() = default;
    virtual std::uint32_t ScheduleTask(ZephTaskIf* pTask) = 0;
};

/// Takes a task out of the queue again, every occurrence of it.
class ZephUserTaskCancelIf {
public:
    virtual ~ZephUserTaskCancelIf() = default;
    virtual void CancelTask(ZephTaskIf* pTask) = 0;
};

/// Optional companion of a scheduled task: `TryAcquire` must succeed before the task is scheduled, and
/// `Release` is called after it ran.
class ZephTaskGateIf {
public:
    virtual ~ZephTaskGateIf() = default;
    virtual bool TryAcquire() = 0;
    virtual void Release() = 0;
};

}  // namespace OmbryZephCore
