#pragma once

#include "ClientCommunications/IRetryDelayIterator.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// Makes a row of delays for each server that failed. Seam inside: no installed function takes or gives it.
class IRetryDelayIteratorFactory {
public:
    virtual ~IRetryDelayIteratorFactory() = default;
    virtual std::unique_ptr<IRetryDelayIterator> Create() = 0;
};

}  // namespace Ombry::ClientCommunications
