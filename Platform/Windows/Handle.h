#pragma once

#include "Platform/Windows/Api.h"

#include <utility>

namespace Ombry::Platform::Windows {

/// What leaves a file or folder to everybody else while it is open.
inline constexpr DWORD ShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// Owns one handle of an open file or folder.
class Handle {
public:
    explicit Handle(HANDLE handle = INVALID_HANDLE_VALUE) : handle(handle) {}
    ~Handle() { Close(); }
    Handle(Handle&& other) noexcept : handle(std::exchange(other.handle, INVALID_HANDLE_VALUE)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(handle, other.handle);
        return *this;
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    explicit operator bool() const { return handle != INVALID_HANDLE_VALUE; }
    HANDLE Get() const { return handle; }

    void Close() {
        if (*this) CloseHandle(std::exchange(handle, INVALID_HANDLE_VALUE));
    }

private:
    HANDLE handle;
};

}  // namespace Ombry::Platform::Windows
