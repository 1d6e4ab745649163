#include "tests/OmbryZephCore/LoopbackTls.h"

#include "tests/OmbryZephCore/Linux/LoopbackRecipe.h"

namespace Ombry::Tests::LoopbackTls {

std::vector<bool> PlainAndTls() {
    return {false, true};
}

ServerStreams Streams() {
    return StreamsOf(LoopbackRecipe());
}

std::string Certificate() {
    return Base64Of(DerOf(LoopbackRecipe().certificate));
}

}  // namespace Ombry::Tests::LoopbackTls
