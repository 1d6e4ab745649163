#pragma once

#include <memory>

#include "ClientCommunications/IRetryDelayIterator.h"

namespace Ombry::ClientCommunications {

class IRetryDelayIteratorFactory {
public:
    virtual ~IRetryDelayIteratorFactory() = default;
    virtual std::unique_ptr<IRetryDelayIterator> Create() = 0;
};

}  // namespace Ombry::ClientCommunications
