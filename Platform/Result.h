#pragma once

#include <optional>
#include <utility>

namespace Ombry::Platform {

/// Outcome of a platform operation: success, or a failure with the number that the system gave for it. The
/// number travels with the result, so no later call can overwrite it. A failure may carry the number 0.
class [[nodiscard]] Result {
public:
    static constexpr Result Success() { return Result(true, 0); }
    static constexpr Result Failure(int error) { return Result(false, error); }

    explicit constexpr operator bool() const { return succeeded; }
    constexpr int Error() const { return error; }

private:
    constexpr Result(bool succeeded, int error) : succeeded(succeeded), error(error) {}
    bool succeeded;
    int error;
};

/// A value, or the failure that stands in its place.
template <class T>
class [[nodiscard]] ValueOr {
public:
    ValueOr(T value) : value(std::move(value)), failure(Result::Success()) {}  // NOLINT: implicit on purpose
    ValueOr(Result failure) : failure(failure) {}                              // NOLINT: implicit on purpose
    /// A value whose caller may find it wanting, with the error number that the system left beside it.
    ValueOr(T value, int error) : value(std::move(value)), failure(Result::Failure(error)) {}

    explicit operator bool() const { return value.has_value(); }
    int Error() const { return failure.Error(); }
    T& operator*() { return *value; }
    const T& operator*() const { return *value; }
    T* operator->() { return &*value; }
    const T* operator->() const { return &*value; }

private:
    std::optional<T> value;
    Result failure;
};

}  // namespace Ombry::Platform
