#include "bench/HttpClients.h"

#include <stdexcept>

namespace Ombry::Bench {

std::unique_ptr<HttpClient> MakeClient(const std::string& name, const Target& target) {
    if (name == "ours") return MakeOmbryClient(target);
    if (name == "libcurl") return MakeCurlClient(target);
    if (name == "Beast") return MakeBeastClient(target);
    if (name == "OpenSSL alone") return MakeOpenSSLClient(target);
    if (name == "OpenSSL in our steps") return MakeSteppedOpenSSLClient(target);
    throw std::runtime_error("There is no client of the name " + name);
}

}  // namespace Ombry::Bench
