#include "ClientCommunications/Impl/ClientAuthenticator.h"

#include "ClientCommunications/Impl/Base64.h"
#include "ClientCommunications/Impl/SecretBuffer.h"

namespace Ombry::ClientCommunications {

void ClientAuthenticator::AddAuthentication(std::shared_ptr<IServiceRequest> request,
                                            std::shared_ptr<IService>, Cancellation::Token) {
    std::string secret = credentials->GetClientSecret();
    const ScopedWipe wipeSecret(secret);
    std::string plain = credentials->GetClientId();
    plain.reserve(plain.size() + 1 + secret.size());
    const ScopedWipe wipePlain(plain);
    plain += ":";
    plain += secret;
    std::string value = "Basic " + Base64Encode(plain);
    const ScopedWipe wipeValue(value);
    request->SetHeader("Authorization", value);
}

}  // namespace Ombry::ClientCommunications
