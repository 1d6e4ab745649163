#pragma once

#include <string>

namespace OmbryZephCore {

/// The calling thread's queue of TLS library errors as one text, oldest first, parted by "; ". Empties the
/// queue, since a stale entry would make the next handshake of any session on this thread look failed.
std::string TakeOpenSSLErrors();

}  // namespace OmbryZephCore
