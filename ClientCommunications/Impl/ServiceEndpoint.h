#pragma once

#include "ClientCommunications/IService.h"
#include "OmbryZephCore/ZephSorrelConnectionParameters.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// The port by the rules of a 32-bit strtol, of which the low 16 bits count; text that is no number gives 0.
std::uint16_t ParsePort(const std::string& text);

/// A service, and what its URL and its certificate mean to the HTTP client. Immutable.
struct ServiceEndpoint {
    explicit ServiceEndpoint(std::shared_ptr<IService> service);

    const std::shared_ptr<IService> service;
    const std::string url;
    std::string basePath;
    bool isChecked = false;  ///< by the certificate that the service has registered
    OmbryZephCore::ZephSorrelConnectionParameters parameters;
};

}  // namespace Ombry::ClientCommunications
