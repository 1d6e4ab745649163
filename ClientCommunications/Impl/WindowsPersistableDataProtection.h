#pragma once

#include "ClientCommunications/IDataProtection.h"

#include <cstdint>
#include <string_view>

namespace Ombry::ClientCommunications {

/// Protects a string for the disk of this machine: what it makes can be read back here only, by whoever knows
/// the entropy. The form is the platform's own binary blob.
class WindowsPersistableDataProtection : public IDataProtection {
public:
    /// `entropy`: any bytes. `userScope`: for the current user alone instead of the whole machine.
    WindowsPersistableDataProtection(std::string_view entropy, bool userScope);

    void Protect(std::string& data) override;
    void Unprotect(std::string& data) override;

private:
    const std::string entropy;
    const std::uint32_t flags;
};

}  // namespace Ombry::ClientCommunications
