#include "tests/OmbryZephCore/LoopbackTls.h"

namespace Ombry::Tests::LoopbackTls {

std::vector<bool> PlainAndTls() {
    return {false};
}

ServerStreams Streams() {
    return nullptr;
}

std::string Certificate() {
    return "";
}

}  // namespace Ombry::Tests::LoopbackTls
