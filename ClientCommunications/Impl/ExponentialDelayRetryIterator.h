#pragma once

#include "ClientCommunications/IRetryDelayIterator.h"

namespace Ombry::ClientCommunications {

/// Delays that double from one to the next, up to a bound. An initial delay above the bound stays as it is.
class ExponentialDelayRetryIterator : public IRetryDelayIterator {
public:
    ExponentialDelayRetryIterator(Duration initialDelay, Duration maxDelay)
        : initialDelay(initialDelay), maxDelay(maxDelay), currentDelay(initialDelay) {}

    Duration Next() override;
    void Reset() override { currentDelay = initialDelay; }

private:
    const Duration initialDelay;
    const Duration maxDelay;
    Duration currentDelay;
};

}  // namespace Ombry::ClientCommunications
