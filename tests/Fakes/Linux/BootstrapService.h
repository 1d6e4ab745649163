#pragma once

#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/Linux/MemoryServer.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <memory>
#include <string>
#include <utility>

namespace Ombry::Tests {

/// A machine with an empty program-data folder and a service that answers on every host and port, all in one
/// thread: the world in which a machine is configured.
class BootstrapService {
public:
    explicit BootstrapService(bool withTls = true, const CertificateRecipe& recipe = {})
        : BootstrapService(withTls ? MakeCertificate(recipe) : nullptr, recipe.key) {}
    /// Shows this certificate; without one there is no TLS.
    BootstrapService(const TestCertificate& shown, const TestKey& key) {
        std::optional<TlsServerRecipe> tls;
        if (shown) {
            tls.emplace(TlsServerRecipe{.certificate = shown, .key = key});
            certificate = DerOf(shown);
        }
        server = std::make_unique<MemoryServer>(
            sockets, [this](const std::string& request) { return Answer(request); }, tls);
    }

    /// A path below the machine's own folder.
    std::string Path(const std::string& name) const { return directory / ("Quennet/" + name); }

    std::string list = R"([{"id":"i1","name":"one"},{"id":"i2","name":"two"}])";
    int listStatus = 200;
    std::string token = R"({"token_type":"Bearer","access_token":"the-token","expires_in":3600})";
    int tokenStatus = 200;
    std::string certificate;  ///< DER

    const TemporaryDirectory directory;
    ScriptedSockets sockets;
    std::unique_ptr<MemoryServer> server;

private:
    std::string Answer(const std::string& request) {
        return request.starts_with("POST ") ? MemoryServer::Response(tokenStatus, token)
                                            : MemoryServer::Response(listStatus, list);
    }

    FakeKnownFolders folders{directory.Path()};
    FakeMachineId machineId{"0123456789abcdef0123456789abcdef"};
    FakeClock clock;
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    Platform::Testing::Replace<Platform::IMachineId> replacedId{machineId};
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
};

}  // namespace Ombry::Tests
