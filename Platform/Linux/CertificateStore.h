#pragma once

#include "Platform/ICertificates.h"

#include <string>
#include <string_view>

namespace Ombry::Platform::Linux {

/// The folder of a store. A name that would lead anywhere else fails.
ValueOr<std::string> CertificateStoreFolder(StoreLocation location, std::wstring_view name);

/// Opens the store that lies in this folder: one file an entry, PEM "TRUSTED CERTIFICATE" with the friendly
/// name as the alias, named by the SHA-256 of the certificate, so that `openssl x509 -in FILE -alias` reads
/// it. The folder is locked (flock) while the store is open: shared for reading, alone for writing, so a
/// reader never sees a change half done, unless it asked for no lock. Opening waits for the lock for 15
/// seconds, and then fails with EWOULDBLOCK.
ValueOr<std::unique_ptr<ICertificateStore>> OpenCertificateStore(const std::string& folder,
                                                                 StoreAccess access);

}  // namespace Ombry::Platform::Linux
