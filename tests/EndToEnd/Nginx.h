#pragma once

#include "tests/EndToEnd/Machine.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <string>

namespace Ombry::Tests {

/// A running nginx. It inherits a socket that listens already, on a port that the system picked, so that
/// nobody waits until it is ready and nobody else can take the port.
class Nginx {
public:
    struct Identity {
        TestCertificate certificate;
        TestKey key;
    };

    /// `server` is the inside of the server block. With an identity the server speaks TLS.
    explicit Nginx(const std::string& server, const std::optional<Identity>& identity = std::nullopt)
        : listener(Listen()), port(PortOf(listener)) {
        if (identity) {
            folder.Write("certificate.pem", PemOf(identity->certificate));
            folder.Write("key.pem", PemOf(identity->key));
        }
        folder.Write("nginx.conf", Configuration(server, identity.has_value()));
        process.emplace(std::vector<std::string>{"nginx", "-p", folder.Path(), "-c", "nginx.conf", "-e",
                                                 folder / "startup.log"},
                        ProcessOptions{.environment = {"NGINX=3;"}, .inherited = listener});
        close(listener);
    }

    ~Nginx() {
        process->Signal(SIGTERM);  // a killed one would leave its worker behind
        process->Wait();
    }
    Nginx(const Nginx&) = delete;
    Nginx& operator=(const Nginx&) = delete;

    std::string HostAndPort() const { return "127.0.0.1:" + std::to_string(port); }
    const TemporaryDirectory& Folder() const { return folder; }

    /// Ends the server when it has answered all requests, and returns its access log: the number of the
    /// request on its connection, protocol of TLS or "-", the request line, the status.
    std::string AccessLog() {
        process->Signal(SIGQUIT);
        process->Wait();
        return folder.Read("access.log");
    }

private:
    static int Listen() {
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            listen(descriptor, 64) != 0) {
            throw std::runtime_error("cannot listen on loopback");
        }
        return descriptor;
    }

    static int PortOf(int descriptor) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    std::string Configuration(const std::string& server, bool tls) const {
        std::string text = (geteuid() == 0 ? "user root;\n" : "") +
                           std::string(
                               "daemon off; pid nginx.pid; error_log error.log;\n"
                               "events {}\nhttp {\n"
                               "log_format short '$connection_requests $ssl_protocol \"$request\" $status';\n"
                               "access_log access.log short;\n");
        for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
            text += std::string(kind) + "_temp_path temp_" + kind + ";\n";
        text += "server {\nlisten " + HostAndPort() + (tls ? " ssl" : "") + ";\n";
        if (tls) text += "ssl_certificate certificate.pem;\nssl_certificate_key key.pem;\n";
        return text + server + "\n}\n}\n";
    }

    const int listener;
    const int port;
    TemporaryDirectory folder;
    std::optional<ChildProcess> process;
};

}  // namespace Ombry::Tests
