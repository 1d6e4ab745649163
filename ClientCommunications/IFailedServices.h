#pragma once

#include "ClientCommunications/Interface.h"
#include "Platform/Time.h"

#include <string>

namespace Ombry::ClientCommunications {

/// What is remembered of a server that failed; the defaults are those of a server in good health. Record
/// inside: no installed function takes or gives it.
struct FailureInfo {
    bool failed = false;
    bool isLocal = true;
    TimePoint nextRetryTime{};
    int failureCount = 0;
};

/// The memory of failures, by service id. May be called from several threads at once. Seam inside: no
/// installed function takes or gives it.
class IFailedServices : public Interface {
public:
    virtual FailureInfo Get(const std::string& id) = 0;
    virtual void RecordFailure(const std::string& id, bool isLocal) = 0;
    virtual void Remove(const std::string& id) = 0;
};

}  // namespace Ombry::ClientCommunications
