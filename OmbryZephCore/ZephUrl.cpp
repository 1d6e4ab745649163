#include "OmbryZephCore/ZephUrl.h"

#include <algorithm>
#include <string_view>

namespace OmbryZephCore {

namespace {

constexpr std::size_t None = std::string_view::npos;

std::size_t FindBefore(std::string_view text, char c, std::size_t begin, std::size_t end) {
    const std::size_t found = text.find(c, begin);
    return found < end ? found : None;
}

// Empty if the end lies before the beginning.
std::string_view Slice(std::string_view text, std::size_t begin, std::size_t end) {
    return begin < end ? text.substr(begin, end - begin) : std::string_view();
}

std::string_view DefaultPort(std::string_view scheme) {
    if (scheme == "https") return "443";
    if (scheme == "http") return "80";
    return "";
}

}  // namespace

ZephUrlParts ParseUrl(const std::string& url) {
    const std::string_view text = url;
    constexpr std::string_view separator = "://";

    // The first colon of the whole text decides, and something has to follow the separator.
    std::string_view scheme;
    std::size_t rest = 0;
    const std::size_t colon = text.find(':');
    if (colon != None && text.size() - colon > separator.size() &&
        text.substr(colon).starts_with(separator)) {
        scheme = text.substr(0, colon);
        rest = colon + separator.size();
    }

    // A question mark may stand before the slash, and even in what was taken for the scheme.
    const std::size_t question = std::min(text.find('?'), text.size());
    const std::size_t slash = std::min(text.find('/', rest), text.size());
    const std::size_t limit = std::max(rest, slash != text.size() ? slash : question);

    std::string_view host;
    std::size_t hostEnd = limit;
    if (rest < limit && text[rest] == '[') {
        const std::size_t bracket = FindBefore(text, ']', rest, limit);
        if (bracket != None) {
            hostEnd = bracket + 1;
            host = Slice(text, rest + 1, bracket);
        } else {
            host = Slice(text, rest, limit);
        }
    } else {
        hostEnd = std::min(FindBefore(text, ':', rest, limit), limit);
        host = Slice(text, rest, hostEnd);
    }

    std::string_view port;
    if (hostEnd < limit && text[hostEnd] == ':') port = Slice(text, hostEnd + 1, limit);
    if (port.empty()) port = DefaultPort(scheme);
    return {.query = std::string(Slice(text, question, text.size())),
            .path = std::string(Slice(text, slash, question)),
            .scheme = std::string(scheme),
            .host = std::string(host),
            .port = std::string(port)};
}

}  // namespace OmbryZephCore
