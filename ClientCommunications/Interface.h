#pragma once

namespace Ombry::ClientCommunications {

/// Root of the interfaces of this namespace.
class Interface {
public:
    virtual ~Interface() = default;
};

}  // namespace Ombry::ClientCommunications
