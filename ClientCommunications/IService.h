#pragma once

#include <map>
#include <string>

#include "ClientCommunications/Interface.h"

namespace Ombry::ClientCommunications {

/// One instance of a service that can be called. Immutable.
class IService : public Interface {
public:
    virtual std::string GetEndpointUrl() const = 0;
    /// Base64 text of the DER certificate to pin, or empty.
    virtual std::string GetEndpointCertificate() const = 0;
    virtual std::string GetId() const = 0;
    virtual std::string GetHostname() const = 0;
    virtual std::string GetNamespace() const = 0;
    virtual std::string GetName() const = 0;
    virtual std::map<std::string, std::string> GetProperties() const = 0;
    /// Compares id, URL, host, name and namespace; certificate and properties take no part.
    virtual bool Equals(const IService& other) const = 0;
};

}  // namespace Ombry::ClientCommunications
