#include "ClientCommunications/Impl/ClientCredentialsFactory.h"

#include "ClientCommunications/Impl/ClientCredentials.h"

namespace Ombry::ClientCommunications {

std::shared_ptr<IClientCredentials> ClientCredentialsFactory::Create(const std::string& name,
                                                                     const std::string& clientId,
                                                                     const std::string& clientSecret) {
    return std::make_shared<ClientCredentials>(protection, name, clientId, clientSecret);
}

}  // namespace Ombry::ClientCommunications
