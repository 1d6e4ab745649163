#pragma once

#include "Sandbox/Identity.h"

#include <httplib.h>
#include <openssl/ssl.h>

#include <atomic>
#include <cstddef>
#include <memory>

namespace Ombry::Sandbox {

struct FreeTlsContext {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};

/// The library's server, with what it does not have itself: limits on the head of a request, and an eye for
/// those who wait. A connection holds a thread as long as it is kept, so none is kept while others wait for
/// one.
class Server final : public httplib::Server {
public:
    /// Speaks TLS as this identity; clear text without one. `std::runtime_error` if TLS cannot be set up.
    explicit Server(const Identity* identity);

    /// Whether all that was read of a request is that its head is too large. It comes like any other, but for
    /// its headers, and is to be answered by 431 (RFC 6585, section 5).
    static bool HasTooLargeHead(const httplib::Request& request);

    /// Says that the library left a part of the body unread that the calling thread answers: nothing that
    /// follows on its connection is a request.
    static void LeaveBodyUnread();

    /// What gives connections to so many threads, for the library to ask for.
    std::unique_ptr<httplib::TaskQueue> MakeQueue(std::size_t threads);

private:
    bool process_and_close_socket(socket_t socket) override;

    std::unique_ptr<SSL_CTX, FreeTlsContext> context;  // none in clear text
    std::atomic<long> waiting = 0;  // connections that were accepted and have no thread yet
};

}  // namespace Ombry::Sandbox
