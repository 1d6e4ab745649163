#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "ClientCommunications/Impl/ClientConfig.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "ObjectMapping/Serialization.h"
#include "tests/Fakes/FailingThreads.h"
#include "tests/Fakes/FailureOf.h"
#include "tests/Fakes/FaultyCertificates.h"
#include "tests/Fakes/FaultyFiles.h"
#include "tests/Fakes/Linux/BootstrapService.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string Url = "https://Server1:9000/Base";

/// All files below a folder with their contents; paths relative to it.
std::map<std::string, std::string> FilesBelow(const std::string& folder) {
    std::map<std::string, std::string> files;
    if (!std::filesystem::exists(folder)) return files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream file(entry.path(), std::ios::binary);
        files[std::filesystem::relative(entry.path(), folder).string()] = {
            std::istreambuf_iterator<char>(file), {}};
    }
    return files;
}

// --- the connection that a URL asks for ---

TEST(MakeConnectionParametersTest, SchemeHostAndPortOfTheLowerCasedUrlDecide) {
    struct Case {
        std::string url, host;
        int port;
        bool tls;
    };
    for (const Case& each : std::vector<Case>{
             {"https://server", "server", 443, true},
             {"http://server", "server", 80, false},
             {"https://server/path", "server", 443, true},
             {"https://server:8181/path", "server", 8181, true},
             {"http://server:8181", "server", 8181, false},
             {"http://server:443", "server", 443, false},
             {"https://server:80", "server", 80, true},
             {"HTTPS://SERVER.Example:8181/Path", "server.example", 8181, true},
             {"ftp://server", "server", 80, false},
             {"https://server:0", "server", 0, true},
             {"https://server:65535", "server", 65535, true},
             {"https://server:65536", "server", 0, true},
             {"https://server:70000", "server", 4464, true},
             {"https://server:4294967295", "server", 65535, true},
             {"https://server:-1", "server", 65535, true},
             {"https://server:81x", "server", 81, true},
             {"https://server:+81", "server", 81, true},
         }) {
        const auto connection = MakeConnectionParameters(each.url);
        EXPECT_EQ(connection->GetHost(), each.host) << each.url;
        EXPECT_EQ(connection->GetPort(), each.port) << each.url;
        EXPECT_EQ(connection->GetUseSSL(), each.tls) << each.url;
        EXPECT_EQ(connection->GetCertificateValidation().m_Mode, 0) << each.url;
        EXPECT_EQ(connection->GetCertificateValidation().m_Certificate, "") << each.url;
    }
}

TEST(MakeConnectionParametersTest, APortThatIsNoNumberOrTooLargeFailsInKnownWords) {
    for (const std::string port : {"x", "x1", "-", "+"}) {
        EXPECT_THROW(MakeConnectionParameters("https://server:" + port), std::invalid_argument);
        EXPECT_EQ(
            FailureOf<std::logic_error>([&] { MakeConnectionParameters("https://server:" + port + "/p"); }),
            "invalid stoul argument");
    }
    for (const std::string port : {"4294967296", "99999999999999999999999999", "-4294967296"}) {
        EXPECT_THROW(MakeConnectionParameters("https://server:" + port), std::out_of_range);
        EXPECT_EQ(FailureOf<std::logic_error>([&] { MakeConnectionParameters("https://server:" + port); }),
                  "stoul argument out of range");
    }
}

TEST(MakeConnectionParametersTest, ConstructionOfAClientFailsWithTheSameWords) {
    const BootstrapService service;
    EXPECT_EQ(
        FailureOf<std::logic_error>([] { ClientConfigParameters("").SetSfsUrl("https://s:x").Build(); }),
        "invalid stoul argument");
    // The port is looked at before the credentials, which are missing as well.
    ClientConfigParameters unknown("nosuch");
    unknown.SetSfsUrl("https://s:x");
    EXPECT_EQ(FailureOf<std::logic_error>([&] { unknown.Build(); }), "invalid stoul argument");
    EXPECT_THAT(service.sockets.Calls(), IsEmpty());
}

// --- the list of datacenters ---

class ClientConfigTest : public testing::Test {
protected:
    ClientConfigTest() { parameters.SetSfsUrl(Url); }

    std::vector<Datacenter> List() {
        std::vector<Datacenter> datacenters;
        parameters.Build()->GetDatacenters(datacenters);
        return datacenters;
    }

    void Configure(const std::string& id, const std::string& name) {
        const auto config = parameters.Build();
        config->SetDatacenterId(id);
        config->SetDatacenterName(name);
        config->Configure();
    }

    std::string StoredId() { return service.directory.Read("Quennet/OmbrySecurity/CS/datacenterid.config"); }
    std::map<std::string, std::string> Files() { return FilesBelow(service.directory.Path()); }

    /// The value of a header in the n-th request that the service got.
    std::string HeaderOf(std::size_t n, const std::string& name) {
        const std::string& request = service.server->requests.at(n);
        const std::size_t at = request.find("\r\n" + name + ": ");
        if (at == std::string::npos) return "(none)";
        const std::size_t begin = at + name.size() + 4;
        return request.substr(begin, request.find("\r\n", begin) - begin);
    }

    BootstrapService service;
    ClientConfigParameters parameters{""};
};

TEST_F(ClientConfigTest, TheListIsAskedForAtTheBaseUrlByAPlainCall) {
    const std::vector<Datacenter> list = List();

    ASSERT_THAT(list, SizeIs(2));
    EXPECT_EQ(list[0].id + list[0].name + list[1].id + list[1].name, "i1onei2two");
    EXPECT_TRUE(list[0].hasId && list[0].hasName);
    EXPECT_THAT(service.server->requests,
                ElementsAre("GET /Base/v1/ddb/datacenters HTTP/1.1\r\nHost: Server1:9000\r\n"
                            "Content-Length: 0\r\nContract-Version: 1\r\n\r\n"));
    EXPECT_THAT(Files(), IsEmpty());
    EXPECT_EQ(service.sockets.OpenSockets(), 0u);
}

TEST_F(ClientConfigTest, MissingAndNullFieldsAreEmptyAndNotPresent) {
    service.list = R"([{"name":"n"},{"id":"i"},{},{"id":null,"name":null,"more":[1]}])";
    const std::vector<Datacenter> list = List();
    ASSERT_THAT(list, SizeIs(4));
    EXPECT_EQ(list[0].id + "|" + list[0].name, "|n");
    EXPECT_FALSE(list[0].hasId);
    EXPECT_TRUE(list[0].hasName);
    EXPECT_EQ(list[1].id + "|" + list[1].name, "i|");
    EXPECT_FALSE(list[1].hasName);
    EXPECT_FALSE(list[2].hasId || list[2].hasName || list[3].hasId || list[3].hasName);
}

TEST_F(ClientConfigTest, TheListReplacesWhatTheCallerHeldAndMayBeEmpty) {
    service.list = "[]";
    std::vector<Datacenter> datacenters(3);
    parameters.Build()->GetDatacenters(datacenters);
    EXPECT_THAT(datacenters, IsEmpty());
}

TEST_F(ClientConfigTest, EveryStatusBut200IsAFailureThatNamesTheCall) {
    for (const int status : {201, 203, 299, 302, 400, 401, 404, 500, 503}) {
        service.listStatus = status;
        EXPECT_EQ(FailureOf([&] { List(); }),
                  "GET /v1/ddb/datacenters failed with http status " + std::to_string(status) + ".");
    }
}

TEST_F(ClientConfigTest, ABodyThatIsNoListFailsInTheWordsOfTheReader) {
    service.list = "<html>";
    EXPECT_EQ(FailureOf([&] { List(); }).find("ERROR: Parse failed at offset "), 0u);
    service.list = R"({"id":"i1"})";
    EXPECT_EQ(FailureOf([&] { List(); }).find("ERROR: Expected type '"), 0u) << FailureOf([&] { List(); });
    service.list = "null";
    EXPECT_EQ(FailureOf([&] { List(); }).find("ERROR: Expected type 'array' when processing '"), 0u);
    service.list = "[null]";
    EXPECT_EQ(FailureOf([&] { List(); }),
              "ERROR: Expected type 'object' when processing '[0]' serialization_='[null]'");
    service.list = R"([{"id":7}])";
    EXPECT_EQ(FailureOf([&] { List(); }).find("ERROR: Expected type 'string' when processing '"), 0u)
        << FailureOf([&] { List(); });
}

TEST(DatacenterTest, WritesItsTwoFieldsAndResets) {
    Datacenter datacenter;
    datacenter.id = "i";
    datacenter.hasId = true;
    EXPECT_EQ(ObjectMapping::SerializeObject(datacenter, nullptr),
              "{\n    \"id\": \"i\",\n    \"name\": null\n}");
    datacenter.name = "n";
    datacenter.hasId = false;
    datacenter.hasName = true;
    EXPECT_EQ(ObjectMapping::SerializeObject(datacenter, nullptr),
              "{\n    \"id\": null,\n    \"name\": \"n\"\n}");
    datacenter.hasId = true;
    datacenter.Reset();
    EXPECT_EQ(datacenter.id + datacenter.name, "");
    EXPECT_FALSE(datacenter.hasId);
    EXPECT_FALSE(datacenter.hasName);
}

// --- who asks ---

TEST_F(ClientConfigTest, AUserAsksForATokenBeforeEachCallAndNothingIsKept) {
    parameters.SetUserName("user").SetPassword("pass");
    const auto config = parameters.Build();
    EXPECT_THAT(service.server->requests, IsEmpty());
    std::vector<Datacenter> datacenters;
    config->GetDatacenters(datacenters);
    config->GetDatacenters(datacenters);

    ASSERT_THAT(service.server->requests, SizeIs(4));
    EXPECT_EQ(
        service.server->requests[0],
        "POST /Base/v1/auth/users/servicetokens HTTP/1.1\r\nHost: Server1:9000\r\nContent-Length: 58\r\n"
        "Authorization: Basic dXNlcjpwYXNz\r\nContent-Type: application/x-www-form-urlencoded\r\n"
        "Contract-Version: 1\r\n\r\n"
        "grant_type=client_credentials&servicename=v1-ddbmanagement");
    EXPECT_EQ(service.server->requests[1],
              "GET /Base/v1/ddb/datacenters HTTP/1.1\r\nHost: Server1:9000\r\nContent-Length: 0\r\n"
              "Authorization: Bearer the-token\r\nContract-Version: 1\r\n\r\n");
    EXPECT_EQ(service.server->requests[2], service.server->requests[0]);
    EXPECT_EQ(service.server->requests[3], service.server->requests[1]);
}

TEST_F(ClientConfigTest, AFixedTokenGoesStraightIntoTheHeader) {
    parameters.SetFixedToken("fixed");
    List();
    ASSERT_THAT(service.server->requests, SizeIs(1));
    EXPECT_EQ(HeaderOf(0, "Authorization"), "Bearer fixed");
}

TEST_F(ClientConfigTest, AClientUsesItsStoredCredentials) {
    parameters.SetClientName("client");
    CreateClientCredentialsStore(parameters.securityDirectory, true, nullptr)
        ->Save(std::make_shared<ClientCredentials>(std::make_shared<WindowsInMemoryDataProtection>(),
                                                   "client", "a", "b"));
    List();
    ASSERT_THAT(service.server->requests, SizeIs(2));
    EXPECT_EQ(service.server->requests[0].find("POST /Base/v1/auth/clients/servicetokens "), 0u);
    EXPECT_EQ(HeaderOf(0, "Authorization"), "Basic YTpi");
    EXPECT_EQ(HeaderOf(1, "Authorization"), "Bearer the-token");
}

TEST_F(ClientConfigTest, AClientsCredentialsLieInTheSecurityDirectoryOfTheParameters) {
    parameters.SetSecurityDirectory(service.Path("Elsewhere"));
    parameters.SetClientName("client");
    CreateClientCredentialsStore(service.Path("Elsewhere"), true, nullptr)
        ->Save(std::make_shared<ClientCredentials>(std::make_shared<WindowsInMemoryDataProtection>(),
                                                   "client", "a", "b"));
    List();
    EXPECT_EQ(HeaderOf(0, "Authorization"), "Basic YTpi");
}

TEST_F(ClientConfigTest, AClientThatIsNotEnrolledOrHasAnEmptyFileFailsAtConstruction) {
    parameters.SetClientName("client");
    const std::string path = service.Path("OmbrySecurity/Components/client/ombrycomponent.config");
    EXPECT_EQ(FailureOf([&] { parameters.Build(); }),
              "Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" + path + "' for read.");
    service.directory.Write("Quennet/OmbrySecurity/Components/client/ombrycomponent.config", "");
    EXPECT_EQ(FailureOf([&] { parameters.Build(); }), "The credentials file of 'client' is empty.");
    EXPECT_THAT(service.server->requests, IsEmpty());
}

TEST_F(ClientConfigTest, TheClientComesBeforeTheUserAndTheUserBeforeTheToken) {
    parameters.SetUserName("user").SetPassword("pass").SetFixedToken("fixed");
    List();
    EXPECT_EQ(HeaderOf(0, "Authorization"), "Basic dXNlcjpwYXNz");
    EXPECT_EQ(HeaderOf(1, "Authorization"), "Bearer the-token");

    parameters.SetClientName("client");
    EXPECT_NE(FailureOf([&] { parameters.Build(); }), "no failure");
}

TEST_F(ClientConfigTest, ARefusedTokenEndsTheCallBeforeTheListIsAskedFor) {
    parameters.SetUserName("user").SetPassword("pass");
    service.tokenStatus = 401;
    service.token = "no";
    EXPECT_EQ(FailureOf([&] { List(); }),
              "OAuth2 request failed with response code 401 and response body no");
    EXPECT_THAT(service.server->requests, SizeIs(1));
}

TEST_F(ClientConfigTest, SecretsReachNoLogLine) {
    const auto logger = std::make_shared<RecordingLogger>();
    parameters.logger = logger;
    parameters.SetUserName("user").SetPassword("pass-word");
    List();
    EXPECT_FALSE(logger->Messages().empty());
    for (const std::string& message : logger->Messages()) {
        EXPECT_EQ(message.find("pass-word"), std::string::npos) << message;
        EXPECT_EQ(message.find("the-token"), std::string::npos) << message;
        EXPECT_EQ(message.find("dXNlcjpwYXNzLXdvcmQ="), std::string::npos) << message;
    }
}

TEST_F(ClientConfigTest, EveryStageLogsToTheLoggerOfTheParameters) {
    const auto logger = std::make_shared<RecordingLogger>();
    parameters.logger = logger;
    parameters.SetUserName("user").SetPassword("pass");
    List();

    std::set<std::string> functions;
    for (const RecordingLogger::Entry& entry : logger->Entries())
        functions.insert(entry.function);
    EXPECT_THAT(functions,
                testing::IsSupersetOf({"OmbryZephCore::ResolveAddresses",
                                       "Ombry::ClientCommunications::HttpClientServiceGateway::DoRequest",
                                       "Ombry::ClientCommunications::OAuth2ServiceGatewayClient::GetToken"}));
    EXPECT_THAT(logger->Messages(),
                testing::IsSupersetOf({"Calling POST https://Server1:9000/Base/v1/auth/users/servicetokens",
                                       "Calling GET https://Server1:9000/Base/v1/ddb/datacenters"}));
}

TEST_F(ClientConfigTest, VerboseParametersTraceTheCaptureOfTheCertificate) {
    const auto logger = std::make_shared<RecordingLogger>();
    parameters.logger = logger;
    const auto lines = [&](bool verbose) {
        parameters.verbose = verbose;
        logger->Clear();
        Configure("i1", "");
        return logger->Entries().size();
    };
    EXPECT_GT(lines(true), lines(false));
}

TEST_F(ClientConfigTest, VerboseParametersTraceTheCalls) {
    const auto logger = std::make_shared<RecordingLogger>();
    parameters.logger = logger;
    const auto lines = [&](bool verbose) {
        parameters.verbose = verbose;
        logger->Clear();
        List();
        return logger->Entries().size();
    };
    EXPECT_GT(lines(true), lines(false));
}

TEST_F(ClientConfigTest, ItsConnectionPoolHasNoThread) {
    const FailingThreads threads(1);
    EXPECT_THAT(List(), SizeIs(2));
    Configure("i1", "");
    EXPECT_EQ(threads.Count(), 0u) << "a client of one call has nothing to evict";
}

// --- configuring ---

TEST_F(ClientConfigTest, ConfigureLeavesTheCertificateTheUrlAsGivenAndTheBareId) {
    Configure("i2", "");

    EXPECT_EQ(getBootstrapSsdsCertificate(parameters), Base64Of(service.certificate));
    EXPECT_EQ(service.directory.Read("Quennet/OmbrySecurity/ombrysecurity.config"),
              "{\n    \"ssdsUri\": \"https://Server1:9000/Base\"\n}");
    EXPECT_EQ(StoredId(), "i2");
    EXPECT_THAT(Files(), SizeIs(3));
    EXPECT_THAT(service.server->serverNames, ElementsAre("Server1", "server1"));
    EXPECT_EQ(service.sockets.OpenSockets(), 0u);
}

TEST_F(ClientConfigTest, EverySolidusAtTheEndOfTheUrlStays) {
    parameters.SetSfsUrl(std::string(Url) + "//");
    Configure("i2", "");
    EXPECT_EQ(service.directory.Read("Quennet/OmbrySecurity/ombrysecurity.config"),
              "{\n    \"ssdsUri\": \"https://Server1:9000/Base//\"\n}");
    // The base path gives up one, for the one that the path of a call begins with.
    ASSERT_THAT(service.server->requests, SizeIs(1));
    EXPECT_TRUE(service.server->requests[0].starts_with("GET /Base//v1/ddb/datacenters HTTP/1.1\r\n"));
}

TEST_F(ClientConfigTest, TheDatacenterIsFoundByIdAndFailingThatByName) {
    struct Case {
        std::string id, name, stored;
    };
    for (const Case& each : std::vector<Case>{{"i1", "", "i1"},
                                              {"i2", "", "i2"},
                                              {"", "two", "i2"},
                                              {"wrong", "two", "i2"},
                                              {"i1", "two", "i1"},
                                              {"i1", "wrong", "i1"}}) {
        Configure(each.id, each.name);
        EXPECT_EQ(StoredId(), each.stored) << each.id << "/" << each.name;
    }
    service.list = R"([{"id":"nameless"}])";
    Configure("nameless", "");
    EXPECT_EQ(StoredId(), "nameless");
}

TEST_F(ClientConfigTest, TheFirstEntryOfANameWins) {
    service.list = R"([{"id":"x","name":"n"},{"id":"y","name":"n"}])";
    Configure("", "n");
    EXPECT_EQ(StoredId(), "x");
}

TEST_F(ClientConfigTest, ANameWhoseEntryHasNoIdLeavesAnEmptyIdOnPurpose) {
    service.list = R"([{"name":"n"}])";
    Configure("wrong", "n");
    EXPECT_EQ(Files().at("Quennet/OmbrySecurity/CS/datacenterid.config"), "");
}

TEST_F(ClientConfigTest, AnUnknownDatacenterIsNamedAndNothingIsWritten) {
    struct Case {
        std::string id, name;
    };
    service.list = R"([{"id":"i1","name":"one"},{"id":"i3"},{"name":"four"}])";
    for (const Case& each : std::vector<Case>{{"", ""},
                                              {"I1", ""},
                                              {"", "One"},
                                              {"i1 ", ""},
                                              {"i", ""},
                                              {"", "on"},
                                              {"1", "e"},
                                              {"one", "i1"},
                                              {"x", "y"},
                                              {"four", "i3"}}) {
        service.server->requests.clear();
        EXPECT_EQ(FailureOf([&] { Configure(each.id, each.name); }),
                  "Unknown datacenter id '" + each.id + "' or name '" + each.name + "'");
        EXPECT_THAT(service.server->requests, SizeIs(1));
    }
    service.list = "[]";
    EXPECT_EQ(FailureOf([&] { Configure("i1", "one"); }), "Unknown datacenter id 'i1' or name 'one'");
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(ClientConfigTest, AStatusOtherThan200LeavesTheMachineAsItWas) {
    service.listStatus = 500;
    EXPECT_EQ(FailureOf([&] { Configure("i1", ""); }),
              "GET /v1/ddb/datacenters failed with http status 500.");
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(ClientConfigTest, ALaterRunReplacesEverything) {
    Configure("i1", "");
    service.list = R"([{"id":"i9","name":"nine"}])";
    parameters.SetSfsUrl("https://other");
    Configure("", "nine");

    EXPECT_EQ(service.directory.Read("Quennet/OmbrySecurity/ombrysecurity.config"),
              "{\n    \"ssdsUri\": \"https://other\"\n}");
    EXPECT_EQ(StoredId(), "i9");
    EXPECT_THAT(Files(), SizeIs(3));
}

TEST_F(ClientConfigTest, TheCertificateComesFirstThenTheUrlAndTheIdLast) {
    FaultyFiles files;
    const Platform::Testing::Replace<Platform::IFiles> replaced(files);
    Configure("i1", "");

    std::vector<std::string> texts = files.Texts();
    ASSERT_GT(texts.size(), 6u);
    const std::vector<std::string> last(texts.end() - 6, texts.end());
    const std::string security = service.Path("OmbrySecurity");
    EXPECT_THAT(last, ElementsAre("CreateDirectories " + security + " Synced",
                                  "BeginReplace " + security + "/ombrysecurity.config Synced",
                                  "Complete " + security + "/ombrysecurity.config Synced",
                                  "CreateDirectories " + security + "/CS Synced",
                                  "BeginReplace " + security + "/CS/datacenterid.config Synced",
                                  "Complete " + security + "/CS/datacenterid.config Synced"));
    texts.resize(texts.size() - 6);
    for (const std::string& text : texts)
        EXPECT_NE(text.find("/CertificateStores/OmbrySecurity"), std::string::npos) << text;
}

TEST_F(ClientConfigTest, AStoreThatCannotTakeTheCertificateKeepsTheFilesFromBeingWritten) {
    FaultyCertificates certificates;
    certificates.Fail("OpenStore", 5);
    const Platform::Testing::Replace<Platform::ICertificates> replaced(certificates);
    EXPECT_EQ(
        FailureOf([&] { Configure("i1", ""); }),
        "Ombry::ClientCommunications::ClientConfig::saveBootstrapCertificate: CertOpenStore failed with "
        "last error = 5");
    EXPECT_FALSE(std::filesystem::exists(service.Path("OmbrySecurity")));
}

TEST_F(ClientConfigTest, WithoutACertificateTheEarlierTrustStays) {
    Configure("i1", "");
    const auto before = Files();
    // The list is asked for under the name as given, the certificate under the lower-cased one.
    ScriptedSockets::ConnectScript refused;
    refused.error = 111;
    service.sockets.OnConnect("server1:9000", refused);
    EXPECT_EQ(FailureOf([&] { Configure("i2", ""); }), "Unable to connect to server1:9000 due to error 1");
    EXPECT_EQ(Files(), before);
}

TEST_F(ClientConfigTest, WhicheverFileOperationFailsEveryFileIsWholeAndTheNextRunMends) {
    bool finished = false;
    for (std::size_t n = 1; !finished; ++n) {
        ASSERT_LT(n, 100u);
        FaultyFiles files;
        files.FailNth(n, ENOSPC);
        {
            const Platform::Testing::Replace<Platform::IFiles> replaced(files);
            FailureOf([&] { Configure(n % 2 == 0 ? "i1" : "i2", ""); });
            finished = files.Operations().size() < n;
        }
        for (const auto& [path, content] : Files()) {
            if (path.ends_with("datacenterid.config")) {
                EXPECT_TRUE(content == "i1" || content == "i2") << n;
            }
            if (path.ends_with("ombrysecurity.config")) {
                EXPECT_EQ(content, "{\n    \"ssdsUri\": \"https://Server1:9000/Base\"\n}") << n;
            }
            EXPECT_FALSE(path.ends_with(".tmp")) << path;
        }
        Configure("i1", "");
        EXPECT_EQ(StoredId(), "i1");
        EXPECT_EQ(getBootstrapSsdsCertificate(parameters), Base64Of(service.certificate));
    }
}

TEST_F(ClientConfigTest, ACrashBeforeAnyFileOperationLeavesWholeFiles) {
    bool finished = false;
    for (std::size_t n = 1; !finished; ++n) {
        ASSERT_LT(n, 100u);
        {
            FaultyFiles files;
            const auto count = std::make_shared<std::size_t>(0);
            files.Decide([=](const FileOperation&) -> std::optional<int> {
                if (++*count == n) throw Crash();
                return std::nullopt;
            });
            const Platform::Testing::Replace<Platform::IFiles> replaced(files);
            try {
                Configure(n % 2 == 0 ? "i1" : "i2", "");
                finished = true;
            } catch (const Crash&) {
            }
        }
        for (const auto& [path, content] : Files()) {
            if (path.ends_with("datacenterid.config")) {
                EXPECT_TRUE(content == "i1" || content == "i2") << n;
            } else if (path.ends_with("ombrysecurity.config")) {
                EXPECT_EQ(content, "{\n    \"ssdsUri\": \"https://Server1:9000/Base\"\n}") << n;
            } else {
                EXPECT_NE(content.find("-----END TRUSTED CERTIFICATE-----"), std::string::npos) << path << n;
            }
        }
    }
    EXPECT_EQ(getBootstrapSsdsCertificate(parameters), Base64Of(service.certificate));
}

TEST(ClientConfigPlainTest, TheBufferOfTheCertificateBeginsWith4096BytesAndDoubles) {
    static std::vector<std::uint64_t> sizes;
    CertificateRecipe large;
    for (int n = 0; n < 400; ++n)
        large.alternativeNames += ",DNS:" + std::string(20, 'n') + std::to_string(n);
    const std::pair<CertificateRecipe, std::uint64_t> cases[] = {{{}, 4096}, {large, 16384}};
    for (const auto& [recipe, expected] : cases) {
        BootstrapService service(true, recipe);
        EXPECT_EQ(expected == 16384, service.certificate.size() > 8192) << service.certificate.size();
        ClientConfigParameters parameters("");
        parameters.SetSfsUrl("https://server:9000");
        const auto config = parameters.Build();
        config->SetDatacenterId("i1");
        sizes.clear();
        const auto previous = OmbryZephCore::ZephIOBuffer::ReplaceAllocator([](std::uint64_t bytes) {
            sizes.push_back(bytes);
            return new (std::nothrow) std::uint8_t[bytes];
        });
        config->Configure();
        OmbryZephCore::ZephIOBuffer::ReplaceAllocator(previous);
        EXPECT_EQ(sizes.back(), expected) << "the certificate comes last";
    }
}

TEST(ClientConfigPlainTest, APlainServiceGivesItsListButNoCertificateAndNothingIsWritten) {
    BootstrapService service(false);
    ClientConfigParameters parameters("");
    parameters.SetSfsUrl("http://server/base");
    const auto config = parameters.Build();
    config->SetDatacenterId("i1");

    service.server->requests.clear();
    EXPECT_EQ(FailureOf([&] { config->Configure(); }), "Unable to connect to server:80 due to error 11");
    EXPECT_EQ(service.server->requests.at(0).find("GET /base/v1/ddb/datacenters HTTP/1.1\r\n"), 0u);
    EXPECT_THAT(FilesBelow(service.directory.Path()), IsEmpty());
}

}  // namespace
}  // namespace Ombry::Tests
