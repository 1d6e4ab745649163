#pragma once

#include "ClientCommunications/IStorage.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Blobs addressed by a name. Seam inside: no installed function takes or gives it.
class INamedStorage {
public:
    virtual std::unique_ptr<IStorage> Get(const std::string& name) = 0;
    /// Deleting a missing name is no failure.
    virtual void Delete(const std::string& name) = 0;
    virtual void Rename(const std::string& from, const std::string& to) = 0;
    virtual ~INamedStorage() = default;
};

}  // namespace Ombry::ClientCommunications
