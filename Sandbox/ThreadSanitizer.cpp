#include <httplib.h>

// The HTTP library comes compiled, without the thread sanitizer's instrumentation. It keeps the names of the
// methods in a local static set, which the first request makes. The thread that makes it does so under the
// compiler's guard, which the sanitizer sees; the others read the guard's byte inline, which it does not, and
// so their look-ups in the set seem to race with its making. Here the set is made before there are threads.

namespace {

struct Server : httplib::Server {
    using httplib::Server::process_request;
};

// Of Debian 12's version, and of Debian 13's, which asks for addresses as well.
bool Process(auto&& server, httplib::Stream& stream) {
    bool closed = false;
    if constexpr (requires { server.process_request(stream, true, closed, nullptr); })
        return server.process_request(stream, true, closed, nullptr);
    else
        return server.process_request(stream, "", 0, "", 0, true, closed, nullptr);
}

const bool made = [] {
    httplib::detail::BufferStream stream;
    static_cast<httplib::Stream&>(stream).write("GET / HTTP/1.1\r\n\r\n");
    return Process(Server(), stream);
}();

}  // namespace
