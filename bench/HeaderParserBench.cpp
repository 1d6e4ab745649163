#include "OmbryZephCore/ZephHttpHeaderParser.h"

#include <benchmark/benchmark.h>

#include <string>

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

void ParseResponseHead(benchmark::State& state) {
    const std::string head = MakeHead(static_cast<int>(state.range(0)));
    ZephHttpHeaderParser parser(ZephHttpHeaderParser::ModeResponse);
    for (auto _ : state) {
        if (parser.Parse(reinterpret_cast<const std::uint8_t*>(head.data()),
                         static_cast<std::uint32_t>(head.size())) != 0) {
            state.SkipWithError("The head was refused.");
        }
        benchmark::DoNotOptimize(parser.GetStatusCode());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(head.size()));
}
BENCHMARK(ParseResponseHead)->Arg(5)->Arg(12)->Arg(100);

}  // namespace
}  // namespace Ombry::Bench
