#pragma once

/// Calls to the services of a Security Framework, from discovery to the answer.
namespace Ombry::ClientCommunications {

/// Root of the interfaces of this namespace.
class Interface {
public:
    virtual ~Interface() = default;
};

}  // namespace Ombry::ClientCommunications
