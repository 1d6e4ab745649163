#pragma once

#include "tests/Fakes/Linux/TestCertificates.h"

#include <functional>
#include <iomanip>
#include <sstream>
#include <string>

namespace Ombry::Tests {

inline std::string TextOf(const std::function<void(BIO*)>& write) {
    const std::shared_ptr<BIO> memory(BIO_new(BIO_s_mem()), BIO_free);
    write(memory.get());
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return std::string(text, static_cast<std::size_t>(size));
}

inline std::string PemOf(const TestKey& key) {
    return TextOf([&](BIO* memory) {
        PEM_write_bio_PrivateKey(memory, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
}

/// The text of a certificate as the store of a machine keeps it; without an alias, as between its addition
/// and its naming.
inline std::string StoredCertificate(const TestCertificate& certificate,
                                     const std::string& alias = "DiscoveryServiceBootstrap") {
    const TestCertificate copy(X509_dup(certificate.get()), X509_free);
    if (!alias.empty())
        X509_alias_set1(copy.get(), reinterpret_cast<const unsigned char*>(alias.data()),
                        static_cast<int>(alias.size()));
    return TextOf([&](BIO* memory) { PEM_write_bio_X509_AUX(memory, copy.get()); });
}

/// SHA-256 of a certificate in lower-case hexadecimal: the name of its file in the store.
inline std::string FingerprintOf(const TestCertificate& certificate) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    X509_digest(certificate.get(), EVP_sha256(), digest, &size);
    std::ostringstream text;
    for (unsigned int i = 0; i < size; ++i)
        text << std::hex << std::setw(2) << std::setfill('0') << static_cast<int>(digest[i]);
    return text.str();
}

/// The certificate with another byte in its key, or behind all that is signed.
inline TestCertificate Bent(const TestCertificate& certificate, bool inKey) {
    std::string encoded = DerOf(certificate);
    const ASN1_BIT_STRING* key = X509_get0_pubkey_bitstr(certificate.get());
    const std::string bits(reinterpret_cast<const char*>(key->data), static_cast<std::size_t>(key->length));
    encoded[inKey ? encoded.find(bits) + bits.size() - 1 : encoded.size() - 1] ^= 1;
    const auto* at = reinterpret_cast<const unsigned char*>(encoded.data());
    return TestCertificate(d2i_X509(nullptr, &at, static_cast<long>(encoded.size())), X509_free);
}

inline std::string PemOf(const TestCertificate& certificate) {
    return TextOf([&](BIO* memory) { PEM_write_bio_X509(memory, certificate.get()); });
}

inline TestCertificate CertificateFromPem(const std::string& pem) {
    const std::shared_ptr<BIO> memory(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    const TestCertificate certificate(PEM_read_bio_X509_AUX(memory.get(), nullptr, nullptr, nullptr),
                                      X509_free);
    if (!certificate) throw std::runtime_error("no certificate in: " + pem);
    return certificate;
}

}  // namespace Ombry::Tests
