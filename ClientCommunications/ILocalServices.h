#pragma once

#include <list>
#include <memory>
#include <string>

#include "ClientCommunications/IServiceFinder.h"

namespace Ombry::ClientCommunications {

/// The id of a service that was enrolled from this machine.
class ILocalServiceLookup {
public:
    virtual std::string Lookup(const std::string& name) = 0;
    virtual ~ILocalServiceLookup() = default;
};

/// Finds a service through the component of this machine that it belongs to.
class ILocalServiceFinderFactory : public Interface {
public:
    virtual std::shared_ptr<IServiceFinder> Create(const std::string& componentName,
                                                   const std::string& serviceName) = 0;
};

/// The certificates with which the authentication service signs.
class IAaSigningCertificateFinder : public Interface {
public:
    /// In the order of the found services, which is random; empty if none has one.
    virtual std::list<std::string> GetCertificates() = 0;
};

}  // namespace Ombry::ClientCommunications
