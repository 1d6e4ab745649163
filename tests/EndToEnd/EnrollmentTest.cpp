// The life of a machine behind `configure-bootstrap-url`: clients and services come and go.

#include "tests/EndToEnd/Sandbox.h"
#include "tests/Fakes/HeldPort.h"

#include <ctime>
#include <functional>
#include <map>
#include <regex>
#include <thread>

namespace Ombry::Tests {
namespace {

const std::string AlwaysAsk = "max-age=0, stale-while-revalidate=604500";

std::string Masked(const std::string& text) {
    static const std::regex guid("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}");
    return std::regex_replace(text, guid, "GUID");
}

std::string CredentialsFile(const std::string& client) {
    return SecurityFolder + "/Components/" + client + "/ombrycomponent.config";
}
std::string ServiceFile(const std::string& owner, const std::string& service) {
    return SecurityFolder + "/Components/" + owner + "/Services/" + service + ".config";
}

class EnrollmentTest : public testing::Test {
protected:
    /// Starts the service, with these options, and ties the machine to it.
    void Begin(Words options = {"--cache-control", AlwaysAsk}) {
        sandbox = std::make_unique<Sandbox>(options);
        ExpectSuccess(machine.Run(
            {"configure-bootstrap-url", "-t", "t", "-d", Sandbox::DatacenterId, "-r", sandbox->Url()}));
    }
    ProcessOutcome EnrollClient(const std::string& name) {
        return machine.Run({"enroll-client", "-u", "admin", "-p", "secret", "-nn", name});
    }
    ProcessOutcome EnrollService(const std::string& client, const std::string& name,
                                 const std::string& host = "h") {
        return machine.Run({"enroll-service", "-n", client, "-owner", client, "-name", name, "-url",
                            "https://" + host + ":1/x", "-namespace", "ns", "-hostname", host});
    }

    /// The stores of Windows have no lock: who looks between a deletion and the addition behind it finds
    /// nothing.
    static bool CameWhileTheCertificateWasReplaced(const ProcessOutcome& outcome) {
        return ToolUnderTest::IsForWindows() &&
               outcome.error.ends_with(
                   "getBootstrapSsdsCertificate: Failed to find bootstrap SSDS certificate.\n");
    }

    /// What the service was asked for since it started, each as "METHOD path status" below the base path. The
    /// first request is that of the configuration; what a background thread of the tool asks for, when
    /// it gets to it, is left out.
    std::string Asked() {
        std::istringstream log(Masked(sandbox->Requests()));
        std::string asked;
        int number = 0;
        for (std::string line; std::getline(log, line);) {
            if (++number <= 1 || line.find("nonsecure/name/ssds") != std::string::npos ||
                line.find("/sandbox/") != std::string::npos) {
                continue;
            }
            asked += std::regex_replace(line, std::regex("/securityframeworkservice"), "") + "\n";
        }
        return asked;
    }

    /// Adds a fault to the running service, as "PATH:COUNT:KIND".
    void AddFault(const std::string& fault) {
        EXPECT_EQ(RunProcess({"curl", "-sk", "-u", "admin:secret", "-d", fault, "-w", "%{http_code}",
                              sandbox->Url() + "/sandbox/faults"})
                      .out,
                  "204");
    }

    bool Has(const std::string& file) { return machine.Files().count(file) > 0; }

    /// Changes each file of a folder by a pattern; at least one must be there.
    void Change(const std::string& folder, const std::string& pattern, const std::string& by) {
        int changed = 0;
        for (const auto& entry : std::filesystem::directory_iterator(machine.Folder() / folder)) {
            const std::string name = folder + "/" + entry.path().filename().string();
            const std::string text = machine.Folder().Read(name);
            machine.Folder().Write(name, std::regex_replace(text, std::regex(pattern), by));
            changed += machine.Folder().Read(name) != text;
        }
        EXPECT_GT(changed, 0) << folder << " " << pattern;
    }
    void AgeTokens(const std::string& folder, long seconds) {
        const std::time_t then = std::time(nullptr) - seconds;
        char text[32];
        std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.0000000Z", std::gmtime(&then));
        Change(folder, R"("lastRefreshed": "[^"]*")", R"("lastRefreshed": ")" + std::string(text) + "\"");
    }

    std::unique_ptr<Sandbox> sandbox;
    const Machine machine{};
};

const std::string TokenForUser = "POST /v1/auth/users/servicetokens 200\n";
const std::string TokenForClient = "POST /v1/auth/clients/servicetokens 200\n";
const std::string FindAa = "GET /services/services/nonsecure/name/aa 200\n";
const std::string FindAuth = "GET /services/services/secure/name/v1-auth 200\n";
const std::string FindDiscovery = "GET /services/services/secure/name/v1-service 200\n";
const std::string FindService = "GET /services/services/secure/name/svc/namespace/ns/host/h 200\n";
const std::string PostClient = "POST /v1/auth/locationawareclients ";
const std::string PostService = "POST /v1/services/services 201\n";
const std::string FirstEnrollment = FindAa + TokenForUser + FindAuth + TokenForUser + PostClient + "201\n";
const std::string FaultDocument =
    R"({"error":"server_error","error_description":"A fault that was asked for."})";

TEST_F(EnrollmentTest, WholeLifeOfAMachine) {
    Begin();
    ExpectSuccess(EnrollClient("c1"));
    EXPECT_TRUE(Has(CredentialsFile("c1")));
    ExpectSuccess(EnrollService("c1", "svc"));
    const std::string record = machine.Folder().Read(ServiceFile("c1", "svc"));
    EXPECT_EQ(Masked(record), "{\n    \"Version\": \"1.0\",\n    \"Guid\": \"GUID\"\n}");
    ExpectSuccess(EnrollService("c1", "svc"));
    EXPECT_NE(machine.Folder().Read(ServiceFile("c1", "svc")), record);
    ExpectSuccess(machine.Run({"unenroll-service", "-n", "c1", "-on", "c1", "-s", "svc"}));
    EXPECT_FALSE(Has(ServiceFile("c1", "svc")));
    ExpectSuccess(machine.Run({"unenroll-service", "-n", "c1", "-on", "c1", "-s", "svc"}));
    ExpectSuccess(machine.Run({"unenroll-client-self", "-n", "c1"}));
    EXPECT_FALSE(Has(CredentialsFile("c1")));
    ExpectException(machine.Run({"unenroll-client-self", "-n", "c1"}),
                    "Ombry::ClientCommunications::FileStorage::Load: Failed to open file './" +
                        CredentialsFile("c1") + "' for read.");

    EXPECT_EQ(Asked(), FirstEnrollment +                                                          //
                           FindAa + TokenForClient + FindService + FindDiscovery + PostService +  //
                           FindService + FindDiscovery + "DELETE /v1/services/services/GUID 200\n" +
                           FindDiscovery + PostService +  //
                           FindDiscovery + "DELETE /v1/services/services/GUID 200\n" + FindAuth + FindAa +
                           TokenForClient + "DELETE /v1/auth/clients 204\n");
}

TEST_F(EnrollmentTest, EveryFileAndFolderIsPrivateAndNoSecretIsInPlainText) {
    Begin();
    ExpectSuccess(EnrollClient("c1"));
    ExpectSuccess(EnrollService("c1", "svc"));
    for (const auto& [path, content] : machine.Files()) {
        EXPECT_TRUE(content == "700/" || content.starts_with("600 ")) << path << " " << content.substr(0, 9);
        EXPECT_FALSE(path.ends_with("-s") || path.ends_with(".tmp")) << path;
        EXPECT_EQ(content.find("secret"), std::string::npos) << path;
    }
    EXPECT_FALSE(std::regex_search(machine.Folder().Read(CredentialsFile("c1")),
                                   std::regex("[0-9a-f]{8}-[0-9a-f]{4}")));
}

TEST_F(EnrollmentTest, NameThatIsEnrolledAgainReplacesTheClientOnBothSides) {
    Begin();
    ExpectSuccess(EnrollClient("c1"));
    const std::string before = machine.Folder().Read(CredentialsFile("c1"));
    ExpectSuccess(EnrollClient("c1"));
    EXPECT_NE(machine.Folder().Read(CredentialsFile("c1")), before);

    EXPECT_EQ(Asked(), FirstEnrollment + FindAuth + "DELETE /v1/auth/clients/GUID 204\n" + FindAuth +
                           PostClient + "201\n");
}

TEST_F(EnrollmentTest, EarlierClientThatCannotBeDeletedDoesNotStopTheNewEnrollment) {
    Begin({"--cache-control", AlwaysAsk, "--fault", "/v1/auth/clients/:1:status=400"});
    ExpectSuccess(EnrollClient("c1"));
    ExpectSuccess(EnrollClient("c1"));
    EXPECT_EQ(Asked(), FirstEnrollment + FindAuth + "DELETE /v1/auth/clients/GUID 400\n" + FindAuth +
                           PostClient + "201\n");
}

TEST_F(EnrollmentTest, UnknownNamesAreDoneWithNothing) {
    Begin();
    ExpectSuccess(machine.Run({"unenroll-client", "-u", "admin", "-p", "secret", "-un", "nosuch"}));
    ExpectSuccess(
        machine.Run({"unenroll-service", "-u", "admin", "-p", "secret", "-on", "no", "-s", "such"}));
    EXPECT_EQ(Asked(), "");
    ExpectException(EnrollService("nosuch", "svc"),
                    "Ombry::ClientCommunications::FileStorage::Load: Failed to open file './" +
                        CredentialsFile("nosuch") + "' for read.");
}

TEST_F(EnrollmentTest, ClientThatTheServiceForgotIsDone) {
    Begin();
    ExpectSuccess(EnrollClient("c1"));
    const std::string credentials = machine.Folder().Read(CredentialsFile("c1"));
    const Words unenroll{"unenroll-client", "-u", "admin", "-p", "secret", "-un", "c1"};
    ExpectSuccess(machine.Run(unenroll));
    EXPECT_FALSE(Has(CredentialsFile("c1")));
    machine.Folder().Write(CredentialsFile("c1"), credentials);  // as if another hand had deleted the client

    ExpectSuccess(machine.Run(unenroll));

    EXPECT_FALSE(Has(CredentialsFile("c1")));
    EXPECT_TRUE(Asked().ends_with("DELETE /v1/auth/clients/GUID 204\n" + FindAuth +
                                  "DELETE /v1/auth/clients/GUID 404\n"));
}

TEST_F(EnrollmentTest, ServiceThatTheServiceForgotIsDone) {
    Begin();
    ExpectSuccess(EnrollClient("c1"));
    ExpectSuccess(EnrollService("c1", "svc"));
    const std::string record = machine.Folder().Read(ServiceFile("c1", "svc"));
    const Words unenroll{"unenroll-service", "-n", "c1", "-on", "c1", "-s", "svc"};
    ExpectSuccess(machine.Run(unenroll));
    machine.Folder().Write(ServiceFile("c1", "svc"), record);

    ExpectSuccess(machine.Run(unenroll));

    EXPECT_FALSE(Has(ServiceFile("c1", "svc")));
    EXPECT_TRUE(Asked().ends_with("DELETE /v1/services/services/GUID 404\n"));
}

TEST_F(EnrollmentTest, ServiceOnAnotherHostLeavesTheFirstOneInPlace) {
    Begin();
    ExpectSuccess(EnrollClient("c1"));
    ExpectSuccess(EnrollService("c1", "svc", "h"));
    ExpectSuccess(EnrollService("c1", "svc", "other"));
    EXPECT_EQ(Asked().find("DELETE"), std::string::npos);
}

TEST_F(EnrollmentTest, MachineThatIsNotConfiguredAsksNobody) {
    const std::string missing = "Ombry::ClientCommunications::FileStorage::Load: Failed to open file './" +
                                DatacenterFile + "' for read.";
    ExpectException(EnrollClient("c1"), missing);
    ExpectException(machine.Run({"unenroll-client", "-t", "t", "-un", "x"}), missing);
    EXPECT_EQ(machine.Files(), Tree());
}

TEST_F(EnrollmentTest, RolesAreReadBeforeAnyCall) {
    Begin();
    const auto run = [&](const std::string& roles) {
        return machine.Run({"enroll-client", "-u", "admin", "-p", "secret", "-nn", "c1", "-rps", roles});
    };
    ExpectException(run(R"([["a",["r"],["s"]]])"), "Attempted to insert more than two elements into a pair.");
    ExpectException(run("x"),
                    "ERROR: Parse failed at offset 0 due to error 'Invalid value.' (near 'x') "
                    "serialization_='x'");
    EXPECT_FALSE(Has(CredentialsFile("c1")));
    ExpectSuccess(run(R"([["a",["r","s"]],["b",[]]])"));
    EXPECT_EQ(Asked(), FirstEnrollment);
}

TEST_F(EnrollmentTest, WrongPasswordAndMissingRightAreNamed) {
    Begin();
    ExpectException(machine.Run({"enroll-client", "-u", "admin", "-p", "wrong", "-nn", "c1"}),
                    "OAuth2 request failed with response code 401 and response body "
                    R"({"error":"invalid_client","error_description":"Name or secret is wrong."})");
    ExpectSuccess(EnrollClient("c1"));
    const Tree before = machine.Files();
    ExpectException(
        machine.Run({"enroll-client", "-n", "c1", "-nn", "c2"}),
        "EnrollClient: unexpected http status 403 body = "
        R"('{"error":"insufficient_scope","error_description":"The right 'enroll-clients' is missing."}')");
    EXPECT_FALSE(Has(CredentialsFile("c2")));
    EXPECT_EQ(machine.Files()[CredentialsFile("c1")], before.at(CredentialsFile("c1")));
    // A refusal is tried once more, with a token that may be fresher.
    EXPECT_TRUE(Asked().ends_with(PostClient + "403\n" + PostClient + "403\n")) << Asked();
}

TEST_F(EnrollmentTest, RefusedTokenIsTriedOnceMoreAndNotTwice) {
    Begin({"--cache-control", AlwaysAsk, "--fault",
           PostClient.substr(5, PostClient.size() - 6) + ":1:status=401"});
    ExpectSuccess(EnrollClient("c1"));
    EXPECT_TRUE(Asked().ends_with(PostClient + "401\n" + PostClient + "201\n")) << Asked();
}

TEST_F(EnrollmentTest, TokenThatIsRefusedTwiceEndsTheCommand) {
    Begin({"--cache-control", AlwaysAsk, "--fault", "/v1/auth/locationawareclients:2:status=401"});
    ExpectException(EnrollClient("c1"),
                    "EnrollClient: unexpected http status 401 body = '" + FaultDocument + "'");
    EXPECT_FALSE(Has(CredentialsFile("c1")));
    EXPECT_TRUE(Asked().ends_with(TokenForUser + PostClient + "401\n" + PostClient + "401\n")) << Asked();
}

TEST_F(EnrollmentTest, RefusedTokenOfMoreThanTenSecondsIsRenewed) {
    Begin({"--cache-control", AlwaysAsk, "--fault", "/v1/auth/locationawareclients:1:status=200"});
    EXPECT_EQ(EnrollClient("c1").exitCode, 255);  // fetches the tokens
    AgeTokens(CacheFolder + "/aa_token", 60);
    AddFault("/v1/auth/locationawareclients:1:status=401");
    ExpectSuccess(EnrollClient("c1"));
    EXPECT_TRUE(Asked().ends_with(PostClient + "401\n" + FindAa + TokenForUser + PostClient + "201\n"))
        << Asked();
}

TEST_F(EnrollmentTest, TokenThatExpiredBetweenTwoRunsIsReplaced) {
    Begin();
    ExpectSuccess(EnrollClient("c1"));
    ExpectSuccess(EnrollClient("c2"));
    AgeTokens(CacheFolder + "/aa_token", 3700);
    ExpectSuccess(EnrollClient("c3"));
    EXPECT_EQ(Asked(), FirstEnrollment + FindAuth + PostClient + "201\n" + FindAa + TokenForUser + FindAuth +
                           TokenForUser + PostClient + "201\n");
}

TEST_F(EnrollmentTest, FreshCopyOfTheDiscoverySparesTheCall) {
    Begin({"--cache-control", "max-age=300, stale-while-revalidate=604500"});
    ExpectSuccess(EnrollClient("c1"));
    ExpectSuccess(EnrollClient("c2"));
    EXPECT_EQ(Asked(), FirstEnrollment + PostClient + "201\n");
}

TEST_F(EnrollmentTest, StaleCopyServesWhileTheDiscoveryIsDown) {
    Begin();
    ExpectSuccess(EnrollClient("c1"));
    AddFault("/services/services/secure:1:status=400");
    ExpectSuccess(EnrollClient("c2"));
    EXPECT_TRUE(Asked().ends_with("GET /services/services/secure/name/v1-auth 400\n" + PostClient + "201\n"));
}

TEST_F(EnrollmentTest, CopyThatIsTooOldServesNoMore) {
    Begin();
    ExpectSuccess(EnrollClient("c1"));
    Change(CacheFolder + "/finder_cache", R"("expiryTime": [0-9]+)", "\"expiryTime\": 1000");
    AddFault("/services/services/secure:1:status=400");
    ExpectException(EnrollClient("c2"), "HTTP error 400: " + FaultDocument);
    EXPECT_FALSE(Has(CredentialsFile("c2")));
    ExpectSuccess(EnrollClient("c2"));
}

TEST_F(EnrollmentTest, TwoRunsAtOnceOnOneStateBothSucceed) {
    Begin();
    for (int round = 0; round < 3; ++round) {
        std::thread other([&] { ExpectSuccess(EnrollClient("other")); });
        ExpectSuccess(EnrollClient("one"));
        other.join();
    }
    ExpectSuccess(machine.Run({"unenroll-client-self", "-n", "one"}));
    ExpectSuccess(machine.Run({"unenroll-client-self", "-n", "other"}));
}

TEST_F(EnrollmentTest, RunsAtOnceOnEmptyCachesDoNoHarmToIdentityTrustConfigurationAndKey) {
    Begin();
    const Tree configured = machine.Files();
    std::string key;
    for (const std::string round : {"1", "2", "3"}) {
        std::filesystem::remove_all(machine.Folder() / CacheFolder);
        std::map<std::string, ProcessOutcome> outcomes{{"one" + round, {}}, {"two" + round, {}}};
        std::vector<std::thread> others;
        for (auto& [name, outcome] : outcomes)
            others.emplace_back([this, &name = name, &outcome = outcome] { outcome = EnrollClient(name); });
        ExpectSuccess(machine.Run(
            {"configure-bootstrap-url", "-t", "t", "-d", Sandbox::DatacenterId, "-r", sandbox->Url()}));
        for (std::thread& other : others)
            other.join();
        for (const auto& [name, outcome] : outcomes)
            ExpectSuccess(CameWhileTheCertificateWasReplaced(outcome) ? EnrollClient(name) : outcome);

        const Tree files = machine.Files();
        for (const auto& [path, content] : configured)
            EXPECT_EQ(files.at(path), content) << path;
        if (ToolUnderTest::IsForWindows()) continue;  // which keeps the key itself
        if (key.empty()) key = files.at("Quennet/Keys/protection.key");
        EXPECT_EQ(files.at("Quennet/Keys/protection.key"), key);
    }
    for (const std::string client : {"one1", "two1", "one2", "two2", "one3", "two3"})
        ExpectSuccess(machine.Run({"unenroll-client-self", "-n", client}));
}

TEST_F(EnrollmentTest, TwoRunsAtOnceOnTheSameNamesLeaveWholeFilesThatWork) {
    Begin();
    const auto twice = [](const std::function<ProcessOutcome()>& run) {
        std::thread other([&] { ExpectSuccess(run()); });
        ExpectSuccess(run());
        other.join();
    };
    // A name of its own each round: tokens of an earlier client would be refused, and too young to be
    // renewed.
    for (const std::string client : {"one", "two", "three"}) {
        twice([&] { return EnrollClient(client); });
        twice([&] { return EnrollService(client, "svc"); });

        for (const auto& [path, content] : machine.Files()) {
            EXPECT_FALSE(path.ends_with("-s") || path.ends_with(".tmp")) << path;
            EXPECT_NE(content, "600 ") << path;
        }
        EXPECT_EQ(Masked(machine.Folder().Read(ServiceFile(client, "svc"))),
                  "{\n    \"Version\": \"1.0\",\n    \"Guid\": \"GUID\"\n}");
        ExpectSuccess(machine.Run({"unenroll-service", "-n", client, "-on", client, "-s", "svc"}));
        ExpectSuccess(machine.Run({"unenroll-client-self", "-n", client}));
    }
}

TEST_F(EnrollmentTest, RenewedCertificateOfTheSameKeyIsTrusted) {
    const HeldPort port;
    const Words options{"--port", port.Text(), "--cache-control", AlwaysAsk};
    Begin(options);
    const std::shared_ptr<TemporaryDirectory> state = sandbox->State();
    sandbox->Stop();
    const std::string pem = state->Read("identity.pem");
    const std::shared_ptr<BIO> memory(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    CertificateRecipe recipe;
    recipe.key = TestKey(PEM_read_bio_PrivateKey(memory.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    state->Write("identity.pem", PemOf(recipe.key) + PemOf(MakeCertificate(recipe)));
    sandbox = std::make_unique<Sandbox>(options, state);

    ExpectSuccess(EnrollClient("c1"));
}

/// A service of two instances in two datacenters. The machine belongs to the first.
class FailOverTest : public testing::Test {
protected:
    void Begin(const Words& options) {
        state = std::make_shared<TemporaryDirectory>();
        local = Serve(options);
        remote = Serve({"--own-datacenter", "w"});
        machine = std::make_unique<Machine>();
        ExpectSuccess(machine->Run({"configure-bootstrap-url", "-t", "t", "-d", "e", "-r", local->Url()}));
    }
    void BeginWithFault(const std::string& fault) { Begin({"--fault", fault}); }
    std::unique_ptr<Sandbox> Serve(Words options) const {
        options.insert(options.end(),
                       {"--cache-control", AlwaysAsk, "--datacenter", "e=East", "--datacenter", "w=West"});
        return std::make_unique<Sandbox>(options, state);
    }
    ProcessOutcome EnrollClient(const std::string& name = "c1") const {
        return machine->Run({"enroll-client", "-u", "admin", "-p", "secret", "-nn", name});
    }
    static std::string Posts(Sandbox& sandbox) {
        std::istringstream log(sandbox.Requests());
        std::string posts;
        for (std::string line; std::getline(log, line);) {
            if (line.find("locationawareclients") != std::string::npos)
                posts += line.substr(line.rfind(' ') + 1) + " ";
        }
        return posts;
    }

    std::shared_ptr<TemporaryDirectory> state;
    std::unique_ptr<Sandbox> local;
    std::unique_ptr<Sandbox> remote;
    std::unique_ptr<Machine> machine;
};

TEST_F(FailOverTest, RemoteServerTakesOverFromALocalOneThatIsUnwell) {
    for (const char* status : {"408", "410", "500", "502", "503", "504", "507"}) {
        BeginWithFault("/v1/auth/locationawareclients:1:status=" + std::string(status));
        ExpectSuccess(EnrollClient());
        EXPECT_EQ(Posts(*local), std::string(status) + " ");
        EXPECT_EQ(Posts(*remote), "201 ");
    }
}

TEST_F(FailOverTest, RemoteServerTakesOverFromALocalOneThatResets) {
    // Twice: the connection that breaks is tried once more before the server counts as failed.
    BeginWithFault("/v1/auth/locationawareclients:2:reset");
    ExpectSuccess(EnrollClient());
    EXPECT_EQ(Posts(*remote), "201 ");
}

TEST_F(FailOverTest, RemoteServerTakesOverFromALocalOneWithAnotherKeyWhichIsAskedForNothing) {
    const HeldPort port;
    Begin({"--port", port.Text()});
    ExpectSuccess(EnrollClient("c1"));  // from here on the machine knows both
    local->Stop();
    std::filesystem::remove(*state / "identity.pem");  // so it makes itself another
    local = Serve({"--port", port.Text()});

    ExpectSuccess(EnrollClient("c2"));

    EXPECT_EQ(local->Requests(), "");
    EXPECT_EQ(Posts(*remote), "201 ");
}

TEST_F(FailOverTest, StatusThatNoOtherServerCouldMendEndsTheCall) {
    BeginWithFault("/v1/auth/locationawareclients:1:status=400");
    ExpectException(EnrollClient(),
                    "EnrollClient: unexpected http status 400 body = '" + FaultDocument + "'");
    EXPECT_EQ(Posts(*local), "400 ");
    EXPECT_EQ(Posts(*remote), "");
}

}  // namespace
}  // namespace Ombry::Tests
