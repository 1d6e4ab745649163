#pragma once

#include <list>
#include <string>

#include "ClientCommunications/Interface.h"

namespace Ombry::ClientCommunications {

/// The certificates with which the authentication service signs.
class IAaSigningCertificateFinder : public Interface {
public:
    /// In the order of the found services, which is random; empty if none has one.
    virtual std::list<std::string> GetCertificates() = 0;
};

}  // namespace Ombry::ClientCommunications
