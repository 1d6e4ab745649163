#pragma once

#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "tests/Fakes/DrawnSeeds.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/FakeOneCertificateStore.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/LoopbackSecurityFramework.h"
#include "tests/Fakes/MemoryFiles.h"

#include <memory>
#include <string>
#include <vector>

namespace Ombry::Tests {

inline const std::string Security = MemoryMachine() + "/Quennet/OmbrySecurity";

/// The command that enrolls a client "New", with a token and as the client of the machine.
inline const std::vector<std::string> EnrollNew{"enroll-client", "-t", "t", "-nn", "New"};
inline const std::vector<std::string> EnrollNewAsClient{"enroll-client", "-n", "c1", "-nn", "New"};

/// A machine in memory that is tied to a service, a `FakeSecurityFramework` of some kind, and where the
/// client "c1" is enrolled. Nothing is refreshed beside a command, so all that goes out is the command's own.
template <class Service>
class ConfiguredMachineOn {
public:
    /// The service is made of what stands behind the certificate that is trusted.
    template <class... Recipe>
    explicit ConfiguredMachineOn(const std::string& certificate = "certificate", const Recipe&... recipe)
        : certificates("DiscoveryServiceBootstrap", certificate), web(recipe...) {
        files.Put(Security + "/CS/datacenterid.config", "dc-1");
        TieTo(web.url);
        files.Put(Security + "/Components/c1/ombrycomponent.config", SavedCredentials());
    }

    /// The machine finds its service at this address, and has a list of it that is not due before that
    /// second.
    void TieTo(const std::string& url, const std::string& due = "1700000000") {
        files.Put(Security + "/ombrysecurity.config", "{\"ssdsUri\": \"" + url + "\"}");
        for (const char* const directory : {"", "c1", "u"}) {
            files.Put(Security + "/CS-cpp/cache/" + directory + "/v1-service.cache-p",
                      "{\"expiryTime\": " + due +
                          ", \"local\": [{\"serviceName\": \"v1-service\", "
                          "\"endpointUrl\": \"" +
                          url + "\", \"endpointCert\": \"" + certificates.Base64() + "\"}]}");
        }
    }

    static std::shared_ptr<ClientCommunications::IClientCredentialsStore> Store() {
        return ClientCommunications::CreateClientCredentialsStore(Security, true, nullptr);
    }

    /// What the store has written for "c1", once for all machines: they have one key and one identity.
    static const std::string& SavedCredentials() {
        static const std::string saved = [] {
            const std::string file = Security + "/Components/c1/ombrycomponent.config";
            FakeKnownFolders folders{MemoryMachine()};
            FakeMachineId machineId{"machine"};
            MemoryFiles files;
            const Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
            const Platform::Testing::Replace<Platform::IMachineId> replacedMachineId{machineId};
            const Platform::Testing::Replace<Platform::IFiles> replacedFiles{files};
            Store()->Save(std::make_shared<ClientCommunications::ClientCredentials>(
                std::make_shared<ClientCommunications::WindowsInMemoryDataProtection>(), "c1", "c1-id",
                "c1-secret"));
            return *files.Content(file);
        }();
        return saved;
    }

    FakeClock clock;
    /// With which the token thread's first wait is long.
    static std::uint32_t SeedOfALongWait() {
        static const std::uint32_t seed = SeedThatDraws(0, 720, 500);
        return seed;
    }
    FakeRandom random{SeedOfALongWait()};
    FakeKnownFolders folders{MemoryMachine()};
    FakeMachineId machineId{"machine"};
    MemoryFiles files;
    FakeOneCertificateStore certificates;
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    const Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
    const Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const Platform::Testing::Replace<Platform::IMachineId> replacedMachineId{machineId};
    const Platform::Testing::Replace<Platform::IFiles> replacedFiles{files};
    const Platform::Testing::Replace<Platform::ICertificates> replacedCertificates{certificates};
    Service web;
};

/// A service on loopback, whose requests can be looked at.
using ConfiguredMachine = ConfiguredMachineOn<LoopbackSecurityFramework>;

}  // namespace Ombry::Tests
