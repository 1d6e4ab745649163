#pragma once

#include "Cancellation/Impl/TokenState.h"

#include <atomic>

namespace Ombry::Cancellation::Impl {

/// Stopped by `Cancel` alone.
class TokenStateBool : public TokenState {
public:
    bool IsCancelled() const noexcept override;
    void Cancel() noexcept override;
    void ThrowIfCancelled() const override;

private:
    std::atomic<bool> cancelled{false};
};

}  // namespace Ombry::Cancellation::Impl
