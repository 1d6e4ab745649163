#pragma once

#include "Cancellation/Impl/TokenStateBool.h"
#include "Cancellation/Token.h"

#include <array>

namespace Ombry::Cancellation::Impl {

/// Stopped by its own `Cancel`, which leaves the linked tokens alone, or by any of them. Keeps them alive.
class LinkedTokenState : public TokenStateBool {
public:
    LinkedTokenState(Token first, Token second);

    bool IsCancelled() const noexcept override;

    /// Its own request first, then the tokens in order: the first to throw decides the exception.
    void ThrowIfCancelled() const override;

private:
    const std::array<Token, 2> linkedTokens;
};

}  // namespace Ombry::Cancellation::Impl
