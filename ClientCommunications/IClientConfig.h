#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ClientCommunications/CommunicationsParameters.h"
#include "ClientCommunications/Interface.h"
#include "ObjectMapping/MapperIf.h"

namespace Ombry::ClientCommunications {

/// One element of the service's datacenter list.
class Datacenter : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    std::string id;
    bool hasId = false;
    std::string name;
    bool hasName = false;
};

/// Talks to one URL given by hand, before the machine is configured. Made for one call and dropped; one
/// thread.
class IClientConfig : public Interface {
public:
    /// Replaces `out` by the service's datacenters, in its order. `std::runtime_error` for a status other
    /// than 200; otherwise the exceptions of a gateway.
    virtual void GetDatacenters(std::vector<Datacenter>& out) = 0;
    virtual void SetDatacenterId(const std::string& id) = 0;
    virtual void SetDatacenterName(const std::string& name) = 0;
    /// Finds the datacenter, takes the service's certificate as the one to trust, and writes the bootstrap
    /// state: first the certificate, then the service's URL, then the datacenter id. Nothing is rolled back;
    /// a later run overwrites.
    virtual void Configure() = 0;
};

/// Who asks, and the base URL of the service.
struct ClientConfigParameters : CommunicationsParameters {
    explicit ClientConfigParameters(const std::string& clientName) : CommunicationsParameters(clientName) {}

    ClientConfigParameters& SetUserName(const std::string& name);
    ClientConfigParameters& SetPassword(const std::string& text);
    ClientConfigParameters& SetFixedToken(const std::string& token);
    ClientConfigParameters& SetSfsUrl(const std::string& url);

    /// `std::invalid_argument` or `std::out_of_range` for a port that is no number; `std::runtime_error` for
    /// a client that is not enrolled here.
    std::shared_ptr<IClientConfig> Build() const;

    std::string sfsUrl;
};

}  // namespace Ombry::ClientCommunications
