#pragma once

#include "ClientCommunications/Impl/KnownHeaders.h"

#include <array>
#include <map>
#include <string>

namespace Ombry::ClientCommunications {

/// The headers of a request, each name once. Those that the libraries put on each request have places of
/// their own, since a call sets and removes a dozen of them; all others stand in a map. A value may be a
/// credential: it never moves, and is wiped when it is replaced or removed, and with the headers. One thread.
class RequestHeaders {
public:
    RequestHeaders() = default;
    ~RequestHeaders();
    RequestHeaders(const RequestHeaders&) = delete;
    RequestHeaders& operator=(const RequestHeaders&) = delete;

    /// `value` may be that of the header itself, from a walk through these headers.
    void Set(const std::string& name, const std::string& value);
    /// An absent header is no failure.
    void Remove(const std::string& name);
    /// Empty if the header is absent.
    std::string Get(const std::string& name) const;

    /// Calls `callback` with name and value of each header, in ascending byte order of the names.
    template <class Callback>
    void ForEach(const Callback& callback) const {
        const auto& names = NamesOfKnownHeaders();
        auto other = others.begin();
        for (std::size_t place = 0; place < known.size(); ++place) {
            if (!known[place].isSet) continue;
            for (; other != others.end() && other->first < names[place]; ++other)
                callback(other->first, other->second);
            callback(names[place], known[place].value);
        }
        for (; other != others.end(); ++other)
            callback(other->first, other->second);
    }

private:
    struct Known {
        bool isSet = false;
        std::string value;  // empty, its memory wiped, while it is not set
    };

    std::array<Known, KnownHeaderNames::Count> known;  // by `KnownHeader`
    std::map<std::string, std::string> others;
};

}  // namespace Ombry::ClientCommunications
