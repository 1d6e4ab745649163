#pragma once

#include "tests/Fakes/BlockingSockets.h"

#include <string>
#include <utility>

namespace Ombry::Tests {

/// The other end of a real connection on loopback, so that nothing under test serves both sides. Sends and
/// receives block.
class LoopbackPeer {
public:
    explicit LoopbackPeer(BlockingSockets::Socket socket) : socket(socket) {}
    ~LoopbackPeer() { Close(); }
    LoopbackPeer(LoopbackPeer&& other) noexcept
        : socket(std::exchange(other.socket, BlockingSockets::None)) {}
    LoopbackPeer& operator=(LoopbackPeer&&) = delete;

    bool Send(const std::string& bytes) { return BlockingSockets::Send(socket, bytes.data(), bytes.size()); }

    /// Exactly this many bytes, or fewer if the stream ends.
    std::string Receive(std::size_t count) {
        std::string bytes(count, '\0');
        std::size_t size = 0;
        while (size < count) {
            const std::size_t received = BlockingSockets::Receive(socket, bytes.data() + size, count - size);
            if (received == 0) break;
            size += received;
        }
        bytes.resize(size);
        return bytes;
    }

    /// Numeric address of the side under test.
    std::string RemoteAddress() { return BlockingSockets::RemoteAddress(socket); }

    void Close() {
        if (socket != BlockingSockets::None)
            BlockingSockets::Close(std::exchange(socket, BlockingSockets::None));
    }

    /// Closes with a reset.
    void Reset() {
        BlockingSockets::ResetOnClose(socket);
        Close();
    }

private:
    BlockingSockets::Socket socket;
};

/// Listens on loopback, on a port that the system picks. Connections wait in the backlog until `Accept`, so a
/// test needs no thread.
class LoopbackListener {
public:
    explicit LoopbackListener(bool six = false) : socket(BlockingSockets::Listen(six)) {}
    ~LoopbackListener() {
        if (socket != BlockingSockets::None) BlockingSockets::Close(socket);
    }
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    /// 0 if this machine has no such loopback address.
    std::uint16_t Port() const {
        return socket == BlockingSockets::None ? 0 : BlockingSockets::PortOf(socket);
    }

    LoopbackPeer Accept() { return LoopbackPeer(Take()); }

    /// The next connection as the system's own handle, which the caller closes.
    BlockingSockets::Socket Take() const { return BlockingSockets::Accept(socket); }

private:
    const BlockingSockets::Socket socket;
};

}  // namespace Ombry::Tests
