#pragma once

#include "ClientCommunications/IClientConfig.h"
#include "ClientCommunications/IClientCredentials.h"
#include "ClientCommunications/IServiceGateway.h"
#include "ClientCommunications/Impl/BootstrapServiceRequestFactory.h"
#include "OmbryZephCore/ZephSorrelConnectionParameters.h"

namespace Ombry::ClientCommunications {

/// Talks to the service through a small gateway stack of its own, without discovery, fail-over or any cache.
class ClientConfig : public IClientConfig {
public:
    explicit ClientConfig(ClientConfigParameters parameters);

    void GetDatacenters(std::vector<Datacenter>& out) override;
    void SetDatacenterId(const std::string& id) override { datacenterId = id; }
    void SetDatacenterName(const std::string& name) override { datacenterName = name; }
    void Configure() override;

private:
    std::shared_ptr<IServiceGateway> MakeGateway() const;
    std::shared_ptr<IServiceGateway> MakeTokenGateway(std::shared_ptr<IServiceGateway> base,
                                                      std::shared_ptr<IClientCredentials> credentials,
                                                      const std::string& tokenPath) const;
    void ResolveDatacenter();
    void StoreConfiguration();

    const ClientConfigParameters parameters;
    const std::shared_ptr<OmbryZephCore::ZephSorrelConnectionParameters> connectionParameters;
    const std::shared_ptr<BootstrapServiceRequestFactory> requestFactory;
    const std::shared_ptr<IServiceGateway> gateway;
    std::string bootstrapCertificate;
    std::string datacenterId;
    std::string datacenterName;
};

/// The connection that a URL asks for: everything lower case, and no validation of the server, since there is
/// nothing yet to trust it by.
std::shared_ptr<OmbryZephCore::ZephSorrelConnectionParameters> MakeConnectionParameters(
    const std::string& url);

}  // namespace Ombry::ClientCommunications
