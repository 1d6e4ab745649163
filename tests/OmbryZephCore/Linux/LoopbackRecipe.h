#pragma once

#include "tests/Fakes/Linux/TlsStream.h"

namespace Ombry::Tests {

/// Of the server of `LoopbackTls`.
inline TlsServerRecipe LoopbackRecipe() {
    static const TestCertificate certificate = MakeCertificate({});
    TlsServerRecipe recipe;
    recipe.certificate = certificate;
    return recipe;
}

}  // namespace Ombry::Tests
