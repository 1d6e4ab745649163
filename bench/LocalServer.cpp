#include "bench/LocalServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Ombry::Bench {
namespace {

constexpr double StartSeconds = 15;

sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

void Write(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << text).flush()) throw std::runtime_error("Cannot write " + path);
}

std::string Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void RunShell(const std::string& script) {
    if (Run({"sh", "-c", script}) != 0) throw std::runtime_error("Failed: " + script);
}

std::string Configuration(const std::string& folder, std::uint16_t port) {
    std::string temporaries;
    for (const std::string kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        temporaries += "    " + kind + "_temp_path " + folder + "/" + kind + ";\n";
    return "daemon off;\nmaster_process off;\nworker_processes 1;\nerror_log /dev/null crit;\npid " + folder +
           "/nginx.pid;\nevents { worker_connections 256; }\nhttp {\n" + temporaries +
           "    access_log off;\n"
           "    default_type application/octet-stream;\n"
           "    keepalive_requests 100000000;\n"
           "    keepalive_timeout 600;\n"
           "    open_file_cache max=16;\n"
           "    server {\n"
           "        listen 127.0.0.1:" +
           std::to_string(port) + " ssl;\n        ssl_certificate " + folder +
           "/certificate.pem;\n        ssl_certificate_key " + folder +
           "/key.pem;\n"
           "        ssl_protocols TLSv1.2 TLSv1.3;\n"
           "        root " +
           folder +
           "/root;\n"
           "        location = /submit { return 204; }\n"
           "        location = /length { return 200 $request_length; }\n"
           "    }\n}\n";
}

}  // namespace

LocalServer::LocalServer() : port(FreePort()) {
    const std::string& base = folder.Path();
    RunShell("cd '" + base +
             "' && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
             " -subj /CN=localhost -keyout key.pem -out certificate.pem"
             " && openssl x509 -in certificate.pem -outform DER | openssl base64 -A > certificate.txt");
    certificate = Read(folder.Path("certificate.txt"));
    pin = PublicKeyPinOf(folder.Path("certificate.pem"));

    // A server that is started by the system's administrator gives up his rights, which must not cost it the
    // files.
    std::filesystem::permissions(base, std::filesystem::perms(0755));
    std::filesystem::create_directory(folder.Path("root"));
    Write(folder.Path("root/small"), std::string(200, 'x'));
    for (const std::uint64_t size : Sizes)
        Write(folder.Path("root/size-" + std::to_string(size)), std::string(size, 'x'));
    Write(folder.Path("root/large"), "");
    std::filesystem::resize_file(folder.Path("root/large"), LargeBytes);
    Write(folder.Path("nginx.conf"), Configuration(base, port));
    process = std::make_unique<Background>(
        std::vector<std::string>{std::filesystem::exists("/usr/sbin/nginx") ? "/usr/sbin/nginx" : "nginx",
                                 "-p", base, "-c", folder.Path("nginx.conf"), "-e", "/dev/null"});
    WaitForPort(port);
}

std::string PublicKeyPinOf(const std::string& certificateFile) {
    const TemporaryFolder folder;
    RunShell("openssl x509 -in '" + certificateFile +
             "' -noout -pubkey | openssl pkey -pubin -outform DER"
             " | openssl dgst -sha256 -binary | openssl base64 -A > '" +
             folder.Path("pin") + "'");
    return "sha256//" + Read(folder.Path("pin"));
}

std::uint16_t FreePort() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof address;
    const bool known = bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                       getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    close(listener);
    if (!known) throw std::runtime_error("No port of the loopback address is free.");
    return ntohs(address.sin_port);
}

void WaitForPort(std::uint16_t port) {
    const sockaddr_in address = Loopback(port);
    for (const double end = Now() + StartSeconds; Now() < end; usleep(10'000)) {
        const int attempt = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool listens =
            connect(attempt, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(attempt);
        if (listens) return;
    }
    throw std::runtime_error("The server did not start.");
}

}  // namespace Ombry::Bench
