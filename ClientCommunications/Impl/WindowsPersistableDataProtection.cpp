#include "ClientCommunications/Impl/WindowsPersistableDataProtection.h"

#include "Platform/ErrorNumber.h"
#include "Platform/IMachineProtection.h"
#include "Platform/SecureWipe.h"

#include <optional>
#include <stdexcept>
#include <string_view>

namespace Ombry::ClientCommunications {
namespace {

using Platform::IMachineProtection;

// Stores the outcome of the platform's `operation` in `data`, which stays as it was if there is none.
void Take(Platform::ValueOr<std::optional<std::string>> outcome, const char* operation, std::string& data) {
    if (!outcome) {
        const std::string_view remedy = Platform::MachineProtection().Remedy(outcome.Error());
        throw std::runtime_error(std::string(operation) + " failed with error " +
                                 Platform::ErrorNumber(outcome.Error()) +
                                 (remedy.empty() ? "" : ". " + std::string(remedy)));
    }
    if (!outcome->has_value()) {
        throw std::runtime_error(std::string(operation) + " succeeded but returned no data");
    }
    // Callers scrub a secret by protecting it: the buffer that held it must not be freed as it is.
    Platform::SecureWipe(data);
    data = std::move(**outcome);
}

}  // namespace

WindowsPersistableDataProtection::WindowsPersistableDataProtection(std::string_view entropy, bool userScope)
    : entropy(entropy),
      flags(userScope ? IMachineProtection::UserInterfaceForbidden
                      : IMachineProtection::UserInterfaceForbidden | IMachineProtection::LocalMachine) {}

void WindowsPersistableDataProtection::Protect(std::string& data) {
    if (data.empty()) return;
    Take(Platform::MachineProtection().Protect(data, entropy, flags), "CryptProtectData", data);
}

void WindowsPersistableDataProtection::Unprotect(std::string& data) {
    if (data.empty()) return;
    Take(Platform::MachineProtection().Unprotect(data, entropy, flags), "CryptUnprotectData", data);
}

}  // namespace Ombry::ClientCommunications
