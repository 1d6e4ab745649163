#pragma once

#include "ClientCommunications/Interface.h"

#include <list>
#include <string>

namespace Ombry::ClientCommunications {

/// The certificates with which the authentication service signs. May be called from several threads at once.
class IAaSigningCertificateFinder : public Interface {
public:
    /// In the order of the found services, which is random; empty if none has one. Asks discovery if its
    /// cached answer is no longer fresh, and throws what `IServiceFinder::Find` throws.
    virtual std::list<std::string> GetCertificates() = 0;
};

}  // namespace Ombry::ClientCommunications
