#pragma once

#include "ClientCommunications/CommunicationsParameters.h"
#include "ClientCommunications/IAaSigningCertificateFinder.h"
#include "ClientCommunications/ILocalServiceFinderFactory.h"
#include "ClientCommunications/IServiceFinderFactory.h"
#include "ClientCommunications/IServiceGatewayFactory.h"
#include "ClientCommunications/IServiceIteratePolicyFactory.h"
#include "ClientCommunications/IServiceRequestFactory.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// The library's root once a machine is configured: hands out the factories that everything else is made
/// with. Several threads may ask at once.
///
/// What may outlive what: a factory, and whatever was made with one (a gateway, a finder, a request), holds
/// what it needs and serves on when the facade is gone; the list of the discovery servers is then no longer
/// refreshed. Whoever lets go of a background thread's owner last stops and joins it, and waits for a connect
/// under way and for the end of an answer that keeps coming. All of them may be alive when the process ends,
/// in a global or a static local too, and other threads may be in calls through them meanwhile; the same
/// holds for a logger that is handed in, which they share. One thing may not be: the background threads call
/// the logger, and a logger that ends the process (`exit`) would have to wait for its own thread.
class IClientCommunications : public Interface {
public:
    /// Gateways that act as the facade's identity. None of these six is ever null.
    virtual std::shared_ptr<IServiceGatewayFactory> GetServiceGatewayFactory() = 0;
    /// Finders of services, by discovery.
    virtual std::shared_ptr<IServiceFinderFactory> GetServiceFinderFactory() = 0;
    /// Finders of what belongs to a service that the acting client enrolled from this machine.
    virtual std::shared_ptr<ILocalServiceFinderFactory> GetLocalServiceFinderFactory() = 0;
    /// Policies, for gateways that are not to have the usual one.
    virtual std::shared_ptr<IServiceIteratePolicyFactory> GetServiceIteratePolicyFactory() = 0;
    /// Requests for the gateways.
    virtual std::shared_ptr<IServiceRequestFactory> GetServiceRequestFactory() = 0;
    /// What a service needs to check tokens that others show it.
    virtual std::shared_ptr<IAaSigningCertificateFinder> GetAaSigningCertificateFinder() = 0;
};

/// Builds the whole composition and starts its background threads. Nothing is called on this thread; on a new
/// machine the one that keeps the list of discovery servers asks at once.
/// `std::runtime_error` on a machine that is not configured, or for a client that is not enrolled on it. Any
/// thread may build one; two of one cache directory can lose an entry of a cache between them, as two
/// processes can.
std::shared_ptr<IClientCommunications> MakeClientCommunications(const CommunicationsParameters& parameters);

/// The same, threads included, for an identity as a command line gives it; empty texts are not given.
std::shared_ptr<IClientCommunications> MakeCommunications(const std::string& userName,
                                                          const std::string& password,
                                                          const std::string& clientName,
                                                          const std::string& token);

}  // namespace Ombry::ClientCommunications
