#include "ClientCommunications/Impl/ClientCredentials.h"

namespace Ombry::ClientCommunications {

ClientCredentials::ClientCredentials(std::shared_ptr<IDataProtection> protection, const std::string& name,
                                     const std::string& clientId, const std::string& clientSecret)
    : protection(std::move(protection)), name(name), clientId(clientId), clientSecret(clientSecret) {
    this->protection->Protect(this->clientId);
    this->protection->Protect(this->clientSecret);
}

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

std::shared_ptr<IClientCredentials> ClientCredentialsFactory::Create(const std::string& name,
                                                                     const std::string& clientId,
                                                                     const std::string& clientSecret) {
    return std::make_shared<ClientCredentials>(protection, name, clientId, clientSecret);
}

}  // namespace Ombry::ClientCommunications
