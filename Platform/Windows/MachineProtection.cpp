#include "Platform/IMachineProtection.h"
#include "Platform/MadeOnce.h"
#include "Platform/SecureWipe.h"
#include "Platform/Windows/Api.h"

#include <dpapi.h>
#include <wincrypt.h>

#include <limits>

namespace Ombry::Platform {
namespace {

// What the system made; wiped before it goes back, since it may be the plain text.
class Output {
public:
    Output() = default;
    ~Output() {
        if (blob.pbData == nullptr) return;
        SecureWipe(blob.pbData, blob.cbData);
        LocalFree(blob.pbData);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    DATA_BLOB* Blob() { return &blob; }
    std::optional<std::string> Text() const {
        if (blob.pbData == nullptr) return std::nullopt;
        return std::string(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
    }

private:
    DATA_BLOB blob{};
};

// The system reads its input only, and counts it in 32 bits.
DATA_BLOB InputOf(std::string_view text) {
    auto* const bytes = reinterpret_cast<BYTE*>(const_cast<char*>(text.data()));
    return {static_cast<DWORD>(text.size()), bytes};
}

class WindowsMachineProtection : public IMachineProtection {
public:
    static_assert(UserInterfaceForbidden == CRYPTPROTECT_UI_FORBIDDEN);
    static_assert(LocalMachine == CRYPTPROTECT_LOCAL_MACHINE);

    ValueOr<std::optional<std::string>> Protect(std::string_view plain, std::string_view entropy,
                                                std::uint32_t flags) override {
        return Apply(&CryptProtectData, plain, entropy, flags);
    }
    ValueOr<std::optional<std::string>> Unprotect(std::string_view blob, std::string_view entropy,
                                                  std::uint32_t flags) override {
        return Apply(&CryptUnprotectData, blob, entropy, flags);
    }

private:
    // The two operations differ in the type of a description, which neither is given.
    template <class Operation>
    static ValueOr<std::optional<std::string>> Apply(Operation operation, std::string_view input,
                                                     std::string_view entropy, std::uint32_t flags) {
        constexpr std::size_t largest = std::numeric_limits<DWORD>::max();
        if (input.size() > largest || entropy.size() > largest) {
            return Result::Failure(ERROR_INVALID_PARAMETER);
        }
        DATA_BLOB data = InputOf(input);
        DATA_BLOB salt = InputOf(entropy);
        Output output;
        if (!operation(&data, nullptr, &salt, nullptr, nullptr, flags, output.Blob())) {
            return Windows::LastError();
        }
        return output.Text();
    }
};

}  // namespace

template <>
IMachineProtection& Production<IMachineProtection>() {
    return MadeOnce<WindowsMachineProtection>();
}

}  // namespace Ombry::Platform
