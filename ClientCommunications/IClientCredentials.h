#pragma once

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// Who acts. The texts returned are plain and the caller's to scrub.
class IClientCredentials {
public:
    virtual std::string GetName() = 0;
    virtual std::string GetClientId() = 0;
    virtual std::string GetClientSecret() = 0;
    virtual ~IClientCredentials() = default;
};

class IClientCredentialsFactory {
public:
    virtual std::shared_ptr<IClientCredentials> Create(const std::string& name, const std::string& clientId,
                                                       const std::string& clientSecret) = 0;
    virtual ~IClientCredentialsFactory() = default;
};

/// Keeps credentials on the machine. Used by one command at a time.
class IClientCredentialsStore {
public:
    virtual void Save(std::shared_ptr<IClientCredentials> credentials) = 0;
    /// Null if there is nothing stored and the store does not count that as a failure.
    virtual std::shared_ptr<IClientCredentials> Load(const std::string& name) = 0;
    virtual void Delete(const std::string& name) = 0;
    virtual ~IClientCredentialsStore() = default;
};

}  // namespace Ombry::ClientCommunications
