#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"

#include <string>

namespace Ombry::Platform {

/// What tells this machine from a copy of its disk: one of the things that machine protection depends on.
class IMachineId {
public:
    virtual ~IMachineId() = default;

    /// The identity that the system was given when it was installed, without line ends; empty if it has none,
    /// as in many containers. A failure if it has one that cannot be read now.
    virtual ValueOr<std::string> MachineId() = 0;
};

template <>
IMachineId& Production<IMachineId>();

inline IMachineId& MachineIdentity() {
    return Current<IMachineId>();
}

}  // namespace Ombry::Platform
