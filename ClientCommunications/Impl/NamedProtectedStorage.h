#pragma once

#include "ClientCommunications/IDataProtection.h"
#include "ClientCommunications/INamedStorage.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Blobs addressed by a name that are protected on the way into another storage and laid bare on the way out.
class NamedProtectedStorage : public INamedStorage {
public:
    NamedProtectedStorage(std::shared_ptr<INamedStorage> storage, std::shared_ptr<IDataProtection> protection)
        : storage(std::move(storage)), protection(std::move(protection)) {}

    std::unique_ptr<IStorage> Get(const std::string& name) override;
    void Delete(const std::string& name) override { storage->Delete(name); }
    void Rename(const std::string& from, const std::string& to) override { storage->Rename(from, to); }

private:
    const std::shared_ptr<INamedStorage> storage;
    const std::shared_ptr<IDataProtection> protection;
};

}  // namespace Ombry::ClientCommunications
