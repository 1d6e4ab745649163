#pragma once

#include "ClientCommunications/IServiceRequestFactory.h"

namespace Ombry::ClientCommunications {

/// Makes requests that say which client of which datacenter sends them, and which root operation they serve.
/// Immutable.
class ServiceRequestFactory : public IServiceRequestFactory {
public:
    /// The plain id that the caller holds is the caller's to scrub.
    ServiceRequestFactory(const std::string& clientId, std::string clientName, std::string datacenterId);

    std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                            const std::string& contractVersion,
                                            std::shared_ptr<IRootRequestMetaData> metaData) override;
    std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                            const std::string& contractVersion) override;

private:
    /// What each request says of its sender. It belongs to the requests too, which share it; the last of them
    /// wipes the id.
    struct Source {
        Source(const std::string& clientId, std::string clientName, std::string datacenterId);
        ~Source();
        Source(const Source&) = delete;
        Source& operator=(const Source&) = delete;

        const std::string clientName;
        const std::string datacenterId;
        std::string clientId;  // the last: what fails while the others are made leaves none
    };

    const std::shared_ptr<const Source> source;
};

}  // namespace Ombry::ClientCommunications
