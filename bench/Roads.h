#pragma once

#include "bench/HttpClients.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Ombry::Bench {

/// A way through the libraries that programs take often.
struct Road {
    std::string name;          ///< one word
    int passes;                ///< that are counted; as many go ahead of them
    std::function<void()> go;  ///< one pass; throws `std::runtime_error` where it ends badly
};

/// `folder`: an empty one, for caches. The roads keep connections, threads and caches until the last of them
/// is gone.
///
///   GET         a file of 200 bytes on a kept connection
///   POST        500 bytes on a kept connection, answered with 204
///   bare        the GET with the headers that a gateway sends, by the bare client
///   gateway     the same through `ServiceGateway`, with a token that each call looks up in the cache
///   discovery   an answer of 100 instances read
///   header      the head of an answer parsed, with 12 headers
std::vector<Road> MakeRoads(const Target& target, const std::string& folder);

}  // namespace Ombry::Bench
