#pragma once

#include <stdexcept>
#include <string>

namespace Ombry::Tests {

/// The text of the failure that `act` throws, a runtime error unless told otherwise. Exceptions of other
/// types pass through.
template <class Failure = std::runtime_error, class Act>
std::string FailureOf(const Act& act) {
    try {
        act();
        return "no failure";
    } catch (const Failure& failure) {
        return failure.what();
    }
}

}  // namespace Ombry::Tests
