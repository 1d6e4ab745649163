#pragma once

#include "ClientCommunications/ILocalServiceFinderFactory.h"
#include "ClientCommunications/ILocalServiceLookup.h"
#include "ClientCommunications/IServiceFinderFactory.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

class LocalServiceFinderFactory : public ILocalServiceFinderFactory {
public:
    LocalServiceFinderFactory(std::shared_ptr<ILocalServiceLookup> lookup,
                              std::shared_ptr<IServiceFinderFactory> finderFactory)
        : lookup(std::move(lookup)), finderFactory(std::move(finderFactory)) {}
    std::shared_ptr<IServiceFinder> Create(const std::string& componentName,
                                           const std::string& serviceName) override;

private:
    const std::shared_ptr<ILocalServiceLookup> lookup;
    const std::shared_ptr<IServiceFinderFactory> finderFactory;
};

}  // namespace Ombry::ClientCommunications
