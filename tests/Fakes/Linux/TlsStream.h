#pragma once

#include "tests/Fakes/Linux/TlsServerEnd.h"
#include "tests/Fakes/LoopbackServer.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <signal.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace Ombry::Tests {

/// TLS for a connection of `LoopbackServer`, over the TLS library itself.
class TlsStream : public ServerStream {
public:
    TlsStream(SSL_CTX* context, BlockingSockets::Socket socket) : session(SSL_new(context), SSL_free) {
        // The library writes to a closed socket with the signal on.
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        SSL_set_fd(session.get(), static_cast<int>(socket));
        SSL_set_accept_state(session.get());
    }

    std::size_t Read(char* bytes, std::size_t room) override {
        ERR_clear_error();
        std::size_t count = 0;
        return SSL_read_ex(session.get(), bytes, room, &count) == 1 ? count : 0;
    }

    bool Write(const char* bytes, std::size_t size) override {
        ERR_clear_error();
        std::size_t count = 0;
        return SSL_write_ex(session.get(), bytes, size, &count) == 1;
    }

    std::string Encode(const std::string& bytes) override {
        return Capture([&](SSL* end) {
            std::size_t count = 0;
            SSL_write_ex(end, bytes.data(), bytes.size(), &count);
        });
    }

    /// The close alert, behind the handshake.
    void SendClose() override {
        if (SSL_is_init_finished(session.get()) != 1) {
            ERR_clear_error();
            if (SSL_do_handshake(session.get()) != 1) return;
        }
        SSL_shutdown(session.get());
    }

    /// What this end would send when it acts so.
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

private:
    std::shared_ptr<SSL> session;
};

inline ServerStreams StreamsOf(const TlsServerRecipe& recipe) {
    return [context = MakeTlsServerContext(recipe)](BlockingSockets::Socket socket) {
        return std::make_unique<TlsStream>(context.get(), socket);
    };
}
inline ServerStreams StreamsOf(const std::optional<TlsServerRecipe>& recipe) {
    return recipe ? StreamsOf(*recipe) : nullptr;
}

/// What the TLS end of a connection would send when it acts so.
inline std::string Capture(LoopbackServer::Connection& connection, const std::function<void(SSL*)>& act) {
    return static_cast<TlsStream&>(*connection.Stream()).Capture(act);
}

}  // namespace Ombry::Tests
