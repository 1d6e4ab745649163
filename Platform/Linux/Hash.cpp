#include "Platform/IHash.h"
#include "Platform/Linux/Sha256.h"
#include "Platform/MadeOnce.h"

#include <algorithm>
#include <cerrno>
#include <tuple>

namespace Ombry::Platform {
namespace {

class Sha256Object : public IHashObject {
public:
    Result Update(std::string_view data) override {
        hash.Update(data);
        return Result::Success();
    }

    ValueOr<std::uint32_t> GetSize() override {
        return static_cast<std::uint32_t>(std::tuple_size_v<Linux::Sha256::Value>);
    }

    Result GetValue(std::span<std::uint8_t> value) override {
        if (value.size() != std::tuple_size_v<Linux::Sha256::Value>) return Result::Failure(EINVAL);
        Linux::Sha256::Value finished;
        hash.Finish(finished);
        std::ranges::copy(finished, value.begin());
        return Result::Success();
    }

private:
    Linux::Sha256 hash;
};

class Sha256Provider : public IHashProvider {
public:
    ValueOr<std::unique_ptr<IHashObject>> CreateSha256() override {
        return std::unique_ptr<IHashObject>(std::make_unique<Sha256Object>());
    }
};

class LinuxHash : public IHash {
public:
    ValueOr<std::unique_ptr<IHashProvider>> AcquireProvider() override {
        return std::unique_ptr<IHashProvider>(std::make_unique<Sha256Provider>());
    }
};

}  // namespace

template <>
IHash& Production<IHash>() {
    return MadeOnce<LinuxHash>();
}

}  // namespace Ombry::Platform
