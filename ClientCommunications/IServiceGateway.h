#pragma once

#include "ClientCommunications/IServiceRequest.h"
#include "ClientCommunications/IStreamServiceResponse.h"
#include "ClientCommunications/IStringServiceResponse.h"
#include "ClientCommunications/ISyncWriter.h"

#include <cstdint>
#include <memory>

namespace Ombry::ClientCommunications {

/// Bytes of a body that an answer holds in memory at most: the body of `CallForString`, and of
/// `CallForStream` that of a status of 300 and above. Far above every real answer, and there so that no such
/// body can use up the memory. What `CallForStream` hands to its writer has no limit, though each chunk of it
/// is held whole, up to 4 GiB; nor has the head of an answer, up to the same length.
inline constexpr std::uint64_t MaxBodyInMemory = std::uint64_t{256} * 1024 * 1024;

/// Makes calls. Every HTTP status comes back as a response; the lack of an answer is an exception:
/// `CommunicationsError` or `Cancellation::TimeoutException` where another server may help,
/// `Cancellation::OperationCancelledException` when the token fired, `std::runtime_error` where nothing will.
/// So ends a body of more than `MaxBodyInMemory`: it is the answer, and another server would give the same.
/// One failure is no `std::runtime_error`: the `std::out_of_range` of `IServiceFinder`. What the request's
/// reader or the writer throws passes through. May be called from several threads at once.
class IServiceGateway : public Interface {
public:
    /// One call, whose answer is held in memory. `request` may not be null. `token` ends the call, and so do
    /// the request's token and limits: with the last answer of a server, if there was one. They are looked at
    /// once nothing has come for a second; whoever sends a byte a second is heard to the end. The request is
    /// the caller's again when this returns or throws.
    virtual std::shared_ptr<IStringServiceResponse> CallForString(std::shared_ptr<IServiceRequest> request,
                                                                  Cancellation::Token token) = 0;
    /// The same, with a good body going to `writer`, which may not be null, as it comes: begun anew if an
    /// attempt before it failed.
    virtual std::shared_ptr<IStreamServiceResponse> CallForStream(std::shared_ptr<IServiceRequest> request,
                                                                  std::shared_ptr<ISyncWriter> writer,
                                                                  Cancellation::Token token) = 0;
};

}  // namespace Ombry::ClientCommunications
