#include "Sandbox/HttpConnection.h"

#include "Sandbox/Connections.h"

#include <openssl/err.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace Ombry::Sandbox {
namespace {

constexpr std::size_t ReceiveSize = 16 << 10;
// What is still listened to behind an answer that closes.
constexpr std::size_t LargestRemainder = 1 << 20;
constexpr int RemainderMilliseconds = 1000;  // for each piece
constexpr auto LongestRemainderTime = std::chrono::seconds(10);

bool Await(socket_t socket, short events, int milliseconds) {
    pollfd wanted{socket, events, 0};
    int ready = 0;
    do {
        ready = poll(&wanted, 1, milliseconds);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

}  // namespace

HttpConnection::HttpConnection(socket_t socket, SSL_CTX* context)
    : descriptor(socket), tls(context ? SSL_new(context) : nullptr) {
    if (tls && SSL_set_fd(tls.get(), socket) == 1) {
        BIO* const bio = SSL_get_rbio(tls.get());
        BIO_set_callback_ex(bio, RefuseWhenLate);
        BIO_set_callback_arg(bio, reinterpret_cast<char*>(this));
    }
    established = !context;
}

HttpConnection::~HttpConnection() {
    if (tls && established) SSL_shutdown(tls.get());
    ERR_clear_error();  // of this thread, which goes on with another connection
    shutdown(descriptor, SHUT_RDWR);
    close(descriptor);
}

bool HttpConnection::Begin() {
    SetDeadline(LongestHandshakeTime);
    if (!established) established = tls && SSL_accept(tls.get()) == 1;
    return established;
}

bool HttpConnection::AwaitRequest(std::chrono::seconds atMost) {
    if (position < buffer.size() || (tls && SSL_pending(tls.get()) > 0)) return true;
    return Await(descriptor, POLLIN, static_cast<int>(std::chrono::milliseconds(atMost).count()));
}

HttpConnection::Head HttpConnection::TakeHead() {
    buffer.erase(0, position);
    position = headEnd = 0;
    inBody = false;
    SetDeadline(LongestHeadTime);
    std::size_t fields = 0;
    for (std::size_t line = 0;;) {
        const std::size_t end = buffer.find('\n', std::max(line, headEnd));
        if (end == std::string::npos) {
            headEnd = buffer.size();  // no need to search there again
            if (headEnd > LargestHead || (line > 0 && headEnd - line > LargestField)) return Head::TooLarge;
            const bool came = ReceiveMore();
            if (IsLate()) return Head::TooSlow;
            if (!came) return Head::Taken;
            continue;
        }
        const std::size_t length = end + 1 - line;
        headEnd = end + 1;
        if (line > 0) {
            if (length == 2 && buffer[line] == '\r') return Head::Taken;
            if (++fields > MostFields || length > LargestField) return Head::TooLarge;
        }
        if (headEnd > LargestHead) return Head::TooLarge;
        line = headEnd;
    }
}

void HttpConnection::ReplaceHead() {
    // The library refuses a request line of this length, whatever comes behind it.
    const std::size_t end = std::min(buffer.find('\n'), LargestHead);
    buffer = buffer.substr(0, end) + (buffer.find('\n') == end ? "\n\r\n" : "\r\n\r\n");
    position = 0;
    headEnd = buffer.size();
}

void HttpConnection::CloseGently() {
    if (tls) SSL_shutdown(tls.get());
    established = false;
    shutdown(descriptor, SHUT_WR);
    char ignored[ReceiveSize];
    const Duration start = Platform::Clock().SteadyNow();
    for (std::size_t taken = 0; taken < LargestRemainder;) {
        if (Platform::Clock().SteadyNow() - start > LongestRemainderTime) break;
        if (!Await(descriptor, POLLIN, RemainderMilliseconds)) break;
        const ssize_t count = recv(descriptor, ignored, sizeof ignored, 0);
        if (count <= 0) break;
        taken += static_cast<std::size_t>(count);
    }
}

bool HttpConnection::is_writable() const {
    return !HasHungUp(descriptor);
}

ssize_t HttpConnection::read(char* data, std::size_t size) {
    if (position == buffer.size()) {
        // Behind the head the library reads the body alone.
        if (!inBody) SetDeadline(LongestBodyTime);
        inBody = true;
        buffer.clear();
        position = headEnd = 0;
        const bool came = !IsLate() && ReceiveMore();
        tooLate = IsLate();
        if (!came || tooLate) return 0;
    }
    const std::size_t count = std::min(size, buffer.size() - position);
    std::copy_n(buffer.data() + position, count, data);
    position += count;
    return static_cast<ssize_t>(count);
}

ssize_t HttpConnection::write(const char* data, std::size_t size) {
    if (tls) return SSL_write(tls.get(), data, static_cast<int>(std::min<std::size_t>(size, INT_MAX)));
    ssize_t count = 0;
    do {
        count = send(descriptor, data, size, MSG_NOSIGNAL);
    } while (count < 0 && errno == EINTR);
    return count;
}

void HttpConnection::get_remote_ip_and_port(std::string& address, int& port) const {
    FindPeer(descriptor, address, port);
}

void HttpConnection::get_local_ip_and_port(std::string& address, int& port) const {
    FindOwnEnd(descriptor, address, port);
}

// Stands before what the TLS library does with the socket. It receives until a record, or the handshake, is
// whole, and would let each byte take as long as the socket allows.
long HttpConnection::RefuseWhenLate(BIO* bio, int operation, const char*, std::size_t, int, long, int result,
                                    std::size_t*) {
    const auto& connection = *reinterpret_cast<const HttpConnection*>(BIO_get_callback_arg(bio));
    if (operation != BIO_CB_READ || !connection.IsLate()) return result;
    BIO_set_retry_read(bio);  // no failure of the connection, over which an answer may still go
    return -1;
}

void HttpConnection::SetDeadline(Duration fromNow) {
    deadline = Platform::Clock().SteadyNow() + fromNow;
}

bool HttpConnection::IsLate() const {
    return Platform::Clock().SteadyNow() > deadline;
}

// Whether anything came.
bool HttpConnection::ReceiveMore() {
    const std::size_t old = buffer.size();
    buffer.resize(old + ReceiveSize);
    const ssize_t count = Receive(buffer.data() + old, ReceiveSize);
    buffer.resize(old + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return count > 0;
}

ssize_t HttpConnection::Receive(char* data, std::size_t size) {
    if (tls) {
        const int count = SSL_read(tls.get(), data, static_cast<int>(std::min<std::size_t>(size, INT_MAX)));
        return count;
    }
    ssize_t count = 0;
    do {
        count = recv(descriptor, data, size, 0);
    } while (count < 0 && errno == EINTR);
    return count;
}

}  // namespace Ombry::Sandbox
