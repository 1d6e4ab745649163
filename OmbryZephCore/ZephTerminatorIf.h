#pragma once

namespace OmbryZephCore {

/// How a stage asks for the stack to be taken down, which happens later, from a task.
class ZephTerminatorIf {
public:
    virtual ~ZephTerminatorIf() = default;
    virtual void Terminate() = 0;
};

}  // namespace OmbryZephCore
