#include <httplib.h>

// The HTTP library comes compiled, without the thread sanitizer's instrumentation. It keeps the names of the
// methods in a local static set, which the first request makes. The thread that makes it does so under the
// compiler's guard, which the sanitizer sees; the others read the guard's byte inline, which it does not, and
// so their look-ups in the set seem to race with its making. Here the set is made before there are threads.

namespace {

struct Server : httplib::Server {
    using httplib::Server::process_request;
};

const bool made = [] {
    httplib::detail::BufferStream buffer;
    httplib::Stream& stream = buffer;
    stream.write("GET / HTTP/1.1\r\n\r\n");
    bool closed = false;
    return Server().process_request(stream, true, closed, nullptr);
}();

}  // namespace
