#pragma once

#include <stdexcept>
#include <string>

namespace Ombry::ClientCommunications {

/// An exchange got no answer; another server may give one.
class CommunicationsError : public std::runtime_error {
public:
    /// With the text of `what`.
    explicit CommunicationsError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace Ombry::ClientCommunications
