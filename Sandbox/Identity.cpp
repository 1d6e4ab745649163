#include "Sandbox/Identity.h"

#include "Platform/Base64Text.h"
#include "Platform/IFiles.h"
#include "Platform/IRandom.h"
#include "Sandbox/FolderLock.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cerrno>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Ombry::Sandbox {
namespace {

using MemoryBio = std::unique_ptr<BIO, decltype(&BIO_free)>;

void Require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(std::string("Cannot make the certificate: ") + what);
}

void AddExtension(X509* certificate, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    Require(extension && X509_add_ext(certificate, extension, -1) == 1, "extension");
    X509_EXTENSION_free(extension);
}

}  // namespace

Identity::Identity(const std::string& stateFolder) {
    // Of several instances that start at once in a new folder one makes the identity, and the others find it.
    const FolderLock lock(stateFolder);
    const std::string path = stateFolder + "/identity.pem";
    if (Read(path)) return;
    Make();
    Write(path);
}

bool Identity::Read(const std::string& path) {
    const auto text = Platform::Files().Read(path);
    if (!text) {
        // One that is there but cannot be read is never replaced: tokens and clients depend on it.
        if (text.Error() != ENOENT) throw std::runtime_error("Cannot read '" + path + "'.");
        return false;
    }
    const MemoryBio bio(BIO_new_mem_buf(text->data(), static_cast<int>(text->size())), BIO_free);
    const auto noPassphrase = [](char*, int, int, void*) { return 0; };  // the default asks at the terminal
    key.reset(PEM_read_bio_PrivateKey(bio.get(), nullptr, noPassphrase, nullptr));
    certificate.reset(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!key || !certificate) throw std::runtime_error("'" + path + "' holds no key and certificate.");
    char group[64] = "";
    if (EVP_PKEY_get_group_name(key.get(), group, sizeof group, nullptr) != 1 ||
        std::string_view(group) != "prime256v1" ||
        X509_check_private_key(certificate.get(), key.get()) != 1) {
        throw std::runtime_error("'" + path + "' holds no P-256 key with its certificate.");
    }
    return true;
}

void Identity::Make() {
    key.reset(EVP_EC_gen("P-256"));
    certificate.reset(X509_new());
    Require(key && certificate, "key");
    X509* const x = certificate.get();
    std::uint8_t serial[8];
    Require(static_cast<bool>(Platform::Random().Bytes(serial)), "serial number");
    std::uint64_t number = 0;
    for (const std::uint8_t byte : serial)
        number = number << 8 | byte;
    Require(X509_set_version(x, 2) == 1 &&
                ASN1_INTEGER_set_uint64(X509_get_serialNumber(x), number >> 1) == 1 &&
                X509_gmtime_adj(X509_getm_notBefore(x), -3600) &&
                X509_gmtime_adj(X509_getm_notAfter(x), 315360000L) && X509_set_pubkey(x, key.get()) == 1,
            "fields");
    X509_NAME* const name = X509_get_subject_name(x);
    Require(
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>("Ombry sandbox"), -1, -1, 0) == 1 &&
            X509_set_issuer_name(x, name) == 1,
        "name");
    AddExtension(x, NID_basic_constraints, "critical,CA:FALSE");
    AddExtension(x, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1");
    Require(X509_sign(x, key.get(), EVP_sha256()) > 0, "signature");
}

void Identity::Write(const std::string& path) const {
    const MemoryBio bio(BIO_new(BIO_s_mem()), BIO_free);
    Require(PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1 &&
                PEM_write_bio_X509(bio.get(), certificate.get()) == 1,
            "PEM text");
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    const std::string_view text(data, static_cast<std::size_t>(size));
    auto file = Platform::Files().BeginReplace(path, text.size(), Platform::Durability::Synced);
    if (!file || !(*file)->Complete(text)) throw std::runtime_error("Cannot write '" + path + "'.");
}

std::string Identity::Fingerprint() const {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    Require(X509_digest(certificate.get(), EVP_sha256(), digest, &size) == 1, "fingerprint");
    std::string text;
    char pair[4];
    for (unsigned int i = 0; i < size; ++i) {
        std::snprintf(pair, sizeof pair, "%s%02X", i ? ":" : "", digest[i]);
        text += pair;
    }
    return text;
}

std::string Identity::CertificateBase64() const {
    unsigned char* der = nullptr;
    const int size = i2d_X509(certificate.get(), &der);
    Require(size > 0, "DER");
    const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(
        der, [](unsigned char* p) { OPENSSL_free(p); });
    auto text = Platform::Base64Text({der, static_cast<std::size_t>(size)});
    Require(static_cast<bool>(text), "Base64");
    return std::move(*text);
}

}  // namespace Ombry::Sandbox
