// The five commands that need a configured machine, as whole runs against a service on loopback.

#include "tests/Ombry.SecClientConfig/ConfiguredMachine.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <gtest/gtest.h>

#include <set>

namespace Ombry::Tests {
namespace {

using Texts = std::vector<std::string>;

class EnrollmentCommandsTest : public testing::Test, protected ConfiguredMachine {
protected:
    /// The command must succeed, print nothing and send exactly these.
    void ExpectSuccess(const Texts& words, const Texts& requests) {
        const std::size_t before = web.Summaries().size();
        const ToolRun run = Tool(words);
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.error, "");
        const Texts all = web.Summaries();
        EXPECT_EQ(Texts(all.begin() + static_cast<long>(before), all.end()), requests);
    }

    static std::string ClientBody(const std::string& description) {
        return "{\n"
               "    \"id\": \"" +
               FakeRandom::GuidText(1) +
               "\",\n"
               "    \"clientSecretId\": \"" +
               FakeRandom::GuidText(2) +
               "\",\n"
               "    \"publicCertPem\": null,\n"
               "    \"groups\": null,\n"
               "    \"description\": " +
               description +
               ",\n"
               "    \"datacenterId\": \"dc-1\",\n"
               "    \"rolesPerService\": {}\n"
               "}";
    }
};

const std::string FindAuth = "GET /services/services/secure/name/v1-auth Bearer ";
const std::string FindService = "GET /services/services/secure/name/v1-service Bearer ";
const std::string EnrollClientCall = "POST /v1/auth/locationawareclients Bearer t ";

TEST_F(EnrollmentCommandsTest, EnrollClientKeepsTheNewCredentialsAndPutsNoRolesIntoTheBody) {
    ExpectSuccess({"enroll-client", "-t", "t", "-nn", "New", "-desc", "text", "-rps",
                   R"([["serviceName1",["role1","role2"]],["serviceName2",["role1"]]])"},
                  {FindAuth + "t", EnrollClientCall + ClientBody("\"text\"")});

    const auto stored = Store()->Load("New");
    EXPECT_EQ(stored->GetClientId(), FakeRandom::GuidText(1));
    EXPECT_EQ(stored->GetClientSecret(), FakeRandom::GuidText(2));
}

TEST_F(EnrollmentCommandsTest, EmptyDescriptionAndEmptyRolesCountAsNotGiven) {
    ExpectSuccess({"enroll-client", "-t", "t", "-nn", "New", "-desc", "", "-rps", ""},
                  {FindAuth + "t", EnrollClientCall + ClientBody("null")});
}

TEST_F(EnrollmentCommandsTest, RolesThatFit) {
    for (const std::string& roles : Texts{"[]", "[[\"a\",[]]]", "[[\"a\",[\"r\"]],[\"a\",[\"s\"]]]"}) {
        EXPECT_EQ(Tool({"enroll-client", "-t", "t", "-nn", "New", "-rps", roles}).error, "") << roles;
    }
}

TEST_F(EnrollmentCommandsTest, RolesThatDoNotFitEndTheCommandBeforeAnyCall) {
    const std::map<std::string, std::string> failures = {
        {R"([["a",["r"],["s"]]])", "Attempted to insert more than two elements into a pair.\n"},
        {R"([["a":["r"]]])", "ERROR: Parse failed at offset "},  // the form that the usage shows
        {R"({"a":["r"]})", "ERROR: Expected type '"},
        {R"([["a","r"]])", "ERROR: Expected type '"},
        {R"([[["r"],"a"]])", "ERROR: Expected type '"},
        {R"([["a",[1]]])", "ERROR: Expected type '"},
        {R"(["a"])", "ERROR: Expected type '"},
        {"null", "ERROR: Expected type '"},
        {"x", "ERROR: Parse failed at offset "},
    };
    for (const auto& [roles, failure] : failures) {
        const ToolRun run = Tool({"enroll-client", "-t", "t", "-nn", "New", "-rps", roles});
        EXPECT_EQ(run.exitCode, -1) << roles;
        EXPECT_EQ(run.error.rfind("Caught exception: " + failure, 0), 0u) << roles << "\n" << run.error;
    }
    EXPECT_EQ(web.Summaries(), Texts{});
    EXPECT_FALSE(files.Exists(Security + "/Components/New"));
}

TEST_F(EnrollmentCommandsTest, RolesAreReadOnlyAfterTheCompositionWasBuilt) {
    static_cast<void>(files.Remove(Security + "/CS/datacenterid.config"));

    EXPECT_EQ(Tool({"enroll-client", "-t", "t", "-nn", "New", "-rps", "x"}).error,
              "Caught exception: Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" +
                  Security + "/CS/datacenterid.config' for read.\n");
}

TEST_F(EnrollmentCommandsTest, EnrollServiceReplacesWhatWasRegisteredAndKeepsTheRecord) {
    const ToolRun run = Tool({"enroll-service", "-t", "t", "-owner", "c1", "-name", "Svc", "-url",
                              "https://H:1/x", "-namespace", "Space", "-hostname", "Host"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out + run.error, "");

    const auto record = files.Content(Security + "/Components/c1/Services/Svc.config");
    ASSERT_TRUE(record);
    const std::string id = record->substr(record->find("\"Guid\": ") + 9, 36);
    EXPECT_EQ(record, "{\n    \"Version\": \"1.0\",\n    \"Guid\": \"" + id + "\"\n}");
    EXPECT_EQ(web.Summaries(),
              (Texts{"GET /services/services/secure/name/Svc/namespace/Space/host/Host Bearer t",
                     FindService + "t", "DELETE /v1/services/services/i Bearer t",
                     "POST /v1/services/services Bearer t {\n"
                     "    \"serviceId\": \"" +
                         id +
                         "\",\n"
                         "    \"serviceName\": \"Svc\",\n"
                         "    \"clientId\": \"c1-id\",\n"
                         "    \"directUrl\": \"https://H:1/x\",\n"
                         "    \"directCert\": null,\n"
                         "    \"endpointUrl\": \"https://H:1/x\",\n"
                         "    \"endpointCert\": null,\n"
                         "    \"serviceHostname\": \"Host\",\n"
                         "    \"serviceNamespace\": \"Space\",\n"
                         "    \"datacenterID\": \"dc-1\",\n"
                         "    \"links\": null,\n"
                         "    \"roles\": null,\n"
                         "    \"ttlSeconds\": null,\n"
                         "    \"status\": null,\n"
                         "    \"serviceProps\": null\n"
                         "}"}));
}

TEST_F(EnrollmentCommandsTest, UnenrollServiceWorksFromTheRecord) {
    const std::string record = Security + "/Components/c1/Services/Svc.config";
    files.Put(record, "{\"Version\": \"1.0\", \"Guid\": \"g-1\"}");

    ExpectSuccess({"unenroll-service", "-t", "t", "-on", "c1", "-s", "Svc"},
                  {FindService + "t", "DELETE /v1/services/services/g-1 Bearer t"});

    EXPECT_FALSE(files.Exists(record));
    ExpectSuccess({"unenroll-service", "-t", "t", "-on", "c1", "-s", "Svc"}, {});
}

TEST_F(EnrollmentCommandsTest, UnenrollClientWorksFromTheStoredCredentials) {
    ExpectSuccess({"unenroll-client", "-t", "t", "-un", "c1"},
                  {FindAuth + "t", "DELETE /v1/auth/clients/c1-id Bearer t"});

    EXPECT_FALSE(files.Exists(Security + "/Components/c1/ombrycomponent.config"));
    ExpectSuccess({"unenroll-client", "-u", "a", "-p", "b", "-un", "nosuch"}, {});
}

TEST_F(EnrollmentCommandsTest, ClientThatActsIsNotTheOneThatIsActedFor) {
    Store()->Save(std::make_shared<ClientCommunications::ClientCredentials>(
        std::make_shared<ClientCommunications::WindowsInMemoryDataProtection>(), "c2", "c2-id", "c2-secret"));
    const std::string own = Security + "/Components/c1/Services/Svc.config";
    const std::string others = Security + "/Components/c2/Services/Svc.config";
    const std::string ownRecord = "{\"Version\": \"1.0\", \"Guid\": \"g-1\"}";
    files.Put(own, ownRecord);
    files.Put(others, "{\"Version\": \"1.0\", \"Guid\": \"g-2\"}");
    const auto lastRequest = [this](const Texts& words) {
        EXPECT_EQ(Tool(words).error, "");
        return web.Summaries().back();
    };

    EXPECT_EQ(lastRequest({"unenroll-service", "-n", "c1", "-on", "c2", "-s", "Svc"})
                  .find("DELETE /v1/services/services/g-2 "),
              0u);
    EXPECT_FALSE(files.Exists(others));
    const std::string enrolled = lastRequest({"enroll-service", "-n", "c1", "-owner", "c2", "-name", "Svc",
                                              "-url", "u", "-namespace", "S", "-hostname", "h"});
    EXPECT_NE(enrolled.find("\"clientId\": \"c2-id\""), std::string::npos) << enrolled;
    EXPECT_TRUE(files.Exists(others));
    EXPECT_EQ(
        lastRequest({"unenroll-client", "-n", "c1", "-un", "c2"}).find("DELETE /v1/auth/clients/c2-id "), 0u);
    EXPECT_FALSE(files.Exists(Security + "/Components/c2/ombrycomponent.config"));

    EXPECT_EQ(files.Content(own), ownRecord);
    EXPECT_TRUE(files.Exists(Security + "/Components/c1/ombrycomponent.config"));
}

class IdentityTest : public EnrollmentCommandsTest, public testing::WithParamInterface<Texts> {
protected:
    /// The command must ask for its tokens by this call, and succeed.
    void ExpectAsks(const Texts& identity, const std::string& askToken) {
        files.Put(Security + "/Components/c1/Services/Svc.config",
                  "{\"Version\": \"1.0\", \"Guid\": \"g-1\"}");
        Texts words = GetParam();
        words.insert(words.end(), identity.begin(), identity.end());
        EXPECT_EQ(Tool(words).error, "");
        Texts asked;
        for (const std::string& request : web.Summaries()) {
            if (request.find("servicetokens") != std::string::npos)
                asked.push_back(request.substr(0, request.find(" grant_type")));
        }
        EXPECT_EQ(asked, (Texts{askToken, askToken}));
    }
};

TEST_P(IdentityTest, UserAsksWithNameAndPassword) {
    ExpectAsks({"-u", "u", "-p", "p"}, "POST /v1/auth/users/servicetokens Basic dTpw");
}

TEST_P(IdentityTest, ClientAsksWithItsStoredCredentials) {
    ExpectAsks({"-n", "c1"}, "POST /v1/auth/clients/servicetokens Basic YzEtaWQ6YzEtc2VjcmV0");
}

INSTANTIATE_TEST_SUITE_P(Commands, IdentityTest,
                         testing::Values(Texts{"enroll-client", "-nn", "New"},
                                         Texts{"unenroll-client", "-un", "c1"},
                                         Texts{"enroll-service", "-owner", "c1", "-name", "Svc", "-url", "u",
                                               "-namespace", "S", "-hostname", "h"},
                                         Texts{"unenroll-service", "-on", "c1", "-s", "Svc"}));

TEST_F(EnrollmentCommandsTest, UnenrollClientSelfActsWithItsOwnCredentialsAndCanDoItOnce) {
    const std::string askToken =
        "POST /v1/auth/clients/servicetokens Basic YzEtaWQ6YzEtc2VjcmV0 "
        "grant_type=client_credentials&servicename=";
    ExpectSuccess({"unenroll-client-self", "-n", "c1"},
                  {"GET /services/services/nonsecure/name/aa -", askToken + "v1-service",
                   FindAuth + "token-1", askToken + "s", "DELETE /v1/auth/clients Bearer token-2"});
    const std::size_t requests = web.Summaries().size();

    const ToolRun second = Tool({"unenroll-client-self", "-n", "c1"});

    EXPECT_EQ(second.exitCode, -1);
    EXPECT_EQ(second.error,
              "Caught exception: Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" +
                  Security + "/Components/c1/ombrycomponent.config' for read.\n");
    EXPECT_EQ(web.Summaries().size(), requests);
}

TEST_F(EnrollmentCommandsTest, ClientThatRemovesItselfHasCachesOfItsOwn) {
    EXPECT_EQ(Tool({"unenroll-client-self", "-n", "c1"}).error, "");

    const std::string cache = Security + "/CS-cpp/cache/";
    std::set<std::string> folders;
    for (const auto& [path, content] : files.Contents()) {
        const bool isSeeded = path.ends_with("/v1-service.cache-p");
        if (path.starts_with(cache) && !isSeeded) folders.insert(path.substr(0, path.rfind('/')));
    }
    EXPECT_EQ(folders, (std::set<std::string>{cache + "c1/aa_token", cache + "c1/finder_cache"}));
}

}  // namespace
}  // namespace Ombry::Tests
