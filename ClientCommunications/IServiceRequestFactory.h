#pragma once

#include "ClientCommunications/IRootRequestMetaData.h"
#include "ClientCommunications/IServiceRequest.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Makes requests that say who calls, from which datacenter. May be called from several threads at once, and
/// may outlive the facade.
class IServiceRequestFactory : public Interface {
public:
    /// `path` begins with "/"; `contractVersion` goes out as the header "Contract-Version". `metaData` tells
    /// on behalf of what the call is made, and may be null: what a request must carry of it is filled in. No
    /// failure but that of the random source (`std::runtime_error`).
    virtual std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                                    const std::string& contractVersion,
                                                    std::shared_ptr<IRootRequestMetaData> metaData) = 0;
    /// The same with null `metaData`.
    virtual std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                                    const std::string& contractVersion) = 0;
};

}  // namespace Ombry::ClientCommunications
