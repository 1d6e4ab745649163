#include "Platform/ICertificates.h"

#include <algorithm>

#include "Platform/IKnownFolders.h"
#include "Platform/Linux/Base64.h"
#include "Platform/Linux/CertificateStore.h"
#include "Platform/Linux/ProgramData.h"
#include "Platform/Linux/X509.h"

namespace Ombry::Platform {
namespace {

class ParsedCertificate : public ICertificate {
public:
    explicit ParsedCertificate(std::span<const std::uint8_t> encoded)
        : encoded(reinterpret_cast<const char*>(encoded.data()), encoded.size()),
          context(Linux::ContextOf(this->encoded)) {}
    const CertificateContext& Context() const override { return context; }

private:
    const std::string encoded;
    const CertificateContext context;
};

/// The DER bytes of a certificate's subject public key info; empty if it cannot be parsed.
std::string PublicKeyInfo(const CertificateContext& context) {
    const Linux::X509Pointer certificate = Linux::ParseDer(Linux::BytesOf(context));
    if (!certificate) return {};
    unsigned char* bytes = nullptr;
    const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate.get()), &bytes);
    std::string info;
    if (length > 0) info.assign(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
    OPENSSL_free(bytes);
    ERR_clear_error();
    return info;
}

/// The folder of a store. Its name must not lead anywhere else.
ValueOr<std::string> StoreFolder(StoreLocation location, std::wstring_view name) {
    if (name.empty() || name == L"." || name == L"..") return Result::Failure(EINVAL);
    const bool leadsAway = std::any_of(name.begin(), name.end(), [](wchar_t unit) {
        return unit == L'/' || unit == L'\\' || unit == L'\0';
    });
    if (leadsAway) return Result::Failure(EINVAL);
    auto folder = location == StoreLocation::CurrentUser ? KnownFolders().CurrentUserQuennet()
                                                         : Linux::ProgramDataFolder();
    if (!folder) return folder;
    auto text = Linux::Utf8(name);
    if (!text) return text;
    return *folder + "/CertificateStores/" + *text;
}

class LinuxCertificates : public ICertificates {
public:
    ValueOr<std::unique_ptr<ICertificateStore>> OpenStore(StoreLocation location, StoreAccess access,
                                                          std::wstring_view name) override {
        const auto folder = StoreFolder(location, name);
        if (!folder) return Result::Failure(folder.Error());
        return Linux::OpenCertificateStore(*folder, access);
    }

    ValueOr<std::unique_ptr<ICertificate>> CreateCertificate(std::span<const std::uint8_t> encoded) override {
        if (!Linux::ParseDer(encoded)) return Result::Failure(EINVAL);
        return std::unique_ptr<ICertificate>(std::make_unique<ParsedCertificate>(encoded));
    }

    bool EqualPublicKeys(const CertificateContext& left, const CertificateContext& right) override {
        const std::string info = PublicKeyInfo(left);
        return !info.empty() && info == PublicKeyInfo(right);
    }

    ValueOr<std::uint32_t> BinaryToBase64(std::span<const std::uint8_t> binary, char* text,
                                          std::uint32_t room) override {
        return Linux::EncodeBase64(binary, text, room);
    }

    ValueOr<std::uint32_t> Base64ToBinary(std::string_view text, std::uint8_t* binary,
                                          std::uint32_t room) override {
        return Linux::DecodeBase64(text, binary, room);
    }
};

}  // namespace

template <>
ICertificates& Production<ICertificates>() {
    static LinuxCertificates certificates;
    return certificates;
}

}  // namespace Ombry::Platform
