#pragma once

#include "ClientCommunications/IClientCredentials.h"
#include "ClientCommunications/IDataProtection.h"

namespace Ombry::ClientCommunications {

/// Credentials whose id and secret lie in memory in protected form and are laid bare only in what the getters
/// return. Immutable; several threads may ask at once.
class ClientCredentials : public IClientCredentials {
public:
    /// The plain strings that the caller holds are the caller's to scrub.
    ClientCredentials(std::shared_ptr<IDataProtection> protection, const std::string& name,
                      const std::string& clientId, const std::string& clientSecret);

    std::string GetName() override { return name; }
    std::string GetClientId() override;
    std::string GetClientSecret() override;

private:
    std::string Bare(const std::string& protectedText) const;

    const std::shared_ptr<IDataProtection> protection;
    const std::string name;
    const std::string clientId;
    const std::string clientSecret;
};

}  // namespace Ombry::ClientCommunications
