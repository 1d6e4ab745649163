#include "Cancellation/Token.h"

#include "Cancellation/Impl/LinkedTokenState.h"
#include "Cancellation/Impl/TokenStateBool.h"
#include "Cancellation/Impl/TokenStateTimeout.h"
#include "Platform/IClock.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace Ombry::Cancellation {
namespace {

// A cancellation ends a sleep within this time.
constexpr Duration SleepSlice = std::chrono::milliseconds(250);

std::uint64_t Ticks(TimePoint time) {
    return static_cast<std::uint64_t>(time.time_since_epoch().count());
}

}  // namespace

Token::Token(std::shared_ptr<Impl::TokenState> state) : state(std::move(state)) {}

bool Token::IsCancelled() const noexcept {
    return state && state->IsCancelled();
}

void Token::ThrowIfCancelled() const {
    if (state) state->ThrowIfCancelled();
}

void Token::Cancel() const {
    state->Cancel();
}

Token CreateCancellable() {
    return Token(std::make_shared<Impl::TokenStateBool>());
}

Token CreateTimeout(Duration duration) {
    // Unsigned, because the sum wraps by intention: a duration beyond the end of time has expired at once.
    const std::uint64_t deadline =
        Ticks(Platform::Clock().Now()) + static_cast<std::uint64_t>(duration.count());
    return Token(std::make_shared<Impl::TokenStateTimeout>(static_cast<std::int64_t>(deadline)));
}

Token Link(Token first, Token second) {
    // With nothing beside it, a state that nobody else holds is as good as one that is linked to it.
    if (!second.state && first.state.use_count() == 1) return first;
    return Token(std::make_shared<Impl::LinkedTokenState>(std::move(first), std::move(second)));
}

void SleepUntil(TimePoint target, const Token& token) {
    for (;;) {
        const TimePoint now = Platform::Clock().Now();
        if (target <= now) return;
        // The distance between two signed counts always fits an unsigned one.
        const std::uint64_t remaining = Ticks(target) - Ticks(now);
        const std::uint64_t slice = std::min(remaining, static_cast<std::uint64_t>(SleepSlice.count()));
        token.ThrowIfCancelled();
        Platform::Clock().Sleep(Duration(static_cast<std::int64_t>(slice)));
    }
}

}  // namespace Ombry::Cancellation
