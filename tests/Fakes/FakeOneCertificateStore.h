#pragma once

#include "Platform/Base64Text.h"

#include <algorithm>
#include <string>
#include <utility>

namespace Ombry::Tests {

/// Certificates whose every store exists, is read only and holds one entry: bytes of the test's choice under
/// a friendly name. Any thread may open it.
class FakeOneCertificateStore : public Platform::ICertificates {
public:
    FakeOneCertificateStore(const std::string& name, std::string bytes) : bytes(std::move(bytes)) {
        for (const char character : name + '\0') {
            friendlyName += character;
            friendlyName += '\0';
        }
    }

    /// Makes the store empty, or puts the entry back.
    void Clear() { empty = true; }
    void Restore() { empty = false; }

    std::string Base64() const { return *Platform::Base64Text({Encoded(), bytes.size()}); }

    Platform::ValueOr<std::unique_ptr<Platform::ICertificateStore>> OpenStore(Platform::StoreLocation,
                                                                              Platform::StoreAccess,
                                                                              std::wstring_view) override {
        return std::unique_ptr<Platform::ICertificateStore>(std::make_unique<Store>(*this));
    }
    Platform::ValueOr<std::unique_ptr<Platform::ICertificate>> CreateCertificate(
        std::span<const std::uint8_t> encoded) override {
        return Platform::Production<Platform::ICertificates>().CreateCertificate(encoded);
    }
    bool EqualPublicKeys(const Platform::CertificateContext& left,
                         const Platform::CertificateContext& right) override {
        return Platform::Production<Platform::ICertificates>().EqualPublicKeys(left, right);
    }
    Platform::ValueOr<std::uint32_t> BinaryToBase64(std::span<const std::uint8_t> binary, char* text,
                                                    std::uint32_t room) override {
        return Platform::Production<Platform::ICertificates>().BinaryToBase64(binary, text, room);
    }
    Platform::ValueOr<std::uint32_t> Base64ToBinary(std::string_view text, std::uint8_t* binary,
                                                    std::uint32_t room) override {
        return Platform::Production<Platform::ICertificates>().Base64ToBinary(text, binary, room);
    }

private:
    using Context = Platform::CertificateContextPointer;

    class Store : public Platform::ICertificateStore {
    public:
        explicit Store(const FakeOneCertificateStore& owner)
            : owner(owner),
              context{Platform::CertificateEncoding, owner.Encoded(),
                      static_cast<std::uint32_t>(owner.bytes.size())} {}

        Context FindNext(Context previous) override {
            return previous != nullptr || owner.empty ? nullptr : &context;
        }
        Platform::ValueOr<std::uint32_t> GetFriendlyName(Context, std::span<std::uint8_t> buffer) override {
            if (buffer.size() < owner.friendlyName.size()) return Unsupported();
            std::copy(owner.friendlyName.begin(), owner.friendlyName.end(), buffer.begin());
            return static_cast<std::uint32_t>(owner.friendlyName.size());
        }
        Platform::Result Delete(Context) override { return Unsupported(); }
        Platform::ValueOr<Context> AddReplaceExisting(const Platform::CertificateContext&) override {
            return Unsupported();
        }
        Platform::Result SetFriendlyName(Context, std::span<const std::uint8_t>) override {
            return Unsupported();
        }

    private:
        const FakeOneCertificateStore& owner;
        const Platform::CertificateContext context;
    };

    static Platform::Result Unsupported() { return Platform::Result::Failure(50); }

    const std::uint8_t* Encoded() const { return reinterpret_cast<const std::uint8_t*>(bytes.data()); }

    const std::string bytes;
    std::string friendlyName;
    bool empty = false;
};

}  // namespace Ombry::Tests
