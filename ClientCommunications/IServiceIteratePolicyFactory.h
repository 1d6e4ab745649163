#pragma once

#include "ClientCommunications/IServiceIteratePolicy.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// Makes policies over the one memory of failed servers of a facade. May be called from several threads at
/// once.
class IServiceIteratePolicyFactory : public Interface {
public:
    /// Stays for ever with the first server that worked. While one call looks for it, the others wait.
    virtual std::shared_ptr<IServiceIteratePolicy> CreateIndefinitelySticky() = 0;
    /// Another server after `maxFailures` failures in a row of the one in use; 1 or less for another after
    /// each. Away from home, one call in about fifty tries the own datacenter again.
    virtual std::shared_ptr<IServiceIteratePolicy> CreateIterateAfterMaxFailures(int maxFailures) = 0;
};

}  // namespace Ombry::ClientCommunications
