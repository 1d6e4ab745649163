#include "bench/HttpClients.h"
#include "bench/OpenSSLPin.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>

#include <array>
#include <limits>
#include <optional>
#include <stdexcept>

namespace Ombry::Bench {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

/// As its documentation has a blocking client: one stream, one buffer, a parser for each answer.
class BeastClient : public HttpClient {
public:
    explicit BeastClient(const Target& target) : target(target) {}

    std::uint64_t Get(const std::string& path) override {
        http::request<http::empty_body> request(http::verb::get, path, 11);
        request.set(http::field::host, "127.0.0.1");
        request.set(http::field::accept, "*/*");
        return Exchange(request);
    }

    void Post(const std::string& path, const std::string& body) override {
        http::request<http::string_body> request(http::verb::post, path, 11);
        request.set(http::field::host, "127.0.0.1");
        request.set(http::field::content_type, "application/json");
        request.body() = body;
        request.prepare_payload();
        Exchange(request);
    }

    void GetAnew(const std::string& path, Handshake) override {
        BeastClient fresh(target);
        fresh.Get(path);
    }

private:
    using Stream = asio::ssl::stream<asio::ip::tcp::socket>;

    template <class Request>
    std::uint64_t Exchange(const Request& request) {
        if (!stream) Connect();
        http::write(*stream, request);
        http::response_parser<http::buffer_body> parser;
        parser.body_limit(std::numeric_limits<std::uint64_t>::max());
        http::read_header(*stream, buffer, parser);
        const unsigned status = parser.get().result_int();
        if (status != 200 && status != 204)
            throw std::runtime_error("Beast's exchange failed: " + std::to_string(status));
        std::uint64_t count = 0;
        while (!parser.is_done()) {
            parser.get().body().data = piece.data();
            parser.get().body().size = piece.size();
            beast::error_code error;
            http::read(*stream, buffer, parser, error);
            if (error && error != http::error::need_buffer) throw beast::system_error(error);
            count += piece.size() - parser.get().body().size;
        }
        return count;
    }

    void Connect() {
        stream.emplace(io, SharedContext());
        stream->next_layer().connect({asio::ip::address_v4::loopback(), target.port});
        stream->next_layer().set_option(asio::ip::tcp::no_delay(true));
        stream->handshake(asio::ssl::stream_base::client);
        RequirePin(stream->native_handle(), target.pin);
    }

    // One for the process, as on the other sides.
    static asio::ssl::context& SharedContext() {
        static asio::ssl::context context(asio::ssl::context::tls_client);
        return context;
    }

    const Target target;
    asio::io_context io;
    std::optional<Stream> stream;
    beast::flat_buffer buffer;
    std::array<char, 8192> piece{};
};

}  // namespace

std::unique_ptr<HttpClient> MakeBeastClient(const Target& target) {
    return std::make_unique<BeastClient>(target);
}

}  // namespace Ombry::Bench
