#pragma once

#include <string>

namespace Ombry::ClientCommunications {

/// Called with the path of a file that was just saved: the place where a platform may tighten its access
/// rights. Seam inside: no installed function takes or gives it.
class IPostSaveHook {
public:
    virtual void OnSaved(const std::string& path) = 0;
    virtual ~IPostSaveHook() = default;
};

}  // namespace Ombry::ClientCommunications
