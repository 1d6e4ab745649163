#pragma once

#include <string>

/// What the libraries tell of their work, and to whom.
namespace Ombry::LibraryLogger {

/// Where the libraries report what they do. A host application may implement it; every class takes it as a
/// shared pointer that may be empty. All operations may be called from any thread at once, must not throw,
/// and must not call back into the object that logs. Messages can hold tokens: those of level 3 and 4 that
/// quote an answer which does not fit, and with `CommunicationsParameters::verbose` those of level 0.
class ILogger {
public:
    virtual ~ILogger() = default;

    /// Whether messages of this level are wanted: 0 is the most detailed trace, 1 the road of a call, 2 a
    /// cache that is seeded, 3 failures that are survived, 4 failed operations. A message is assembled only
    /// if the answer is yes.
    virtual bool IsEnabled(int level) = 0;

    /// `file` is the source path at build time, in a Release from the root of the tree on; `function` is the
    /// qualified name.
    virtual void Log(const char* file, int line, const char* function, int level,
                     const std::string& message) = 0;
};

}  // namespace Ombry::LibraryLogger
