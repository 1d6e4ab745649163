#pragma once

#include "ClientCommunications/Interface.h"

#include <functional>
#include <string>

namespace Ombry::ClientCommunications {

/// The identity of the outside operation that a call serves: pairs that travel as "SF-Root-" headers. Not
/// changed once made, and so shared freely between threads.
class IRootRequestMetaData : public Interface {
public:
    /// Whether there is a pair of exactly that key.
    virtual bool HasValue(const std::string& key) const = 0;
    /// `std::out_of_range` for an absent key.
    virtual std::string GetValue(const std::string& key) const = 0;
    /// Calls `callback` for each pair, in ascending byte order of the keys.
    virtual void ForEachValue(
        std::function<void(const std::string& key, const std::string& value)> callback) const = 0;
};

}  // namespace Ombry::ClientCommunications
