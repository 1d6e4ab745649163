#pragma once

#include "LibraryLogger/ILogger.h"

#include <locale>
#include <memory>
#include <sstream>
#include <type_traits>

namespace Ombry::LibraryLogger {

/// Where a log call stands, made from the name of its function alone: file and line are those of the
/// expression that makes it, so a helper that logs for its callers takes a place and hands it on. The name is
/// a qualified literal, since __func__ is not qualified. The built-ins stand for std::source_location, which
/// clang 14 does not offer with this standard library.
struct Place {
    /// All but the function's name is filled in where the expression stands.
    Place(const char* function, const char* file = __builtin_FILE(), int line = __builtin_LINE())
        : function(function), file(file), line(line) {}

    const char* function;  ///< qualified name; a literal, as the file
    const char* file;      ///< source path at build time, in a Release from the root of the tree on
    int line;              ///< counted from 1
};

/// `LogCall` with a logger. Apart, and placed where nothing runs often: there are log calls in all roads, and
/// what makes their messages would lie between the steps. The pointer is taken by value, so that the logger
/// lives through the call.
template <class... Parts>
[[gnu::cold, gnu::noinline]] void LogTo(std::shared_ptr<ILogger> logger, const Place& place, int level,
                                        const Parts&... parts) {
    if (!logger->IsEnabled(level)) return;
    std::ostringstream message;
    message.imbue(std::locale::classic());  // numbers without the digit groups of the program's own locale
    const auto stream = [&message](const auto& part) {
        if constexpr (std::is_invocable_v<decltype(part)>) {
            message << part();
        } else {
            message << part;
        }
    };
    (stream(parts), ...);
    logger->Log(place.file, place.line, place.function, level, message.str());
}

/// One log call: streams the parts in order into one message, but only if there is a logger and it wants the
/// level. A part that costs something to make is given as a callable, which is called only then.
template <class... Parts>
void LogCall(const std::shared_ptr<ILogger>& logger, const Place& place, int level, const Parts&... parts) {
    if (logger) LogTo(logger, place, level, parts...);
}

}  // namespace Ombry::LibraryLogger
