#include "tests/Fakes/FaultyFiles.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/Linux/BootstrapService.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

namespace Ombry::Tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Words = std::vector<std::string>;

const std::string Url = "https://Server1:9000/Base";

class BootstrapCommandsTest : public testing::Test {
protected:
    /// The host and port of every name that was looked up.
    Words LookedUp() {
        Words names;
        for (const std::string& call : service.sockets.Calls()) {
            const std::string start = "GetAddressInfo(";
            if (!call.starts_with(start)) continue;
            const std::size_t port = call.find(", ") + 2;
            names.push_back(call.substr(start.size(), port - 2 - start.size()) + ":" +
                            call.substr(port, call.find(", ", port) - port));
        }
        return names;
    }

    std::string SsdsUri() {
        const std::string text = service.directory.Read("Quennet/OmbrySecurity/ombrysecurity.config");
        const std::string front = "{\n    \"ssdsUri\": \"";
        EXPECT_EQ(text.find(front), 0u);
        return text.substr(front.size(), text.size() - front.size() - 3);
    }
    std::string StoredId() { return service.directory.Read("Quennet/OmbrySecurity/CS/datacenterid.config"); }
    bool NothingWritten() { return std::filesystem::is_empty(service.directory.Path()); }

    void ExpectFailure(const Words& words, const std::string& text) {
        const ToolRun run = Tool(words);
        EXPECT_EQ(run.exitCode, -1);
        EXPECT_EQ(run.error, "Caught exception: " + text + "\n");
        EXPECT_EQ(run.out, "");
    }

    void ExpectSilentSuccess(const Words& words) {
        const ToolRun run = Tool(words);
        EXPECT_EQ(run.exitCode, 0) << testing::PrintToString(words);
        EXPECT_EQ(run.error, "");
        EXPECT_EQ(run.out, "");
    }

    BootstrapService service;
};

// --- get-datacenters ---

TEST_F(BootstrapCommandsTest, GetDatacentersPrintsOneLineEachInTheServicesOrder) {
    service.list =
        R"([{"id":"i2","name":"b"},{"id":"i1","name":"a name"},{"name":"no id"},{"id":"no name"}])";
    const ToolRun run = Tool({"get-datacenters", "-t", "token", "-r", Url});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "i2\tb\ni1\ta name\n\tno id\nno name\t\n");
    EXPECT_EQ(run.error, "");
}

TEST_F(BootstrapCommandsTest, GetDatacentersPrintsOneLineWithASingleTabForOneEntry) {
    service.list = R"([{"id":"i","name":"n"}])";
    EXPECT_EQ(Tool({"get-datacenters", "-t", "token", "-r", Url}).out, "i\tn\n");
}

TEST_F(BootstrapCommandsTest, GetDatacentersPrintsNothingForAnEmptyListAndSucceeds) {
    service.list = "[]";
    ExpectSilentSuccess({"get-datacenters", "-t", "token", "-r", Url});
}

TEST_F(BootstrapCommandsTest, GetDatacentersTakesTheUrlAsItIs) {
    Tool({"get-datacenters", "-t", "token", "-r", Url});
    ASSERT_THAT(service.server->requests, SizeIs(1));
    EXPECT_EQ(service.server->requests[0],
              "GET /Base/v1/ddb/datacenters HTTP/1.1\r\nHost: Server1:9000\r\nContent-Length: 0\r\n"
              "Authorization: Bearer token\r\nContract-Version: 1\r\n\r\n");
    EXPECT_TRUE(NothingWritten());

    Tool({"get-datacenters", "-t", "token", "-r", std::string(Url) + "//"});
    ASSERT_THAT(service.server->requests, SizeIs(2));
    EXPECT_TRUE(service.server->requests[1].starts_with("GET /Base//v1/ddb/datacenters HTTP/1.1\r\n"));
}

TEST_F(BootstrapCommandsTest, GetDatacentersGoesFromUserAndPasswordToAServiceToken) {
    EXPECT_EQ(Tool({"get-datacenters", "-u", "user", "-p", "pass", "-r", Url}).exitCode, 0);
    ASSERT_THAT(service.server->requests, SizeIs(2));
    EXPECT_EQ(service.server->requests[0].find("POST /Base/v1/auth/users/servicetokens HTTP/1.1\r\n"), 0u);
    EXPECT_NE(service.server->requests[0].find("\r\nAuthorization: Basic dXNlcjpwYXNz\r\n"),
              std::string::npos);
    EXPECT_NE(service.server->requests[1].find("\r\nAuthorization: Bearer the-token\r\n"), std::string::npos);
}

TEST_F(BootstrapCommandsTest, NoPasswordIsLeftInTheMemoryThatTheCommandsFree) {
    const std::string secret = "a password too long for a string object";
    const char* const password = secret.c_str();
    const std::vector<std::vector<const char*>> runs = {
        {"tool", "get-datacenters", "-u", "user", "-p", password, "-r", Url.c_str()},
        {"tool", "configure-bootstrap-url", "-u", "user", "-p", password, "-r", Url.c_str(), "-d", "i1"}};
    for (std::vector<const char*> words : runs) {
        const CapturedOutput captured;
        const FreedMemory freed(secret);
        EXPECT_EQ(SecClientConfig::RunTool(static_cast<int>(words.size()), const_cast<char**>(words.data())),
                  0);
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << words[1];
    }
    EXPECT_THAT(service.server->requests, SizeIs(4));
}

TEST_F(BootstrapCommandsTest, GetDatacentersWithAClientNameAloneCallsAsNobodyOnPurpose) {
    EXPECT_EQ(Tool({"get-datacenters", "-n", "client", "-r", Url}).exitCode, 0);
    ASSERT_THAT(service.server->requests, SizeIs(1));
    EXPECT_EQ(service.server->requests[0].find("Authorization"), std::string::npos);
    EXPECT_TRUE(NothingWritten());
}

TEST_F(BootstrapCommandsTest, GetDatacentersReportsWhatTheServiceSays) {
    service.listStatus = 401;
    ExpectFailure({"get-datacenters", "-t", "token", "-r", Url},
                  "GET /v1/ddb/datacenters failed with http status 401.");
    service.tokenStatus = 403;
    service.token = "denied";
    ExpectFailure({"get-datacenters", "-u", "u", "-p", "p", "-r", Url},
                  "OAuth2 request failed with response code 403 and response body denied");
}

TEST_F(BootstrapCommandsTest, APortThatIsNoNumberIsReportedWithoutACall) {
    ExpectFailure({"get-datacenters", "-t", "token", "-r", "https://server:port/x"},
                  "invalid stoul argument");
    ExpectFailure({"configure-bootstrap-url", "-t", "t", "-d", "i1", "-h", "server:99999999999"},
                  "stoul argument out of range");
    EXPECT_THAT(service.sockets.Calls(), IsEmpty());
}

// --- configure-bootstrap-url ---

TEST_F(BootstrapCommandsTest, ConfigureTiesTheMachineAndPrintsNothing) {
    ExpectSilentSuccess({"configure-bootstrap-url", "-t", "token", "-d", "i2", "-r", Url});

    EXPECT_EQ(SsdsUri(), Url);
    EXPECT_EQ(StoredId(), "i2");
    const std::filesystem::path store = service.Path("CertificateStores/OmbrySecurity");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(store), {}), 1);
}

TEST_F(BootstrapCommandsTest, ConfigureTakesTheHostInLowerCaseWithTheUsualPort) {
    ExpectSilentSuccess({"configure-bootstrap-url", "-t", "token", "-d", "i1", "-h", "Server1"});
    EXPECT_EQ(SsdsUri(), "https://server1:8181/securityframeworkservice");
    EXPECT_THAT(LookedUp(), ElementsAre("server1:8181", "server1:8181"));
}

TEST_F(BootstrapCommandsTest, ConfigureLowersEveryLetterOfAHost) {
    ExpectSilentSuccess(
        {"configure-bootstrap-url", "-t", "token", "-d", "i1", "-h", "ABCDEFGHIJKLMNOPQRSTUVWXYZ-09_.z"});
    EXPECT_EQ(SsdsUri(), "https://abcdefghijklmnopqrstuvwxyz-09_.z:8181/securityframeworkservice");
}

TEST_F(BootstrapCommandsTest, ConfigureLeavesAHostThatHoldsAColonItsPort) {
    ExpectSilentSuccess({"configure-bootstrap-url", "-t", "token", "-d", "i1", "-h", "SERVER1.Example:9000"});
    EXPECT_EQ(SsdsUri(), "https://server1.example:9000/securityframeworkservice");
    EXPECT_THAT(LookedUp(), ElementsAre("server1.example:9000", "server1.example:9000"));
}

TEST_F(BootstrapCommandsTest, ConfigureTakesTheColonsOfAnIPv6HostForAPort) {
    const ToolRun run = Tool({"configure-bootstrap-url", "-t", "token", "-d", "i1", "-h", "[FE80::A]"});
    ASSERT_EQ(run.error, "");
    EXPECT_EQ(SsdsUri(), "https://[fe80::a]/securityframeworkservice");
    for (const std::string& name : LookedUp())
        EXPECT_EQ(name.find(":8181"), std::string::npos) << name;
}

TEST_F(BootstrapCommandsTest, ConfigureKeepsBytesOutsideAsciiOfAHost) {
    ExpectSilentSuccess({"configure-bootstrap-url", "-t", "token", "-d", "i1", "-h", "S\xc3\x84"});
    EXPECT_EQ(SsdsUri(), "https://s\xc3\x84:8181/securityframeworkservice");
}

TEST_F(BootstrapCommandsTest, ConfigureIgnoresTheHostBesideAUrl) {
    ExpectSilentSuccess({"configure-bootstrap-url", "-t", "t", "-d", "i1", "-h", "Other:1", "-r", Url});
    EXPECT_EQ(SsdsUri(), Url);
    EXPECT_THAT(LookedUp(), ElementsAre("Server1:9000", "server1:9000"));
}

TEST_F(BootstrapCommandsTest, ConfigurePassesIdAndNameOnAsGiven) {
    ExpectSilentSuccess({"configure-bootstrap-url", "-t", "t", "-d", "i1", "-dn", "two", "-r", Url});
    EXPECT_EQ(StoredId(), "i1");
    ExpectSilentSuccess({"configure-bootstrap-url", "-t", "t", "-d", "wrong", "-dn", "two", "-r", Url});
    EXPECT_EQ(StoredId(), "i2");
    ExpectSilentSuccess({"configure-bootstrap-url", "-t", "t", "-dn", "one", "-r", Url});
    EXPECT_EQ(StoredId(), "i1");
    ExpectFailure({"configure-bootstrap-url", "-t", "t", "-d", "I2", "-r", Url},
                  "Unknown datacenter id 'I2' or name ''");
    EXPECT_EQ(StoredId(), "i1");
}

TEST_F(BootstrapCommandsTest, ConfigureUsesTheIdentityThatIsGiven) {
    ExpectSilentSuccess({"configure-bootstrap-url", "-u", "user", "-p", "pass", "-d", "i1", "-r", Url});
    ASSERT_THAT(service.server->requests, SizeIs(2));
    EXPECT_EQ(service.server->requests[0].find("POST /Base/v1/auth/users/servicetokens HTTP/1.1\r\n"), 0u);
    EXPECT_NE(service.server->requests[0].find("\r\nAuthorization: Basic dXNlcjpwYXNz\r\n"),
              std::string::npos);
    ExpectSilentSuccess({"configure-bootstrap-url", "-t", "fixed", "-d", "i1", "-r", Url});
    ASSERT_THAT(service.server->requests, SizeIs(3));
    EXPECT_NE(service.server->requests[2].find("\r\nAuthorization: Bearer fixed\r\n"), std::string::npos);
}

TEST_F(BootstrapCommandsTest, AServiceThatCannotBeReachedIsReportedAndNothingIsWritten) {
    ScriptedSockets::ConnectScript refused;
    refused.error = 111;
    service.sockets.OnConnect("server:8181", refused);
    ExpectFailure({"configure-bootstrap-url", "-t", "t", "-d", "i1", "-h", "server"}, "Error 11.0");
    EXPECT_TRUE(NothingWritten());
}

TEST_F(BootstrapCommandsTest, ADiskThatIsFullIsReportedAndTheTrustIsAlreadyThere) {
    FaultyFiles files;
    const std::string path = service.Path("OmbrySecurity/ombrysecurity.config");
    files.FailEvery("BeginReplace", 28, path);
    const Platform::Testing::Replace<Platform::IFiles> replaced(files);
    ExpectFailure(
        {"configure-bootstrap-url", "-t", "t", "-d", "i1", "-r", Url},
        "Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" + path + "' for write.");
    EXPECT_TRUE(std::filesystem::exists(service.Path("CertificateStores/OmbrySecurity")));
    EXPECT_FALSE(std::filesystem::exists(service.Path("OmbrySecurity/CS")));
}

}  // namespace
}  // namespace Ombry::Tests
