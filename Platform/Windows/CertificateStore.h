#pragma once

#include "Platform/ICertificates.h"

#include <cstdint>
#include <string>

namespace Ombry::Platform::Windows {

/// How the system is asked for a store. Who only reads says so, since the machine's store may be read by
/// users who may not change it.
std::uint32_t FlagsFor(StoreLocation location, StoreAccess access);

/// Opens a store of the system's by its name, which has no terminator within. Other processes may change the
/// store while it is open; each change of ours is in the store when its operation returns.
ValueOr<std::unique_ptr<ICertificateStore>> OpenCertificateStore(StoreLocation location, StoreAccess access,
                                                                 const std::wstring& name);

}  // namespace Ombry::Platform::Windows
