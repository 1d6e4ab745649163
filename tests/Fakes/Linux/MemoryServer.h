#pragma once

#include "tests/Fakes/Linux/TlsServerEnd.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// An HTTP server behind scripted sockets, on the threads of its clients: whatever host and port is connected
/// to, this server answers, with TLS or without. What is no HTTP request where one should be is answered with
/// status 400 and a close.
class MemoryServer {
public:
    using Answer = std::function<std::string(const std::string& request)>;

    /// `answer`: the whole response to a whole request. `tls`: none for plain HTTP.
    MemoryServer(ScriptedSockets& sockets, Answer answer,
                 const std::optional<TlsServerRecipe>& tls = std::nullopt)
        : sockets(sockets), answer(std::move(answer)), tls(tls ? ContextOf(*tls) : nullptr) {
        sockets.OnSend(
            [this](ScriptedSockets::Handle handle, const std::string& bytes) { Take(handle, bytes); });
    }

    static std::string Response(int status, const std::string& body) {
        return "HTTP/1.1 " + std::to_string(status) +
               " Reason\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    std::vector<std::string> requests;     ///< heads and bodies, byte for byte
    std::vector<std::string> serverNames;  ///< as each TLS client announced them

private:
    struct Connection {
        std::unique_ptr<TlsServerEnd> end;
        std::string pending;
        bool named = false;
    };

    /// One context for all connections, which is what takes the time; none resumes the session of another.
    static std::shared_ptr<SSL_CTX> ContextOf(const TlsServerRecipe& recipe) {
        auto context = MakeTlsServerContext(recipe);
        SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
        SSL_CTX_set_options(context.get(), SSL_OP_NO_TICKET);
        return context;
    }

    void Take(ScriptedSockets::Handle handle, const std::string& bytes) {
        const std::lock_guard guard(mutex);
        Connection& connection = connections[handle];
        if (!tls) {
            connection.pending += bytes;
            if (connection.pending.empty()) return;
            if (connection.pending[0] < 'A' || connection.pending[0] > 'Z') {
                sockets.Deliver(handle, Response(400, ""));
                sockets.CloseByPeer(handle);
                return;
            }
            while (const auto response = Next(connection))
                sockets.Deliver(handle, *response);
            return;
        }
        if (!connection.end) connection.end = std::make_unique<TlsServerEnd>(tls);
        connection.end->Put(bytes);
        if (connection.end->Ready() && !connection.named) {
            connection.named = true;
            serverNames.push_back(connection.end->ServerName());
        }
        connection.pending += std::exchange(connection.end->received, "");
        while (const auto response = Next(connection))
            connection.end->Write(*response);
        sockets.Deliver(handle, connection.end->Take());
        if (connection.end->failed || connection.end->sawClose) sockets.CloseByPeer(handle);
    }

    /// The response to the next request that has come in whole.
    std::optional<std::string> Next(Connection& connection) {
        const std::size_t end = connection.pending.find("\r\n\r\n");
        if (end == std::string::npos) return std::nullopt;
        std::size_t size = end + 4;
        const std::size_t length = connection.pending.find("Content-Length: ");
        if (length < end) size += std::strtoul(connection.pending.c_str() + length + 16, nullptr, 10);
        if (connection.pending.size() < size) return std::nullopt;
        requests.push_back(connection.pending.substr(0, size));
        connection.pending.erase(0, size);
        return answer(requests.back());
    }

    ScriptedSockets& sockets;
    const Answer answer;
    const std::shared_ptr<SSL_CTX> tls;  // null: none
    std::mutex mutex;
    // Guarded by mutex, and what is public as well:
    std::map<ScriptedSockets::Handle, Connection> connections;
};

}  // namespace Ombry::Tests
