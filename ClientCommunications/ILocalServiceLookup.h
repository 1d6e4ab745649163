#pragma once

#include <string>

namespace Ombry::ClientCommunications {

/// The id of a service that was enrolled from this machine. Seam inside: no installed function takes or gives
/// it.
class ILocalServiceLookup {
public:
    virtual std::string Lookup(const std::string& name) = 0;
    virtual ~ILocalServiceLookup() = default;
};

}  // namespace Ombry::ClientCommunications
