#pragma once

#include <string>

namespace Ombry::ClientCommunications {

/// SHA-256 of the text's bytes as Base64, 44 characters. Failures are `std::runtime_error`.
std::string getSHA256HashBase64Encoded(const std::string& text);

}  // namespace Ombry::ClientCommunications
