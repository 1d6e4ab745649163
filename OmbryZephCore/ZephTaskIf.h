#pragma once

namespace OmbryZephCore {

/// A callback that a scheduler runs later, on the IO thread.
class ZephTaskIf {
public:
    virtual ~ZephTaskIf() = default;
    virtual void DoTask() = 0;
};

}  // namespace OmbryZephCore
