#pragma once

#include "ClientCommunications/FoundServicesDto.h"
#include "ClientCommunications/IFoundServices.h"

#include <vector>

namespace Ombry::ClientCommunications {

/// A set of found services. Each reading is shuffled anew, so that the load of many clients spreads; the
/// stored order never changes. Not synchronised: it is filled once and then only read.
class FoundServices : public IFoundServices {
public:
    FoundServices() = default;
    /// Takes the records over; a document that is to live on is copied by the caller.
    explicit FoundServices(FoundServicesDto dto);

    std::list<std::shared_ptr<IService>> GetAll() const override;
    std::list<std::shared_ptr<IService>> GetLocal() const override;
    void AddLocal(std::shared_ptr<IService> service) override;
    void AddLocal(std::list<std::shared_ptr<IService>> services) override;
    std::list<std::shared_ptr<IService>> GetRemote() const override;
    void AddRemote(std::shared_ptr<IService> service) override;
    void AddRemote(std::list<std::shared_ptr<IService>> services) override;
    void CopyFrom(std::shared_ptr<IFoundServices> other) override;

private:
    std::vector<std::shared_ptr<IService>> local;
    std::vector<std::shared_ptr<IService>> remote;
};

}  // namespace Ombry::ClientCommunications
