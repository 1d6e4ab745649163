#pragma once

#include <memory>
#include <string>

#include "ClientCommunications/IRootRequestMetaData.h"
#include "ClientCommunications/IServiceRequest.h"

namespace Ombry::ClientCommunications {

class IServiceRequestFactory : public Interface {
public:
    /// `metaData` may be null.
    virtual std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                                    const std::string& contractVersion,
                                                    std::shared_ptr<IRootRequestMetaData> metaData) = 0;
    virtual std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                                    const std::string& contractVersion) = 0;
};

}  // namespace Ombry::ClientCommunications
