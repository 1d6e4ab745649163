#include "Sandbox/Server.h"

#include "Sandbox/HttpConnection.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

namespace Ombry::Sandbox {
namespace {

// A header that no head can have, for its name has the end of a line in it.
const std::string TooLargeMark = "\nhead-too-large";

// Of the request that this thread answers.
thread_local bool bodyLeftUnread = false;

// Counts the connections that wait.
class CountingQueue : public httplib::TaskQueue {
public:
    CountingQueue(std::size_t threads, std::atomic<long>& waiting) : pool(threads), waiting(waiting) {}

    // What it returns differs by the version of the library.
    using Enqueued = decltype(std::declval<httplib::TaskQueue&>().enqueue(nullptr));
    Enqueued enqueue(std::function<void()> task) override {
        ++waiting;
        return pool.enqueue([this, task = std::move(task)] {
            --waiting;
            task();
        });
    }
    void shutdown() override { pool.shutdown(); }

private:
    httplib::ThreadPool pool;
    std::atomic<long>& waiting;
};

}  // namespace

Server::Server(const Identity* identity) {
    if (!identity) return;
    context.reset(SSL_CTX_new(TLS_server_method()));
    if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
        SSL_CTX_use_certificate(context.get(), identity->Certificate()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), identity->Key()) != 1)
        throw std::runtime_error("Cannot set TLS up.");
}

bool Server::HasTooLargeHead(const httplib::Request& request) {
    return request.headers.contains(TooLargeMark);
}

void Server::LeaveBodyUnread() {
    bodyLeftUnread = true;
}

std::unique_ptr<httplib::TaskQueue> Server::MakeQueue(std::size_t threads) {
    return std::make_unique<CountingQueue>(threads, waiting);
}

bool Server::process_and_close_socket(socket_t socket) {
    HttpConnection connection(socket, context.get());
    if (!connection.Begin()) return false;
    const std::chrono::seconds idle(keep_alive_timeout_sec_);
    for (std::size_t left = keep_alive_max_count_; left > 0 && svr_sock_ != INVALID_SOCKET; --left) {
        if (!connection.AwaitRequest(idle)) return true;
        const auto head = connection.TakeHead();
        if (head == HttpConnection::Head::TooSlow) return false;
        const bool tooLarge = head == HttpConnection::Head::TooLarge;
        if (tooLarge) connection.ReplaceHead();
        const auto mark = [tooLarge](httplib::Request& request) {
            if (tooLarge) request.headers.emplace(TooLargeMark, "");
        };
        const bool last = tooLarge || left == 1 || waiting > 0;
        bool closed = false;
        // Newer versions of the library want the addresses to be told.
        const auto process = [&](auto& self) {
            if constexpr (requires { self.process_request(connection, last, closed, mark); }) {
                return self.process_request(connection, last, closed, mark);
            } else {
                std::string peer, own;
                int peerPort = 0, ownPort = 0;
                connection.get_remote_ip_and_port(peer, peerPort);
                connection.get_local_ip_and_port(own, ownPort);
                return self.process_request(connection, peer, peerPort, own, ownPort, last, closed, mark);
            }
        };
        const bool good = process(*this);
        if (tooLarge || connection.IsOutOfStep() || std::exchange(bodyLeftUnread, false)) {
            connection.CloseGently();
            return false;
        }
        if (!good || closed || last) return good;
    }
    return true;
}

}  // namespace Ombry::Sandbox
