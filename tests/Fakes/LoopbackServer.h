#pragma once

#include "tests/Fakes/BlockingSockets.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <limits>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// What stands between a connection of `LoopbackServer` and its socket, where it does not speak plain text.
/// Used by one thread at a time.
class ServerStream {
public:
    virtual ~ServerStream() = default;
    /// Some bytes, or 0 at the end of the stream and after a failure.
    virtual std::size_t Read(char* bytes, std::size_t room) = 0;
    virtual bool Write(const char* bytes, std::size_t size) = 0;
    /// The bytes as they would travel, which the peer is then expected to get.
    virtual std::string Encode(const std::string& bytes) = 0;
    /// Says in good order that nothing follows.
    virtual void SendClose() = 0;
};

/// Makes the stream over a socket that was accepted, on the thread that will use it.
using ServerStreams = std::function<std::unique_ptr<ServerStream>(BlockingSockets::Socket)>;

/// A server on loopback, on a port that the system picks, that does on each connection what a script says:
/// plain TCP, or TLS over the TLS library itself (`TlsStream.h`). Each connection has a thread of its own, on
/// which its script runs; a script that returns closes its connection. The end of the server cuts what is
/// still open, so a script may simply wait for the next request.
class LoopbackServer {
public:
    static constexpr std::size_t Whole = std::numeric_limits<std::size_t>::max();

    /// One connection, as its script sees it. Reads and writes block; they fail once the peer, or the end of
    /// the server, has closed.
    class Connection {
    public:
        /// Number of this connection, counted from 0.
        std::size_t Number() const { return number; }

        /// The next request, head and body, byte for byte; empty at the end of the stream.
        std::string ReadRequest() {
            std::string request = ReadThrough("\r\n\r\n");
            if (request.empty()) return "";
            const std::string head = request;
            if (head.find("Transfer-Encoding: chunked") != std::string::npos) {
                request += ReadChunkedBody();
            } else if (const auto at = head.find("Content-Length: "); at != std::string::npos) {
                request += ReadBytes(std::strtoul(head.c_str() + at + 16, nullptr, 10));
            }
            server.Note(request);
            return request;
        }

        /// The head of the next request alone.
        std::string ReadHead() { return ReadThrough("\r\n\r\n"); }

        /// Exactly this many bytes, or fewer at the end of the stream.
        std::string ReadBytes(std::size_t count) {
            while (buffer.size() < count && Fill()) {
            }
            return TakeFront(std::min(count, buffer.size()));
        }

        /// Blocks until something of the peer's lies in the socket, and leaves it there.
        bool AwaitReadable() { return BlockingSockets::AwaitReadable(socket); }

        /// Sends the bytes in pieces of at most `piece`, each a segment or a TLS record of its own.
        bool Send(const std::string& bytes, std::size_t piece = Whole) {
            for (std::size_t at = 0; at < bytes.size(); at += std::min(piece, bytes.size() - at)) {
                if (!SendPiece(bytes.data() + at, std::min(piece, bytes.size() - at))) return false;
            }
            return true;
        }

        /// The bytes as they would travel: themselves, or the TLS records that hold them.
        std::string Encode(const std::string& bytes) { return stream ? stream->Encode(bytes) : bytes; }

        /// One record behind the other.
        std::string EncodeEach(const std::vector<std::string>& parts) {
            std::string all;
            for (const std::string& part : parts)
                all += Encode(part);
            return all;
        }

        /// What the server's maker gave for this connection; null for plain TCP.
        ServerStream* Stream() { return stream.get(); }

        /// Sends bytes under the TLS session, as an attacker on the wire would.
        bool SendRaw(const std::string& bytes) {
            return BlockingSockets::Send(socket, bytes.data(), bytes.size());
        }

        /// Sends the close alert of a TLS session and nothing else.
        void SendCloseAlert() {
            if (stream) stream->SendClose();
        }

        /// Ends the stream in good order. Without an alert, a TLS session ends as if it had been cut.
        void Close(bool withAlert = true) {
            if (withAlert) SendCloseAlert();
            BlockingSockets::Shutdown(socket);
        }

        /// The connection ends with a reset when the script returns.
        void Reset() { BlockingSockets::ResetOnClose(socket); }

        /// Reads on until the peer closes.
        void AwaitClose() {
            while (Fill())
                buffer.clear();
        }

    private:
        friend class LoopbackServer;

        Connection(LoopbackServer& server, BlockingSockets::Socket socket, std::size_t number)
            : server(server), socket(socket), number(number) {
            BlockingSockets::SendWithoutDelay(socket);
            if (server.streams) stream = server.streams(socket);
        }

        bool Fill() {
            char bytes[16384];
            const std::size_t count = stream ? stream->Read(bytes, sizeof bytes)
                                             : BlockingSockets::Receive(socket, bytes, sizeof bytes);
            if (count == 0) return false;
            buffer.append(bytes, count);
            return true;
        }

        bool SendPiece(const char* bytes, std::size_t size) {
            return stream ? stream->Write(bytes, size) : BlockingSockets::Send(socket, bytes, size);
        }

        std::string ReadThrough(const std::string& end) {
            std::size_t at = buffer.find(end);
            while (at == std::string::npos) {
                if (!Fill()) return "";
                at = buffer.find(end);
            }
            return TakeFront(at + end.size());
        }

        std::string ReadChunkedBody() {
            std::string body;
            for (;;) {
                const std::string line = ReadThrough("\r\n");
                const std::size_t size = std::strtoul(line.c_str(), nullptr, 16);
                body += line + ReadBytes(size + 2);
                if (line.empty() || size == 0) return body;
            }
        }

        std::string TakeFront(std::size_t count) {
            std::string front = buffer.substr(0, count);
            buffer.erase(0, count);
            return front;
        }

        LoopbackServer& server;
        const BlockingSockets::Socket socket;
        const std::size_t number;
        std::unique_ptr<ServerStream> stream;
        std::string buffer;
    };

    using Script = std::function<void(Connection&)>;

    /// A response with a length.
    static std::string Response(const std::string& body, const std::string& status = "200 OK",
                                const std::string& headers = "") {
        return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
               headers + "\r\n" + body;
    }

    /// Answers every request of the connection with the same bytes, in pieces.
    static Script Answering(const std::string& response, std::size_t piece = Whole) {
        return [=](Connection& connection) {
            while (!connection.ReadRequest().empty() && connection.Send(response, piece)) {
            }
        };
    }

    /// Answers every request of the connection with what `answer` makes of it.
    static Script AnsweringWith(std::function<std::string(const std::string& request)> answer) {
        return [=](Connection& connection) {
            for (std::string request; !(request = connection.ReadRequest()).empty();) {
                if (!connection.Send(answer(request))) return;
            }
        };
    }

    /// One script a connection, in the order of the connections; the last serves all later ones as well.
    explicit LoopbackServer(std::vector<Script> scripts, ServerStreams streams = nullptr)
        : scripts(std::move(scripts)),
          streams(std::move(streams)),
          listener(BlockingSockets::Listen()),
          port(BlockingSockets::PortOf(listener)) {
        if (port == 0) throw std::runtime_error("cannot listen on loopback");
        acceptor = std::thread([this] { Accept(); });
    }

    explicit LoopbackServer(Script script, ServerStreams streams = nullptr)
        : LoopbackServer(std::vector<Script>{std::move(script)}, std::move(streams)) {}

    /// With what `StreamsOf` makes of a recipe: a server that speaks TLS, unless the recipe is none.
    template <class Recipe>
    requires requires(const Recipe& recipe) { StreamsOf(recipe); }
    LoopbackServer(std::vector<Script> scripts, const Recipe& recipe)
        : LoopbackServer(std::move(scripts), StreamsOf(recipe)) {}
    template <class Recipe>
    requires requires(const Recipe& recipe) { StreamsOf(recipe); }
    LoopbackServer(Script script, const Recipe& recipe)
        : LoopbackServer(std::move(script), StreamsOf(recipe)) {}

    ~LoopbackServer() {
        ending = true;
        BlockingSockets::EndAccepting(listener);
        acceptor.join();
        BlockingSockets::Close(listener);
        {
            std::lock_guard guard(mutex);
            for (const Served& one : served) {
                if (one.socket != BlockingSockets::None) BlockingSockets::Shutdown(one.socket);
            }
        }
        for (Served& one : served)
            one.thread.join();
    }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    std::uint16_t Port() const { return port; }
    /// "http://127.0.0.1:PORT" or "https://127.0.0.1:PORT".
    std::string Url() const {
        return std::string(streams ? "https" : "http") + "://127.0.0.1:" + std::to_string(port);
    }

    /// What `ReadRequest` has returned, over all connections.
    std::vector<std::string> Requests() const {
        std::lock_guard guard(mutex);
        return requests;
    }

    /// Connections accepted so far.
    std::size_t Connections() const {
        std::lock_guard guard(mutex);
        return served.size();
    }

    /// Blocks until `count` connections have ended, script and all.
    void AwaitEnds(std::size_t count) {
        std::unique_lock guard(mutex);
        changed.wait(guard, [&] { return ends >= count; });
    }

private:
    struct Served {
        BlockingSockets::Socket socket;
        std::thread thread;
    };

    void Accept() {
        for (;;) {
            const BlockingSockets::Socket socket = BlockingSockets::Accept(listener);
            if (ending && socket != BlockingSockets::None) BlockingSockets::Close(socket);
            if (ending || socket == BlockingSockets::None) return;
            std::lock_guard guard(mutex);
            const std::size_t number = served.size();
            Served& one = served.emplace_back(Served{socket, {}});
            one.thread = std::thread([this, &one, number] { Serve(one, number); });
        }
    }

    void Serve(Served& one, std::size_t number) {
        BlockingSockets::Socket socket = BlockingSockets::None;
        {
            std::lock_guard guard(mutex);
            socket = one.socket;
        }
        {
            Connection connection(*this, socket, number);
            scripts[std::min(number, scripts.size() - 1)](connection);
        }
        std::lock_guard guard(mutex);
        BlockingSockets::Close(std::exchange(one.socket, BlockingSockets::None));
        ++ends;
        changed.notify_all();
    }

    void Note(const std::string& request) {
        std::lock_guard guard(mutex);
        requests.push_back(request);
    }

    const std::vector<Script> scripts;
    const ServerStreams streams;  // null: plain
    const BlockingSockets::Socket listener;
    const std::uint16_t port;
    std::atomic<bool> ending{false};
    std::thread acceptor;

    mutable std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex; grown by the acceptor alone:
    std::list<Served> served;
    std::vector<std::string> requests;
    std::size_t ends = 0;
};

}  // namespace Ombry::Tests
