#pragma once

#include "tests/Fakes/Linux/TlsServerEnd.h"

#include <map>

namespace Ombry::Tests {

/// A TLS server with the key that takes the least time; its certificate is made once and for all runs.
inline const TlsServerRecipe& QuickestServer(long serial) {
    static std::map<long, TlsServerRecipe> made;
    TlsServerRecipe& recipe = made[serial];
    if (!recipe.certificate) {
        recipe.key = KeyNamed("ec256");
        recipe.certificate = MakeCertificate({.key = recipe.key, .serial = serial});
    }
    return recipe;
}

}  // namespace Ombry::Tests
