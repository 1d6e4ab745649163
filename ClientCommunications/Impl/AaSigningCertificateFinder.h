#pragma once

#include <list>
#include <memory>
#include <string>

#include "ClientCommunications/IAaSigningCertificateFinder.h"
#include "ClientCommunications/IServiceFinder.h"

namespace Ombry::ClientCommunications {

class AaSigningCertificateFinder : public IAaSigningCertificateFinder {
public:
    explicit AaSigningCertificateFinder(std::shared_ptr<IServiceFinder> finder) : finder(std::move(finder)) {}
    std::list<std::string> GetCertificates() override;

private:
    const std::shared_ptr<IServiceFinder> finder;
};

}  // namespace Ombry::ClientCommunications
