#include "Platform/IClock.h"
#include "Platform/ISockets.h"
#include "Platform/MadeOnce.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>

namespace Ombry::Platform {

const int FamilyUnspecified = AF_UNSPEC;
const int FamilyIPv4 = AF_INET;
const int FamilyIPv6 = AF_INET6;
const int SocketTypeStream = SOCK_STREAM;
const int ProtocolTcp = IPPROTO_TCP;

namespace {

// The core compares with two numbers only; 4, which it also knows, is EINTR here and stays as it is.
int CoreError(int error) {
    if (error == EINPROGRESS) return ErrorInProgress;
    if (error == EAGAIN || error == EWOULDBLOCK) return ErrorWouldBlock;
    return error;
}

Result CoreOutcome(int returned) {
    return returned == 0 ? Result::Success() : Result::Failure(CoreError(errno));
}

int Descriptor(SocketHandle socket) {
    if (socket < 0 || socket > std::numeric_limits<int>::max()) return -1;
    return static_cast<int>(socket);
}

struct SocketAddress {
    explicit SocketAddress(const AddressEntry& entry) : length(static_cast<socklen_t>(entry.address.size())) {
        if (entry.address.size() > sizeof storage) {
            length = 0;  // the system refuses an address without bytes
            return;
        }
        std::copy(entry.address.begin(), entry.address.end(), reinterpret_cast<std::uint8_t*>(&storage));
    }
    const sockaddr* Pointer() const { return reinterpret_cast<const sockaddr*>(&storage); }

    sockaddr_storage storage{};
    socklen_t length;
};

AddressEntry EntryOf(const addrinfo& info) {
    AddressEntry entry;
    entry.flags = info.ai_flags;
    entry.family = info.ai_family;
    entry.socketType = info.ai_socktype;
    entry.protocol = info.ai_protocol;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(info.ai_addr);
    if (bytes) entry.address.assign(bytes, bytes + info.ai_addrlen);
    if (info.ai_canonname) entry.canonicalName = info.ai_canonname;
    return entry;
}

// The socket of this thread whose last receive got all that it asked for: there is mostly more. A receive
// that finds nothing costs no more than the question would, so the next wait for this socket alone calls it
// ready unasked. A receive ends ahead of urgent data, so that these are asked for; only those that begin
// exactly behind one that got all are passed over.
thread_local SocketHandle flowing = InvalidSocket;

bool HoldsOnly(const SocketSet& set, SocketHandle socket) {
    return set.Count() == 1 && set[0] == socket;
}

bool IsEmpty(const SocketSet* set) {
    return !set || set->Count() == 0;
}

// True once for each such receive, so that whoever asks again without a receive waits.
bool IsWaitForWhatFlows(const SocketSet* read, const SocketSet* write, const SocketSet* except) {
    if (flowing == InvalidSocket || !read || !HoldsOnly(*read, flowing) || !IsEmpty(write)) return false;
    if (!IsEmpty(except) && !HoldsOnly(*except, flowing)) return false;
    flowing = InvalidSocket;
    return true;
}

// One wait on up to three sets, by poll, which takes a descriptor of any number. A handle has one entry,
// however many sets it is in: the system works through each entry before and after its sleep. The sets
// remember the entries of their members, so that an event is counted only where it was asked for; they are
// empty until the wait ends.
class PollWait {
public:
    PollWait(SocketSet* read, SocketSet* write, SocketSet* except) {
        writes = !IsEmpty(write);
        // Data may still lie behind a hang-up, and a failed connect shows as writable: both end in a transfer
        // or a look at SO_ERROR, which say what happened. The exception set is for urgent data alone.
        Append(read, POLLIN, POLLIN | POLLHUP | POLLERR);
        Append(write, POLLOUT, POLLOUT | POLLHUP | POLLERR);
        Append(except, POLLPRI, POLLPRI);
    }

    SelectResult Run(std::int64_t milliseconds) {
        if (invalid) return {-1, EBADF};
        // There is mostly room for a write, and a look costs the system half of a wait that ends at once.
        // Where it fails, the wait says why.
        if (writes && milliseconds > 0 && poll(entries.data(), used, 0) > 0) {
            const SelectResult result = KeepReady();
            if (result.count != 0) return result;
        }
        // The real clock, also where a test moves another one: poll waits in real time.
        IClock& clock = Production<IClock>();
        const Duration start = milliseconds > 0 ? clock.SteadyNow() : Duration::zero();
        std::int64_t left = std::max<std::int64_t>(milliseconds, 0);
        for (;;) {
            const std::int64_t slice = std::min<std::int64_t>(left, std::numeric_limits<int>::max());
            const int count = poll(entries.data(), used, static_cast<int>(slice));
            if (count < 0 && errno != EINTR) return {-1, errno};
            if (count > 0) {
                const SelectResult result = KeepReady();
                if (result.count != 0) return result;
            }
            if (count == 0 && slice == left) return {0, 0};
            if (milliseconds > 0) {
                left = std::max<std::int64_t>(milliseconds - Milliseconds(clock.SteadyNow() - start), 0);
            }
        }
    }

private:
    struct Member {
        SocketSet* set;
        short reported;
        std::size_t count;
        std::array<std::uint8_t, SocketSet::Capacity> at;  // entries of its members, the first `count`
    };

    static std::int64_t Milliseconds(Duration elapsed) { return elapsed.count() / (TicksPerSecond / 1000); }

    void Append(SocketSet* set, short asked, short reported) {
        if (IsEmpty(set)) return;
        Member& member = sets[setCount++];
        member.set = set;
        member.reported = reported;
        member.count = 0;
        for (const SocketHandle handle : *set) {
            // Poll passes over a negative descriptor; here it is as bad as a closed one.
            if (Descriptor(handle) < 0) invalid = true;
            const std::size_t at = EntryOf(Descriptor(handle));
            entries[at].events = static_cast<short>(entries[at].events | asked);
            member.at[member.count++] = static_cast<std::uint8_t>(at);
        }
        set->Clear();  // to hold what is ready
    }

    std::size_t EntryOf(int descriptor) {
        std::size_t at = 0;
        while (at < used && entries[at].fd != descriptor)
            ++at;
        if (at == used) entries[used++] = {descriptor, 0, 0};
        return at;
    }

    SelectResult KeepReady() {
        int ready = 0;
        for (std::size_t i = 0; i < setCount; ++i) {
            for (std::size_t k = 0; k < sets[i].count; ++k) {
                const pollfd& entry = entries[sets[i].at[k]];
                if (entry.revents & POLLNVAL) return {-1, EBADF};
                if ((entry.revents & sets[i].reported) == 0) continue;
                sets[i].set->Add(entry.fd);
                ++ready;
            }
        }
        if (ready != 0) return {ready, 0};
        // An error or a hang-up of a handle that is only in the exception set: not asked for, and it would
        // end every further wait at once.
        for (std::size_t at = 0; at < used; ++at) {
            if (entries[at].revents != 0) entries[at].fd = -1;
        }
        return {0, 0};
    }

    std::array<pollfd, 3 * SocketSet::Capacity> entries;  // only the first `used` have a meaning
    std::size_t used = 0;
    std::array<Member, 3> sets;  // only the first `setCount` have a meaning
    std::size_t setCount = 0;
    bool invalid = false;
    bool writes = false;
};

class LinuxSockets : public ISockets {
public:
    ValueOr<std::uint16_t> Startup(std::uint16_t version) override { return version; }
    Result Cleanup() override { return Result::Success(); }

    ValueOr<std::vector<AddressEntry>> GetAddressInfo(const char* host, const char* service,
                                                      const AddressHints& hints) override {
        addrinfo wanted{};
        wanted.ai_flags = hints.flags;
        wanted.ai_family = hints.family;
        wanted.ai_socktype = hints.socketType;
        wanted.ai_protocol = hints.protocol;
        addrinfo* list = nullptr;
        const int error = getaddrinfo(host, service, &wanted, &list);
        if (error != 0) return Result::Failure(error);
        const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
        std::vector<AddressEntry> entries;
        for (const addrinfo* info = list; info; info = info->ai_next)
            entries.push_back(EntryOf(*info));
        return entries;
    }

    ValueOr<NumericName> NumericNameOf(const AddressEntry& address, std::size_t hostRoom,
                                       std::size_t serviceRoom) override {
        const SocketAddress from(address);
        std::vector<char> host(hostRoom + 1);
        std::vector<char> service(serviceRoom + 1);
        const int error =
            getnameinfo(from.Pointer(), from.length, host.data(), static_cast<socklen_t>(hostRoom),
                        service.data(), static_cast<socklen_t>(serviceRoom), NI_NUMERICHOST | NI_NUMERICSERV);
        if (error != 0) return Result::Failure(error);
        return NumericName{host.data(), service.data()};
    }

    ValueOr<SocketHandle> Create(int family, int socketType, int protocol) override {
        const int descriptor = socket(family, socketType | SOCK_CLOEXEC, protocol);
        if (descriptor < 0) return Result::Failure(CoreError(errno));
        // The head and the body of a request leave as two sends; waiting for the acknowledgement of the first
        // would cost 40 ms each time. A socket that refuses the option still works.
        if ((family == AF_INET || family == AF_INET6) && socketType == SOCK_STREAM) {
            const int on = 1;
            setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        }
        return SocketHandle{descriptor};
    }

    Result Close(SocketHandle socket) override {
        if (flowing == socket) flowing = InvalidSocket;
        const Result result = CoreOutcome(close(Descriptor(socket)));
        // An interrupted close has closed all the same; repeating it could hit another thread's descriptor.
        return !result && result.Error() == EINTR ? Result::Success() : result;
    }

    Result Bind(SocketHandle socket, const AddressEntry& address) override {
        const SocketAddress local(address);
        return CoreOutcome(bind(Descriptor(socket), local.Pointer(), local.length));
    }

    Result SetNonBlocking(SocketHandle socket, bool nonBlocking) override {
        int mode = nonBlocking ? 1 : 0;
        return CoreOutcome(ioctl(Descriptor(socket), FIONBIO, &mode));
    }

    Result Connect(SocketHandle socket, const AddressEntry& address) override {
        const SocketAddress peer(address);
        const Result result = CoreOutcome(connect(Descriptor(socket), peer.Pointer(), peer.length));
        // A signal ends the call, not the attempt.
        return !result && result.Error() == EINTR ? Result::Failure(ErrorInProgress) : result;
    }

    SelectResult Select(SocketSet* read, SocketSet* write, SocketSet* except,
                        std::int64_t milliseconds) override {
        if (milliseconds > 0 && IsWaitForWhatFlows(read, write, except)) {
            if (except) except->Clear();
            return {1, 0};
        }
        return PollWait(read, write, except).Run(milliseconds);
    }

    ValueOr<int> GetSocketError(SocketHandle socket) override {
        int error = 0;
        socklen_t length = sizeof error;
        if (getsockopt(Descriptor(socket), SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
            return Result::Failure(CoreError(errno));
        }
        return error;
    }

    TransferResult Receive(SocketHandle socket, void* buffer, std::uint32_t length) override {
        const TransferResult result = Transfer(
            length, [&](std::size_t count) { return recv(Descriptor(socket), buffer, count, MSG_DONTWAIT); });
        const bool all = result.count > 0 && static_cast<std::uint32_t>(result.count) == length;
        flowing = all ? socket : InvalidSocket;
        return result;
    }

    TransferResult Send(SocketHandle socket, const void* buffer, std::uint32_t length,
                        bool moreFollows) override {
        const int flags = MSG_DONTWAIT | MSG_NOSIGNAL | (moreFollows ? MSG_MORE : 0);
        return Transfer(length,
                        [&](std::size_t count) { return send(Descriptor(socket), buffer, count, flags); });
    }

private:
    template <class Call>
    static TransferResult Transfer(std::uint32_t length, Call call) {
        const std::uint32_t most = std::min<std::uint32_t>(length, std::numeric_limits<std::int32_t>::max());
        ssize_t count;
        do {
            count = call(most);
        } while (count < 0 && errno == EINTR);
        if (count < 0) return {-1, CoreError(errno)};
        return {static_cast<std::int32_t>(count), 0};
    }
};

}  // namespace

template <>
ISockets& Production<ISockets>() {
    return MadeOnce<LinuxSockets>();
}

}  // namespace Ombry::Platform
