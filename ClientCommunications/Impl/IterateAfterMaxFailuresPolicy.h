#pragma once

#include "ClientCommunications/IFailedServices.h"
#include "ClientCommunications/IServiceIteratePolicy.h"
#include "LibraryLogger/ILogger.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// Leaves a server after a number of failures in a row; from a remote server it now and then tries to come
/// home to a local one. Immutable.
class IterateAfterMaxFailuresPolicy : public IServiceIteratePolicy {
public:
    IterateAfterMaxFailuresPolicy(std::shared_ptr<IFailedServices> failedServices,
                                  std::shared_ptr<LibraryLogger::ILogger> logger, int maxFailures)
        : failedServices(std::move(failedServices)), logger(std::move(logger)), maxFailures(maxFailures) {}

    std::shared_ptr<IServiceIteratePolicyExecutor> CreateExecutor(
        std::shared_ptr<IServiceFinder> finder) override;

private:
    const std::shared_ptr<IFailedServices> failedServices;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
    const int maxFailures;
};

}  // namespace Ombry::ClientCommunications
