#include "Cancellation/Impl/LinkedTokenState.h"

#include <utility>

namespace Ombry::Cancellation::Impl {

LinkedTokenState::LinkedTokenState(Token first, Token second)
    : linkedTokens{std::move(first), std::move(second)} {}

bool LinkedTokenState::IsCancelled() const noexcept {
    if (TokenStateBool::IsCancelled()) return true;
    for (const Token& token : linkedTokens) {
        if (token.IsCancelled()) return true;
    }
    return false;
}

void LinkedTokenState::ThrowIfCancelled() const {
    TokenStateBool::ThrowIfCancelled();
    for (const Token& token : linkedTokens)
        token.ThrowIfCancelled();
}

}  // namespace Ombry::Cancellation::Impl
