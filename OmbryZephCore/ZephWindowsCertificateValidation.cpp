#include "OmbryZephCore/ZephWindowsCertificateValidation.h"

#include "OmbryZephCore/ZephIOBuffer.h"

#include <utility>

namespace OmbryZephCore::ZephWindowsCertificateValidation {

CheckPublicKeyCallback::CheckPublicKeyCallback(std::string certificate)
    : m_Certificate(std::move(certificate)) {}

bool CheckPublicKeyCallback::operator()(
    Ombry::Platform::CertificateContextPointer* ppServerCertificate) const {
    if (ppServerCertificate == nullptr || *ppServerCertificate == nullptr) return false;
    auto& certificates = Ombry::Platform::Certificates();

    const auto measured = certificates.Base64ToBinary(m_Certificate, nullptr, 0);
    if (!measured || *measured == 0) return false;
    ZephIOBuffer decoded;
    if (decoded.SetLength(*measured) != 0) return false;
    const auto length = certificates.Base64ToBinary(m_Certificate, decoded.GetData(), decoded.GetLength());
    if (!length || *length > decoded.GetLength()) return false;

    const auto expected = certificates.CreateCertificate({decoded.GetData(), *length});
    if (!expected || !*expected) return false;
    return certificates.EqualPublicKeys((*expected)->Context(), **ppServerCertificate);
}

}  // namespace OmbryZephCore::ZephWindowsCertificateValidation
