#pragma once

#include "Cancellation/Impl/TokenStateBool.h"

#include <cstdint>

namespace Ombry::Cancellation::Impl {

/// Stopped by `Cancel`, or by the system clock once it stands at `deadline` or beyond. A request to cancel
/// wins over a deadline that has passed as well.
class TokenStateTimeout : public TokenStateBool {
public:
    /// `deadline` counts ticks of 100 ns of the system clock since 1970.
    explicit TokenStateTimeout(std::int64_t deadline);

    bool IsCancelled() const noexcept override;
    void ThrowIfCancelled() const override;

private:
    bool HasExpired() const noexcept;

    const std::int64_t deadline;
};

}  // namespace Ombry::Cancellation::Impl
