#pragma once

#include "Platform/Time.h"

#include <memory>
#include <stdexcept>
#include <string>

/// Tokens that end what a call waits for.
namespace Ombry::Cancellation {

/// Work was stopped because somebody asked for it.
class OperationCancelledException : public std::runtime_error {
public:
    OperationCancelledException() : std::runtime_error("Operation cancelled.") {}
    /// With a text of its own.
    explicit OperationCancelledException(const std::string& message) : std::runtime_error(message) {}
};

/// Work was stopped because its time was up.
class TimeoutException : public OperationCancelledException {
public:
    TimeoutException() : OperationCancelledException("Operation timed out.") {}
    /// With a text of its own.
    explicit TimeoutException(const std::string& message) : OperationCancelledException(message) {}
};

namespace Impl {
class TokenState;
}

/// Says whether work should stop, at any moment and from any thread. It interrupts nothing: the code that
/// does the work polls it. A value; copies share one state, which lives as long as any of them. A default
/// token is never cancelled and never expires.
class Token {
public:
    Token() = default;
    /// For the functions below; a program makes tokens with them.
    explicit Token(std::shared_ptr<Impl::TokenState> state);

    /// Takes no lock, allocates nothing, never throws.
    bool IsCancelled() const noexcept;

    /// Throws `OperationCancelledException` or `TimeoutException` if the work should stop.
    void ThrowIfCancelled() const;

    /// Requests cancellation. Only for tokens that hold a state, as those of `CreateCancellable` do: a
    /// default token has nothing to cancel, and this operation has no guard for it.
    void Cancel() const;

private:
    friend Token Link(Token first, Token second);

    std::shared_ptr<Impl::TokenState> state;
};

/// A token that is cancelled by `Cancel` alone.
Token CreateCancellable();

/// A token that also expires once the system clock has moved on by `duration`. The deadline is wall-clock
/// time, and the addition is not guarded: a duration that overflows it gives a token that has expired, as 0
/// and less do.
Token CreateTimeout(Duration duration);

/// A token that is cancelled when either source is, and by its own `Cancel`, which leaves the sources alone.
/// When both have fired, the first decides the exception.
Token Link(Token first, Token second);

/// Sleeps until the system clock has reached `target`, in slices of at most 250 milliseconds; the token is
/// asked before each. A target that has passed returns at once without a look at the token. Throws what
/// `Token::ThrowIfCancelled` throws.
void SleepUntil(TimePoint target, const Token& token);

}  // namespace Ombry::Cancellation
