#pragma once

#include "ClientCommunications/IService.h"

#include <functional>
#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// What came back, whatever its HTTP status. Immutable, and so read from any thread.
class IServiceResponse : public Interface {
public:
    /// The HTTP status; one beyond the greatest `int` counts as that.
    virtual int GetStatusCode() const = 0;
    /// The service that answered.
    virtual std::shared_ptr<IService> GetService() const = 0;
    /// Names of response headers are found in any case.
    virtual bool HasHeader(const std::string& name) const = 0;
    /// The value; `std::out_of_range` for an absent header, unlike a request's. Of one that came twice
    /// the first stays; of names that differ in case alone the one that is first in byte order.
    virtual std::string GetHeader(const std::string& name) const = 0;
    /// Calls `callback` for each header, in the order of their names without regard to case.
    /// `std::bad_function_call` for an empty function, if there is a header.
    virtual void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const = 0;
};

}  // namespace Ombry::ClientCommunications
