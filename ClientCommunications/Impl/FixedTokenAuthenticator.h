#pragma once

#include "ClientCommunications/IAuthenticator.h"
#include "ClientCommunications/Impl/BearerHeader.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "Platform/SecureWipe.h"

namespace Ombry::ClientCommunications {

/// Puts a token that was given by hand on a request. It cannot be renewed.
class FixedTokenAuthenticator : public IAuthenticator {
public:
    explicit FixedTokenAuthenticator(std::string token) {
        const ScopedWipe wipe(token);
        header = std::make_shared<Header>(token);
    }

    void AddAuthentication(std::shared_ptr<IServiceRequest> request, std::shared_ptr<IService>,
                           Cancellation::Token) override {
        SetSharedHeader(*request, KnownHeader::Authorization, {header, &header->value});
    }

private:
    /// Wiped with the last request that has it.
    struct Header {
        explicit Header(const std::string& token) : value(BearerValueOf(token)) {}
        ~Header() { Platform::SecureWipe(value); }

        std::string value;
    };

    std::shared_ptr<Header> header;
};

}  // namespace Ombry::ClientCommunications
