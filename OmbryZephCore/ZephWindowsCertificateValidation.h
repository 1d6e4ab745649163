#pragma once

#include "Platform/ICertificates.h"

#include <string>

namespace OmbryZephCore::ZephWindowsCertificateValidation {

/// A `ZephCertificateValidator` that accepts one public key: dates, names and issuer of the server's
/// certificate play no part, so a certificate renewed with the same key stays accepted. Whatever cannot be
/// decoded, parsed or compared rejects the server, and nothing is logged. A value; calls on one object from
/// several threads are safe.
class CheckPublicKeyCallback {
public:
    /// `certificate`: Base64 text of the expected certificate's DER form, with or without line ends.
    explicit CheckPublicKeyCallback(std::string certificate);

    /// `ppServerCertificate` stays the caller's; null, or a pointer to null, is rejected.
    bool operator()(Ombry::Platform::CertificateContextPointer* ppServerCertificate) const;

private:
    std::string m_Certificate;
};

}  // namespace OmbryZephCore::ZephWindowsCertificateValidation
