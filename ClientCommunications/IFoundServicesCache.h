#pragma once

#include "ClientCommunications/IFoundServices.h"
#include "Platform/Time.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// Keeps a set of found services and when it is to be refreshed. May be called from several threads at once,
/// of which one at a time saves. Seam inside: no installed function takes or gives it.
class IFoundServicesCache {
public:
    virtual TimePoint GetNextRefreshTime() = 0;
    virtual std::shared_ptr<IFoundServices> GetFoundServices() = 0;
    virtual void Save(std::shared_ptr<IFoundServices> services, TimePoint nextRefreshTime) = 0;
    virtual ~IFoundServicesCache() = default;
};

}  // namespace Ombry::ClientCommunications
