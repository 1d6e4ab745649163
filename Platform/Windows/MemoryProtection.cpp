#include "Platform/IMemoryProtection.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/Api.h"

#include <dpapi.h>

#include <limits>

namespace Ombry::Platform {
namespace {

class WindowsMemoryProtection : public IMemoryProtection {
public:
    static_assert(BlockSize == CRYPTPROTECTMEMORY_BLOCK_SIZE && InvalidParameter == ERROR_INVALID_PARAMETER);

    Result Protect(std::span<std::uint8_t> memory, std::uint32_t flags) override {
        return Apply(&CryptProtectMemory, memory, flags);
    }
    Result Unprotect(std::span<std::uint8_t> memory, std::uint32_t flags) override {
        return Apply(&CryptUnprotectMemory, memory, flags);
    }

private:
    static Result Apply(decltype(&CryptProtectMemory) operation, std::span<std::uint8_t> memory,
                        std::uint32_t flags) {
        // Not every system of this kind judges the length.
        const bool inBlocks = !memory.empty() && memory.size() % BlockSize == 0;
        if (!inBlocks || memory.size() > std::numeric_limits<DWORD>::max()) {
            return Result::Failure(InvalidParameter);
        }
        if (!operation(memory.data(), static_cast<DWORD>(memory.size()), flags)) return Windows::LastError();
        return Result::Success();
    }
};

}  // namespace

template <>
IMemoryProtection& Production<IMemoryProtection>() {
    return MadeOnce<WindowsMemoryProtection>();
}

}  // namespace Ombry::Platform
