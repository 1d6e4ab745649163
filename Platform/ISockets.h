#pragma once

#include "Platform/Current.h"
#include "Platform/Result.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Ombry::Platform {

using SocketHandle = std::intptr_t;
inline constexpr SocketHandle InvalidSocket = -1;

/// Error numbers that the network core knows: it compares with the first two, and gives the third itself.
/// Every other number is the system's own.
inline constexpr int ErrorWouldBlock = 10035;
inline constexpr int ErrorInProgress = 10036;
inline constexpr int ErrorTimedOut = 10060;

/// Numbers of this system for the arguments below; the logs show them as they are.
extern const int FamilyUnspecified;
extern const int FamilyIPv4;
extern const int FamilyIPv6;
extern const int SocketTypeStream;
extern const int ProtocolTcp;

/// One address that a name resolved to.
struct AddressEntry {
    int flags = 0;
    int family = 0;
    int socketType = 0;
    int protocol = 0;
    std::vector<std::uint8_t> address;  ///< the system's socket address, byte for byte
    std::optional<std::string> canonicalName;
};

struct AddressHints {
    int flags = 0;
    int family = 0;
    int socketType = 0;
    int protocol = 0;
};

struct NumericName {
    std::string host;
    std::string service;
};

/// The handles that one wait is about: a count and up to 64 handles, whatever their numbers.
class SocketSet {
public:
    static constexpr std::size_t Capacity = 64;

    void Clear() { count = 0; }
    std::size_t Count() const { return count; }
    SocketHandle operator[](std::size_t index) const { return handles[index]; }
    bool Contains(SocketHandle handle) const {
        for (std::size_t i = 0; i < count; ++i) {
            if (handles[i] == handle) return true;
        }
        return false;
    }
    /// Adds the handle unless it is there already or the set is full.
    void Add(SocketHandle handle) {
        if (count < Capacity && !Contains(handle)) handles[count++] = handle;
    }
    const SocketHandle* begin() const { return handles.data(); }
    const SocketHandle* end() const { return handles.data() + count; }

private:
    std::size_t count = 0;
    std::array<SocketHandle, Capacity> handles;  // only the first `count` have a meaning
};

/// Result of `Select`, in the shape of the Berkeley call: the number of ready handles, 0 for a time-out, -1
/// for a failure with its number.
struct SelectResult {
    int count = 0;
    int error = 0;
};

/// Result of one transfer: the bytes moved, or -1 with the error number. `ErrorWouldBlock` means that nothing
/// could be moved now.
struct TransferResult {
    std::int32_t count = 0;
    int error = 0;
};

/// Name resolution and TCP sockets. No child process inherits a socket, and each sends without delay;
/// `Receive` and `Send` never block and never raise a signal, whatever mode the socket is in. All operations
/// may be called from any thread. Seam inside: for the network core, and for whoever writes a platform.
class ISockets {
public:
    virtual ~ISockets() = default;

    /// Takes one reference on the socket library. The value is the version word that it offers; the last
    /// error goes with it, for a caller that cannot use that version.
    virtual ValueOr<std::uint16_t> Startup(std::uint16_t version) = 0;
    virtual Result Cleanup() = 0;

    /// Addresses of a host and a service, in the resolver's order; null for either leaves it out. Failures
    /// carry the resolver's own numbers. Blocks as long as the resolver takes.
    virtual ValueOr<std::vector<AddressEntry>> GetAddressInfo(const char* host, const char* service,
                                                              const AddressHints& hints) = 0;

    /// Numeric host and service, if they fit in buffers of the two sizes, terminators included.
    virtual ValueOr<NumericName> NumericNameOf(const AddressEntry& address, std::size_t hostRoom,
                                               std::size_t serviceRoom) = 0;

    virtual ValueOr<SocketHandle> Create(int family, int socketType, int protocol) = 0;
    virtual Result Close(SocketHandle socket) = 0;
    virtual Result Bind(SocketHandle socket, const AddressEntry& address) = 0;

    /// The mode that `Connect` asks for. A new socket is in the blocking one. Where a single transfer cannot
    /// be told not to block, the system's socket never blocks, and this only notes the mode.
    virtual Result SetNonBlocking(SocketHandle socket, bool nonBlocking) = 0;

    /// `ErrorWouldBlock` or `ErrorInProgress`: the attempt goes on. It may go on in the blocking mode, too.
    virtual Result Connect(SocketHandle socket, const AddressEntry& address) = 0;

    /// Waits until a socket of a set is ready, at most `milliseconds`, and leaves in each set only the ready
    /// ones. Null sets are left out. A signal does not end the wait. An error or a hang-up of the peer shows
    /// in the read and write sets, urgent data in the exception set, and a connect that failed in the write
    /// set or in the exception set, whichever the system chooses. With no handle in any set it just waits.
    /// A readiness to read or to write may turn out to be none: the transfer then gives `ErrorWouldBlock`.
    virtual SelectResult Select(SocketSet* read, SocketSet* write, SocketSet* except,
                                std::int64_t milliseconds) = 0;

    /// Reads and clears the pending error of a socket (SO_ERROR).
    virtual ValueOr<int> GetSocketError(SocketHandle socket) = 0;

    virtual TransferResult Receive(SocketHandle socket, void* buffer, std::uint32_t length) = 0;
    /// `moreFollows` promises another send at once: the system may hold these bytes back for it, so that both
    /// travel in one packet and wake the peer once.
    virtual TransferResult Send(SocketHandle socket, const void* buffer, std::uint32_t length,
                                bool moreFollows = false) = 0;
};

template <>
ISockets& Production<ISockets>();

inline ISockets& Sockets() {
    return Current<ISockets>();
}

}  // namespace Ombry::Platform
