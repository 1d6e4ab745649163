#pragma once

#include "ClientCommunications/IServiceRequest.h"
#include "ClientCommunications/Impl/KnownHeaders.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// The time that a header stands on a request. A header that is there already, with a value, stays as it is,
/// and stays behind. Lives on the stack of one call.
class ScopedNewHeader : public Interface {
public:
    /// `request` may be null: the guard then does nothing.
    ScopedNewHeader(std::shared_ptr<IServiceRequest> request, std::string name, const std::string& value);
    /// The same for a header whose name need not be kept.
    ScopedNewHeader(std::shared_ptr<IServiceRequest> request, KnownHeader header, const std::string& value);
    ~ScopedNewHeader() override;
    ScopedNewHeader(const ScopedNewHeader&) = delete;
    ScopedNewHeader& operator=(const ScopedNewHeader&) = delete;

private:
    void Put(std::shared_ptr<IServiceRequest> onRequest, const std::string& value);

    std::shared_ptr<IServiceRequest> request;
    const std::string ownName;  // empty for a known header
    const std::string& name;
};

}  // namespace Ombry::ClientCommunications
