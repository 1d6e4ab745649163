#include "Platform/ICertificates.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/Base64.h"
#include "Platform/Windows/CertificateStore.h"
#include "Platform/Windows/SystemCertificate.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Ombry::Platform {
namespace {

using Windows::SystemCertificate;

class ParsedCertificate : public ICertificate {
public:
    explicit ParsedCertificate(SystemCertificate certificate) : certificate(std::move(certificate)) {}
    const CertificateContext& Context() const override { return *Windows::Shown(certificate.get()); }

private:
    const SystemCertificate certificate;
};

// The system may compare no more than the bits of two keys. Those of an elliptic curve mean nothing without
// the curve: over one of his own choice anybody has the private half to any public one.
bool EqualAlgorithms(const CRYPT_ALGORITHM_IDENTIFIER& left, const CRYPT_ALGORITHM_IDENTIFIER& right) {
    return std::strcmp(left.pszObjId, right.pszObjId) == 0 &&
           left.Parameters.cbData == right.Parameters.cbData &&
           std::equal(left.Parameters.pbData, left.Parameters.pbData + left.Parameters.cbData,
                      right.Parameters.pbData);
}

class WindowsCertificates : public ICertificates {
public:
    ValueOr<std::unique_ptr<ICertificateStore>> OpenStore(StoreLocation location, StoreAccess access,
                                                          std::wstring_view name) override {
        // A backslash would lead to the stores of another machine or service.
        const bool leadsAway = name.find_first_of(std::wstring_view(L"\\\0", 2)) != std::wstring_view::npos;
        if (name.empty() || leadsAway) return Result::Failure(ERROR_INVALID_PARAMETER);
        return Windows::OpenCertificateStore(location, access, std::wstring(name));
    }

    ValueOr<std::unique_ptr<ICertificate>> CreateCertificate(std::span<const std::uint8_t> encoded) override {
        SystemCertificate certificate = Windows::ParseCertificate(encoded);
        if (!certificate) return Windows::LastError();
        return std::unique_ptr<ICertificate>(std::make_unique<ParsedCertificate>(std::move(certificate)));
    }

    bool EqualPublicKeys(const CertificateContext& left, const CertificateContext& right) override {
        const SystemCertificate one = Windows::ParseCertificate({left.encoded, left.encodedLength});
        const SystemCertificate other = Windows::ParseCertificate({right.encoded, right.encodedLength});
        if (!one || !other) return false;
        CERT_PUBLIC_KEY_INFO& key = one->pCertInfo->SubjectPublicKeyInfo;
        CERT_PUBLIC_KEY_INFO& otherKey = other->pCertInfo->SubjectPublicKeyInfo;
        return EqualAlgorithms(key.Algorithm, otherKey.Algorithm) &&
               CertComparePublicKeyInfo(CertificateEncoding, &key, &otherKey);
    }

    ValueOr<std::uint32_t> BinaryToBase64(std::span<const std::uint8_t> binary, char* text,
                                          std::uint32_t room) override {
        if (text == nullptr) return Windows::EncodedLength(binary);
        return HandOver(Windows::EncodeBase64(binary), text, room);
    }

    ValueOr<std::uint32_t> Base64ToBinary(std::string_view text, std::uint8_t* binary,
                                          std::uint32_t room) override {
        return HandOver(Windows::DecodeBase64(text), binary, room);
    }

private:
    // Gives a caller what was made; one without a place for it only measures.
    static ValueOr<std::uint32_t> HandOver(const ValueOr<std::string>& made, void* place,
                                           std::uint32_t room) {
        if (!made) return Result::Failure(made.Error());
        const auto size = static_cast<std::uint32_t>(made->size());
        if (place == nullptr) return size;
        if (room < size) return Result::Failure(ERROR_MORE_DATA);
        std::memcpy(place, made->data(), size);
        return size;
    }
};

}  // namespace

template <>
ICertificates& Production<ICertificates>() {
    return MadeOnce<WindowsCertificates>();
}

}  // namespace Ombry::Platform
