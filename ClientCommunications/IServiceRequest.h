#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Cancellation/Token.h"
#include "ClientCommunications/ISyncReader.h"
#include "ClientCommunications/Interface.h"
#include "Platform/Time.h"

namespace Ombry::ClientCommunications {

/// What goes out to a service, with its limits. Built by one thread and then handed to a gateway; not shared
/// by two calls at once, but usable again once a call has ended.
class IServiceRequest : public Interface {
public:
    /// Replaces the value of a header of exactly that name.
    virtual void SetHeader(const std::string& name, const std::string& value) = 0;
    virtual void RemoveHeader(const std::string& name) = 0;
    virtual void SetBody(const std::string& text) = 0;
    virtual void SetBodyReader(std::shared_ptr<ISyncReader> reader) = 0;
    /// Always throws `std::runtime_error` with "Not implemented."; kept as a place in the interface.
    virtual void SetBodySource() = 0;
    /// Limit of one HTTP attempt; whole seconds count.
    virtual void SetAttemptTimeout(Duration timeout) = 0;
    /// Limit of the whole call, over all attempts.
    virtual void SetOverallTimeout(Duration timeout) = 0;
    virtual void SetCancellationToken(Cancellation::Token token) = 0;
    /// How many more attempts may follow the first.
    virtual void SetMaxRetries(int retries) = 0;
    virtual std::string GetMethod() const = 0;
    virtual std::string GetPath() const = 0;
    /// In ascending byte order of the names.
    virtual void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const = 0;
    /// Null if the request has no body.
    virtual std::shared_ptr<ISyncReader> GetBodyReader() const = 0;
    virtual Duration GetAttemptTimeout() const = 0;
    /// A new token for one call: the overall limit starts now and comes first, then the caller's token.
    virtual Cancellation::Token GetCancellationToken() const = 0;
    virtual int GetMaxRetries() const = 0;
    /// Empty if the header is absent.
    virtual std::string GetHeader(const std::string& name) const = 0;
};

}  // namespace Ombry::ClientCommunications
