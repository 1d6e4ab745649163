#include "ClientCommunications/Impl/ClientAuthenticator.h"

#include "ClientCommunications/Impl/Base64.h"
#include "ClientCommunications/Impl/KnownHeaders.h"
#include "ClientCommunications/Impl/SecretBuffer.h"

#include <string_view>

namespace Ombry::ClientCommunications {
namespace {

constexpr std::string_view Scheme = "Basic ";

}  // namespace

void ClientAuthenticator::AddAuthentication(std::shared_ptr<IServiceRequest> request,
                                            std::shared_ptr<IService>, Cancellation::Token) {
    std::string secret = credentials->GetClientSecret();
    const ScopedWipe wipeSecret(secret);
    std::string id = credentials->GetClientId();
    const ScopedWipe wipeId(id);
    std::string plain;
    const ScopedWipe wipePlain(plain);
    plain.reserve(id.size() + 1 + secret.size());  // growing would free what it held
    plain.append(id).append(":").append(secret);
    std::string encoded = Base64Encode(plain);
    const ScopedWipe wipeEncoded(encoded);
    std::string value;
    const ScopedWipe wipeValue(value);
    value.append(Scheme).append(encoded);
    request->SetHeader(NameOf(KnownHeader::Authorization), value);
}

}  // namespace Ombry::ClientCommunications
