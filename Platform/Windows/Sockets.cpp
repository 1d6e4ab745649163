#include "Platform/IClock.h"
#include "Platform/ISockets.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/Api.h"
#include "Platform/Windows/Utf8.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string>

namespace Ombry::Platform {

const int FamilyUnspecified = AF_UNSPEC;
const int FamilyIPv4 = AF_INET;
const int FamilyIPv6 = AF_INET6;
const int SocketTypeStream = SOCK_STREAM;
const int ProtocolTcp = IPPROTO_TCP;

static_assert(ErrorWouldBlock == WSAEWOULDBLOCK && ErrorInProgress == WSAEINPROGRESS &&
              ErrorTimedOut == WSAETIMEDOUT);
static_assert(static_cast<SocketHandle>(INVALID_SOCKET) == InvalidSocket);
static_assert(SocketSet::Capacity == FD_SETSIZE);

namespace {

Result LastSocketError() {
    return Result::Failure(WSAGetLastError());
}

Result Outcome(int returned) {
    return returned == 0 ? Result::Success() : LastSocketError();
}

SOCKET Number(SocketHandle socket) {
    return static_cast<SOCKET>(socket);
}

struct SocketAddress {
    explicit SocketAddress(const AddressEntry& entry)
        : fits(entry.address.size() <= sizeof storage), length(static_cast<int>(entry.address.size())) {
        if (!fits) return;
        std::copy(entry.address.begin(), entry.address.end(), reinterpret_cast<std::uint8_t*>(&storage));
    }
    const sockaddr* Pointer() const { return reinterpret_cast<const sockaddr*>(&storage); }

    const bool fits;  // longer than any address is none
    sockaddr_storage storage{};
    int length;
};

// The narrow form of a call would read the code page of the machine.
std::optional<std::wstring> WideOrNone(const char* text) {
    return text ? std::optional(Windows::Wide(text)) : std::nullopt;
}

AddressEntry EntryOf(const ADDRINFOW& info) {
    AddressEntry entry;
    entry.flags = info.ai_flags;
    entry.family = info.ai_family;
    entry.socketType = info.ai_socktype;
    entry.protocol = info.ai_protocol;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(info.ai_addr);
    if (bytes) entry.address.assign(bytes, bytes + info.ai_addrlen);
    if (info.ai_canonname) entry.canonicalName = Windows::Utf8(info.ai_canonname);
    return entry;
}

// Mode in which no call waits. Sockets are made so, and stay so: this system has no transfer that does not
// wait on a socket of the other mode.
Result StopWaiting(SOCKET socket) {
    u_long on = 1;
    return Outcome(ioctlsocket(socket, static_cast<long>(FIONBIO), &on));
}

// The system's form of a set, in which a call leaves what is ready.
class SystemSet {
public:
    explicit SystemSet(const SocketSet* set) : isThere(set != nullptr) {
        sockets.fd_count = 0;
        if (!set) return;
        for (const SocketHandle handle : *set)
            sockets.fd_array[sockets.fd_count++] = Number(handle);
    }

    std::size_t Count() const { return sockets.fd_count; }
    fd_set* Pointer() { return isThere ? &sockets : nullptr; }

    void CopyTo(SocketSet* set) const {
        if (!set) return;
        set->Clear();
        for (u_int i = 0; i < sockets.fd_count; ++i)
            set->Add(static_cast<SocketHandle>(sockets.fd_array[i]));
    }

private:
    const bool isThere;
    fd_set sockets;  // only the first `fd_count` have a meaning
};

class WindowsSockets : public ISockets {
public:
    // The library is used from here on; whoever takes references counts beside this one, which is never
    // given back.
    WindowsSockets() {
        WSADATA ignored;
        static_cast<void>(WSAStartup(MAKEWORD(2, 2), &ignored));
    }

    ValueOr<std::uint16_t> Startup(std::uint16_t version) override {
        WSADATA data{};
        const int error = WSAStartup(version, &data);
        if (error != 0) return Result::Failure(error);
        return {data.wVersion, WSAGetLastError()};
    }

    Result Cleanup() override { return Outcome(WSACleanup()); }

    ValueOr<std::vector<AddressEntry>> GetAddressInfo(const char* host, const char* service,
                                                      const AddressHints& hints) override {
        const std::optional<std::wstring> wideHost = WideOrNone(host);
        const std::optional<std::wstring> wideService = WideOrNone(service);
        ADDRINFOW wanted{};
        wanted.ai_flags = hints.flags;
        wanted.ai_family = hints.family;
        wanted.ai_socktype = hints.socketType;
        wanted.ai_protocol = hints.protocol;
        ADDRINFOW* list = nullptr;
        const int error = GetAddrInfoW(wideHost ? wideHost->c_str() : nullptr,
                                       wideService ? wideService->c_str() : nullptr, &wanted, &list);
        if (error != 0) return Result::Failure(error);
        const std::unique_ptr<ADDRINFOW, decltype(&FreeAddrInfoW)> owner(list, &FreeAddrInfoW);
        std::vector<AddressEntry> entries;
        for (const ADDRINFOW* info = list; info; info = info->ai_next)
            entries.push_back(EntryOf(*info));
        return entries;
    }

    ValueOr<NumericName> NumericNameOf(const AddressEntry& address, std::size_t hostRoom,
                                       std::size_t serviceRoom) override {
        const SocketAddress from(address);
        if (!from.fits) return Result::Failure(WSAEFAULT);
        std::vector<char> host(hostRoom + 1);
        std::vector<char> service(serviceRoom + 1);
        const int error =
            getnameinfo(from.Pointer(), from.length, host.data(), static_cast<DWORD>(hostRoom),
                        service.data(), static_cast<DWORD>(serviceRoom), NI_NUMERICHOST | NI_NUMERICSERV);
        if (error != 0) return Result::Failure(error);
        return NumericName{host.data(), service.data()};
    }

    ValueOr<SocketHandle> Create(int family, int socketType, int protocol) override {
        const SOCKET made = WSASocketW(family, socketType, protocol, nullptr, 0,
                                       WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
        if (made == INVALID_SOCKET) return LastSocketError();
        if (const Result result = StopWaiting(made); !result) {
            closesocket(made);
            return result;
        }
        // The head and the body of a request leave as two sends; waiting for the acknowledgement of the first
        // would cost 200 ms each time. A socket that refuses the option still works.
        if ((family == AF_INET || family == AF_INET6) && socketType == SOCK_STREAM) {
            const BOOL on = TRUE;
            setsockopt(made, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
        }
        return static_cast<SocketHandle>(made);
    }

    Result Close(SocketHandle socket) override { return Outcome(closesocket(Number(socket))); }

    Result Bind(SocketHandle socket, const AddressEntry& address) override {
        const SocketAddress local(address);
        if (!local.fits) return Result::Failure(WSAEFAULT);
        return Outcome(bind(Number(socket), local.Pointer(), local.length));
    }

    // Nothing changes, whichever mode is asked for; a handle that is no socket is still refused.
    Result SetNonBlocking(SocketHandle socket, bool) override { return StopWaiting(Number(socket)); }

    Result Connect(SocketHandle socket, const AddressEntry& address) override {
        const SocketAddress peer(address);
        if (!peer.fits) return Result::Failure(WSAEFAULT);
        return Outcome(connect(Number(socket), peer.Pointer(), peer.length));
    }

    SelectResult Select(SocketSet* read, SocketSet* write, SocketSet* except,
                        std::int64_t milliseconds) override {
        constexpr std::int64_t most =
            std::chrono::duration_cast<std::chrono::milliseconds>(Duration::max()).count();
        const Duration length = std::chrono::milliseconds(std::clamp<std::int64_t>(milliseconds, 0, most));
        // The real clock, also where a test moves another one: the system waits in real time.
        IClock& clock = Production<IClock>();
        const Duration start = clock.SteadyNow();
        for (Duration left = length;;) {
            const Duration slice = std::min(left, LongestWait);
            SystemSet readable(read);
            SystemSet writable(write);
            SystemSet exceptional(except);
            const SelectResult result = SelectOnce(readable, writable, exceptional, slice);
            if (result.count == 0 && slice < left) {
                left = std::max(length - (clock.SteadyNow() - start), Duration::zero());
                continue;
            }
            if (result.count >= 0) {
                readable.CopyTo(read);
                writable.CopyTo(write);
                exceptional.CopyTo(except);
            }
            return result;
        }
    }

    ValueOr<int> GetSocketError(SocketHandle socket) override {
        int error = 0;
        int length = sizeof error;
        if (getsockopt(Number(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &length) != 0) {
            return LastSocketError();
        }
        return error;
    }

    TransferResult Receive(SocketHandle socket, void* buffer, std::uint32_t length) override {
        return Moved(recv(Number(socket), static_cast<char*>(buffer), Most(length), 0));
    }

    // The system has no way to be told that more follows.
    TransferResult Send(SocketHandle socket, const void* buffer, std::uint32_t length, bool) override {
        return Moved(send(Number(socket), static_cast<const char*>(buffer), Most(length), 0));
    }

private:
    static SelectResult SelectOnce(SystemSet& read, SystemSet& write, SystemSet& except, Duration atMost) {
        // The system does not wait for nothing.
        if (read.Count() + write.Count() + except.Count() == 0) {
            Production<IClock>().Sleep(atMost);
            return {0, 0};
        }
        timeval time{};
        time.tv_sec = static_cast<long>(atMost.count() / TicksPerSecond);
        time.tv_usec = static_cast<long>(atMost.count() % TicksPerSecond / 10);
        const int count = select(0, read.Pointer(), write.Pointer(), except.Pointer(), &time);
        return count < 0 ? SelectResult{-1, WSAGetLastError()} : SelectResult{count, 0};
    }

    static int Most(std::uint32_t length) {
        return static_cast<int>(std::min<std::uint32_t>(length, std::numeric_limits<int>::max()));
    }

    static TransferResult Moved(int count) {
        return count < 0 ? TransferResult{-1, WSAGetLastError()} : TransferResult{count, 0};
    }
};

}  // namespace

template <>
ISockets& Production<ISockets>() {
    return MadeOnce<WindowsSockets>();
}

}  // namespace Ombry::Platform
