#include "Sandbox/Connections.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace Ombry::Sandbox {
namespace {

// The library does not show its sockets, so they are looked for among all that can be open: it waits for them
// with select, which takes no others.
constexpr int FirstSocket = 3;
constexpr int EndOfSockets = FD_SETSIZE;

struct End {
    std::string address;
    int port = -1;
};

using AskForEnd = int (*)(int, sockaddr*, socklen_t*);

// One end of a connection; no port if the number is no socket or has no such end.
End EndOf(int socket, AskForEnd ask) {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    if (ask(socket, reinterpret_cast<sockaddr*>(&storage), &length) != 0) return {};
    char text[INET6_ADDRSTRLEN] = "";
    if (storage.ss_family == AF_INET) {
        const auto& ip = reinterpret_cast<const sockaddr_in&>(storage);
        inet_ntop(AF_INET, &ip.sin_addr, text, sizeof text);
        return {text, ntohs(ip.sin_port)};
    }
    if (storage.ss_family == AF_INET6) {
        const auto& ip = reinterpret_cast<const sockaddr_in6&>(storage);
        inet_ntop(AF_INET6, &ip.sin6_addr, text, sizeof text);
        return {text, ntohs(ip.sin6_port)};
    }
    return {};
}

void Find(int socket, AskForEnd ask, std::string& address, int& port) {
    End end = EndOf(socket, ask);
    if (end.port < 0) return;
    address = std::move(end.address);
    port = end.port;
}

}  // namespace

void FindPeer(int socket, std::string& address, int& port) {
    Find(socket, getpeername, address, port);
}

void FindOwnEnd(int socket, std::string& address, int& port) {
    Find(socket, getsockname, address, port);
}

int FindConnection(const httplib::Request& request) {
    for (int socket = FirstSocket; socket < EndOfSockets; ++socket) {
        const End peer = EndOf(socket, getpeername);
        if (peer.port >= 0 && peer.port == request.remote_port && peer.address == request.remote_addr)
            return socket;
    }
    return -1;
}

bool HasHungUp(int socket) {
    if (socket < 0) return true;
    pollfd wanted{socket, POLLRDHUP, 0};
    return poll(&wanted, 1, 0) > 0;
}

void ResetConnection(int socket) {
    if (socket < 0) return;
    // The last close of a socket that does not linger resets its connection. The library goes on with the
    // number, so another socket takes it, whose other end is gone: reading it ends at once.
    const linger none{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        shutdown(socket, SHUT_RDWR);
        return;
    }
    dup3(ends[0], socket, O_CLOEXEC);
    close(ends[0]);
    close(ends[1]);
}

void EndReading(int port, const std::set<Peer>& kept) {
    for (int socket = FirstSocket; socket < EndOfSockets; ++socket) {
        if (EndOf(socket, getsockname).port != port) continue;
        const End peer = EndOf(socket, getpeername);
        if (peer.port >= 0 && !kept.contains({peer.address, peer.port})) shutdown(socket, SHUT_RD);
    }
}

}  // namespace Ombry::Sandbox
