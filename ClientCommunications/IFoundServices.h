#pragma once

#include <list>
#include <memory>

#include "ClientCommunications/IService.h"

namespace Ombry::ClientCommunications {

/// The instances of a service: those of the caller's datacenter ("local") and those elsewhere ("remote").
class IFoundServices : public Interface {
public:
    /// The local services, then the remote ones, each in a new random order.
    virtual std::list<std::shared_ptr<IService>> GetAll() const = 0;
    virtual std::list<std::shared_ptr<IService>> GetLocal() const = 0;
    virtual void AddLocal(std::shared_ptr<IService> service) = 0;
    virtual void AddLocal(std::list<std::shared_ptr<IService>> services) = 0;
    virtual std::list<std::shared_ptr<IService>> GetRemote() const = 0;
    virtual void AddRemote(std::shared_ptr<IService> service) = 0;
    virtual void AddRemote(std::list<std::shared_ptr<IService>> services) = 0;
    virtual void CopyFrom(std::shared_ptr<IFoundServices> other) = 0;
};

}  // namespace Ombry::ClientCommunications
