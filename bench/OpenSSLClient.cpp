// The floor: what TLS alone costs, with blocking calls on the socket and answers that nobody parses.

#include "bench/HttpClients.h"
#include "bench/OpenSSLPin.h"

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <map>
#include <stdexcept>

namespace Ombry::Bench {
namespace {

void Require(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(std::string("OpenSSL alone failed: ") + what);
}

SSL_CTX* SharedContext() {
    static const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()),
                                                                      SSL_CTX_free);
    return context.get();
}

class OpenSSLClient : public HttpClient {
public:
    explicit OpenSSLClient(const Target& target) : target(target), session(nullptr, SSL_free) {}
    ~OpenSSLClient() override {
        session.reset();
        if (handle >= 0) close(handle);
    }

    std::uint64_t Get(const std::string& path) override {
        std::string& request = requests[path];
        if (request.empty()) request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nAccept: */*\r\n\r\n";
        return Exchange(path, request);
    }

    void Post(const std::string& path, const std::string& body) override {
        std::string& request = requests[path];
        if (request.empty())
            request = "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n" +
                      "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        Exchange(path, request);
    }

    void GetAnew(const std::string& path, Handshake) override { OpenSSLClient(target).Get(path); }

private:
    /// Every answer of a path is as long as the first one, whose head is looked at.
    struct Answer {
        std::uint64_t head = 0;
        std::uint64_t body = 0;
    };

    std::uint64_t Exchange(const std::string& path, const std::string& request) {
        if (!session) Connect();
        Require(SSL_write(session.get(), request.data(), static_cast<int>(request.size())) ==
                    static_cast<int>(request.size()),
                "writing");
        Answer& answer = answers[path];
        std::uint64_t count = 0;
        do {
            const int read = SSL_read(session.get(), piece.data(), static_cast<int>(piece.size()));
            Require(read > 0, "reading");
            if (answer.head == 0) answer = Measure(std::string(piece.data(), static_cast<std::size_t>(read)));
            count += static_cast<std::uint64_t>(read);
        } while (count < answer.head + answer.body);
        return answer.body;
    }

    static Answer Measure(const std::string& start) {
        const std::size_t end = start.find("\r\n\r\n");
        Require(end != std::string::npos, "no head");
        const std::string name = "Content-Length: ";
        const std::size_t length = start.find(name);
        return {end + 4, length < end ? std::strtoull(start.c_str() + length + name.size(), nullptr, 10) : 0};
    }

    void Connect() {
        handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(target.port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        Require(connect(handle, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "connecting");
        const int on = 1;
        setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        session.reset(SSL_new(SharedContext()));
        Require(session != nullptr, "a session");
        SSL_set_fd(session.get(), handle);
        Require(SSL_connect(session.get()) == 1, "the handshake");
        RequirePin(session.get(), target.pin);
    }

    const Target target;
    int handle = -1;
    std::unique_ptr<SSL, void (*)(SSL*)> session;
    std::map<std::string, std::string> requests;
    std::map<std::string, Answer> answers;
    std::array<char, 16384> piece{};
};

}  // namespace

void RequirePin(SSL* session, const std::string& pin) {
    const X509* certificate = SSL_get0_peer_certificate(session);
    unsigned char* encoded = nullptr;
    const int length =
        certificate == nullptr ? 0 : i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &encoded);
    Require(length > 0, "the certificate");
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned digestLength = 0;
    EVP_Digest(encoded, static_cast<std::size_t>(length), digest.data(), &digestLength, EVP_sha256(),
               nullptr);
    OPENSSL_free(encoded);
    std::array<char, 2 * EVP_MAX_MD_SIZE> text{};
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), digest.data(),
                    static_cast<int>(digestLength));
    Require(pin == std::string("sha256//") + text.data(), "the key");
}

std::unique_ptr<HttpClient> MakeOpenSSLClient(const Target& target) {
    return std::make_unique<OpenSSLClient>(target);
}

}  // namespace Ombry::Bench
