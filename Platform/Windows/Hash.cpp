#include "Platform/IHash.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/Api.h"

#include <wincrypt.h>

namespace Ombry::Platform {
namespace {

class Sha256 : public IHashObject {
public:
    explicit Sha256(HCRYPTHASH hash) : hash(hash) {}
    ~Sha256() override { CryptDestroyHash(hash); }
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    Result Update(std::string_view data) override {
        while (!data.empty()) {
            const std::string_view piece = data.substr(0, LargestPiece);
            const auto* const bytes = reinterpret_cast<const BYTE*>(piece.data());
            if (!CryptHashData(hash, bytes, static_cast<DWORD>(piece.size()), 0)) return Windows::LastError();
            data.remove_prefix(piece.size());
        }
        return Result::Success();
    }

    ValueOr<std::uint32_t> GetSize() override {
        DWORD size = 0;
        DWORD room = sizeof size;
        if (!CryptGetHashParam(hash, HP_HASHSIZE, reinterpret_cast<BYTE*>(&size), &room, 0)) {
            return Windows::LastError();
        }
        return std::uint32_t{size};
    }

    Result GetValue(std::span<std::uint8_t> value) override {
        const auto size = GetSize();
        if (!size) return Result::Failure(size.Error());
        if (value.size() != *size) return Result::Failure(ERROR_INVALID_PARAMETER);
        DWORD room = *size;
        if (!CryptGetHashParam(hash, HP_HASHVAL, value.data(), &room, 0)) return Windows::LastError();
        return Result::Success();
    }

private:
    // The system counts a piece in 32 bits.
    static constexpr std::size_t LargestPiece = std::size_t{1} << 30;

    const HCRYPTHASH hash;
};

class CryptoApiProvider : public IHashProvider {
public:
    explicit CryptoApiProvider(HCRYPTPROV provider) : provider(provider) {}
    ~CryptoApiProvider() override { CryptReleaseContext(provider, 0); }
    CryptoApiProvider(const CryptoApiProvider&) = delete;
    CryptoApiProvider& operator=(const CryptoApiProvider&) = delete;

    ValueOr<std::unique_ptr<IHashObject>> CreateSha256() override {
        HCRYPTHASH hash = 0;
        if (!CryptCreateHash(provider, CALG_SHA_256, 0, 0, &hash)) return Windows::LastError();
        return std::unique_ptr<IHashObject>(std::make_unique<Sha256>(hash));
    }

private:
    const HCRYPTPROV provider;
};

class WindowsHash : public IHash {
public:
    ValueOr<std::unique_ptr<IHashProvider>> AcquireProvider() override {
        HCRYPTPROV provider = 0;
        if (!CryptAcquireContextW(&provider, nullptr, MS_ENH_RSA_AES_PROV_W, PROV_RSA_AES,
                                  CRYPT_VERIFYCONTEXT)) {
            return Windows::LastError();
        }
        return std::unique_ptr<IHashProvider>(std::make_unique<CryptoApiProvider>(provider));
    }
};

}  // namespace

template <>
IHash& Production<IHash>() {
    return MadeOnce<WindowsHash>();
}

}  // namespace Ombry::Platform
