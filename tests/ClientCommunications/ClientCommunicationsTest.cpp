#include "ClientCommunications/Impl/ClientCommunications.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "tests/Fakes/DrawnSeeds.h"
#include "tests/Fakes/FailingThreads.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/FakeOneCertificateStore.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/LoopbackSecurityFramework.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/SystemProtection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system_error>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using Texts = std::vector<std::string>;

const std::string Security = MemoryMachine() + "/Quennet/OmbrySecurity";
const std::string Cache = Security + "/CS-cpp/cache/";

class ClientCommunicationsTest : public testing::Test {
protected:
    ClientCommunicationsTest() {
        files.Put(Security + "/CS/datacenterid.config", "dc-1");
        files.Put(Security + "/ombrysecurity.config", "{\"ssdsUri\": \"" + web.server.Url() + "\"}");
        CreateClientCredentialsStore(Security, true, nullptr)
            ->Save(std::make_shared<ClientCredentials>(std::make_shared<WindowsInMemoryDataProtection>(),
                                                       "c1", "c1-id", "c1-secret"));
        files.ClearOperations();
    }

    /// Puts a discovery cache there that knows the seed and is not due, so that nothing is refreshed beside a
    /// test.
    void HoldMaintainer(const std::string& cacheDirectory) {
        files.Put(
            cacheDirectory + "/v1-service.cache-p",
            "{\"expiryTime\": 1700000000, \"local\": [{\"id\": \"ssds\", \"serviceName\": \"v1-service\", "
            "\"endpointUrl\": \"" +
                web.server.Url() + "\", \"endpointCert\": \"" + certificates.Base64() + "\"}]}");
    }

    static CommunicationsParameters Parameters(const std::string& clientName, const std::string& userName,
                                               const std::string& token) {
        CommunicationsParameters parameters(clientName);
        parameters.SetUserName(userName);
        parameters.SetPassword(userName.empty() ? "" : "pw");
        parameters.SetFixedToken(token);
        return parameters;
    }

    /// Makes one call to the service of that name.
    static int Call(IClientCommunications& communications, const std::string& name, const std::string& path) {
        const auto finder = communications.GetServiceFinderFactory()->CreateByName(name);
        const auto gateway = communications.GetServiceGatewayFactory()->Create(finder);
        const auto request = communications.GetServiceRequestFactory()->Create("GET", path, "1");
        return gateway->CallForString(request, {})->GetStatusCode();
    }

    static std::string Failure(const CommunicationsParameters& parameters) {
        try {
            MakeClientCommunications(parameters);
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
        return "";
    }

    FakeClock clock;
    // The token thread's first wait is then long.
    FakeRandom random{SeedThatDraws(0, 720, 500)};
    FakeKnownFolders folders{MemoryMachine()};
    FakeMachineId machineId{"machine"};
    MemoryFiles files;
    FakeOneCertificateStore certificates{"DiscoveryServiceBootstrap", "certificate"};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    const Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
    const Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    const Platform::Testing::Replace<Platform::IMachineId> replacedMachineId{machineId};
    const Platform::Testing::Replace<Platform::IFiles> replacedFiles{files};
    const Platform::Testing::Replace<Platform::ICertificates> replacedCertificates{certificates};
    LoopbackSecurityFramework web;
};

TEST_F(ClientCommunicationsTest, WhicheverThreadCannotStartTheOthersEndAndTheFailureComesOut) {
    constexpr std::size_t Threads = 4;
    HoldMaintainer(Cache + "c1");
    for (std::size_t n = 1; n <= Threads + 1; ++n) {
        const FailingThreads threads(n);
        if (n <= Threads) {
            EXPECT_THROW(MakeClientCommunications(Parameters("c1", "", "")), std::system_error) << n;
            EXPECT_EQ(threads.Count(), n);
        } else {
            EXPECT_NO_THROW(MakeClientCommunications(Parameters("c1", "", "")));
            EXPECT_EQ(threads.Count(), Threads);
        }
    }
}

// What starts a thread is made before and after the bootstrap file is read, which tells the order of both.
TEST_F(ClientCommunicationsTest, BootstrapFileIsReadOnceTwoThreadsRun) {
    const std::string bootstrap = "Read " + Security + "/ombrysecurity.config";
    static_cast<void>(files.Remove(Security + "/ombrysecurity.config"));
    for (std::size_t n = 1; n <= 3; ++n) {
        const FailingThreads threads(n);
        files.ClearOperations();
        if (n <= 2) {
            EXPECT_THROW(MakeClientCommunications(Parameters("c1", "", "")), std::system_error) << n;
            EXPECT_THAT(files.Texts(), testing::Not(testing::Contains(bootstrap))) << n;
        } else {
            EXPECT_THAT(Failure(Parameters("c1", "", "")),
                        testing::HasSubstr("ombrysecurity.config' for read."));
            EXPECT_EQ(threads.Count(), 2u);
        }
    }
}

struct Identity {
    const char* name;
    std::string clientName, userName, token;
    std::string sourceName, sourceId;
    std::string cacheDirectory;
    Texts calls;  // of one call to "v1-auth"
};

const std::string AaCall = "GET /services/services/nonsecure/name/aa -";
const std::string FindCall = "GET /services/services/secure/name/v1-auth ";
const std::string TokenBody = " grant_type=client_credentials&servicename=";

std::vector<Identity> Identities() {
    // Base64 of "c1-id:c1-secret" and of "u1:pw".
    const std::string client = " Basic YzEtaWQ6YzEtc2VjcmV0" + TokenBody;
    const std::string user = " Basic dTE6cHc=" + TokenBody;
    const std::string clients = "POST /v1/auth/clients/servicetokens";
    const std::string users = "POST /v1/auth/users/servicetokens";
    return {
        {"client",
         "c1",
         "",
         "",
         "c1",
         "c1-id",
         Cache + "c1",
         {AaCall, clients + client + "v1-service", FindCall + "Bearer token-1", clients + client + "s",
          "GET /test Bearer token-2"}},
        {"user",
         "",
         "u1",
         "",
         "u1",
         "u1",
         Cache,
         {AaCall, users + user + "v1-service", FindCall + "Bearer token-1", users + user + "s",
          "GET /test Bearer token-2"}},
        // The credentials choose the client first, the path of the token call the user.
        {"client and user",
         "c1",
         "u1",
         "t",
         "c1",
         "c1-id",
         Cache + "c1",
         {AaCall, users + client + "v1-service", FindCall + "Bearer token-1", users + client + "s",
          "GET /test Bearer token-2"}},
        {"token",
         "",
         "",
         "t1",
         "FixedToken",
         "FixedToken",
         Cache,
         {FindCall + "Bearer t1", "GET /test Bearer t1"}},
        {"nobody", "", "", "", "NoCreds", "NoCreds", Cache, {FindCall + "-", "GET /test -"}},
    };
}

TEST_F(ClientCommunicationsTest, CallsGoOutAsTheIdentityAndTheOpenPathsAsNobody) {
    for (const Identity& identity : Identities()) {
        LoopbackSecurityFramework own;
        files.Put(Security + "/ombrysecurity.config", "{\"ssdsUri\": \"" + own.server.Url() + "\"}");
        for (const std::string& path : Texts{"/finder_cache", "/aa_token"}) {
            for (const auto& [file, content] : files.Contents()) {
                if (file.find(path) != std::string::npos) static_cast<void>(files.Remove(file));
            }
        }
        files.Put(
            identity.cacheDirectory + "/v1-service.cache-p",
            "{\"expiryTime\": 1700000000, \"local\": [{\"serviceName\": \"v1-service\", \"endpointUrl\": \"" +
                own.server.Url() + "\", \"endpointCert\": \"" + certificates.Base64() + "\"}]}");
        const auto communications =
            MakeClientCommunications(Parameters(identity.clientName, identity.userName, identity.token));

        EXPECT_EQ(Call(*communications, "v1-auth", "/test"), 200) << identity.name;

        EXPECT_EQ(own.Summaries(), identity.calls) << identity.name;
        for (const std::string& request : own.server.Requests()) {
            EXPECT_EQ(HeaderOf(request, "SF-Source-Client-Name"), identity.sourceName) << request;
            EXPECT_EQ(HeaderOf(request, "SF-Source-Client-Id"), identity.sourceId) << request;
            EXPECT_EQ(HeaderOf(request, "SF-Source-Datacenter-Id"), "dc-1") << request;
            EXPECT_EQ(HeaderOf(request, "Datacenter-Id"), "dc-1") << request;
        }
    }
}

TEST_F(ClientCommunicationsTest, APasswordAloneIsNobody) {
    HoldMaintainer(Cache);
    auto parameters = Parameters("", "", "");
    parameters.SetPassword("pw");
    const auto communications = MakeClientCommunications(parameters);

    Call(*communications, "v1-auth", "/test");

    EXPECT_EQ(web.Summaries(), (Texts{FindCall + "-", "GET /test -"}));
    EXPECT_EQ(HeaderOf(web.server.Requests()[0], "SF-Source-Client-Name"), "NoCreds");
}

TEST_F(ClientCommunicationsTest, WholeStateIsThatOfTheDirectoriesOfTheParameters) {
    const std::string other = "/other";
    files.Put(other + "/CS/datacenterid.config", "dc-2");
    files.Put(other + "/ombrysecurity.config", "{\"ssdsUri\": \"" + web.server.Url() + "\"}");
    files.Put(other + "/Components/c2/Services/part.config", "{\"Version\": \"1.0\", \"Guid\": \"g-2\"}");
    CreateClientCredentialsStore(other, true, nullptr)
        ->Save(std::make_shared<ClientCredentials>(std::make_shared<WindowsInMemoryDataProtection>(), "c2",
                                                   "c2-id", "c2-secret"));
    static_cast<void>(files.Remove(Security + "/CS/datacenterid.config"));
    static_cast<void>(files.Remove(Security + "/ombrysecurity.config"));
    const auto before = files.Contents();
    HoldMaintainer("/cache");
    auto parameters = Parameters("c2", "", "");
    parameters.SetSecurityDirectory(other);
    parameters.cacheDirectory = "/cache";
    {
        const auto communications = MakeClientCommunications(parameters);
        communications->GetLocalServiceFinderFactory()->Create("part", "svc")->Find({});
    }

    EXPECT_EQ(web.Summaries().back(), "GET /services/services/secure/name/svc/parent-id/g-2 Bearer token-1");
    const std::string request = web.server.Requests().back();
    EXPECT_EQ(HeaderOf(request, "SF-Source-Client-Id"), "c2-id");
    EXPECT_EQ(HeaderOf(request, "Datacenter-Id"), "dc-2");
    Texts written;
    for (const auto& [path, content] : files.Contents()) {
        if (!before.contains(path)) written.push_back(path.substr(0, path.rfind('/')));
    }
    EXPECT_EQ(written, (Texts{"/cache/aa_token", "/cache/finder_cache", "/cache/finder_cache", "/cache"}));

    parameters.commonConfigPath = "/common";
    files.Put("/common", "<DatacenterId>dc-3<");
    HoldMaintainer("/cache");
    const auto communications = MakeClientCommunications(parameters);
    Call(*communications, "svc", "/test");
    EXPECT_EQ(HeaderOf(web.server.Requests().back(), "Datacenter-Id"), "dc-3");
}

TEST_F(ClientCommunicationsTest, SecondCallFindsListsAndTokensInItsCaches) {
    HoldMaintainer(Cache + "c1");
    const auto communications = MakeClientCommunications(Parameters("c1", "", ""));
    Call(*communications, "v1-auth", "/one");
    const std::size_t before = web.Summaries().size();

    Call(*communications, "v1-auth", "/two");

    const Texts calls = web.Summaries();
    EXPECT_EQ(Texts(calls.begin() + static_cast<long>(before), calls.end()),
              Texts{"GET /two Bearer token-2"});
    Texts caches;
    for (const auto& [path, content] : files.Contents()) {
        if (path.starts_with(Cache))
            caches.push_back(path.substr(Cache.size(), path.rfind('/') - Cache.size()));
    }
    EXPECT_EQ(caches, (Texts{"c1/aa_token", "c1/aa_token", "c1/finder_cache", "c1/finder_cache", "c1"}));
}

TEST_F(ClientCommunicationsTest, NewMachineIsSeededAndItsListRefreshedAtOnceAsNobody) {
    auto parameters = Parameters("c1", "", "");
    parameters.logger = logger;
    const auto communications = MakeClientCommunications(parameters);
    clock.AwaitWaiters(4);  // failures, pool, tokens, maintainer

    EXPECT_EQ(web.Summaries(), Texts{"GET /services/services/nonsecure/name/ssds -"});
    const std::string request = web.server.Requests()[0];
    EXPECT_EQ(HeaderOf(request, "SF-Root-Request-Type"), "UpdateSsdsSeedNodes");
    EXPECT_EQ(HeaderOf(request, "SF-Destination-Service-Name"), "v1-service");
    EXPECT_EQ(HeaderOf(request, "SF-Destination-Service-Is-Local-DC"), "true");
    const auto saved = files.Content(Cache + "c1/v1-service.cache-p");
    ASSERT_TRUE(saved);
    EXPECT_NE(saved->find("\"id\": \"i\""), std::string::npos);  // the answer has replaced the seed
    EXPECT_EQ(logger->Messages(2),
              Texts{"Either the cache doesn't exist or the existing cache doesn't contain seed nodes.  "
                    "Seeding cache."});
    EXPECT_FALSE(files.Exists(Cache + "c1/finder_cache"));  // the maintainer's finder keeps none
    const auto entries = logger->Entries();
    EXPECT_TRUE(std::any_of(entries.begin(), entries.end(), [](const RecordingLogger::Entry& entry) {
        return entry.function == "Ombry::ClientCommunications::ServiceFinder::TraceFoundServices";
    }));
}

TEST_F(ClientCommunicationsTest, MaintainerStartsWithTheMakingAndNotWithTheConstruction) {
    {
        Ombry::ClientCommunications::ClientCommunications communications(Parameters("", "", ""));
        clock.AwaitWaiters(2);  // failures, pool
        EXPECT_EQ(web.Summaries(), Texts{});
    }
    const auto made = MakeClientCommunications(Parameters("", "", ""));
    clock.AwaitWaiters(3);
    EXPECT_EQ(web.Summaries().size(), 1u);
}

TEST_F(ClientCommunicationsTest, EachGetterGivesTheSameObjectEachTime) {
    HoldMaintainer(Cache);
    const auto communications = MakeClientCommunications(Parameters("", "", ""));

    EXPECT_NE(communications->GetServiceGatewayFactory(), nullptr);
    EXPECT_EQ(communications->GetServiceGatewayFactory(), communications->GetServiceGatewayFactory());
    EXPECT_NE(communications->GetServiceFinderFactory(), nullptr);
    EXPECT_EQ(communications->GetServiceFinderFactory(), communications->GetServiceFinderFactory());
    EXPECT_NE(communications->GetLocalServiceFinderFactory(), nullptr);
    EXPECT_EQ(communications->GetLocalServiceFinderFactory(), communications->GetLocalServiceFinderFactory());
    EXPECT_NE(communications->GetServiceIteratePolicyFactory(), nullptr);
    EXPECT_EQ(communications->GetServiceIteratePolicyFactory(),
              communications->GetServiceIteratePolicyFactory());
    EXPECT_NE(communications->GetServiceRequestFactory(), nullptr);
    EXPECT_EQ(communications->GetServiceRequestFactory(), communications->GetServiceRequestFactory());
    EXPECT_NE(communications->GetAaSigningCertificateFinder(), nullptr);
    EXPECT_EQ(communications->GetAaSigningCertificateFinder(),
              communications->GetAaSigningCertificateFinder());
}

TEST_F(ClientCommunicationsTest, FacadeAndItsRequestsLeaveNoIdInTheMemoryThatTheyFree) {
    if (!SystemProtectsMemory()) return LeaveOut("this system leaves protected memory as it is");
    const std::string id = "an id too long for a string object";
    CreateClientCredentialsStore(Security, true, nullptr)
        ->Save(std::make_shared<ClientCredentials>(std::make_shared<WindowsInMemoryDataProtection>(), "c2",
                                                   id, "c2-secret"));
    HoldMaintainer(Cache + "c2");
    const FreedMemory freed(id);

    auto communications = MakeClientCommunications(Parameters("c2", "", ""));
    const auto request = communications->GetServiceRequestFactory()->Create("GET", "/a", "1");
    communications.reset();

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_EQ(request->GetHeader("SF-Source-Client-Id"), id);
}

TEST_F(ClientCommunicationsTest, NeitherPasswordNorTokenIsLeftInTheMemoryThatIsFreed) {
    if (!SystemProtectsMemory()) return LeaveOut("this system leaves protected memory as it is");
    HoldMaintainer(Cache);
    const std::string secret = "a secret too long for a string object";
    const FreedMemory freed(secret);

    MakeCommunications("user", secret, "", "");
    MakeCommunications("", "", "", secret);

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST_F(ClientCommunicationsTest, SigningCertificatesComeFromTheOpenList) {
    HoldMaintainer(Cache);
    const auto communications = MakeClientCommunications(Parameters("", "", "t"));

    EXPECT_EQ(communications->GetAaSigningCertificateFinder()->GetCertificates(),
              std::list<std::string>{"signer"});
    EXPECT_EQ(web.Summaries(), Texts{AaCall});
}

TEST_F(ClientCommunicationsTest, LocalServicesAreThoseOfTheClient) {
    HoldMaintainer(Cache);
    HoldMaintainer(Cache + "c1");
    files.Put(Security + "/Components/c1/Services/part.config", "{\"Version\": \"1.0\", \"Guid\": \"g-1\"}");
    const auto communications = MakeClientCommunications(Parameters("c1", "", ""));

    communications->GetLocalServiceFinderFactory()->Create("part", "svc")->Find({});

    EXPECT_EQ(web.Summaries().back(), "GET /services/services/secure/name/svc/parent-id/g-1 Bearer token-1");
    const auto nobodys = MakeClientCommunications(Parameters("", "", ""));
    try {
        nobodys->GetLocalServiceFinderFactory()->Create("part", "svc");
        ADD_FAILURE();
    } catch (const std::runtime_error& failure) {
        EXPECT_EQ(std::string(failure.what()),
                  "Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" + Security +
                      "/Components//Services/part.config' for read.");
    }
}

TEST_F(ClientCommunicationsTest, StepsFailInTheirOrderAndNothingGoesOut) {
    const std::string notOpened = "Ombry::ClientCommunications::FileStorage::Load: Failed to open file '";
    const std::string credentials = Security + "/Components/c1/ombrycomponent.config";
    const std::string datacenter = Security + "/CS/datacenterid.config";
    const std::string bootstrap = Security + "/ombrysecurity.config";
    const std::string cache = Cache + "c1/v1-service.cache-p";
    certificates.Clear();
    files.Put(cache, "half a docu");
    static_cast<void>(files.Remove(bootstrap));
    static_cast<void>(files.Remove(datacenter));
    const std::string saved = *files.Content(credentials);
    static_cast<void>(files.Remove(credentials));
    const auto expect = [&](const std::string& failure, const Texts& reads) {
        files.ClearOperations();
        EXPECT_EQ(Failure(Parameters("c1", "", "")).substr(0, failure.size()), failure);
        EXPECT_EQ(files.Texts(), reads);
    };

    // Everything is wrong; each round mends what was found.
    Texts reads = {"Read " + credentials};
    expect(notOpened + credentials + "' for read.", reads);
    files.Put(credentials, "");
    expect("The credentials file of 'c1' is empty.", reads);
    files.Put(credentials, saved);
    reads.push_back("Read " + MemoryMachine() + "/Quennet/common.config");
    reads.push_back("Read " + datacenter);
    expect(notOpened + datacenter + "' for read.", reads);
    files.Put(datacenter, "dc-1");
    reads.push_back("Read " + bootstrap);
    expect(notOpened + bootstrap + "' for read.", reads);
    files.Put(bootstrap, "{\"ssdsUri\": 5}");
    expect("ERROR: Expected type '", reads);
    files.Put(bootstrap, "{\"ssdsUri\": \"" + web.server.Url() + "\"}");
    expect(
        "Ombry::ClientCommunications::ClientCommunications::getBootstrapSsdsCertificate: "
        "Failed to find bootstrap SSDS certificate.",
        reads);
    certificates.Restore();
    reads.push_back("Read " + cache);
    expect("ERROR: Parse failed at offset ", reads);
    EXPECT_EQ(web.server.Connections(), 0u);
}

TEST_F(ClientCommunicationsTest, SeedThatCannotBeWrittenFailsTheConstruction) {
    files.FailEvery("BeginReplace", 28);

    EXPECT_EQ(Failure(Parameters("", "", "")),
              "Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" + Cache +
                  "/v1-service.cache-s' for write.");
    EXPECT_EQ(web.server.Connections(), 0u);
}

TEST_F(ClientCommunicationsTest, IdentityOfACommandLineChoosesTheCacheDirectory) {
    struct Case {
        std::string userName, password, clientName, token;
        std::string directory;
    };
    for (const Case& one :
         std::vector<Case>{{"u1", "pw", "", "", Cache},
                           // The user name, set first, keeps the client name from moving the directory.
                           {"u1", "pw", "c1", "", Cache},
                           {"", "", "c1", "", Cache + "c1"},
                           {"", "", "", "t", Cache}}) {
        for (const auto& [path, content] : files.Contents()) {
            if (path.starts_with(Cache)) static_cast<void>(files.Remove(path));
        }
        HoldMaintainer(one.directory);
        files.ClearOperations();

        const auto communications = MakeCommunications(one.userName, one.password, one.clientName, one.token);

        EXPECT_EQ(files.Texts().back(), "Read " + one.directory + "/v1-service.cache-p");
        Call(*communications, "v1-auth", "/test");
    }
    EXPECT_EQ(web.Summaries().back(), "GET /test Bearer t");
}

TEST_F(ClientCommunicationsTest, CredentialsKeepTheSecretAndNameItsKind) {
    const auto texts = [](const CommunicationsParameters& parameters) {
        const auto credentials = CreateCredentials(parameters);
        return Texts{credentials->GetName(), credentials->GetClientId(), credentials->GetClientSecret()};
    };
    EXPECT_EQ(texts(Parameters("c1", "u1", "t")), (Texts{"c1", "c1-id", "c1-secret"}));
    EXPECT_EQ(texts(Parameters("", "u1", "t")), (Texts{"u1", "u1", "pw"}));
    EXPECT_EQ(texts(Parameters("", "", "t")), (Texts{"FixedToken", "FixedToken", "t"}));
    EXPECT_EQ(texts(Parameters("", "", "")), (Texts{"NoCreds", "NoCreds", ""}));
}

TEST_F(ClientCommunicationsTest, SeedIsTheBootstrapServiceAloneInTheLocalList) {
    const auto seeds = LoadBootstrapFoundServices(Parameters("", "", ""));

    EXPECT_EQ(seeds->GetRemote().size(), 0u);
    ASSERT_EQ(seeds->GetLocal().size(), 1u);
    const auto seed = seeds->GetLocal().front();
    EXPECT_EQ(seed->GetName(), "v1-service");
    EXPECT_EQ(seed->GetEndpointUrl(), web.server.Url());
    EXPECT_EQ(seed->GetEndpointCertificate(), certificates.Base64());
    EXPECT_EQ(seed->GetId(), "");
}

TEST_F(ClientCommunicationsTest, SeedKeepsTheAddressAsItIsStoredAndAllElseEmpty) {
    const std::string address = "HTTPS://Server.Example:8443/Base/Path/";
    files.Put(Security + "/ombrysecurity.config", "{\"ssdsUri\": \"" + address + "\"}");

    EXPECT_EQ(LoadBootstrapFoundServices(Parameters("", "", ""))->GetLocal().front()->GetEndpointUrl(),
              address);
    const Ombry::ClientCommunications::ClientCommunications communications(Parameters("", "", ""));

    EXPECT_EQ(files.Content(Cache + "v1-service.cache-p"),
              "{\n"
              "    \"expiryTime\": 0,\n"
              "    \"maxStaleTime\": 604500,\n"
              "    \"local\": [\n"
              "        {\n"
              "            \"serviceHostname\": \"\",\n"
              "            \"serviceNamespace\": \"\",\n"
              "            \"id\": \"\",\n"
              "            \"serviceName\": \"v1-service\",\n"
              "            \"endpointUrl\": \"" +
                  address +
                  "\",\n"
                  "            \"endpointCert\": \"" +
                  certificates.Base64() +
                  "\",\n"
                  "            \"properties\": []\n"
                  "        }\n"
                  "    ],\n"
                  "    \"remote\": []\n"
                  "}");
}

TEST_F(ClientCommunicationsTest, AddressFileWithoutAnAddressGivesASeedWithoutOneOnPurpose) {
    files.Put(Security + "/ombrysecurity.config", "{}");

    const auto seeds = LoadBootstrapFoundServices(Parameters("", "", ""));

    EXPECT_EQ(seeds->GetLocal().front()->GetEndpointUrl(), "");
}

TEST_F(ClientCommunicationsTest, RefusedTokenOfTenSecondsIsAskedForAnew) {
    HoldMaintainer(Cache + "c1");
    const auto communications = MakeClientCommunications(Parameters("c1", "", ""));
    Call(*communications, "v1-auth", "/test");
    const auto callsOfRefusal = [&] {
        const std::size_t before = web.Summaries().size();
        EXPECT_EQ(Call(*communications, "v1-auth", "/refused"), 401);
        const Texts all = web.Summaries();
        return Texts(all.begin() + static_cast<long>(before), all.end());
    };

    clock.Advance(std::chrono::seconds(10) - Duration(1));
    EXPECT_EQ(callsOfRefusal(), (Texts{"GET /refused Bearer token-2", "GET /refused Bearer token-2"}));
    clock.Advance(Duration(1));
    EXPECT_EQ(callsOfRefusal(),
              (Texts{"GET /refused Bearer token-2",
                     "POST /v1/auth/clients/servicetokens Basic YzEtaWQ6YzEtc2VjcmV0" + TokenBody + "s",
                     "GET /refused Bearer token-3"}));
}

TEST_F(ClientCommunicationsTest, WaitsBeforeAFailedServerDoubleFromOneSecondToThirty) {
    HoldMaintainer(Cache);
    auto parameters = Parameters("", "", "t");
    parameters.logger = logger;
    const auto communications = MakeClientCommunications(parameters);
    const auto finder = communications->GetServiceFinderFactory()->CreateByName("v1-auth");

    for (int call = 0; call < 8; ++call) {
        // Gateways come and go; the failures are remembered by all of them.
        const auto gateway = communications->GetServiceGatewayFactory()->Create(finder);
        const auto request = communications->GetServiceRequestFactory()->Create("GET", "/busy", "1");
        request->SetMaxRetries(0);
        EXPECT_EQ(gateway->CallForString(request, {})->GetStatusCode(), 503);
    }

    Texts waits;
    for (const std::string& message : logger->Messages(1)) {
        if (message.starts_with("Waiting ")) waits.push_back(message);
    }
    Texts expected;
    for (const char* length : {"1000", "2000", "4000", "8000", "16000", "30000", "30000"}) {
        expected.push_back("Waiting " + std::string(length) + " milliseconds before trying to call " +
                           web.server.Url() + " again.");
    }
    EXPECT_EQ(waits, expected);
}

TEST_F(ClientCommunicationsTest, APolicyThatWasAskedForKnowsTheFailuresOfTheUsualGateway) {
    HoldMaintainer(Cache);
    auto parameters = Parameters("", "", "t");
    parameters.logger = logger;
    const auto communications = MakeClientCommunications(parameters);
    const auto finder = communications->GetServiceFinderFactory()->CreateByName("v1-auth");
    const auto gateways = communications->GetServiceGatewayFactory();
    const auto policies = communications->GetServiceIteratePolicyFactory();
    const auto request = communications->GetServiceRequestFactory()->Create("GET", "/busy", "1");
    request->SetMaxRetries(0);
    gateways->Create(finder)->CallForString(request, {});
    logger->Clear();

    gateways->Create(finder, policies->CreateIndefinitelySticky())->CallForString(request, {});

    EXPECT_TRUE(
        logger->Has(1, "Waiting 1000 milliseconds before trying to call " + web.server.Url() + " again."));
}

TEST_F(ClientCommunicationsTest, FailuresAreSweptEachThirtyMinutes) {
    HoldMaintainer(Cache);
    const auto communications = MakeClientCommunications(Parameters("", "", ""));
    clock.AwaitWaiters(3);

    clock.Advance(std::chrono::minutes(30) - Duration(1));
    clock.AwaitWaits(6);

    EXPECT_THAT(clock.Waits(), testing::Contains(Duration(1)));
}

TEST_F(ClientCommunicationsTest, ServerIsLeftAfterOneFailure) {
    LoopbackSecurityFramework second;
    web.partner = second.server.Url();
    HoldMaintainer(Cache);
    const auto communications = MakeClientCommunications(Parameters("", "", ""));
    const auto finder = communications->GetServiceFinderFactory()->CreateByName("v1-auth");
    const auto gateway = communications->GetServiceGatewayFactory()->Create(finder);
    const auto request = communications->GetServiceRequestFactory()->Create("GET", "/busy", "1");
    request->SetMaxRetries(1);

    EXPECT_EQ(gateway->CallForString(request, {})->GetStatusCode(), 503);

    const Texts calls = web.Summaries();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "GET /busy -"), 1);
    EXPECT_EQ(second.Summaries(), Texts{"GET /busy -"});
}

TEST_F(ClientCommunicationsTest, VerboseParametersReachTheNetwork) {
    HoldMaintainer(Cache);
    const auto count = [&](bool verbose) {
        auto parameters = Parameters("", "", "");
        parameters.logger = logger;
        parameters.verbose = verbose;
        const auto communications = MakeClientCommunications(parameters);
        Call(*communications, "v1-auth", "/test");
        logger->Clear();
        Call(*communications, "v1-auth", "/test");
        return logger->Entries().size();
    };

    EXPECT_GT(count(true), count(false));
}

TEST_F(ClientCommunicationsTest, LoggerOfTheParametersHearsOfTheThreads) {
    HoldMaintainer(Cache + "c1");
    auto parameters = Parameters("c1", "", "");
    parameters.logger = logger;
    {
        const auto communications = MakeClientCommunications(parameters);
        Call(*communications, "v1-auth", "/test");
    }

    EXPECT_TRUE(logger->Has(0, "Thread starting"));
    EXPECT_TRUE(logger->Has(0, "Thread exiting"));
    EXPECT_TRUE(logger->Has(1, "Thread exiting."));
    EXPECT_TRUE(logger->Has(0, "Getting token for v1-service"));
    EXPECT_TRUE(logger->Has(0, "Using fresh token for s"));
    const Texts traces = logger->Messages(0);
    EXPECT_EQ(std::count(traces.begin(), traces.end(), "Storing result in cache."), 2);  // "aa" and "v1-auth"
}

}  // namespace
}  // namespace Ombry::Tests
