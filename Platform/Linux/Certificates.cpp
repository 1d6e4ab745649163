#include "Platform/ICertificates.h"
#include "Platform/Linux/Base64.h"
#include "Platform/Linux/CertificateStore.h"
#include "Platform/Linux/X509.h"
#include "Platform/MadeOnce.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <string_view>

namespace Ombry::Platform {
namespace {

class ParsedCertificate : public ICertificate {
public:
    explicit ParsedCertificate(std::span<const std::uint8_t> encoded)
        : encoded(reinterpret_cast<const char*>(encoded.data()), encoded.size()),
          context(Linux::ContextOf(this->encoded)) {}
    const CertificateContext& Context() const override { return context; }
    const std::string& Encoded() const { return encoded; }

private:
    const std::string encoded;
    const CertificateContext context;
};

struct SequenceDeleter {
    void operator()(ASN1_SEQUENCE_ANY* sequence) const { sk_ASN1_TYPE_pop_free(sequence, ASN1_TYPE_free); }
};
using Sequence = std::unique_ptr<ASN1_SEQUENCE_ANY, SequenceDeleter>;

// The elements of a DER sequence, undecoded; null if these bytes are anything else.
Sequence ElementsOf(std::string_view encoded) {
    const auto* at = reinterpret_cast<const unsigned char*>(encoded.data());
    const auto* const end = at + encoded.size();
    Sequence elements(d2i_ASN1_SEQUENCE_ANY(nullptr, &at, static_cast<long>(encoded.size())));
    if (elements && at != end) elements.reset();
    return elements;
}

// The bytes of one element that is a sequence itself; empty for any other.
std::string_view InnerSequence(const Sequence& elements, int index) {
    const ASN1_TYPE* element = elements ? sk_ASN1_TYPE_value(elements.get(), index) : nullptr;
    if (element == nullptr || element->type != V_ASN1_SEQUENCE) return {};
    const ASN1_STRING* bytes = element->value.sequence;
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(bytes)),
            static_cast<std::size_t>(ASN1_STRING_length(bytes))};
}

// The DER bytes of a certificate's subject public key info (RFC 5280, section 4.1); empty if it cannot be
// parsed. The library's own parser builds the key as well, which costs more than the rest of a handshake's
// work outside the cryptography.
std::string PublicKeyInfo(const CertificateContext& context) {
    const std::span<const std::uint8_t> encoded = Linux::BytesOf(context);
    if (encoded.empty() || encoded.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return {};
    InitializeOpenSSL();
    const Sequence certificate = ElementsOf({reinterpret_cast<const char*>(encoded.data()), encoded.size()});
    const Sequence body = ElementsOf(InnerSequence(certificate, 0));
    // Serial number, signature, issuer, validity and subject come before the key, and in front of them a
    // version that may be left out, the only one of these with a tag of its own.
    const ASN1_TYPE* first = body ? sk_ASN1_TYPE_value(body.get(), 0) : nullptr;
    const int index = first != nullptr && first->type == V_ASN1_OTHER ? 6 : 5;
    std::string info(InnerSequence(body, index));
    ERR_clear_error();
    return info;
}

class LinuxCertificates : public ICertificates {
public:
    ValueOr<std::unique_ptr<ICertificateStore>> OpenStore(StoreLocation location, StoreAccess access,
                                                          std::wstring_view name) override {
        const auto folder = Linux::CertificateStoreFolder(location, name);
        if (!folder) return Result::Failure(folder.Error());
        return Linux::OpenCertificateStore(*folder, access);
    }

    ValueOr<std::unique_ptr<ICertificate>> CreateCertificate(std::span<const std::uint8_t> encoded) override {
        auto certificate = std::make_unique<ParsedCertificate>(encoded);
        if (!IsLastParsed(*certificate)) {
            if (!Linux::ParseDer(encoded)) return Result::Failure(EINVAL);
            RememberParsed(*certificate);
        }
        return std::unique_ptr<ICertificate>(std::move(certificate));
    }

    bool EqualPublicKeys(const CertificateContext& left, const CertificateContext& right) override {
        const std::string info = PublicKeyInfo(left);
        if (info.empty()) return false;
        // Mostly the certificate that a server shows is the one that it is known by.
        return std::ranges::equal(Linux::BytesOf(left), Linux::BytesOf(right)) ||
               info == PublicKeyInfo(right);
    }

    ValueOr<std::uint32_t> BinaryToBase64(std::span<const std::uint8_t> binary, char* text,
                                          std::uint32_t room) override {
        return Linux::EncodeBase64(binary, text, room);
    }

    ValueOr<std::uint32_t> Base64ToBinary(std::string_view text, std::uint8_t* binary,
                                          std::uint32_t room) override {
        return Linux::DecodeBase64(text, binary, room);
    }

private:
    bool IsLastParsed(const ParsedCertificate& certificate) {
        const std::lock_guard guard(mutex);
        return !lastParsed.empty() && certificate.Encoded() == lastParsed;
    }

    void RememberParsed(const ParsedCertificate& certificate) {
        const std::lock_guard guard(mutex);
        lastParsed = certificate.Encoded();
    }

    std::mutex mutex;
    // Guarded by mutex: the bytes that were parsed last with success. The certificate that a service is known
    // by comes again with each connection to it.
    std::string lastParsed;
};

}  // namespace

template <>
ICertificates& Production<ICertificates>() {
    return MadeOnce<LinuxCertificates>();
}

}  // namespace Ombry::Platform
