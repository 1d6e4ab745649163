#include "ClientCommunications/Impl/ExponentialDelayRetryIterator.h"

#include <algorithm>

namespace Ombry::ClientCommunications {

Duration ExponentialDelayRetryIterator::Next() {
    const Duration result = currentDelay;
    if (currentDelay < maxDelay) {
        const std::int64_t doubled = SaturatingAdd(currentDelay.count(), currentDelay.count());
        currentDelay = std::min(Duration(doubled), maxDelay);
    }
    return result;
}

}  // namespace Ombry::ClientCommunications
