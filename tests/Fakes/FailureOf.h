#pragma once

#include <stdexcept>
#include <string>

namespace Ombry::Tests {

/// The text of the runtime error that `act` throws. Exceptions of other types pass through.
template <class Act>
std::string FailureOf(const Act& act) {
    try {
        act();
        return "no failure";
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
}

}  // namespace Ombry::Tests
