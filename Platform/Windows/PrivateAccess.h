#pragma once

#include "Platform/Result.h"
#include "Platform/Windows/Api.h"

#include <memory>
#include <utility>

namespace Ombry::Platform::Windows {

/// Who may use a new file or folder from the instant of its making: SYSTEM and Administrators, and nobody
/// else, whatever the folder above would hand down.
class PrivateAccess {
public:
    static ValueOr<PrivateAccess> ToFile();
    /// What others make in the folder is as private, unless they say otherwise.
    static ValueOr<PrivateAccess> ToFolder();

    /// What the calls take that make a file; valid as long as this object.
    SECURITY_ATTRIBUTES Attributes() const { return {sizeof(SECURITY_ATTRIBUTES), descriptor.get(), FALSE}; }

private:
    using Descriptor = std::unique_ptr<void, decltype(&LocalFree)>;

    explicit PrivateAccess(Descriptor descriptor) : descriptor(std::move(descriptor)) {}
    static ValueOr<PrivateAccess> By(const wchar_t* text);

    Descriptor descriptor;
};

}  // namespace Ombry::Platform::Windows
