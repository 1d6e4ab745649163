#pragma once

#include "ClientCommunications/IFailedServices.h"
#include "ClientCommunications/IServiceIteratePolicy.h"
#include "LibraryLogger/ILogger.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// Stays for ever with the first server that worked. Immutable.
class IndefinitelyStickyIteratePolicy : public IServiceIteratePolicy {
public:
    IndefinitelyStickyIteratePolicy(std::shared_ptr<IFailedServices> failedServices,
                                    std::shared_ptr<LibraryLogger::ILogger> logger)
        : failedServices(std::move(failedServices)), logger(std::move(logger)) {}

    std::shared_ptr<IServiceIteratePolicyExecutor> CreateExecutor(
        std::shared_ptr<IServiceFinder> finder) override;

private:
    const std::shared_ptr<IFailedServices> failedServices;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
};

}  // namespace Ombry::ClientCommunications
