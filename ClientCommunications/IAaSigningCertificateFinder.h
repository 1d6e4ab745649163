#pragma once

#include "ClientCommunications/Interface.h"

#include <list>
#include <string>

namespace Ombry::ClientCommunications {

/// The certificates with which the authorization service signs. May be called from several threads at once.
class IAaSigningCertificateFinder : public Interface {
public:
    /// Those of local services, then those of remote ones, each in a random order; empty if none has one.
    /// Each is the text that discovery has for it, unchecked: Base64 of a DER certificate, if the service
    /// keeps to the form of its other ones. Asks discovery if its cached answer is no longer fresh, and
    /// throws what `IServiceFinder::Find` throws.
    virtual std::list<std::string> GetCertificates() = 0;
};

}  // namespace Ombry::ClientCommunications
