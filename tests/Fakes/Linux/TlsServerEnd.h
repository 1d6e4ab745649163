#pragma once

#include "tests/Fakes/Linux/TestCertificates.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// What a test's TLS server is made of. It accepts anything that the library can do at all, so that whatever
/// is refused was refused by the client.
struct TlsServerRecipe {
    int version = 0;                        ///< the only protocol version; 0 for any
    TestCertificate certificate = nullptr;  ///< null: none
    TestKey key = KeyNamed("rsa2048");
    std::vector<TestCertificate> intermediates{};  ///< sent behind the certificate
    std::string ciphers = "ALL:eNULL:aNULL:@SECLEVEL=0";
    std::string signatures{};  ///< signature algorithms; empty for all
    std::uint64_t options = 0;
    bool asksForClientCertificate = false;
};

inline std::shared_ptr<SSL_CTX> MakeTlsServerContext(const TlsServerRecipe& recipe) {
    Platform::InitializeOpenSSL();
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX* c = context.get();
    SSL_CTX_set_security_level(c, 0);
    SSL_CTX_set_min_proto_version(c, recipe.version);
    SSL_CTX_set_max_proto_version(c, recipe.version);
    SSL_CTX_set_options(c, recipe.options);
    SSL_CTX_set_dh_auto(c, 1);
    if (SSL_CTX_set_cipher_list(c, recipe.ciphers.c_str()) != 1) throw std::runtime_error("ciphers");
    if (!recipe.signatures.empty() && SSL_CTX_set1_sigalgs_list(c, recipe.signatures.c_str()) != 1)
        throw std::runtime_error("signatures");
    if (recipe.certificate && (SSL_CTX_use_certificate(c, recipe.certificate.get()) != 1 ||
                               SSL_CTX_use_PrivateKey(c, recipe.key.get()) != 1)) {
        throw std::runtime_error("server certificate");
    }
    for (const TestCertificate& intermediate : recipe.intermediates) {
        if (SSL_CTX_add1_chain_cert(c, intermediate.get()) != 1) throw std::runtime_error("chain");
    }
    if (recipe.asksForClientCertificate) SSL_CTX_set_verify(c, SSL_VERIFY_PEER, nullptr);
    return context;
}

/// The server end of a TLS session between two memory buffers, over the TLS library itself.
class TlsServerEnd {
public:
    explicit TlsServerEnd(const TlsServerRecipe& recipe) : TlsServerEnd(MakeTlsServerContext(recipe)) {}

    /// Server ends of one context could resume each other's sessions.
    explicit TlsServerEnd(std::shared_ptr<SSL_CTX> sharedContext) : context(std::move(sharedContext)) {
        session.reset(SSL_new(context.get()), SSL_free);
        input = BIO_new(BIO_s_mem());
        output = BIO_new(BIO_s_mem());
        SSL_set_bio(session.get(), input, output);
        SSL_set_accept_state(session.get());
    }

    /// Takes ciphertext and goes on as far as it can: handshake, then data.
    void Put(const std::string& bytes) {
        if (!bytes.empty()) BIO_write(input, bytes.data(), static_cast<int>(bytes.size()));
        Continue();
    }

    /// Ciphertext for the client, at most `room` bytes.
    std::string Take(std::size_t room = 1 << 24) {
        std::string bytes(std::min<std::size_t>(room, BIO_ctrl_pending(output)), '\0');
        if (!bytes.empty()) BIO_read(output, bytes.data(), static_cast<int>(bytes.size()));
        return bytes;
    }

    void Continue() {
        ERR_clear_error();
        char buffer[16384];
        std::size_t count = 0;
        int result = 0;
        while ((result = SSL_read_ex(session.get(), buffer, sizeof buffer, &count)) == 1) {
            received.append(buffer, count);
        }
        const int error = SSL_get_error(session.get(), result);
        if (error == SSL_ERROR_ZERO_RETURN) sawClose = true;
        if (error == SSL_ERROR_SSL) failed = true;
        ERR_clear_error();
    }

    void Write(const std::string& bytes) {
        ERR_clear_error();
        std::size_t count = 0;
        if (SSL_write_ex(session.get(), bytes.data(), bytes.size(), &count) != 1 || count != bytes.size()) {
            throw std::runtime_error("the server cannot write");
        }
    }

    /// Sends the close alert.
    void Close() {
        ERR_clear_error();
        SSL_shutdown(session.get());
        ERR_clear_error();
    }

    /// Asks for a new handshake (up to TLS 1.2).
    void Renegotiate() {
        ERR_clear_error();
        if (SSL_renegotiate(session.get()) != 1 || SSL_do_handshake(session.get()) != 1) {
            throw std::runtime_error("the server cannot renegotiate");
        }
    }

    bool Ready() const { return SSL_is_init_finished(session.get()) == 1; }
    SSL* Get() const { return session.get(); }
    std::string ServerName() const {
        const char* name = SSL_get_servername(session.get(), TLSEXT_NAMETYPE_host_name);
        return name == nullptr ? "" : name;
    }

    std::string received;
    bool sawClose = false;
    bool failed = false;

private:
    std::shared_ptr<SSL_CTX> context;
    std::shared_ptr<SSL> session;
    BIO* input = nullptr;   // owned by session
    BIO* output = nullptr;  // owned by session
};

}  // namespace Ombry::Tests
