#pragma once

#include <string>

struct ssl_st;

namespace Ombry::Bench {

/// Throws `std::runtime_error` unless the server of a session that was set up has the key of this pin, which
/// is in libcurl's form.
void RequirePin(ssl_st* session, const std::string& pin);

}  // namespace Ombry::Bench
