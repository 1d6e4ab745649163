#pragma once

#include "Cancellation/Impl/Interface.h"

namespace Ombry::Cancellation::Impl {

/// What the copies of one token share. A state goes from running to stopped once and never back. Any thread
/// may call any operation at any time; none takes a lock.
class TokenState : public Interface {
public:
    virtual bool IsCancelled() const noexcept = 0;
    virtual void Cancel() noexcept = 0;

    /// Returns if the work may go on; otherwise throws `OperationCancelledException` or `TimeoutException`.
    virtual void ThrowIfCancelled() const = 0;
};

}  // namespace Ombry::Cancellation::Impl
