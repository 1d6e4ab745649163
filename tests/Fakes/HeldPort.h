#pragma once

#include "tests/Fakes/BlockingSockets.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Ombry::Tests {

/// A port that the system picked and picks for nobody else while this lives. Servers that set SO_REUSEADDR
/// can listen on it, one after the other, since the socket that holds it never listens.
class HeldPort {
public:
    HeldPort() : socket(BlockingSockets::Hold()), number(BlockingSockets::PortOf(socket)) {
        if (number == 0) throw std::runtime_error("cannot hold a port");
    }
    ~HeldPort() { BlockingSockets::Close(socket); }
    HeldPort(const HeldPort&) = delete;
    HeldPort& operator=(const HeldPort&) = delete;

    std::uint16_t Port() const { return number; }
    std::string Text() const { return std::to_string(number); }

private:
    const BlockingSockets::Socket socket;
    const std::uint16_t number;
};

/// The address of a server that refuses connections.
inline std::string RefusingUrl() {
    static const HeldPort port;
    return "http://127.0.0.1:" + port.Text();
}

}  // namespace Ombry::Tests
