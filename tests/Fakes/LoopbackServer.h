#pragma once

#include "tests/Fakes/TlsServerEnd.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
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

/// A server on loopback, on a port that the system picks, that does on each connection what a script says:
/// plain TCP, or TLS over the TLS library itself. Each connection has a thread of its own, on which its
/// script runs; a script that returns closes its connection. The end of the server cuts what is still open,
/// so a script may simply wait for the next request.
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
        bool AwaitReadable() {
            char byte = 0;
            return recv(descriptor, &byte, 1, MSG_PEEK) == 1;
        }

        /// Sends the bytes in pieces of at most `piece`, each a segment or a TLS record of its own.
        bool Send(const std::string& bytes, std::size_t piece = Whole) {
            for (std::size_t at = 0; at < bytes.size(); at += std::min(piece, bytes.size() - at)) {
                if (!SendPiece(bytes.data() + at, std::min(piece, bytes.size() - at))) return false;
            }
            return true;
        }

        /// The bytes as they would travel: themselves, or the TLS records that hold them.
        std::string Encode(const std::string& bytes) {
            if (!session) return bytes;
            return Capture([&](SSL* end) {
                std::size_t count = 0;
                SSL_write_ex(end, bytes.data(), bytes.size(), &count);
            });
        }

        /// One record behind the other.
        std::string EncodeEach(const std::vector<std::string>& parts) {
            std::string all;
            for (const std::string& part : parts)
                all += Encode(part);
            return all;
        }

        /// What the TLS end would send when it acts so.
        std::string Capture(const std::function<void(SSL*)>& act) {
            BIO* const wire = SSL_get_wbio(session.get());
            BIO* const memory = BIO_new(BIO_s_mem());
            BIO_up_ref(wire);
            SSL_set0_wbio(session.get(), memory);
            ERR_clear_error();
            act(session.get());
            std::string captured(BIO_ctrl_pending(memory), '\0');
            BIO_read(memory, captured.data(), static_cast<int>(captured.size()));
            SSL_set0_wbio(session.get(), wire);
            return captured;
        }

        /// Sends bytes under the TLS session, as an attacker on the wire would.
        bool SendRaw(const std::string& bytes) {
            return send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
                   static_cast<ssize_t>(bytes.size());
        }

        /// Sends the close alert of a TLS session and nothing else.
        void SendCloseAlert() {
            if (session && Handshake()) SSL_shutdown(session.get());
        }

        /// Ends the stream in good order. Without an alert, a TLS session ends as if it had been cut.
        void Close(bool withAlert = true) {
            if (withAlert) SendCloseAlert();
            shutdown(descriptor, SHUT_RDWR);
        }

        /// The connection ends with a reset when the script returns.
        void Reset() {
            const linger now{1, 0};
            setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        }

        /// Reads on until the peer closes.
        void AwaitClose() {
            while (Fill())
                buffer.clear();
        }

    private:
        friend class LoopbackServer;

        Connection(LoopbackServer& server, int descriptor, std::size_t number)
            : server(server), descriptor(descriptor), number(number) {
            const int on = 1;
            setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            if (!server.context) return;
            session.reset(SSL_new(server.context.get()), SSL_free);
            SSL_set_fd(session.get(), descriptor);
            SSL_set_accept_state(session.get());
        }

        bool Handshake() {
            if (SSL_is_init_finished(session.get()) == 1) return true;
            ERR_clear_error();
            return SSL_do_handshake(session.get()) == 1;
        }

        bool Fill() {
            char bytes[16384];
            std::size_t count = 0;
            if (session) {
                ERR_clear_error();
                if (SSL_read_ex(session.get(), bytes, sizeof bytes, &count) != 1) return false;
            } else {
                const ssize_t received = recv(descriptor, bytes, sizeof bytes, 0);
                if (received <= 0) return false;
                count = static_cast<std::size_t>(received);
            }
            buffer.append(bytes, count);
            return true;
        }

        bool SendPiece(const char* bytes, std::size_t size) {
            if (!session) return SendRaw(std::string(bytes, size));
            ERR_clear_error();
            std::size_t count = 0;
            return SSL_write_ex(session.get(), bytes, size, &count) == 1;
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
        const int descriptor;
        const std::size_t number;
        std::shared_ptr<SSL> session;
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

    /// One script a connection, in the order of the connections; the last serves all later ones as well. With
    /// `tls`, the server speaks TLS.
    explicit LoopbackServer(std::vector<Script> scripts, std::optional<TlsServerRecipe> tls = std::nullopt)
        : scripts(std::move(scripts)) {
        if (tls) context = MakeTlsServerContext(*tls);
        listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        socklen_t length = sizeof address;
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const pAddress = reinterpret_cast<sockaddr*>(&address);
        if (bind(listener, pAddress, length) != 0 || listen(listener, 64) != 0 ||
            getsockname(listener, pAddress, &length) != 0) {
            throw std::runtime_error("cannot listen on loopback");
        }
        port = ntohs(address.sin_port);
        acceptor = std::thread([this] { Accept(); });
    }

    explicit LoopbackServer(Script script, std::optional<TlsServerRecipe> tls = std::nullopt)
        : LoopbackServer(std::vector<Script>{std::move(script)}, std::move(tls)) {}

    ~LoopbackServer() {
        shutdown(listener, SHUT_RDWR);  // ends the accept
        acceptor.join();
        close(listener);
        {
            std::lock_guard guard(mutex);
            for (const Served& one : served) {
                if (one.descriptor >= 0) shutdown(one.descriptor, SHUT_RDWR);
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
        return std::string(context ? "https" : "http") + "://127.0.0.1:" + std::to_string(port);
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
        int descriptor;
        std::thread thread;
    };

    void Accept() {
        for (;;) {
            const int descriptor = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (descriptor < 0) return;
            std::lock_guard guard(mutex);
            const std::size_t number = served.size();
            Served& one = served.emplace_back(Served{descriptor, {}});
            one.thread = std::thread([this, &one, number] { Serve(one, number); });
        }
    }

    void Serve(Served& one, std::size_t number) {
        // The TLS library writes to a closed socket with the signal on.
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        int descriptor = -1;
        {
            std::lock_guard guard(mutex);
            descriptor = one.descriptor;
        }
        {
            Connection connection(*this, descriptor, number);
            scripts[std::min(number, scripts.size() - 1)](connection);
        }
        std::lock_guard guard(mutex);
        close(std::exchange(one.descriptor, -1));
        ++ends;
        changed.notify_all();
    }

    void Note(const std::string& request) {
        std::lock_guard guard(mutex);
        requests.push_back(request);
    }

    const std::vector<Script> scripts;
    std::shared_ptr<SSL_CTX> context;  // null: plain
    int listener = -1;
    std::uint16_t port = 0;
    std::thread acceptor;

    mutable std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex; grown by the acceptor alone:
    std::list<Served> served;
    std::vector<std::string> requests;
    std::size_t ends = 0;
};

}  // namespace Ombry::Tests
