#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ClientCommunications/IService.h"

namespace Ombry::ClientCommunications {

/// What came back, whatever its HTTP status. Immutable.
class IServiceResponse : public Interface {
public:
    virtual int GetStatusCode() const = 0;
    /// The service that answered.
    virtual std::shared_ptr<IService> GetService() const = 0;
    /// Names of response headers are found in any case.
    virtual bool HasHeader(const std::string& name) const = 0;
    /// `std::out_of_range` for an absent header, unlike a request's.
    virtual std::string GetHeader(const std::string& name) const = 0;
    virtual void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const = 0;
};

}  // namespace Ombry::ClientCommunications
