#pragma once

#include <memory>
#include <sstream>

#include "LibraryLogger/ILogger.h"

namespace Ombry::LibraryLogger {

/// One log call: streams the parts in order into one message, but only if there is a logger and it wants the
/// level. The pointer is taken by value, so that the logger lives through the call. `function` is the
/// qualified name as a literal, since __func__ is not qualified. Arguments that cost something to make belong
/// inside a check of the caller's own.
template <class... Parts>
void LogCall(std::shared_ptr<ILogger> logger, const char* file, int line, const char* function, int level,
             const Parts&... parts) {
    if (!logger || !logger->IsEnabled(level)) return;
    std::ostringstream message;
    (message << ... << parts);
    logger->Log(file, line, function, level, message.str());
}

}  // namespace Ombry::LibraryLogger
