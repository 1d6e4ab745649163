#pragma once

#include "ClientCommunications/IDataProtection.h"

#include <cstdint>

namespace Ombry::ClientCommunications {

/// Protects a string while it lies in this process's memory: PKCS#7 padding to 16 bytes (RFC 5652,
/// section 6.3), the platform's memory protection, Base64. The form is of no use to any other process and is
/// never to be stored.
class WindowsInMemoryDataProtection : public IDataProtection {
public:
    /// `scope`: 0 same process, 1 cross process, 2 same logon; any other value counts as 0.
    explicit WindowsInMemoryDataProtection(int scope = 0);

    void Protect(std::string& data) override;
    /// After a failure `data` holds the decoded bytes.
    void Unprotect(std::string& data) override;

private:
    const std::uint32_t flags;
};

}  // namespace Ombry::ClientCommunications
