#pragma once

#include "ClientCommunications/Impl/KnownHeaders.h"

#include <array>
#include <map>
#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

/// The headers of a request, each name once. Those that the libraries put on each request have places of
/// their own, since a call sets and removes a dozen of them, and need not be copied; all others stand in a
/// map. A copy may be a credential: it never moves, and is wiped when it is replaced or removed, and with the
/// headers. One thread.
class RequestHeaders {
public:
    RequestHeaders() = default;
    ~RequestHeaders();
    RequestHeaders(const RequestHeaders&) = delete;
    RequestHeaders& operator=(const RequestHeaders&) = delete;

    /// Copies `value`, which may be that of the header itself, from a walk through these headers.
    void Set(const std::string& name, const std::string& value);
    /// The same for a value that nobody else needs.
    void Set(KnownHeader header, std::string&& value);
    /// The same without a copy: whoever the value belongs to does not change it as long as the header stands,
    /// and wipes it.
    void Share(KnownHeader header, std::shared_ptr<const std::string> value);
    /// An absent header is no failure.
    void Remove(const std::string& name);
    void Remove(KnownHeader header);
    /// Empty if the header is absent.
    std::string Get(const std::string& name) const;
    bool IsEmpty(KnownHeader header) const {
        const auto& value = PlaceOf(header).value;
        return !value || value->empty();
    }

    /// Calls `callback` with name and value of each header, in ascending byte order of the names.
    template <class Callback>
    void ForEach(const Callback& callback) const {
        const auto& names = NamesOfKnownHeaders();
        auto other = others.begin();
        for (std::size_t place = 0; place < known.size(); ++place) {
            if (!known[place].value) continue;
            for (; other != others.end() && other->first < names[place]; ++other)
                callback(other->first, other->second);
            callback(names[place], *known[place].value);
        }
        for (; other != others.end(); ++other)
            callback(other->first, other->second);
    }

private:
    struct Known {
        std::shared_ptr<const std::string> value;  // null while it is not set; otherwise `own`, or shared
        std::string own;                           // empty, its memory wiped, unless it is the value
    };

    const Known& PlaceOf(KnownHeader header) const { return known[static_cast<std::size_t>(header)]; }
    Known& PlaceOf(KnownHeader header) { return known[static_cast<std::size_t>(header)]; }
    static void WipeOwn(Known& header);

    std::array<Known, KnownHeaderNames::Count> known;  // by `KnownHeader`
    std::map<std::string, std::string> others;
};

}  // namespace Ombry::ClientCommunications
