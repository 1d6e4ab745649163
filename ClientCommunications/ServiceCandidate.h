#pragma once

#include "ClientCommunications/IService.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// A server that may be tried next; a null service means that none is left. Record inside: no installed
/// function takes or gives it.
struct ServiceCandidate {
    std::shared_ptr<IService> service;
    bool isLocal = false;
};

}  // namespace Ombry::ClientCommunications
