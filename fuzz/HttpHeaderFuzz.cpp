// Invariant: a head of any bytes parses or fails with the code of its mode, without a read or write outside
// its copy. After a success, its length is within the input, the bytes behind it play no part, and every
// header is found under its name. After a failure nothing is left.

#include "OmbryZephCore/ZephHttpHeaderParser.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "fuzz/Require.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using Ombry::Fuzz::Require;
using OmbryZephCore::ZephHttpHeaderParser;
using Headers = std::vector<std::pair<std::string, std::string>>;

std::uint32_t ParseExact(ZephHttpHeaderParser& parser, const std::uint8_t* data, std::size_t size) {
    auto exact = std::make_unique<std::uint8_t[]>(size);
    std::copy_n(data, size, exact.get());
    return parser.Parse(exact.get(), static_cast<std::uint32_t>(size));
}

Headers Collect(const ZephHttpHeaderParser& parser) {
    Headers headers;
    parser.ForEachHeader([&](const char* name, const char* value) {
        Require(parser.GetHeader(name) == value);
        headers.emplace_back(name, value);
    });
    return headers;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::uint32_t mode =
        data[0] == 'Q' ? ZephHttpHeaderParser::ModeRequest : ZephHttpHeaderParser::ModeResponse;
    ++data;
    --size;
    ZephHttpHeaderParser parser(mode);
    if (const std::uint32_t result = ParseExact(parser, data, size); result != 0) {
        Require(result == (mode == ZephHttpHeaderParser::ModeRequest
                               ? OmbryZephCore::eRC_HTTP_BadRequestHeader
                               : OmbryZephCore::eRC_HTTP_BadResponseHeader));
        Require(parser.GetHeaderSize() == 0 && !parser.GetVersion() && Collect(parser).empty());
        return 0;
    }
    Require(parser.GetHeaderSize() <= size);
    Require(std::strlen(parser.GetVersion()) <= size);
    if (mode == ZephHttpHeaderParser::ModeRequest) {
        Require(std::strlen(parser.GetMethod()) <= size && std::strlen(parser.GetUrl()) <= size);
    }
    ZephHttpHeaderParser again(mode);
    Require(ParseExact(again, data, parser.GetHeaderSize()) == 0);
    Require(again.GetHeaderSize() == parser.GetHeaderSize());
    Require(again.GetStatusCode() == parser.GetStatusCode());
    Require(Collect(again) == Collect(parser));
    return 0;
}
