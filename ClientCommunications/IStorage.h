#pragma once

#include <string>

namespace Ombry::ClientCommunications {

/// One blob. Seam inside: no installed function takes or gives it.
class IStorage {
public:
    virtual std::string Load() = 0;
    virtual void Save(const std::string& data) = 0;
    virtual ~IStorage() = default;
};

}  // namespace Ombry::ClientCommunications
