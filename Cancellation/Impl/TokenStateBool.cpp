#include "Cancellation/Impl/TokenStateBool.h"

#include "Cancellation/Token.h"

namespace Ombry::Cancellation::Impl {

bool TokenStateBool::IsCancelled() const noexcept {
    return cancelled;
}

void TokenStateBool::Cancel() noexcept {
    cancelled.exchange(true);
}

void TokenStateBool::ThrowIfCancelled() const {
    if (cancelled) throw OperationCancelledException();
}

}  // namespace Ombry::Cancellation::Impl
