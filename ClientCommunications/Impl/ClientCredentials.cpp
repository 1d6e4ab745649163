#include "ClientCommunications/Impl/ClientCredentials.h"

#include "ClientCommunications/Impl/ClientCredentialsFactory.h"
#include "Platform/SecureWipe.h"

namespace Ombry::ClientCommunications {
namespace {

std::string Protected(IDataProtection& protection, std::string text) {
    // What could not be protected is plain still.
    try {
        protection.Protect(text);
    } catch (...) {
        Platform::SecureWipe(text);
        throw;
    }
    return text;
}

}  // namespace

ClientCredentials::ClientCredentials(std::shared_ptr<IDataProtection> protection, const std::string& name,
                                     const std::string& clientId, const std::string& clientSecret)
    : protection(std::move(protection)),
      name(name),
      clientId(Protected(*this->protection, clientId)),
      clientSecret(Protected(*this->protection, clientSecret)) {}

std::string ClientCredentials::Bare(const std::string& protectedText) const {
    std::string text = protectedText;
    protection->Unprotect(text);
    return text;
}

std::string ClientCredentials::GetClientId() {
    return Bare(clientId);
}

std::string ClientCredentials::GetClientSecret() {
    return Bare(clientSecret);
}

}  // namespace Ombry::ClientCommunications
