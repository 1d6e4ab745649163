// Any text can be split: the query is everything from the first question mark on, the path begins with a
// slash and holds no question mark, and every part is a piece of the text but for a port that the scheme
// implies. A URL with its slash before its question mark is put together again from its parts.

#include "OmbryZephCore/ZephUrl.h"
#include "fuzz/Require.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using Ombry::Fuzz::Require;

bool IsPieceOf(const std::string& part, const std::string& url) {
    return url.find(part) != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string url(reinterpret_cast<const char*>(data), size);
    const OmbryZephCore::ZephUrlParts parts = OmbryZephCore::ParseUrl(url);

    const std::size_t question = url.find('?');
    Require(parts.query == (question == std::string::npos ? "" : url.substr(question)));
    Require(parts.path.empty() || parts.path[0] == '/');
    Require(parts.path.find('?') == std::string::npos);
    Require(IsPieceOf(parts.scheme, url) && IsPieceOf(parts.host, url) && IsPieceOf(parts.path, url));
    const std::string implied = parts.scheme == "https" ? "443" : parts.scheme == "http" ? "80" : "";
    Require(parts.port == implied || IsPieceOf(parts.port, url));
    if (!implied.empty()) Require(!parts.port.empty());

    // Without brackets, and with the query behind the path, nothing is lost.
    if (parts.path.empty() || url.find('[') != std::string::npos) return 0;
    const std::string start = url.substr(0, url.size() - parts.path.size() - parts.query.size());
    const std::size_t separator = url.find(':');
    const bool separated =
        separator != std::string::npos && url.size() - separator > 3 && url.compare(separator, 3, "://") == 0;
    const std::string whole = (separated ? parts.scheme + "://" : "") + parts.host;
    Require(start == whole || start == whole + ":" || start == whole + ":" + parts.port);
    return 0;
}
