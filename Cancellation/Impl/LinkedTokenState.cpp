#include "Cancellation/Impl/LinkedTokenState.h"

#include <utility>

namespace Ombry::Cancellation::Impl {

LinkedTokenState::LinkedTokenState(std::vector<Token> linkedTokens) : linkedTokens(std::move(linkedTokens)) {}

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
