#pragma once

#include <string>

namespace Ombry::ClientCommunications {

/// A new UUID as 36 lower-case characters without braces (RFC 9562, section 4).
std::string MakeGuidText();

}  // namespace Ombry::ClientCommunications
