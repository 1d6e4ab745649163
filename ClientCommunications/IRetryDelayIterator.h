#pragma once

#include "ClientCommunications/Interface.h"
#include "Platform/Time.h"

namespace Ombry::ClientCommunications {

/// A row of delays. One thread at a time. Seam inside: no installed function takes or gives it.
class IRetryDelayIterator : public Interface {
public:
    virtual Duration Next() = 0;
    virtual void Reset() = 0;
};

}  // namespace Ombry::ClientCommunications
