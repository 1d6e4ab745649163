#pragma once

#include "Cancellation/Token.h"
#include "ClientCommunications/ISyncReader.h"
#include "ClientCommunications/Interface.h"
#include "Platform/Time.h"

#include <functional>
#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// What goes out to a service, with its limits. `IServiceRequestFactory` makes it. Built by one thread and
/// then handed to a gateway; not shared by two calls at once, but usable again once a call has ended.
/// Durations are ticks of 100 ns.
class IServiceRequest : public Interface {
public:
    /// Replaces the value of a header of exactly that name. Both go out as they stand, unchecked: a line end
    /// in them would begin another header.
    virtual void SetHeader(const std::string& name, const std::string& value) = 0;
    /// An absent header is no failure.
    virtual void RemoveHeader(const std::string& name) = 0;
    /// Copies the text. Takes the place of a reader; without either a request has no body.
    virtual void SetBody(const std::string& text) = 0;
    /// The reader is kept until another body is set or the request goes; null for no body. Each attempt reads
    /// it from its beginning, on the thread of the call.
    virtual void SetBodyReader(std::shared_ptr<ISyncReader> reader) = 0;
    /// Always throws `std::runtime_error` with "Not implemented."; kept as a place in the interface.
    virtual void SetBodySource() = 0;
    /// Limit of the silence of one HTTP attempt; 100 seconds by default. It counts from the last byte that
    /// moved, either way, so an answer that keeps coming may take longer. Whole seconds count, the rest is
    /// cut off: below one second, 0 and negative values included, there is no limit.
    virtual void SetAttemptTimeout(Duration timeout) = 0;
    /// Limit of the whole call, over all attempts and the waits between them; 300 seconds by default. It is
    /// looked at in a wait, and ahead of the call for a token: an answer that keeps coming, a byte a second,
    /// is heard beyond it. 0 and less have passed when the call begins, and so has a duration that overflows
    /// the clock, as its highest value; a server that answers at once is heard all the same, and any other
    /// ends the call with `Cancellation::TimeoutException`.
    virtual void SetOverallTimeout(Duration timeout) = 0;
    /// Ends the call when it fires, as does the token of the call itself; never, by default. Looked at where
    /// the overall limit is.
    virtual void SetCancellationToken(Cancellation::Token token) = 0;
    /// How many more attempts may follow the first; 2,147,483,647 by default, which leaves the end to the
    /// overall limit and the list of servers. 0 for the first alone; -1 allows none, and the call ends with
    /// `CommunicationsError`. What is below counts from the end of the range of an `unsigned`: -2 is as good
    /// as no limit.
    virtual void SetMaxRetries(int retries) = 0;
    /// As it was given to the factory, such as "GET"; sent as it stands.
    virtual std::string GetMethod() const = 0;
    /// What is put behind the address of the server, query included; sent as it stands, nothing is encoded.
    virtual std::string GetPath() const = 0;
    /// Calls `callback` for each header, in ascending byte order of the names; it must not add or
    /// remove any. `std::bad_function_call` for an empty function, if there is a header.
    virtual void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const = 0;
    /// Null if the request has no body.
    virtual std::shared_ptr<ISyncReader> GetBodyReader() const = 0;
    /// What `SetAttemptTimeout` was given, uncut.
    virtual Duration GetAttemptTimeout() const = 0;
    /// A new token for one call: the overall limit starts now and comes first, then the caller's token.
    virtual Cancellation::Token GetCancellationToken() const = 0;
    /// What `SetMaxRetries` was given.
    virtual int GetMaxRetries() const = 0;
    /// Empty if the header is absent.
    virtual std::string GetHeader(const std::string& name) const = 0;
};

}  // namespace Ombry::ClientCommunications
