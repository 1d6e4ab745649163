#pragma once

#include "ClientCommunications/IServiceRequestFactory.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Makes plain requests, without the headers that tell a service who calls from where: there is no such
/// knowledge yet.
class BootstrapServiceRequestFactory : public IServiceRequestFactory {
public:
    /// The metadata is dropped.
    std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                            const std::string& contractVersion,
                                            std::shared_ptr<IRootRequestMetaData> metaData) override;
    std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                            const std::string& contractVersion) override;
};

}  // namespace Ombry::ClientCommunications
