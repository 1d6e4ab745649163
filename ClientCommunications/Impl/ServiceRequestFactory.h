#pragma once

#include "ClientCommunications/IServiceRequestFactory.h"

namespace Ombry::ClientCommunications {

/// Makes requests that say which client of which datacenter sends them, and which root operation they serve.
/// Immutable.
class ServiceRequestFactory : public IServiceRequestFactory {
public:
    ServiceRequestFactory(std::string clientId, std::string clientName, std::string datacenterId);

    std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                            const std::string& contractVersion,
                                            std::shared_ptr<IRootRequestMetaData> metaData) override;
    std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                            const std::string& contractVersion) override;

private:
    /// What each request says of its sender. It belongs to the requests too, which share it.
    struct Source {
        std::string clientId;
        std::string clientName;
        std::string datacenterId;
    };

    const std::shared_ptr<const Source> source;
};

}  // namespace Ombry::ClientCommunications
