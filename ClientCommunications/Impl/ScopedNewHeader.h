#pragma once

#include "ClientCommunications/IServiceRequest.h"
#include "ClientCommunications/Impl/RequestHeaders.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// The time that a header stands on a request. A header that is there already, with a value, stays as it is,
/// and stays behind. Lives on the stack of one call.
class ScopedNewHeader : public Interface {
public:
    /// `request` may be null: the guard then does nothing.
    ScopedNewHeader(std::shared_ptr<IServiceRequest> request, std::string name, const std::string& value);
    /// The same without copies: request and value outlive the guard.
    ScopedNewHeader(const std::shared_ptr<IServiceRequest>& request, KnownHeader header,
                    const std::string& value);
    /// The same for a value that nobody else needs.
    ScopedNewHeader(const std::shared_ptr<IServiceRequest>& request, KnownHeader header, std::string&& value);
    ~ScopedNewHeader() override;
    ScopedNewHeader(const ScopedNewHeader&) = delete;
    ScopedNewHeader& operator=(const ScopedNewHeader&) = delete;

private:
    void Put(std::shared_ptr<IServiceRequest> onRequest, const std::string& value);
    template <class PutOnOurs>
    void PutKnown(const std::shared_ptr<IServiceRequest>& onRequest, const std::string& value,
                  const PutOnOurs& putOnOurs);

    // Either the header stands in `ours`, or under its name on `request`, or it is not this object's.
    RequestHeaders* ours = nullptr;
    const KnownHeader header{};
    std::shared_ptr<IServiceRequest> request;
    std::string name;
};

}  // namespace Ombry::ClientCommunications
