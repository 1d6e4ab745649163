#pragma once

#include "Platform/ICertificates.h"
#include "Platform/Windows/Api.h"

#include <wincrypt.h>

#include <memory>

namespace Ombry::Platform::Windows {

struct FreeSystemCertificate {
    void operator()(PCCERT_CONTEXT certificate) const { CertFreeCertificateContext(certificate); }
};
/// One reference to a certificate of the system's.
using SystemCertificate = std::unique_ptr<const CERT_CONTEXT, FreeSystemCertificate>;

/// The same certificate as the seam shows it. SecurityLayout.cpp holds the two records together.
inline CertificateContextPointer Shown(PCCERT_CONTEXT certificate) {
    return reinterpret_cast<CertificateContextPointer>(certificate);
}

/// What the system made and `Shown` showed; a context that anybody else filled is none.
inline PCCERT_CONTEXT SystemsOwn(CertificateContextPointer certificate) {
    return reinterpret_cast<PCCERT_CONTEXT>(certificate);
}

/// A certificate of the system's from DER bytes; null, with the last error, if they are none.
SystemCertificate ParseCertificate(std::span<const std::uint8_t> encoded);

}  // namespace Ombry::Platform::Windows
