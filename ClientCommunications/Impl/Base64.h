#pragma once

#include <string>

namespace Ombry::ClientCommunications {

/// Base64 without line breaks (RFC 4648, section 4). Empty text stays empty.
std::string Base64Encode(const std::string& data);

/// The inverse, which checks nothing: it never fails, stops at the first "=" in the third or fourth position
/// of a group, and makes bytes of whatever else it finds.
std::string Base64Decode(const std::string& text);

}  // namespace Ombry::ClientCommunications
