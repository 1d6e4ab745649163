#include "OmbryZephCore/ZephHttpHeaderParser.h"
#include "bench/Measurement.h"

#include <benchmark/benchmark.h>

#include <http_parser.h>

#include <string>
#include <utility>
#include <vector>

namespace Ombry::Bench {
namespace {

using OmbryZephCore::ZephHttpHeaderParser;

std::string MakeHead(int headers) {
    std::string head = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < headers; ++i)
        head += "X-Header-" + std::to_string(i) + ": some value of a usual length, number " +
                std::to_string(i) + "\r\n";
    return head + "\r\n";
}

/// The peer, with callbacks that keep where each name and value lies, which ours does as well.
class PeerParser {
public:
    PeerParser() {
        http_parser_settings_init(&settings);
        settings.on_header_field = [](http_parser* parser, const char* at, std::size_t length) {
            Of(parser).push_back({{at, length}, {}});
            return 0;
        };
        settings.on_header_value = [](http_parser* parser, const char* at, std::size_t length) {
            Of(parser).back().second = {at, length};
            return 0;
        };
    }

    bool Parse(const std::string& head) {
        http_parser parser;
        http_parser_init(&parser, HTTP_RESPONSE);
        headers.clear();
        parser.data = &headers;
        return http_parser_execute(&parser, &settings, head.data(), head.size()) == head.size();
    }

private:
    using Headers = std::vector<std::pair<std::string_view, std::string_view>>;
    static Headers& Of(http_parser* parser) { return *static_cast<Headers*>(parser->data); }

    http_parser_settings settings;
    Headers headers;
};

/// Both in turn; the reported time is ours for a hundred heads, the counter ours divided by the peer's.
void ParseResponseHead(benchmark::State& state) {
    const std::string head = MakeHead(static_cast<int>(state.range(0)));
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    PeerParser peer;
    double ourSeconds = 0, peerSeconds = 0;
    constexpr int Repeated = 100;
    for (auto _ : state) {
        bool good = true;
        const double start = Now();
        for (int i = 0; i < Repeated; ++i)
            good = parser.Parse(reinterpret_cast<const std::uint8_t*>(head.data()),
                                static_cast<std::uint32_t>(head.size())) == 0 &&
                   good;
        const double between = Now();
        for (int i = 0; i < Repeated; ++i)
            good = peer.Parse(head) && good;
        const double end = Now();
        if (!good) state.SkipWithError("The head was refused.");
        state.SetIterationTime(between - start);
        ourSeconds += between - start;
        peerSeconds += end - between;
    }
    state.counters["times_http_parser"] = ourSeconds / peerSeconds;
}
BENCHMARK(ParseResponseHead)->Arg(5)->Arg(12)->Arg(100)->UseManualTime();

}  // namespace
}  // namespace Ombry::Bench
