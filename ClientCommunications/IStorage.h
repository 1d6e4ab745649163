#pragma once

#include <string>

namespace Ombry::ClientCommunications {

/// One blob.
class IStorage {
public:
    virtual std::string Load() = 0;
    virtual void Save(const std::string& data) = 0;
    virtual ~IStorage() = default;
};

}  // namespace Ombry::ClientCommunications
