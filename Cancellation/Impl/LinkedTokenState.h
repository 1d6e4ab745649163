#pragma once

#include "Cancellation/Impl/TokenStateBool.h"
#include "Cancellation/Token.h"

#include <vector>

namespace Ombry::Cancellation::Impl {

/// Stopped by its own `Cancel`, which leaves the linked tokens alone, or by any of them. Keeps them alive.
class LinkedTokenState : public TokenStateBool {
public:
    explicit LinkedTokenState(std::vector<Token> linkedTokens);

    bool IsCancelled() const noexcept override;

    /// Its own request first, then the tokens in order: the first to throw decides the exception.
    void ThrowIfCancelled() const override;

private:
    const std::vector<Token> linkedTokens;
};

}  // namespace Ombry::Cancellation::Impl
