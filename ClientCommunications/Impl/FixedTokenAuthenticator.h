#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/Impl/BearerHeader.h"
#include "Platform/SecureWipe.h"

namespace Ombry::ClientCommunications {

/// Puts a token that was given by hand on a request. It cannot be renewed.
class FixedTokenAuthenticator : public IAuthenticator {
public:
    explicit FixedTokenAuthenticator(std::string token) : token(std::move(token)) {}
    ~FixedTokenAuthenticator() override { Platform::SecureWipe(token); }

    void AddAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService>,
                           Cancellation::Token) override {
        SetBearerHeader(*request, token);
    }

private:
    std::string token;
};

}  // namespace Ombry::ClientCommunications
