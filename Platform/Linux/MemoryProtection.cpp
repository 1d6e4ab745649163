#include "Platform/IMemoryProtection.h"
#include "Platform/IRandom.h"
#include "Platform/Linux/OpenSSL.h"
#include "Platform/MadeOnce.h"
#include "Platform/SecureWipe.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>

namespace Ombry::Platform {
namespace {

// The key of the process, on a page of its own that is neither swapped out nor dumped.
class ProcessKey {
public:
    static constexpr std::size_t Size = 64;  // AES-256-XTS takes two keys of 256 bits

    // The one key, made by whoever asks first; null with the error number if it cannot be made.
    static ValueOr<const std::uint8_t*> Get() {
        static std::atomic<std::uint8_t*> key{nullptr};
        if (const std::uint8_t* made = key.load(std::memory_order_acquire)) return made;

        void* page = mmap(nullptr, Size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) return Result::Failure(errno);
        // Without the right to lock memory the key may be swapped out, which is still better than no
        // protection at all.
        static_cast<void>(mlock(page, Size));
        static_cast<void>(madvise(page, Size, MADV_DONTDUMP));
        auto* candidate = static_cast<std::uint8_t*>(page);
        const Result filled = Random().Bytes({candidate, Size});
        std::uint8_t* first = nullptr;
        if (filled && key.compare_exchange_strong(first, candidate, std::memory_order_acq_rel)) {
            return candidate;
        }
        SecureWipe(candidate, Size);
        munmap(page, Size);
        if (!filled) return filled;
        return first;  // another thread was faster
    }
};

using Context = Linux::Owned<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

class LinuxMemoryProtection : public IMemoryProtection {
public:
    // The flags choose among wider circles that may undo the protection. The process is the narrowest, and
    // the only one that anybody here asks for.
    Result Protect(std::span<std::uint8_t> memory, std::uint32_t) override { return Apply(memory, true); }
    Result Unprotect(std::span<std::uint8_t> memory, std::uint32_t) override { return Apply(memory, false); }

private:
    // XTS limits a data unit to 16 MiB; this is far below it.
    static constexpr std::size_t UnitSize = 1 << 20;

    static Result Apply(std::span<std::uint8_t> memory, bool encrypt) {
        if (memory.empty() || memory.size() % BlockSize != 0) return Result::Failure(InvalidParameter);
        const auto key = ProcessKey::Get();
        if (!key) return Result::Failure(key.Error());
        const EVP_CIPHER* cipher = Cipher();
        const Context context(EVP_CIPHER_CTX_new());
        if (!cipher || !context ||
            EVP_CipherInit_ex2(context.get(), cipher, *key, nullptr, encrypt ? 1 : 0, nullptr) != 1) {
            return Linux::OpenSSLFailure(ENOMEM);
        }
        for (std::size_t at = 0; at < memory.size(); at += UnitSize) {
            const std::span unit = memory.subspan(at, std::min(UnitSize, memory.size() - at));
            if (!ApplyToUnit(context.get(), unit, at / UnitSize)) return Linux::OpenSSLFailure();
        }
        return Result::Success();
    }

    static bool ApplyToUnit(EVP_CIPHER_CTX* context, std::span<std::uint8_t> unit, std::uint64_t number) {
        std::array<std::uint8_t, 16> tweak{};
        for (std::size_t i = 0; i < 8; ++i)
            tweak[i] = static_cast<std::uint8_t>(number >> (8 * i));
        int written = 0;
        const int length = static_cast<int>(unit.size());
        return EVP_CipherInit_ex2(context, nullptr, nullptr, tweak.data(), -1, nullptr) == 1 &&
               EVP_CipherUpdate(context, unit.data(), &written, unit.data(), length) == 1 &&
               written == length;
    }

    // The one algorithm, looked up by whoever asks first; null if it cannot be, and the next call tries
    // again. Never freed, so that memory can be protected until the process ends.
    static const EVP_CIPHER* Cipher() {
        static std::atomic<EVP_CIPHER*> found{nullptr};
        if (const EVP_CIPHER* cipher = found.load(std::memory_order_acquire)) return cipher;
        InitializeOpenSSL();
        EVP_CIPHER* const cipher = EVP_CIPHER_fetch(nullptr, "AES-256-XTS", nullptr);
        EVP_CIPHER* first = nullptr;
        if (!cipher || found.compare_exchange_strong(first, cipher, std::memory_order_acq_rel)) return cipher;
        EVP_CIPHER_free(cipher);
        return first;  // another thread was faster
    }
};

}  // namespace

template <>
IMemoryProtection& Production<IMemoryProtection>() {
    return MadeOnce<LinuxMemoryProtection>();
}

}  // namespace Ombry::Platform
