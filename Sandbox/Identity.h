#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace Ombry::Sandbox {

struct FreeKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct FreeCertificate {
    void operator()(X509* certificate) const { X509_free(certificate); }
};

/// The service's key and self-signed certificate: made at the first start in a state folder and kept there,
/// readable by their owner alone. Instances that share the folder share them, even if they start at once.
class Identity {
public:
    /// `std::runtime_error` if they can be neither read nor made. What is there and is not a P-256 key with
    /// its certificate is a failure, and is left as it is.
    explicit Identity(const std::string& stateFolder);

    EVP_PKEY* Key() const { return key.get(); }
    X509* Certificate() const { return certificate.get(); }
    /// SHA-256 as "AA:BB:...".
    std::string Fingerprint() const;
    /// DER as Base64 text.
    std::string CertificateBase64() const;

private:
    bool Read(const std::string& path);
    void Make();
    void Write(const std::string& path) const;

    std::unique_ptr<EVP_PKEY, FreeKey> key;
    std::unique_ptr<X509, FreeCertificate> certificate;
};

}  // namespace Ombry::Sandbox
