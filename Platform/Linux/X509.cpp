#include "Platform/Linux/X509.h"

#include <openssl/bio.h>
#include <openssl/pem.h>

#include <array>
#include <limits>

namespace Ombry::Platform::Linux {
namespace {

using BioPointer = Owned<BIO, BIO_free>;

// Without a callback of ours OpenSSL asks on the terminal for the pass phrase of an enciphered entry.
int NoPassPhrase(char*, int, int, void*) {
    return -1;
}

}  // namespace

X509Pointer ParseDer(std::span<const std::uint8_t> encoded) {
    InitializeOpenSSL();
    if (encoded.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return nullptr;
    const unsigned char* at = encoded.data();
    X509Pointer certificate(at ? d2i_X509(nullptr, &at, static_cast<long>(encoded.size())) : nullptr);
    if (certificate && at != encoded.data() + encoded.size()) certificate.reset();
    ERR_clear_error();
    return certificate;
}

std::string EncodeDer(const X509* certificate) {
    const int length = i2d_X509(certificate, nullptr);
    std::string encoded(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    auto* at = reinterpret_cast<unsigned char*>(encoded.data());
    if (length <= 0 || i2d_X509(certificate, &at) != length) encoded.clear();
    ERR_clear_error();
    return encoded;
}

X509Pointer ParsePem(std::string_view text) {
    InitializeOpenSSL();
    if (text.empty() || text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        return nullptr;
    }
    const BioPointer bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    X509Pointer certificate(bio ? PEM_read_bio_X509_AUX(bio.get(), nullptr, NoPassPhrase, nullptr) : nullptr);
    ERR_clear_error();
    return certificate;
}

std::string EncodePem(X509* certificate) {
    const BioPointer bio(BIO_new(BIO_s_mem()));
    std::string text;
    if (bio && PEM_write_bio_X509_AUX(bio.get(), certificate) == 1) {
        char* data = nullptr;
        const long length = BIO_get_mem_data(bio.get(), &data);
        text.assign(data, static_cast<std::size_t>(length));
    }
    ERR_clear_error();
    return text;
}

std::string Fingerprint(std::string_view encoded) {
    constexpr char digits[] = "0123456789abcdef";
    std::array<std::uint8_t, 32> hash;
    std::string text;
    if (EVP_Digest(encoded.data(), encoded.size(), hash.data(), nullptr, EVP_sha256(), nullptr) == 1) {
        for (const std::uint8_t byte : hash) {
            text += digits[byte >> 4];
            text += digits[byte & 0x0F];
        }
    }
    ERR_clear_error();
    return text;
}

}  // namespace Ombry::Platform::Linux
