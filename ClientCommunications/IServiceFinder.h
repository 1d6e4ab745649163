#pragma once

#include <memory>

#include "Cancellation/Token.h"
#include "ClientCommunications/IFoundServices.h"
#include "ClientCommunications/IRootRequestMetaData.h"

namespace Ombry::ClientCommunications {

/// Finds the instances of one service. May be called from several threads at once.
class IServiceFinder : public Interface {
public:
    virtual std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData> metaData,
                                                 Cancellation::Token token) = 0;
    virtual std::shared_ptr<IFoundServices> Find(Cancellation::Token token) = 0;
};

}  // namespace Ombry::ClientCommunications
