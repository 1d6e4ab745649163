// Invariant: whatever the peer sends, and however it cuts its segments, every awaited answer gets the same
// status, the same bytes and the same end as if all had come at once; a body of declared length never gets a
// byte more than that, and is only said to have ended when it has them all; and no answer is left waiting
// with nothing under way.
//
// Input: byte 0 = answers awaited, flow control and "Connection: close"; byte 1 = seed of the cuts; then the
// peer's bytes, behind which it closes.

#include "OmbryZephCore/ZephHttpClientConnection.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "fuzz/Require.h"
#include "tests/Fakes/FakeIOObject.h"

#include <cstdint>
#include <deque>
#include <new>
#include <random>
#include <string>
#include <string_view>

namespace {

using namespace OmbryZephCore;
using Ombry::Fuzz::Require;

/// The sizes that only a hostile peer names must not exhaust the machine that fuzzes.
std::uint8_t* AllocateModestly(std::uint64_t nBytes) {
    return nBytes > 16 * 1024 * 1024 ? nullptr : new (std::nothrow) std::uint8_t[nBytes];
}

class Exchange : public ZephHttpResponseHandlerIf {
public:
    Exchange(ZephHttpClientConnection& connection, bool continues)
        : connection(connection), continues(continues) {}

    std::uint32_t OnResponseStart(std::uint32_t nStatus, std::uint32_t nLength) override {
        Require(!started && !over);
        started = true;
        status = nStatus;
        declared = nLength;
        if (continues) connection.ContinueReceive();
        return 0;
    }
    std::uint32_t OnResponseData(std::uint32_t nBytes, const std::uint8_t* pData) override {
        Require(started && !over && nBytes > 0);
        body.append(reinterpret_cast<const char*>(pData), nBytes);
        Require(declared == 0 || body.size() <= declared);
        if (continues) connection.ContinueReceive();
        return 0;
    }
    std::uint32_t OnResponseEnd() override {
        Require(started && !over);
        Require(declared == 0 || body.size() == declared);
        over = 'E';
        return 0;
    }
    std::uint32_t OnCompleteResponse(std::uint32_t nStatus, const std::uint8_t* pData,
                                     std::uint32_t nBytes) override {
        Require(!started && !over);
        status = nStatus;
        body.assign(reinterpret_cast<const char*>(pData), nBytes);
        over = 'E';
        return 0;
    }
    void OnResponseFailed() override {
        Require(!over);
        over = 'F';
    }

    ZephHttpClientConnection& connection;
    const bool continues;
    bool started = false;
    char over = 0;
    std::uint32_t status = 0;
    std::uint32_t declared = 0;
    std::string body;
};

class Terminator : public ZephTerminatorIf {
public:
    void Terminate() override {}
};

std::string Play(std::string_view bytes, int awaited, bool continues, bool close, std::mt19937* cuts) {
    Ombry::Tests::FakeIOObject io;
    Terminator terminator;
    ZephHttpClientConnection connection;
    Require(connection.Initialize(&io, &terminator, "h", nullptr, nullptr) == 0);
    std::deque<Exchange> exchanges;
    for (int n = 0; n < awaited; ++n) {
        Exchange& exchange = exchanges.emplace_back(connection, continues);
        Require(connection.SendRequest("GET", "/", close, &exchange, nullptr, nullptr, false, 0) == 0);
        io.CompleteWrite();
    }
    const auto run = [&] {
        while (!io.IsReading() && !exchanges.back().over)
            connection.ContinueReceive();
    };
    while (!bytes.empty() && !exchanges.back().over) {
        const std::size_t piece = cuts ? 1 + (*cuts)() % ((*cuts)() % 4 ? 8 : 5000) : bytes.size();
        bytes.remove_prefix(io.CompleteRead(bytes.substr(0, piece)));
        run();
    }
    if (!exchanges.back().over) {
        io.CompleteReadWithEnd();
        run();
    }
    Require(io.emptyTransfers == 0);
    std::string outcome;
    for (const Exchange& exchange : exchanges)
        outcome += std::to_string(exchange.status) + exchange.over + exchange.body + "\n";
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    ZephIOBuffer::ReplaceAllocator(&AllocateModestly);
    const int awaited = 1 + (data[0] & 3) % 3;
    const bool continues = (data[0] & 4) == 0;
    const bool close = (data[0] & 8) != 0;
    std::mt19937 cuts(data[1]);
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    Require(Play(bytes, awaited, true, close, nullptr) == Play(bytes, awaited, continues, close, &cuts));
    return 0;
}
