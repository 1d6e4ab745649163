#pragma once

#include "ClientCommunications/IService.h"

#include <list>
#include <memory>

namespace Ombry::ClientCommunications {

/// The instances of a service: those of the caller's datacenter ("local") and those elsewhere ("remote").
/// Reading it from several threads is safe while nobody changes it; a finder may hand the same object to
/// several callers, so a program changes only what it made itself.
class IFoundServices : public Interface {
public:
    /// The local services, then the remote ones, each in a new random order.
    virtual std::list<std::shared_ptr<IService>> GetAll() const = 0;
    /// The local services, in a new random order.
    virtual std::list<std::shared_ptr<IService>> GetLocal() const = 0;
    /// Adds one local service; null is not checked for.
    virtual void AddLocal(std::shared_ptr<IService> service) = 0;
    /// Adds local services.
    virtual void AddLocal(std::list<std::shared_ptr<IService>> services) = 0;
    /// The remote services, in a new random order.
    virtual std::list<std::shared_ptr<IService>> GetRemote() const = 0;
    /// Adds one remote service; null is not checked for.
    virtual void AddRemote(std::shared_ptr<IService> service) = 0;
    /// Adds remote services.
    virtual void AddRemote(std::list<std::shared_ptr<IService>> services) = 0;
    /// Becomes what `other` holds; the services themselves are shared.
    virtual void CopyFrom(std::shared_ptr<IFoundServices> other) = 0;
};

}  // namespace Ombry::ClientCommunications
