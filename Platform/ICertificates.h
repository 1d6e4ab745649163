#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Ombry::Platform {

/// A certificate as the TLS engines and the stores hand it out: its DER bytes, owned by whoever made it.
struct CertificateContext {
    std::uint32_t encodingType = 0;
    const std::uint8_t* encoded = nullptr;
    std::uint32_t encodedLength = 0;
};
using CertificateContextPointer = const CertificateContext*;

/// X509_ASN_ENCODING with PKCS_7_ASN_ENCODING.
inline constexpr std::uint32_t CertificateEncoding = 0x10001;

enum class StoreLocation { CurrentUser, LocalMachine };
enum class StoreAccess {
    ReadWrite,         ///< created on first use; locked against other writers until closed if it is ours
    ReadOnlyExisting,  ///< a store that does not exist fails with number 2
    ReadOnlyUnlocked   ///< the same, in nobody's way: takes no lock, and may see a change half done
};

/// An open certificate store. A context that an operation returns is owned by the store and valid until the
/// store is closed (destroyed) or, for the one it is about, until `Delete`. A store of the system has no
/// lock: what other writers do meanwhile may or may not show, and the last of two writers wins.
class ICertificateStore {
public:
    virtual ~ICertificateStore() = default;

    /// The certificate after `previous`, the first for null; null at the end. `previous` stays valid. An
    /// entry that is no certificate is passed over. `Delete` ends a walk: it starts again from null.
    virtual CertificateContextPointer FindNext(CertificateContextPointer previous) = 0;

    /// Copies the friendly name, UTF-16LE with its terminator, into `buffer`; the value is the number of
    /// bytes. Fails if there is none or if it does not fit.
    virtual ValueOr<std::uint32_t> GetFriendlyName(CertificateContextPointer certificate,
                                                   std::span<std::uint8_t> buffer) = 0;

    virtual Result Delete(CertificateContextPointer certificate) = 0;

    /// Adds a copy, replacing an equal certificate, and returns the stored one.
    virtual ValueOr<CertificateContextPointer> AddReplaceExisting(const CertificateContext& certificate) = 0;

    /// Sets the friendly name: UTF-16LE with its terminator.
    virtual Result SetFriendlyName(CertificateContextPointer certificate,
                                   std::span<const std::uint8_t> name) = 0;
};

/// A certificate that was parsed from DER bytes.
class ICertificate {
public:
    virtual ~ICertificate() = default;
    virtual const CertificateContext& Context() const = 0;
};

/// Certificates and the stores that hold them. All operations may be called from any thread; an open store
/// and a certificate belong to one thread at a time.
class ICertificates {
public:
    virtual ~ICertificates() = default;

    /// Opens the system store of that name (UTF-16 units, see `ITextConversion`).
    virtual ValueOr<std::unique_ptr<ICertificateStore>> OpenStore(StoreLocation location, StoreAccess access,
                                                                  std::wstring_view name) = 0;

    /// Parses DER bytes; trailing bytes are a failure.
    virtual ValueOr<std::unique_ptr<ICertificate>> CreateCertificate(
        std::span<const std::uint8_t> encoded) = 0;

    /// Whether both have the same public key: by the system's comparison of subject public key infos, or,
    /// where it has none, byte for byte. False if either cannot be parsed.
    virtual bool EqualPublicKeys(const CertificateContext& left, const CertificateContext& right) = 0;

    /// Base64 text without line breaks (RFC 4648, section 4) into `text`, if `room` bytes are enough; a null
    /// `text` measures. The value is the number of characters, without a terminator.
    virtual ValueOr<std::uint32_t> BinaryToBase64(std::span<const std::uint8_t> binary, char* text,
                                                  std::uint32_t room) = 0;

    /// Decodes Base64 text, white space and line breaks allowed, nothing else; a null `binary` measures. The
    /// value is the exact number of bytes. Empty text is a failure.
    virtual ValueOr<std::uint32_t> Base64ToBinary(std::string_view text, std::uint8_t* binary,
                                                  std::uint32_t room) = 0;
};

template <>
ICertificates& Production<ICertificates>();

inline ICertificates& Certificates() {
    return Current<ICertificates>();
}

}  // namespace Ombry::Platform
