#pragma once

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Who acts. The texts returned are plain and the caller's to scrub. Seam inside: no installed function takes
/// or gives it.
class IClientCredentials {
public:
    virtual std::string GetName() = 0;
    virtual std::string GetClientId() = 0;
    virtual std::string GetClientSecret() = 0;
    virtual ~IClientCredentials() = default;
};

}  // namespace Ombry::ClientCommunications
