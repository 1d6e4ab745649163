#include "Platform/Linux/MachineProtection.h"

#include "Platform/IRandom.h"
#include "Platform/Linux/IMachineId.h"
#include "Platform/Linux/MachineKey.h"
#include "Platform/Linux/OpenSSL.h"
#include "Platform/Linux/Sha256.h"
#include "Platform/MadeOnce.h"
#include "Platform/SecureWipe.h"

#include <openssl/aes.h>
#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/modes.h>

#include <algorithm>
#include <array>
#include <limits>

namespace Ombry::Platform {
namespace {

// A protected blob, all of it authenticated:
//     1 byte    version, 1
//    12 bytes   nonce, random
//     n bytes   ciphertext, as long as the plain text
//    16 bytes   tag
// under AES-256-GCM, with the header (version and nonce) as associated data. The key is HKDF-SHA-256 (RFC
// 5869) with the key file as input, the machine id as salt, and Label followed by the SHA-256 of the entropy
// as info.
constexpr char Version = 1;
constexpr std::size_t NonceSize = 12;
constexpr std::size_t HeaderSize = 1 + NonceSize;
constexpr std::size_t TagSize = 16;
constexpr std::string_view Label = "Quennet machine protection 1";
constexpr std::size_t EntropyHashSize = 32;

using CipherContext = Linux::Owned<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using Kdf = Linux::Owned<EVP_KDF, EVP_KDF_free>;
using KdfContext = Linux::Owned<EVP_KDF_CTX, EVP_KDF_CTX_free>;

const std::uint8_t* Bytes(std::string_view text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}
std::uint8_t* Bytes(std::string& text) {
    return reinterpret_cast<std::uint8_t*>(text.data());
}

// The key for one entropy, wiped when it goes.
struct DerivedKey {
    std::array<std::uint8_t, 32> bytes{};

    DerivedKey() = default;
    DerivedKey(const DerivedKey&) = delete;
    DerivedKey& operator=(const DerivedKey&) = delete;
    ~DerivedKey() { SecureWipe(bytes.data(), bytes.size()); }

    bool Derive(std::string_view keyFile, std::string_view machineId, std::string_view entropy) {
        std::array<std::uint8_t, EntropyHashSize> hash;
        if (EVP_Digest(entropy.data(), entropy.size(), hash.data(), nullptr, EVP_sha256(), nullptr) != 1) {
            return false;
        }
        std::string info(Label);
        info.append(reinterpret_cast<const char*>(hash.data()), hash.size());
        const Kdf kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
        const KdfContext context(kdf ? EVP_KDF_CTX_new(kdf.get()) : nullptr);
        if (!context) return false;
        char digest[] = "SHA256";
        const std::array parameters{
            OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
            OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, const_cast<char*>(keyFile.data()),
                                              keyFile.size()),
            OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, const_cast<char*>(machineId.data()),
                                              machineId.size()),
            OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info.data(), info.size()),
            OSSL_PARAM_construct_end()};
        return EVP_KDF_derive(context.get(), bytes.data(), bytes.size(), parameters.data()) == 1;
    }

    // The same without a provider, whose first algorithm takes long to find. One block is a whole key.
    bool DeriveBriefly(std::string_view keyFile, std::string_view machineId, std::string_view entropy) {
        Linux::Sha256::Value hash, extracted;
        Linux::Sha256 ofEntropy;
        ofEntropy.Update(entropy);
        ofEntropy.Finish(hash);
        Linux::HmacSha256(machineId, {keyFile}, extracted);
        Linux::HmacSha256(Linux::TextOf(extracted), {Label, Linux::TextOf(hash), "\x01"}, bytes);
        SecureWipe(extracted.data(), extracted.size());
        return true;
    }
};

bool Encrypt(const DerivedKey& key, std::string_view plain, std::string& blob) {
    const CipherContext context(EVP_CIPHER_CTX_new());
    std::uint8_t* const header = Bytes(blob);
    std::uint8_t* const body = header + HeaderSize;
    int length = 0;
    return context &&
           EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.bytes.data(), header + 1) == 1 &&
           EVP_EncryptUpdate(context.get(), nullptr, &length, header, HeaderSize) == 1 &&
           EVP_EncryptUpdate(context.get(), body, &length, Bytes(plain), static_cast<int>(plain.size())) ==
               1 &&
           EVP_EncryptFinal_ex(context.get(), body + plain.size(), &length) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, TagSize, body + plain.size()) == 1;
}

// False if anything differs from what was protected; `plain` must not be used then.
bool Decrypt(const DerivedKey& key, std::string_view blob, std::string& plain) {
    const CipherContext context(EVP_CIPHER_CTX_new());
    const std::uint8_t* const header = Bytes(blob);
    const std::uint8_t* const body = header + HeaderSize;
    std::array<std::uint8_t, TagSize> tag;
    std::copy_n(body + plain.size(), TagSize, tag.begin());
    int length = 0;
    return context &&
           EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.bytes.data(), header + 1) == 1 &&
           EVP_DecryptUpdate(context.get(), nullptr, &length, header, HeaderSize) == 1 &&
           EVP_DecryptUpdate(context.get(), Bytes(plain), &length, body, static_cast<int>(plain.size())) ==
               1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, TagSize, tag.data()) == 1 &&
           EVP_DecryptFinal_ex(context.get(), Bytes(plain) + plain.size(), &length) == 1;
}

// OpenSSL would rather have its low level called through its providers.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

using GcmContext = Linux::Owned<GCM128_CONTEXT, CRYPTO_gcm128_release>;

// The rounds of a key, wiped when they go.
struct KeySchedule {
    AES_KEY rounds{};

    explicit KeySchedule(const DerivedKey& key) {
        AES_set_encrypt_key(key.bytes.data(), static_cast<int>(8 * key.bytes.size()), &rounds);
    }
    KeySchedule(const KeySchedule&) = delete;
    KeySchedule& operator=(const KeySchedule&) = delete;
    ~KeySchedule() { SecureWipe(&rounds, sizeof rounds); }

    static void Encrypt(const std::uint8_t in[16], std::uint8_t out[16], const void* rounds) {
        AES_encrypt(in, out, static_cast<const AES_KEY*>(rounds));
    }
};

// `Decrypt` without a provider.
bool DecryptBriefly(const DerivedKey& key, std::string_view blob, std::string& plain) {
    KeySchedule schedule(key);
    const GcmContext context(CRYPTO_gcm128_new(&schedule.rounds, KeySchedule::Encrypt));
    if (!context) return false;
    const std::uint8_t* const header = Bytes(blob);
    const std::uint8_t* const body = header + HeaderSize;
    CRYPTO_gcm128_setiv(context.get(), header + 1, NonceSize);
    return CRYPTO_gcm128_aad(context.get(), header, HeaderSize) == 0 &&
           CRYPTO_gcm128_decrypt(context.get(), body, Bytes(plain), plain.size()) == 0 &&
           CRYPTO_gcm128_finish(context.get(), body + plain.size(), TagSize) == 0;
}

#pragma GCC diagnostic pop

Linux::KeyScope ScopeOf(std::uint32_t flags) {
    return flags & IMachineProtection::LocalMachine ? Linux::KeyScope::Machine : Linux::KeyScope::User;
}

// How a key is derived, and how a blob is deciphered with it: one of the two ways above.
struct Way {
    bool (DerivedKey::*derive)(std::string_view keyFile, std::string_view machineId,
                               std::string_view entropy);
    bool (*decrypt)(const DerivedKey& key, std::string_view blob, std::string& plain);
};

constexpr Way ThroughProviders{&DerivedKey::Derive, Decrypt};
constexpr Way Briefly{&DerivedKey::DeriveBriefly, DecryptBriefly};

// Leaves nothing of what was read of the key file, also where there is no memory to derive from it.
bool DeriveAndWipe(const Way& way, DerivedKey& key, std::string& keyFile, const std::string& machineId,
                   std::string_view entropy) {
    const struct Wipe {
        std::string& text;
        ~Wipe() { SecureWipe(text); }
    } wipe{keyFile};
    return (key.*way.derive)(keyFile, machineId, entropy);
}

constexpr std::size_t Largest = std::numeric_limits<int>::max();

ValueOr<std::optional<std::string>> UnprotectBy(const Way& way, std::string_view blob,
                                                std::string_view entropy, std::uint32_t flags) {
    if (blob.size() < HeaderSize + TagSize || blob[0] != Version) return Result::Failure(EBADMSG);
    if (blob.size() - HeaderSize - TagSize > Largest) return Result::Failure(EFBIG);
    InitializeOpenSSL();
    const auto machineId = MachineIdentity().MachineId();
    if (!machineId) return Result::Failure(machineId.Error());
    auto keyFile = Linux::LoadKey(ScopeOf(flags));
    if (!keyFile) return Result::Failure(keyFile.Error());
    DerivedKey key;
    if (!DeriveAndWipe(way, key, *keyFile, *machineId, entropy)) return Linux::OpenSSLFailure();

    std::string plain(blob.size() - HeaderSize - TagSize, '\0');
    if (!way.decrypt(key, blob, plain)) {
        SecureWipe(plain);
        return Linux::OpenSSLFailure(EBADMSG);
    }
    return std::optional<std::string>(std::move(plain));
}

// What is to be done about a key file that others may use. `Remedy` hands out a view of it.
struct KeyRemedy {
    const std::string text =
        std::string(Linux::KeyFolderName).substr(1) + Linux::KeyFileName +
        " must belong to root or to the user who runs this, and be closed to all others (mode "
        "0600). If others may have read it, enrol the clients anew with a new key.";
};

class LinuxMachineProtection : public IMachineProtection {
public:
    ValueOr<std::optional<std::string>> Protect(std::string_view plain, std::string_view entropy,
                                                std::uint32_t flags) override {
        if (plain.size() > Largest) return Result::Failure(EFBIG);
        InitializeOpenSSL();
        const auto machineId = MachineIdentity().MachineId();
        if (!machineId) return Result::Failure(machineId.Error());
        auto keyFile = Linux::LoadOrMakeKey(ScopeOf(flags));
        if (!keyFile) return Result::Failure(keyFile.Error());
        DerivedKey key;
        if (!DeriveAndWipe(ThroughProviders, key, *keyFile, *machineId, entropy))
            return Linux::OpenSSLFailure();

        std::string blob(HeaderSize + plain.size() + TagSize, '\0');
        blob[0] = Version;
        if (const Result result = Random().Bytes({Bytes(blob) + 1, NonceSize}); !result) return result;
        if (!Encrypt(key, plain, blob)) return Linux::OpenSSLFailure();
        return std::optional<std::string>(std::move(blob));
    }

    ValueOr<std::optional<std::string>> Unprotect(std::string_view blob, std::string_view entropy,
                                                  std::uint32_t flags) override {
        return UnprotectBy(ThroughProviders, blob, entropy, flags);
    }

    std::string_view Remedy(int error) const override {
        if (error != Linux::KeyIsNotPrivate) return {};
        return MadeOnce<const KeyRemedy>().text;
    }
};

class BriefDeciphering : public LinuxMachineProtection {
public:
    ValueOr<std::optional<std::string>> Protect(std::string_view, std::string_view, std::uint32_t) override {
        return std::optional<std::string>(std::string());
    }
    ValueOr<std::optional<std::string>> Unprotect(std::string_view blob, std::string_view entropy,
                                                  std::uint32_t flags) override {
        return UnprotectBy(Briefly, blob, entropy, flags);
    }
};

}  // namespace

IMachineProtection& Linux::DecipheringOnly() {
    return MadeOnce<BriefDeciphering>();
}

template <>
IMachineProtection& Production<IMachineProtection>() {
    return MadeOnce<LinuxMachineProtection>();
}

}  // namespace Ombry::Platform
