#pragma once

#include <cstddef>
#include <new>

namespace Ombry::Platform {

/// The process's one object of class `T`: made by whoever asks first, on any thread, and never destroyed. A
/// static object would be destroyed when the process ends, under the feet of threads that are still running
/// and of static objects that were made earlier.
template <class T>
T& MadeOnce() {
    alignas(T) static std::byte room[sizeof(T)];
    static T* const object = new (room) T;
    return *object;
}

}  // namespace Ombry::Platform
