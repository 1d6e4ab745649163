#include "Platform/Linux/CertificateOutline.h"

#include <openssl/asn1t.h>
#include <openssl/bio.h>
#include <openssl/pem.h>

#include <bit>
#include <limits>
#include <memory>

namespace Ombry::Platform::Linux {

// The fields of RFC 5280, section 4.1, in its order.

struct OutlineKey {
    X509_ALGOR* algorithm;
    ASN1_BIT_STRING* bits;
};

struct OutlineBody {
    ASN1_INTEGER* version;
    ASN1_INTEGER* serialNumber;
    X509_ALGOR* signature;
    X509_NAME* issuer;
    X509_VAL* validity;
    X509_NAME* subject;
    OutlineKey* key;
    ASN1_BIT_STRING* issuerId;
    ASN1_BIT_STRING* subjectId;
    STACK_OF(X509_EXTENSION) * extensions;
    ASN1_ENCODING enc;
};

struct OutlineFields {
    OutlineBody* body;
    X509_ALGOR* algorithm;
    ASN1_BIT_STRING* signature;
};

namespace {

// clang-format off
ASN1_SEQUENCE(OutlineKey) = {
    ASN1_SIMPLE(OutlineKey, algorithm, X509_ALGOR),
    ASN1_SIMPLE(OutlineKey, bits, ASN1_BIT_STRING)
} static_ASN1_SEQUENCE_END(OutlineKey)

ASN1_SEQUENCE_enc(OutlineBody, enc, nullptr) = {
    ASN1_EXP_OPT(OutlineBody, version, ASN1_INTEGER, 0),
    ASN1_SIMPLE(OutlineBody, serialNumber, ASN1_INTEGER),
    ASN1_SIMPLE(OutlineBody, signature, X509_ALGOR),
    ASN1_SIMPLE(OutlineBody, issuer, X509_NAME),
    ASN1_SIMPLE(OutlineBody, validity, X509_VAL),
    ASN1_SIMPLE(OutlineBody, subject, X509_NAME),
    ASN1_SIMPLE(OutlineBody, key, OutlineKey),
    ASN1_IMP_OPT(OutlineBody, issuerId, ASN1_BIT_STRING, 1),
    ASN1_IMP_OPT(OutlineBody, subjectId, ASN1_BIT_STRING, 2),
    ASN1_EXP_SEQUENCE_OF_OPT(OutlineBody, extensions, X509_EXTENSION, 3)
} static_ASN1_SEQUENCE_END_ref(OutlineBody, OutlineBody)

ASN1_SEQUENCE(OutlineFields) = {
    ASN1_SIMPLE(OutlineFields, body, OutlineBody),
    ASN1_SIMPLE(OutlineFields, algorithm, X509_ALGOR),
    ASN1_SIMPLE(OutlineFields, signature, ASN1_BIT_STRING)
} static_ASN1_SEQUENCE_END(OutlineFields)
    // clang-format on

    using BioPointer = Owned<BIO, BIO_free>;

struct OpenSSLBytes {
    unsigned char* data = nullptr;
    long length = 0;

    OpenSSLBytes() = default;
    OpenSSLBytes(const OpenSSLBytes&) = delete;
    OpenSSLBytes& operator=(const OpenSSLBytes&) = delete;
    ~OpenSSLBytes() { OPENSSL_free(data); }
};

struct ElementsDeleter {
    void operator()(ASN1_SEQUENCE_ANY* elements) const { sk_ASN1_TYPE_pop_free(elements, ASN1_TYPE_free); }
};
using Elements = std::unique_ptr<ASN1_SEQUENCE_ANY, ElementsDeleter>;

// Without a callback of ours OpenSSL asks on the terminal for the pass phrase of an enciphered entry.
int NoPhrase(char*, int, int, void*) {
    return -1;
}

std::string_view TextOf(const ASN1_STRING* string) {
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(string)),
            static_cast<std::size_t>(ASN1_STRING_length(string))};
}

// The one element of that type of a DER sequence; null if there is none.
const ASN1_STRING* FirstOf(const Elements& elements, int type) {
    for (int place = 0; place < sk_ASN1_TYPE_num(elements.get()); ++place) {
        const ASN1_TYPE* const element = sk_ASN1_TYPE_value(elements.get(), place);
        if (element->type == type) return element->value.asn1_string;
    }
    return nullptr;
}

Elements ElementsAt(const unsigned char* at, long length) {
    return Elements(d2i_ASN1_SEQUENCE_ANY(nullptr, &at, length));
}

// Of an RSAPublicKey (RFC 8017, appendix A.1.1), which begins with its modulus; 0 for anything else.
int ModulusBits(const ASN1_BIT_STRING* key) {
    const Elements elements = ElementsAt(ASN1_STRING_get0_data(key), ASN1_STRING_length(key));
    const ASN1_STRING* const modulus = FirstOf(elements, V_ASN1_INTEGER);
    const int length = modulus ? ASN1_STRING_length(modulus) : 0;
    return length == 0 ? 0
                       : 8 * (length - 1) + static_cast<int>(std::bit_width(*ASN1_STRING_get0_data(modulus)));
}

// Of the curves of RFC 5480 that certificates are made with; 0 for any other.
int CurveBits(int curve) {
    switch (curve) {
        case NID_X9_62_prime256v1:
            return 256;
        case NID_secp384r1:
            return 384;
        case NID_secp521r1:
            return 521;
        default:
            return 0;
    }
}

// The outcome of a failure. The queue of errors is looked at here alone: the first look at it, by whatever
// function, loads the texts of all errors, and a success leaves it as it was.
std::nullopt_t Nothing() {
    ERR_clear_error();
    return std::nullopt;
}

bool FitsLong(std::size_t size) {
    return size <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

}  // namespace

void FreeOutline(OutlineFields* fields) {
    ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(fields), ASN1_ITEM_rptr(OutlineFields));
}

std::optional<CertificateOutline> CertificateOutline::From(const unsigned char** at, long length) {
    InitializeOpenSSL();
    auto* const fields =
        reinterpret_cast<OutlineFields*>(ASN1_item_d2i(nullptr, at, length, ASN1_ITEM_rptr(OutlineFields)));
    if (!fields) return Nothing();
    return CertificateOutline(fields);
}

std::optional<CertificateOutline> CertificateOutline::FromDer(std::span<const std::uint8_t> encoded) {
    const unsigned char* at = encoded.data();
    if (!at || !FitsLong(encoded.size())) return std::nullopt;
    auto outline = From(&at, static_cast<long>(encoded.size()));
    if (at != encoded.data() + encoded.size()) return std::nullopt;
    return outline;
}

std::string CertificateOutline::Encoded() const {
    OpenSSLBytes bytes;
    bytes.length = ASN1_item_i2d(reinterpret_cast<const ASN1_VALUE*>(fields.get()), &bytes.data,
                                 ASN1_ITEM_rptr(OutlineFields));
    if (bytes.length <= 0) {
        Nothing();
        return {};
    }
    return {reinterpret_cast<const char*>(bytes.data), static_cast<std::size_t>(bytes.length)};
}

const X509_NAME* CertificateOutline::Subject() const {
    return fields->body->subject;
}

const ASN1_TIME* CertificateOutline::NotBefore() const {
    return fields->body->validity->notBefore;
}

const ASN1_TIME* CertificateOutline::NotAfter() const {
    return fields->body->validity->notAfter;
}

std::optional<CertificateOutline::Key> CertificateOutline::CommonKey() const {
    const ASN1_OBJECT* algorithm = nullptr;
    const void* parameter = nullptr;
    int parameterType = 0;
    X509_ALGOR_get0(&algorithm, &parameterType, &parameter, fields->body->key->algorithm);
    Key key;
    const int kind = OBJ_obj2nid(algorithm);
    if (kind == NID_rsaEncryption) {
        key = {"RSA", ModulusBits(fields->body->key->bits)};
    } else if (kind == NID_X9_62_id_ecPublicKey && parameterType == V_ASN1_OBJECT) {
        key = {"EC", CurveBits(OBJ_obj2nid(static_cast<const ASN1_OBJECT*>(parameter)))};
    }
    if (key.bits == 0) return Nothing();
    return key;
}

std::optional<StoredCertificate> StoredCertificate::FromPem(std::string_view text) {
    InitializeOpenSSL();
    if (text.empty() || !FitsLong(text.size())) return std::nullopt;
    const BioPointer bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    OpenSSLBytes bytes;
    const bool isRead = bio && PEM_bytes_read_bio(&bytes.data, &bytes.length, nullptr,
                                                  PEM_STRING_X509_TRUSTED, bio.get(), NoPhrase, nullptr) == 1;
    if (!isRead) return Nothing();
    const unsigned char* at = bytes.data;
    const auto outline = CertificateOutline::From(&at, bytes.length);
    if (!outline) return std::nullopt;
    StoredCertificate stored{outline->Encoded(), std::nullopt};
    // What is added to a certificate (openssl-x509(1)): trust, a name, and what else there may be. The name
    // is the only text in it.
    if (const long left = bytes.length - (at - bytes.data); left > 0) {
        const unsigned char* const added = at;
        const Owned<X509_CERT_AUX, X509_CERT_AUX_free> checked(d2i_X509_CERT_AUX(nullptr, &at, left));
        const Elements elements = ElementsAt(added, left);
        if (!checked || !elements) return Nothing();
        if (const ASN1_STRING* const name = FirstOf(elements, V_ASN1_UTF8STRING)) stored.alias = TextOf(name);
    }
    return stored;
}

}  // namespace Ombry::Platform::Linux
