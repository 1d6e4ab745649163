#include "Doctor/Conclusion.h"

#include "Doctor/Texts.h"
#include "Platform/ErrorNumber.h"

namespace Ombry::Doctor {

Finding CannotLook(const std::string& path, int error) {
    if (!Platform::Inspection().MeansForbidden(error)) {
        return {.severity = Severity::Critical,
                .message = path + " cannot be looked at, with error " + Platform::ErrorNumber(error),
                .pairs = {{"path", path}},
                .remedy = "ls -la -- " + Quoted(path),
                .isUndecided = true};
    }
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
        findings.push_back(CannotLook(hidden, machine.Tree().WhyHidden(hidden)));
        return;
    }
    if (findings.empty()) findings.push_back(std::move(nothing));
}

}  // namespace Ombry::Doctor
