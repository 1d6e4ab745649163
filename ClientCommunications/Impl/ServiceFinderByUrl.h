#pragma once

#include "ClientCommunications/IServiceFinder.h"

namespace Ombry::ClientCommunications {

/// Makes a service out of a fixed address, with no discovery. Immutable.
class ServiceFinderByUrl : public IServiceFinder {
public:
    explicit ServiceFinderByUrl(const std::string& url);

    std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData> metaData,
                                         Cancellation::Token token) override;
    std::shared_ptr<IFoundServices> Find(Cancellation::Token token) override;

private:
    std::shared_ptr<IFoundServices> foundServices;
};

}  // namespace Ombry::ClientCommunications
