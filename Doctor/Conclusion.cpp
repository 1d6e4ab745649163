#include "Doctor/Conclusion.h"

namespace Ombry::Doctor {

Finding MayNotLook(const std::string& path) {
    return {.severity = Severity::Critical,
            .message = path + " may not be looked at by this user",
            .pairs = {{"path", path}},
            .remedy = "sudo ombry-doctor",
            .isUndecided = true};
}

void Conclude(const Machine& machine, const std::vector<std::string>& folders, Finding nothing,
              Findings& findings) {
    for (const std::string& folder : folders) {
        const std::string hidden = machine.Tree().HiddenOf(folder);
        if (hidden.empty()) continue;
        findings.push_back(MayNotLook(hidden));
        return;
    }
    if (findings.empty()) findings.push_back(std::move(nothing));
}

}  // namespace Ombry::Doctor
