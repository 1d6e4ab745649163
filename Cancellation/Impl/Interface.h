#pragma once

namespace Ombry::Cancellation::Impl {

/// Root of what is held through a base pointer.
class Interface {
public:
    virtual ~Interface() = default;
};

}  // namespace Ombry::Cancellation::Impl
