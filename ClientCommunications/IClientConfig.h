#pragma once

#include "ClientCommunications/CommunicationsParameters.h"
#include "ClientCommunications/Interface.h"
#include "ObjectMapping/MapperIf.h"

#include <memory>
#include <string>
#include <vector>

namespace Ombry::ClientCommunications {

/// One element of the service's datacenter list.
class Datacenter : public ObjectMapping::ObjectIf {
public:
    void Map(ObjectMapping::MapperIf& mapper) override;
    void Reset() override;

    std::string id;        ///< empty by default
    bool hasId = false;    ///< whether the list has an id here, and whether one is written
    std::string name;      ///< UTF-8, empty by default
    bool hasName = false;  ///< the same for the name
};

/// Talks to one URL given by hand, before the machine is configured. Made for one call and dropped; one
/// thread.
class IClientConfig : public Interface {
public:
    /// Replaces `out` by the service's datacenters, in its order. `std::runtime_error` for a status other
    /// than 200, and for an answer that is no JSON or no list of them: `out` is then left as far as it was
    /// read. Otherwise the exceptions of a gateway.
    virtual void GetDatacenters(std::vector<Datacenter>& out) = 0;
    /// The id that `Configure` looks for; empty, as by default, for none.
    virtual void SetDatacenterId(const std::string& id) = 0;
    /// The name that `Configure` looks for if no datacenter has the id; empty, as by default, for none.
    virtual void SetDatacenterName(const std::string& name) = 0;
    /// Finds the datacenter, takes the service's certificate as the one to trust, and writes the bootstrap
    /// state: first the certificate, then the service's URL, then the datacenter id. Nothing is rolled back;
    /// a later run overwrites. `std::runtime_error` for a datacenter that the service does not know, a
    /// certificate that cannot be had, or a file that cannot be written; otherwise as `GetDatacenters`.
    virtual void Configure() = 0;
};

/// Who asks, and the base URL of the service. Of several identities the client counts before the user, and
/// the user before the fixed token.
struct ClientConfigParameters : CommunicationsParameters {
    /// As the constructor of `CommunicationsParameters`.
    explicit ClientConfigParameters(const std::string& clientName) : CommunicationsParameters(clientName) {}

    /// As in `CommunicationsParameters`; these return the object itself, so that calls chain.
    ClientConfigParameters& SetUserName(const std::string& name);
    /// As in `CommunicationsParameters`.
    ClientConfigParameters& SetPassword(const std::string& text);
    /// As in `CommunicationsParameters`.
    ClientConfigParameters& SetFixedToken(const std::string& token);
    /// Sets `sfsUrl`.
    ClientConfigParameters& SetSfsUrl(const std::string& url);

    /// Nothing is called yet. `std::invalid_argument` or `std::out_of_range` for a port that is no number;
    /// `std::runtime_error` for a client that is not enrolled here.
    std::shared_ptr<IClientConfig> Build() const;

    /// The base URL of the service, such as "https://host:8181/securityframeworkservice"; empty by default.
    /// It is called as it stands, and stored by `IClientConfig::Configure`.
    std::string sfsUrl;
};

}  // namespace Ombry::ClientCommunications
