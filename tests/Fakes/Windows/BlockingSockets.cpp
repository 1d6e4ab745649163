#include "tests/Fakes/BlockingSockets.h"

#include <winsock2.h>
#include <ws2tcpip.h>

namespace Ombry::Tests::BlockingSockets {
namespace {

/// The library is there for as long as the tests are.
SOCKET Number(Socket socket) {
    static const int started = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data);
    }();
    static_cast<void>(started);
    return static_cast<SOCKET>(socket);
}

Socket NewSocket(bool six) {
    Number(None);  // starts the library
    return static_cast<Socket>(WSASocketW(six ? AF_INET6 : AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                                          WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
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
    const Socket made = NewSocket(six);
    if (made == None) return None;
    Address address(six);
    if (bind(Number(made), address.Pointer(), address.length) == 0) return made;
    Close(made);
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
    const Socket made = NewSocket(six);
    Address address(six, port);
    if (made != None && connect(Number(made), address.Pointer(), address.length) == 0) return made;
    if (made != None) Close(made);
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
    return static_cast<Socket>(accept(Number(listener), nullptr, nullptr));
}

// Nothing but a connection wakes it for certain.
void EndAccepting(Socket listener) {
    const std::uint16_t port = PortOf(listener);
    for (const bool six : {false, true}) {
        const Socket last = Connect(port, six);
        if (last == None) continue;
        Close(last);
        return;
    }
}

bool Send(Socket socket, const char* bytes, std::size_t size) {
    return send(Number(socket), bytes, static_cast<int>(size), 0) == static_cast<int>(size);
}

bool SendUrgent(Socket socket) {
    return send(Number(socket), "!", 1, MSG_OOB) == 1;
}

std::size_t Receive(Socket socket, char* bytes, std::size_t room) {
    const int received = recv(Number(socket), bytes, static_cast<int>(room), 0);
    return received < 0 ? 0 : static_cast<std::size_t>(received);
}

bool AwaitReadable(Socket socket) {
    char byte = 0;
    return recv(Number(socket), &byte, 1, MSG_PEEK) == 1;
}

void SendWithoutDelay(Socket socket) {
    const char on = 1;
    setsockopt(Number(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// A call that waits is not woken by the shutdown, and one that comes later fails by it.
void Shutdown(Socket socket) {
    shutdown(Number(socket), SD_BOTH);
    CancelIoEx(reinterpret_cast<HANDLE>(socket), nullptr);
}

void ResetOnClose(Socket socket) {
    const linger now{1, 0};
    setsockopt(Number(socket), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&now), sizeof now);
}

void Close(Socket socket) {
    closesocket(Number(socket));
}

}  // namespace Ombry::Tests::BlockingSockets
