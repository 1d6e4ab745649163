#pragma once

#include "Cancellation/Token.h"
#include "ClientCommunications/IRootRequestMetaData.h"
#include "ClientCommunications/OAuth2Token.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Gets bearer tokens. May be called from several threads at once. Seam inside: no installed function takes
/// or gives it.
class IOAuth2Client : public Interface {
public:
    virtual OAuth2Token GetToken(const std::string& serviceName,
                                 std::shared_ptr<IRootRequestMetaData> metaData,
                                 Cancellation::Token token) = 0;
};

}  // namespace Ombry::ClientCommunications
