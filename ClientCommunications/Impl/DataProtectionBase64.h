#pragma once

#include "ClientCommunications/IDataProtection.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// Makes what another protection produces fit for text.
class DataProtectionBase64 : public IDataProtection {
public:
    explicit DataProtectionBase64(std::shared_ptr<IDataProtection> inner) : inner(std::move(inner)) {}

    void Protect(std::string& data) override;
    void Unprotect(std::string& data) override;

private:
    const std::shared_ptr<IDataProtection> inner;
};

}  // namespace Ombry::ClientCommunications
