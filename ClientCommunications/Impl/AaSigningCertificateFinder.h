#pragma once

#include "ClientCommunications/IAaSigningCertificateFinder.h"
#include "ClientCommunications/IServiceFinder.h"

#include <list>
#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

class AaSigningCertificateFinder : public IAaSigningCertificateFinder {
public:
    explicit AaSigningCertificateFinder(std::shared_ptr<IServiceFinder> finder) : finder(std::move(finder)) {}
    std::list<std::string> GetCertificates() override;

private:
    const std::shared_ptr<IServiceFinder> finder;
};

}  // namespace Ombry::ClientCommunications
