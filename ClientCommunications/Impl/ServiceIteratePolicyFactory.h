#pragma once

#include "ClientCommunications/IFailedServices.h"
#include "ClientCommunications/IServiceIteratePolicy.h"
#include "ClientCommunications/IServiceIteratePolicyFactory.h"
#include "LibraryLogger/ILogger.h"

namespace Ombry::ClientCommunications {

/// Makes policies that share one memory of failures. Immutable.
class ServiceIteratePolicyFactory : public IServiceIteratePolicyFactory {
public:
    ServiceIteratePolicyFactory(std::shared_ptr<IFailedServices> failedServices,
                                std::shared_ptr<LibraryLogger::ILogger> logger)
        : failedServices(std::move(failedServices)), logger(std::move(logger)) {}

    std::shared_ptr<IServiceIteratePolicy> CreateIndefinitelySticky() override;
    std::shared_ptr<IServiceIteratePolicy> CreateIterateAfterMaxFailures(int maxFailures) override;

private:
    const std::shared_ptr<IFailedServices> failedServices;
    const std::shared_ptr<LibraryLogger::ILogger> logger;
};

}  // namespace Ombry::ClientCommunications
