#pragma once

#include "Platform/IClock.h"

#include <httplib.h>
#include <openssl/bio.h>
#include <openssl/ssl.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Ombry::Sandbox {

struct FreeTls {
    void operator()(SSL* tls) const { SSL_free(tls); }
};

/// One accepted connection, in clear text or under TLS, as the library's stream. It reads the head of a
/// request whole before the library sees any of it, which would read one of any length. Used by one thread;
/// the socket has time limits of its own for reading and writing.
class HttpConnection final : public httplib::Stream {
public:
    // A head may have this much; the library judges the length of the request line itself.
    static constexpr std::size_t LargestHead = 64 << 10;
    static constexpr std::size_t LargestField = CPPHTTPLIB_HEADER_MAX_LENGTH;
    static constexpr std::size_t MostFields = 100;
    static constexpr auto LongestHandshakeTime = std::chrono::seconds(30);
    static constexpr auto LongestHeadTime = std::chrono::seconds(30);
    static constexpr auto LongestBodyTime = std::chrono::seconds(30);

    /// Takes the socket over. Without a context it speaks clear text.
    HttpConnection(socket_t socket, SSL_CTX* context);
    ~HttpConnection() override;
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    /// The handshake, if there is one.
    bool Begin();

    /// Whether something has come before the time is up, the end of the connection included.
    bool AwaitRequest(std::chrono::seconds atMost);

    enum class Head {
        Taken,     ///< what came of it is there to be read; it may have ended early
        TooLarge,  ///< nothing more is read than what shows this
        TooSlow,
    };
    Head TakeHead();

    /// Puts another head in the place of one that was too large: its request line, if that had an end.
    void ReplaceHead();

    /// Whether the library left a part of the head unread, or the body came too late: what comes then is no
    /// request.
    bool IsOutOfStep() const { return position < headEnd || tooLate; }

    /// Lets an answer to what was not read whole reach its reader: closing over unread bytes would reset it
    /// away.
    void CloseGently();

    bool is_readable() const override { return true; }
    bool is_writable() const override;
    ssize_t read(char* data, std::size_t size) override;
    ssize_t write(const char* data, std::size_t size) override;
    void get_remote_ip_and_port(std::string& address, int& port) const override;
    void get_local_ip_and_port(std::string& address, int& port) const override;
    socket_t socket() const override { return descriptor; }

private:
    static long RefuseWhenLate(BIO* bio, int operation, const char* data, std::size_t size, int number,
                               long option, int result, std::size_t* processed);

    void SetDeadline(Duration fromNow);
    bool IsLate() const;
    bool ReceiveMore();
    ssize_t Receive(char* data, std::size_t size);

    const socket_t descriptor;
    std::unique_ptr<SSL, FreeTls> tls;  // none in clear text
    bool established = false;
    Duration deadline{};       // of what is being received: a handshake, a head or a body
    std::string buffer;        // what was received and not yet read, from `position` on
    std::size_t position = 0;  // at most the buffer's size
    std::size_t headEnd = 0;   // where in the buffer the head of the current request ends
    bool inBody = false;       // something was to be received behind that
    bool tooLate = false;      // and the time for it was up
};

}  // namespace Ombry::Sandbox
