#include "Cancellation/Impl/TokenStateTimeout.h"

#include "Cancellation/Token.h"
#include "Platform/IClock.h"

namespace Ombry::Cancellation::Impl {

TokenStateTimeout::TokenStateTimeout(std::int64_t deadline) : deadline(deadline) {}

bool TokenStateTimeout::IsCancelled() const noexcept {
    return TokenStateBool::IsCancelled() || HasExpired();
}

void TokenStateTimeout::ThrowIfCancelled() const {
    TokenStateBool::ThrowIfCancelled();
    if (HasExpired()) throw TimeoutException();
}

bool TokenStateTimeout::HasExpired() const noexcept {
    return Platform::Clock().Now().time_since_epoch().count() >= deadline;
}

}  // namespace Ombry::Cancellation::Impl
