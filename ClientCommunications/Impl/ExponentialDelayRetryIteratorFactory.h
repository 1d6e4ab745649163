#pragma once

#include "ClientCommunications/IRetryDelayIteratorFactory.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIterator.h"

#include <memory>

namespace Ombry::ClientCommunications {

class ExponentialDelayRetryIteratorFactory : public IRetryDelayIteratorFactory {
public:
    ExponentialDelayRetryIteratorFactory(Duration initialDelay, Duration maxDelay)
        : initialDelay(initialDelay), maxDelay(maxDelay) {}

    std::unique_ptr<IRetryDelayIterator> Create() override {
        return std::make_unique<ExponentialDelayRetryIterator>(initialDelay, maxDelay);
    }

private:
    const Duration initialDelay;
    const Duration maxDelay;
};

}  // namespace Ombry::ClientCommunications
