#pragma once

#include <memory>

#include "ClientCommunications/IService.h"

namespace Ombry::ClientCommunications {

/// A server that may be tried next; a null service means that none is left. Record inside: no installed
/// function takes or gives it.
struct ServiceCandidate {
    std::shared_ptr<IService> service;
    bool isLocal = false;
};

}  // namespace Ombry::ClientCommunications
