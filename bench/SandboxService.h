#pragma once

#include "bench/Measurement.h"

#include <string>

namespace Ombry::Bench {

/// The service of the repository in a process of its own, on a port of its own choice.
class SandboxService {
public:
    static constexpr const char* InstallToken = "install-token";
    static constexpr const char* User = "admin";
    static constexpr const char* Password = "secret";
    static constexpr const char* DatacenterId = "5ad7b0c2-0001-4c00-8000-000000000001";
    static constexpr const char* OtherDatacenterId = "5ad7b0c2-0001-4c00-8000-000000000002";

    SandboxService();
    ~SandboxService();
    SandboxService(const SandboxService&) = delete;
    SandboxService& operator=(const SandboxService&) = delete;

    const std::string& BaseUrl() const { return baseUrl; }
    /// PEM text of its key and certificate.
    std::string IdentityFile() const { return folder.Path("state/identity.pem"); }

private:
    TemporaryFolder folder;
    const std::string output;
    const int descriptor;
    Background process;
    std::string baseUrl;
};

}  // namespace Ombry::Bench
