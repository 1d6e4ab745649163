#pragma once

#include "Doctor/Finding.h"
#include "Doctor/Machine.h"

#include <string>
#include <vector>

namespace Ombry::Doctor {

/// What is found of something that cannot be looked at: most often the user may not.
Finding CannotLook(const std::string& path, int error);

/// Ends a check of what lies below the folders: says where this user may not look, and otherwise, if nothing
/// was found, `nothing`. A check that leaves this out takes what it may not see for what is not there.
void Conclude(const Machine& machine, const std::vector<std::string>& folders, Finding nothing,
              Findings& findings);

}  // namespace Ombry::Doctor
