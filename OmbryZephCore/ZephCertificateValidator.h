#pragma once

#include "Platform/ICertificates.h"

#include <functional>

namespace OmbryZephCore {

/// Decides on the certificate that a server has just proved to own; true accepts it. The certificate stays
/// the caller's and is valid during the call only. Runs at the end of every handshake, also after a
/// renegotiation, on the thread that drives the engine. An empty validator asks nobody.
using ZephCertificateValidator =
    std::function<bool(Ombry::Platform::CertificateContextPointer* ppServerCertificate)>;

}  // namespace OmbryZephCore
