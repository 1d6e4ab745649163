#pragma once

#include "ClientCommunications/IDataProtection.h"
#include "ClientCommunications/IStorage.h"

#include <memory>

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

}  // namespace Ombry::ClientCommunications
