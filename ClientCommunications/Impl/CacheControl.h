#pragma once

#include "ClientCommunications/FoundServicesDto.h"

#include <string>

namespace Ombry::ClientCommunications {

/// Takes the two times of a discovery answer from the value of its "Cache-Control" header; they stay unless
/// both directives yield text. `std::out_of_range` with "invalid string position" for a value that is too
/// short to take a missing directive from.
void ApplyCacheControl(const std::string& value, FoundServicesDto& dto);

}  // namespace Ombry::ClientCommunications
