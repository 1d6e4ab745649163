#pragma once

#include "OmbryZephCore/ZephTerminatorIf.h"

#include <functional>
#include <utility>

namespace OmbryZephCore {

/// A terminator that calls what it was given.
class ZephTerminatorAdapter : public ZephTerminatorIf {
public:
    explicit ZephTerminatorAdapter(std::function<void()> callable) : m_Callable(std::move(callable)) {}
    void Terminate() override { m_Callable(); }

private:
    std::function<void()> m_Callable;
};

}  // namespace OmbryZephCore
