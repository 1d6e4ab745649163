#pragma once

#include "ClientCommunications/Interface.h"

#include <map>
#include <string>

namespace Ombry::ClientCommunications {

/// One instance of a service that can be called, as discovery describes it. Immutable, and so read from any
/// thread.
class IService : public Interface {
public:
    /// The base URL, such as "https://host:8181/path".
    virtual std::string GetEndpointUrl() const = 0;
    /// Base64 text of the DER certificate to pin, or empty: the server is then not checked.
    virtual std::string GetEndpointCertificate() const = 0;
    /// What failures are remembered by; empty for a service that was made from an address.
    virtual std::string GetId() const = 0;
    /// The host that the service was enrolled for; not what is connected to.
    virtual std::string GetHostname() const = 0;
    /// The namespace that the service was enrolled in.
    virtual std::string GetNamespace() const = 0;
    /// The service's name, such as "v1-service": a token is asked for by it.
    virtual std::string GetName() const = 0;
    /// Free pairs; of a key that is there twice, the last value.
    virtual std::map<std::string, std::string> GetProperties() const = 0;
    /// Compares id, URL, host, name and namespace; certificate and properties take no part.
    virtual bool Equals(const IService& other) const = 0;
};

}  // namespace Ombry::ClientCommunications
