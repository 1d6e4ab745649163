#include "Platform/IHash.h"
#include "Platform/Linux/OpenSSL.h"
#include "Platform/MadeOnce.h"

namespace Ombry::Platform {
namespace {

using DigestContext = Linux::Owned<EVP_MD_CTX, EVP_MD_CTX_free>;
using Algorithm = Linux::Owned<EVP_MD, EVP_MD_free>;

class Sha256 : public IHashObject {
public:
    explicit Sha256(DigestContext context) : context(std::move(context)) {}

    Result Update(std::string_view data) override {
        if (EVP_DigestUpdate(context.get(), data.data(), data.size()) != 1) return Linux::OpenSSLFailure();
        return Result::Success();
    }

    ValueOr<std::uint32_t> GetSize() override {
        return static_cast<std::uint32_t>(EVP_MD_CTX_get_size(context.get()));
    }

    Result GetValue(std::span<std::uint8_t> value) override {
        if (value.size() != static_cast<std::size_t>(EVP_MD_CTX_get_size(context.get()))) {
            return Result::Failure(EINVAL);
        }
        if (EVP_DigestFinal_ex(context.get(), value.data(), nullptr) != 1) return Linux::OpenSSLFailure();
        return Result::Success();
    }

private:
    DigestContext context;
};

class OpenSSLHashProvider : public IHashProvider {
public:
    explicit OpenSSLHashProvider(Algorithm sha256) : sha256(std::move(sha256)) {}

    ValueOr<std::unique_ptr<IHashObject>> CreateSha256() override {
        DigestContext context(EVP_MD_CTX_new());
        if (!context || EVP_DigestInit_ex(context.get(), sha256.get(), nullptr) != 1) {
            return Linux::OpenSSLFailure(ENOMEM);
        }
        return std::unique_ptr<IHashObject>(std::make_unique<Sha256>(std::move(context)));
    }

private:
    Algorithm sha256;
};

class LinuxHash : public IHash {
public:
    ValueOr<std::unique_ptr<IHashProvider>> AcquireProvider() override {
        InitializeOpenSSL();
        Algorithm sha256(EVP_MD_fetch(nullptr, "SHA256", nullptr));
        if (!sha256) return Linux::OpenSSLFailure(ENOSYS);
        return std::unique_ptr<IHashProvider>(std::make_unique<OpenSSLHashProvider>(std::move(sha256)));
    }
};

}  // namespace

template <>
IHash& Production<IHash>() {
    return MadeOnce<LinuxHash>();
}

}  // namespace Ombry::Platform
