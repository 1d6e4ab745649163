#pragma once

#include "Platform/Linux/OpenSSLInit.h"
#include "tests/Fakes/CertificateBytes.h"
#include "tests/Fakes/FixedCertificates.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Ombry::Tests {

using TestKey = std::shared_ptr<EVP_PKEY>;
using TestCertificate = std::shared_ptr<X509>;

/// A key of that name, made once for the process: "rsa1024…", "rsa2048…" or "ec256…"; what follows tells keys
/// of one kind apart.
inline TestKey KeyNamed(const std::string& name) {
    Platform::InitializeOpenSSL();
    static std::mutex mutex;
    static std::map<std::string, TestKey> keys;
    std::lock_guard guard(mutex);
    TestKey& key = keys[name];
    if (!key) {
        EVP_PKEY* made = name.starts_with("ec256")     ? EVP_EC_gen("P-256")
                         : name.starts_with("rsa1024") ? EVP_RSA_gen(1024)
                                                       : EVP_RSA_gen(2048);
        if (made == nullptr) throw std::runtime_error("cannot make a key");
        key = TestKey(made, EVP_PKEY_free);
    }
    return key;
}

/// An RSA key with the public half of one key and the private exponent of another: what it signs does not
/// verify.
inline TestKey ForgedKey(const TestKey& publicHalf, const TestKey& privateHalf) {
    BIGNUM *n = nullptr, *e = nullptr, *d = nullptr;
    EVP_PKEY_get_bn_param(publicHalf.get(), OSSL_PKEY_PARAM_RSA_N, &n);
    EVP_PKEY_get_bn_param(publicHalf.get(), OSSL_PKEY_PARAM_RSA_E, &e);
    EVP_PKEY_get_bn_param(privateHalf.get(), OSSL_PKEY_PARAM_RSA_D, &d);
    OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, n);
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_E, e);
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_D, d);
    OSSL_PARAM* parameters = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    EVP_PKEY* key = nullptr;
    EVP_PKEY_fromdata_init(context);
    EVP_PKEY_fromdata(context, &key, EVP_PKEY_KEYPAIR, parameters);
    EVP_PKEY_CTX_free(context);
    OSSL_PARAM_free(parameters);
    OSSL_PARAM_BLD_free(builder);
    BN_free(n);
    BN_free(e);
    BN_clear_free(d);
    if (key == nullptr) throw std::runtime_error("cannot forge a key");
    return TestKey(key, EVP_PKEY_free);
}

/// A public key from the parameters that are in `builder`, which is used up.
inline TestKey PublicKeyOf(const char* type, OSSL_PARAM_BLD* builder) {
    OSSL_PARAM* parameters = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr);
    EVP_PKEY* key = nullptr;
    EVP_PKEY_fromdata_init(context);
    EVP_PKEY_fromdata(context, &key, EVP_PKEY_PUBLIC_KEY, parameters);
    EVP_PKEY_CTX_free(context);
    OSSL_PARAM_free(parameters);
    OSSL_PARAM_BLD_free(builder);
    if (key == nullptr) throw std::runtime_error("cannot make a public key");
    return TestKey(key, EVP_PKEY_free);
}

/// The public half of an RSA key with another exponent.
inline TestKey WithExponent(const TestKey& key, unsigned long exponent) {
    BIGNUM *n = nullptr, *e = BN_new();
    EVP_PKEY_get_bn_param(key.get(), OSSL_PKEY_PARAM_RSA_N, &n);
    BN_set_word(e, exponent);
    OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, n);
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_E, e);
    TestKey other = PublicKeyOf("RSA", builder);
    BN_free(n);
    BN_free(e);
    return other;
}

/// The public half of a "ec256" key with the same first coordinate and the other second one.
inline TestKey Mirrored(const TestKey& key) {
    BIGNUM *x = nullptr, *y = nullptr;
    EVP_PKEY_get_bn_param(key.get(), OSSL_PKEY_PARAM_EC_PUB_X, &x);
    EVP_PKEY_get_bn_param(key.get(), OSSL_PKEY_PARAM_EC_PUB_Y, &y);
    const std::unique_ptr<EC_GROUP, decltype(&EC_GROUP_free)> group(
        EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1), EC_GROUP_free);
    BN_sub(y, EC_GROUP_get0_field(group.get()), y);
    unsigned char point[65] = {POINT_CONVERSION_UNCOMPRESSED};
    BN_bn2binpad(x, point + 1, 32);
    BN_bn2binpad(y, point + 33, 32);
    OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_utf8_string(builder, OSSL_PKEY_PARAM_GROUP_NAME, "prime256v1", 0);
    OSSL_PARAM_BLD_push_octet_string(builder, OSSL_PKEY_PARAM_PUB_KEY, point, sizeof point);
    TestKey other = PublicKeyOf("EC", builder);
    BN_free(x);
    BN_free(y);
    return other;
}

/// What a certificate is made of; the defaults give a self-signed one of a server.
struct CertificateRecipe {
    std::string commonName = "server.test";
    std::string alternativeNames = "DNS:server.test";  ///< OpenSSL's notation; empty for none
    TestKey key = KeyNamed("rsa2048");
    TestCertificate issuer = nullptr;  ///< null: self-signed
    TestKey issuerKey = nullptr;
    long validFromSeconds = -86400;  ///< from now
    long validToSeconds = 86400;
    bool authority = false;
    std::string extendedKeyUsage{};  ///< OpenSSL's notation; empty for none
    const EVP_MD* digest = nullptr;  ///< null: SHA-256
    long serial = 1;
};

inline void AddExtension(X509* certificate, int nid, const std::string& value) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
    if (extension == nullptr) throw std::runtime_error("bad extension " + value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

inline TestCertificate MakeCertificate(const CertificateRecipe& recipe) {
    TestCertificate certificate(X509_new(), X509_free);
    X509* x = certificate.get();
    X509_set_version(x, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(x), recipe.serial);
    X509_gmtime_adj(X509_getm_notBefore(x), recipe.validFromSeconds);
    X509_gmtime_adj(X509_getm_notAfter(x), recipe.validToSeconds);
    X509_set_pubkey(x, recipe.key.get());
    X509_NAME* subject = X509_get_subject_name(x);
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(recipe.commonName.c_str()), -1, -1, 0);
    X509_set_issuer_name(x, recipe.issuer ? X509_get_subject_name(recipe.issuer.get()) : subject);
    AddExtension(x, NID_basic_constraints, recipe.authority ? "critical,CA:TRUE" : "CA:FALSE");
    if (!recipe.alternativeNames.empty()) AddExtension(x, NID_subject_alt_name, recipe.alternativeNames);
    if (!recipe.extendedKeyUsage.empty()) AddExtension(x, NID_ext_key_usage, recipe.extendedKeyUsage);
    const TestKey& signer = recipe.issuerKey ? recipe.issuerKey : recipe.key;
    if (X509_sign(x, signer.get(), recipe.digest ? recipe.digest : EVP_sha256()) == 0) {
        throw std::runtime_error("cannot sign a certificate");
    }
    return certificate;
}

/// A certificate authority of the tests, made once for the process.
inline const TestCertificate& TestAuthority() {
    static const TestCertificate authority = [] {
        CertificateRecipe recipe;
        recipe.commonName = "Test authority";
        recipe.alternativeNames.clear();
        recipe.key = KeyNamed("rsa2048-authority");
        recipe.authority = true;
        return MakeCertificate(recipe);
    }();
    return authority;
}

/// The recipe of a certificate that the authority signs.
inline CertificateRecipe SignedByAuthority(CertificateRecipe recipe = {}) {
    recipe.issuer = TestAuthority();
    recipe.issuerKey = KeyNamed("rsa2048-authority");
    recipe.serial += 1000;
    return recipe;
}

inline std::string DerOf(const TestCertificate& certificate) {
    unsigned char* encoded = nullptr;
    const int length = i2d_X509(certificate.get(), &encoded);
    std::string der(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(length));
    OPENSSL_free(encoded);
    return der;
}

using FixedCertificates::Base64Of;

/// A PEM file with one certificate, for the life of this object.
class TemporaryPemFile {
public:
    explicit TemporaryPemFile(const TestCertificate& certificate)
        : path(std::filesystem::temp_directory_path() /
               ("ombry-test-" + std::to_string(std::random_device()()) + "-" +
                std::to_string(std::random_device()()) + ".pem")) {
        std::ofstream file(path);
        std::string body = Base64Of(DerOf(certificate));
        file << "-----BEGIN CERTIFICATE-----\n";
        for (std::size_t i = 0; i < body.size(); i += 64)
            file << body.substr(i, 64) << "\n";
        file << "-----END CERTIFICATE-----\n";
    }
    ~TemporaryPemFile() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    TemporaryPemFile(const TemporaryPemFile&) = delete;
    TemporaryPemFile& operator=(const TemporaryPemFile&) = delete;

    std::string Path() const { return path.string(); }

private:
    std::filesystem::path path;
};

}  // namespace Ombry::Tests
