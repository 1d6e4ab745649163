#include "tests/Fakes/BlockingSockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Ombry::Tests::BlockingSockets {
namespace {

int Number(Socket socket) {
    return static_cast<int>(socket);
}

/// The loopback address with a port, in the form of the calls.
class Address {
public:
    explicit Address(bool six, std::uint16_t port = 0)
        : length(six ? sizeof(sockaddr_in6) : sizeof(sockaddr_in)) {
        storage.ss_family = six ? AF_INET6 : AF_INET;
        if (six) {
            reinterpret_cast<sockaddr_in6&>(storage).sin6_addr = in6addr_loopback;
            reinterpret_cast<sockaddr_in6&>(storage).sin6_port = htons(port);
        } else {
            reinterpret_cast<sockaddr_in&>(storage).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            reinterpret_cast<sockaddr_in&>(storage).sin_port = htons(port);
        }
    }
    sockaddr* Pointer() { return reinterpret_cast<sockaddr*>(&storage); }

    sockaddr_storage storage{};
    socklen_t length;
};

Socket Bound(bool six) {
    const int made = socket(six ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (made < 0) return None;
    const int on = 1;
    setsockopt(made, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    Address address(six);
    if (bind(made, address.Pointer(), address.length) == 0) return made;
    close(made);
    return None;
}

}  // namespace

Socket Listen(bool six) {
    const Socket listener = Bound(six);
    if (listener == None || listen(Number(listener), 64) == 0) return listener;
    Close(listener);
    return None;
}

Socket Hold() {
    return Bound(false);
}

Socket Connect(std::uint16_t port, bool six) {
    const int made = socket(six ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Address address(six, port);
    if (made >= 0 && connect(made, address.Pointer(), address.length) == 0) return made;
    if (made >= 0) close(made);
    return None;
}

std::uint16_t PortOf(Socket socket) {
    Address address(false);
    address.length = sizeof address.storage;
    if (getsockname(Number(socket), address.Pointer(), &address.length) != 0) return 0;
    // The port is at the same place in both families.
    return ntohs(reinterpret_cast<sockaddr_in&>(address.storage).sin_port);
}

std::string RemoteAddress(Socket socket) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    char text[INET_ADDRSTRLEN] = "";
    getpeername(Number(socket), reinterpret_cast<sockaddr*>(&address), &length);
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text;
}

Socket Accept(Socket listener) {
    return accept4(Number(listener), nullptr, nullptr, SOCK_CLOEXEC);
}

void EndAccepting(Socket listener) {
    shutdown(Number(listener), SHUT_RDWR);
}

bool Send(Socket socket, const char* bytes, std::size_t size) {
    return send(Number(socket), bytes, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

bool SendUrgent(Socket socket) {
    return send(Number(socket), "!", 1, MSG_OOB | MSG_NOSIGNAL) == 1;
}

std::size_t Receive(Socket socket, char* bytes, std::size_t room) {
    const ssize_t received = recv(Number(socket), bytes, room, 0);
    return received < 0 ? 0 : static_cast<std::size_t>(received);
}

bool AwaitReadable(Socket socket) {
    char byte = 0;
    return recv(Number(socket), &byte, 1, MSG_PEEK) == 1;
}

void SendWithoutDelay(Socket socket) {
    const int on = 1;
    setsockopt(Number(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void Shutdown(Socket socket) {
    shutdown(Number(socket), SHUT_RDWR);
}

void ResetOnClose(Socket socket) {
    const linger now{1, 0};
    setsockopt(Number(socket), SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

void Close(Socket socket) {
    close(Number(socket));
}

}  // namespace Ombry::Tests::BlockingSockets
