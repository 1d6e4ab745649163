// Two floors, of answers that nobody parses: what TLS alone costs, with blocking calls on the socket, and
// what it costs in the steps that bind our client.

#include "bench/HttpClients.h"
#include "bench/OpenSSLPin.h"

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
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

protected:
    virtual void Connect() {
        handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(target.port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        Require(connect(handle, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "connecting");
        SendWithoutDelay();
        session.reset(SSL_new(SharedContext()));
        Require(session != nullptr, "a session");
        SSL_set_fd(session.get(), handle);
        Require(SSL_connect(session.get()) == 1, "the handshake");
        RequirePin(session.get(), target.pin);
    }

    /// At least one byte.
    virtual std::size_t Read(char* to, std::size_t most) {
        std::size_t count = 0;
        Require(SSL_read_ex(session.get(), to, most, &count) == 1, "reading");
        return count;
    }

    virtual void Write(const std::string& bytes) {
        std::size_t count = 0;
        Require(SSL_write_ex(session.get(), bytes.data(), bytes.size(), &count) == 1 && count == bytes.size(),
                "writing");
    }

    void SendWithoutDelay() const {
        const int on = 1;
        setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }

    const Target target;
    int handle = -1;
    std::unique_ptr<SSL, void (*)(SSL*)> session;

private:
    /// Every answer of a path is as long as the first one, whose head is looked at.
    struct Answer {
        std::uint64_t head = 0;
        std::uint64_t body = 0;
    };

    std::uint64_t Exchange(const std::string& path, const std::string& request) {
        if (!session) Connect();
        Write(request);
        Answer& answer = answers[path];
        std::uint64_t count = 0;
        do {
            const std::size_t read = Read(piece.data(), piece.size());
            if (answer.head == 0) answer = Measure(std::string(piece.data(), read));
            count += read;
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

    std::map<std::string, std::string> requests;
    std::map<std::string, Answer> answers;
    std::array<char, 16384> piece{};
};

/// Ciphertext between a session and a socket: the session sees a BIO that copies once.
class Ciphertext {
public:
    BIO* MakeBio() {
        static BIO_METHOD* const method = MakeMethod();
        BIO* const bio = BIO_new(method);
        Require(bio != nullptr, "a BIO");
        BIO_set_data(bio, this);
        BIO_set_init(bio, 1);
        return bio;
    }

    char* Data() { return bytes.data(); }
    std::size_t Size() const { return end; }
    void Refill(std::size_t count) {
        begin = 0;
        end = count;
    }

    /// As much as the TLS stage asks for at a time.
    static constexpr std::size_t Most = 8096;

private:
    static BIO_METHOD* MakeMethod() {
        BIO_METHOD* const method = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "Ciphertext");
        BIO_meth_set_read_ex(method, [](BIO* bio, char* to, std::size_t most, std::size_t* count) {
            auto& self = *static_cast<Ciphertext*>(BIO_get_data(bio));
            BIO_clear_retry_flags(bio);
            *count = std::min(most, self.end - self.begin);
            std::memcpy(to, self.bytes.data() + self.begin, *count);
            self.begin += *count;
            if (*count == 0) BIO_set_retry_read(bio);
            return *count == 0 ? 0 : 1;
        });
        BIO_meth_set_write_ex(method, [](BIO* bio, const char* from, std::size_t size, std::size_t* count) {
            auto& self = *static_cast<Ciphertext*>(BIO_get_data(bio));
            *count = size;
            if (size > Most - self.end) return 0;
            std::memcpy(self.bytes.data() + self.end, from, size);
            self.end += size;
            return 1;
        });
        BIO_meth_set_ctrl(method,
                          [](BIO*, int command, long, void*) { return command == BIO_CTRL_FLUSH ? 1L : 0L; });
        return method;
    }

    std::size_t begin = 0;
    std::size_t end = 0;
    std::array<char, Most> bytes;
};

/// The same in our steps: names resolved, connects that do not block, a wait before each transfer, at most
/// 8,096 bytes of ciphertext a transfer.
class SteppedClient : public OpenSSLClient {
public:
    using OpenSSLClient::OpenSSLClient;
    ~SteppedClient() override { session.reset(); }  // which uses the two below to its end

    void GetAnew(const std::string& path, Handshake) override { SteppedClient(target).Get(path); }

protected:
    void Connect() override {
        ConnectSocket();
        session.reset(SSL_new(SharedContext()));
        Require(session != nullptr, "a session");
        SSL_set_bio(session.get(), input.MakeBio(), output.MakeBio());
        SSL_set_connect_state(session.get());
        while (SSL_do_handshake(session.get()) != 1) {
            Send();
            Receive();
        }
        RequirePin(session.get(), target.pin);
    }

    std::size_t Read(char* to, std::size_t most) override {
        std::size_t count = 0;
        while (SSL_read_ex(session.get(), to, most, &count) != 1)
            Receive();
        return count;
    }

    void Write(const std::string& bytes) override {
        OpenSSLClient::Write(bytes);
        Send();
    }

private:
    void ConnectSocket() {
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        hints.ai_protocol = IPPROTO_TCP;
        addrinfo* list = nullptr;
        Require(getaddrinfo("127.0.0.1", std::to_string(target.port).c_str(), &hints, &list) == 0,
                "resolving");
        const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
        handle = socket(list->ai_family, list->ai_socktype | SOCK_CLOEXEC, list->ai_protocol);
        SendWithoutDelay();
        int nonBlocking = 1;
        ioctl(handle, FIONBIO, &nonBlocking);
        if (connect(handle, list->ai_addr, list->ai_addrlen) != 0) Wait(POLLOUT);
        int error = 0;
        socklen_t length = sizeof error;
        Require(getsockopt(handle, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0, "connecting");
        nonBlocking = 0;
        ioctl(handle, FIONBIO, &nonBlocking);
        std::array<char, 46> host{};
        std::array<char, 6> service{};
        Require(getnameinfo(list->ai_addr, list->ai_addrlen, host.data(), host.size(), service.data(),
                            service.size(), NI_NUMERICHOST | NI_NUMERICSERV) == 0,
                "the peer's address");
    }

    void Wait(short events) const {
        pollfd wanted{handle, static_cast<short>(events | POLLPRI), 0};
        Require(poll(&wanted, 1, 1000) == 1, "waiting");
    }

    void Send() {
        if (output.Size() == 0) return;
        Wait(POLLIN | POLLOUT);
        Require(send(handle, output.Data(), output.Size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
                    static_cast<ssize_t>(output.Size()),
                "sending");
        output.Refill(0);
    }

    void Receive() {
        Wait(POLLIN);
        const ssize_t count = recv(handle, input.Data(), Ciphertext::Most, MSG_DONTWAIT);
        Require(count > 0, "receiving");
        input.Refill(static_cast<std::size_t>(count));
    }

    Ciphertext input;
    Ciphertext output;
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

std::unique_ptr<HttpClient> MakeSteppedOpenSSLClient(const Target& target) {
    return std::make_unique<SteppedClient>(target);
}

}  // namespace Ombry::Bench
