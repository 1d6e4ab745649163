#pragma once

#include "Cancellation/Token.h"
#include "ClientCommunications/IFoundServices.h"
#include "ClientCommunications/IRootRequestMetaData.h"

#include <memory>

namespace Ombry::ClientCommunications {

/// Finds the instances of one service. May be called from several threads at once. Where an answer of
/// discovery is kept, a fresh one is given without a call, and one that is no longer fresh if discovery fails
/// (for about a week).
class IServiceFinder : public Interface {
public:
    /// The lists, which may be empty; never null. A call that this makes says that it is made on behalf of
    /// `metaData`, which may be null. With no kept answer to fall back on, throws what a gateway throws, and
    /// `std::runtime_error` for a status of 300 and above, an answer that does not fit, or one that cannot be
    /// written; `std::out_of_range`, which is none, for an answer whose "Cache-Control" is too short to take
    /// its times from, as "no-cache" is. A kept answer that does not fit is `std::runtime_error` in any case.
    virtual std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData> metaData,
                                                 Cancellation::Token token) = 0;
    /// The same as a call of its own.
    virtual std::shared_ptr<IFoundServices> Find(Cancellation::Token token) = 0;
};

}  // namespace Ombry::ClientCommunications
