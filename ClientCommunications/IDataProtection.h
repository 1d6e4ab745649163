#pragma once

#include <string>

namespace Ombry::ClientCommunications {

/// Makes a string unreadable and back, in the same string object. Failures are `std::runtime_error`. One
/// object may serve several threads. Seam inside: no installed function takes or gives it.
class IDataProtection {
public:
    virtual void Protect(std::string& data) = 0;
    virtual void Unprotect(std::string& data) = 0;
    virtual ~IDataProtection() = default;
};

}  // namespace Ombry::ClientCommunications
