#pragma once

#include "tests/Fakes/LoopbackServer.h"

#include <string>
#include <vector>

/// The TLS server of tests that run over plain TCP and over TLS. Each system has a source of its own for it;
/// where the tests have no such server, there is plain TCP alone.
namespace Ombry::Tests::LoopbackTls {

/// The parameters of such tests: false for plain TCP, true for TLS.
std::vector<bool> PlainAndTls();
/// Makes the server's end of a connection.
ServerStreams Streams();
/// Its certificate, as the client's settings take it.
std::string Certificate();

}  // namespace Ombry::Tests::LoopbackTls
