#pragma once

#include "ClientCommunications/IDataProtection.h"
#include "ClientCommunications/IStorage.h"

namespace Ombry::ClientCommunications {

/// A blob that is protected on the way into another storage and laid bare on the way out.
class ProtectedStorage : public IStorage {
public:
    ProtectedStorage(std::unique_ptr<IStorage> storage, std::shared_ptr<IDataProtection> protection)
        : storage(std::move(storage)), protection(std::move(protection)) {}

    std::string Load() override;
    /// The caller's string stays plain.
    void Save(const std::string& data) override;

private:
    const std::unique_ptr<IStorage> storage;
    const std::shared_ptr<IDataProtection> protection;
};

/// The same for blobs addressed by a name.
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
