// Clients and services come and go.

#include "tests/Sandbox/CallsFixture.h"

namespace Ombry::Tests::SandboxService {
namespace {

TEST_F(SandboxCallsTest, ClientIsEnrolledOnce) {
    Start();
    Enroll("c");
    ExpectAnswer(Post(Clients, Bearer(UserToken("v1-auth")), ClientBody("c")), 409,
                 ErrorDocument("conflict", "There is a client of this id."));
    EXPECT_TRUE(state.IsClientSecret("c", "s3cr3t"));
}

TEST_F(SandboxCallsTest, ClientBodyThatDoesNotFitIsRefused) {
    Start();
    const std::string token = UserToken("v1-auth");
    const auto change = [](const std::string& from, const std::string& to) {
        std::string body = ClientBody("c");
        return body.replace(body.find(from), from.size(), to);
    };
    const std::string needed = "id, clientSecretId, a known datacenterId and rolesPerService are needed.";
    const std::vector<std::pair<std::string, std::string>> bodies = {
        {change(R"("id":"c")", R"("id":"")"), needed},
        {change(R"("id":"c",)", ""), needed},
        {change(R"("s3cr3t")", R"("")"), needed},
        {change(R"("s3cr3t")", "null"), needed},
        {change(R"("datacenterId":"d")", R"("datacenterId":"x")"), needed},
        {change(R"("datacenterId":"d")", R"("datacenterID":"d")"), needed},
        {change(R"("rolesPerService":{})", R"("rolesPerService":null)"), needed},
        {change(R"("rolesPerService":{})", R"("x":{})"), needed},
        {change(R"("id":"c")", R"("id":1)"), "'id' is of the wrong type."},
        {change(R"("s3cr3t")", "[]"), "'clientSecretId' is of the wrong type."},
        {change(R"("publicCertPem":null)", R"("publicCertPem":{})"), "'publicCertPem' is of the wrong type."},
        {change(R"("groups":null)", R"("groups":"x")"), "'groups' is of the wrong type."},
        {change(R"("groups":null)", R"("groups":["x",1])"), "'groups' is of the wrong type."},
        {change(R"("description":null)", R"("description":1)"), "'description' is of the wrong type."},
        {change(R"("datacenterId":"d")", R"("datacenterId":1)"), "'datacenterId' is of the wrong type."},
        {change(R"("rolesPerService":{})", R"("rolesPerService":[])"),
         "'rolesPerService' is of the wrong type."},
        {change(R"("id":"c")", R"("id":"user:c")"), "id must not hold a colon."},
        {"[]", "The body must be a JSON object."},
        {"", "The body must be a JSON object."},
    };
    for (const auto& [body, description] : bodies)
        ExpectAnswer(Post(Clients, Bearer(token), body), 400, ErrorDocument("invalid_request", description));
    ExpectAnswer(Post(Clients, Bearer(token), ClientBody("c"), "text/json"), 415,
                 ErrorDocument("invalid_request", "The body must be JSON."));
    EXPECT_FALSE(state.HasClient("c"));
    // All that may be set is taken.
    EXPECT_EQ(Post(Clients, Bearer(token),
                   R"({"id":"c","clientSecretId":"s","publicCertPem":"p","groups":["g"],"description":"t",)"
                   R"("datacenterId":"e","rolesPerService":{"v":["r"]},"other":1})")
                  .status,
              201);
}

TEST_F(SandboxCallsTest, ClientHasOnlyTheRightsThatItWasGiven) {
    const std::vector<std::pair<Question, std::string>> calls = {
        {{.method = "POST", .path = Clients, .body = "{}", .type = JsonType}, "enroll-clients"},
        {{.method = "DELETE", .path = "/v1/auth/clients/x"}, "unenroll-clients"},
        {{.method = "POST", .path = Services, .body = "{}", .type = JsonType}, "enroll-services"},
        {{.method = "DELETE", .path = Services + "/x"}, "unenroll-services"},
    };
    for (const auto& [granted, right] : calls) {
        Start({"--client-rights", right});
        if (!state.HasClient("c")) Enroll("c");
        for (auto [question, needed] : calls) {
            const bool isAuth = question.path.starts_with("/v1/auth");
            question.headers = Bearer(ClientToken("c", isAuth ? "v1-auth" : "v1-service"));
            const Answer answer = Ask(question);
            if (needed == right) {
                EXPECT_TRUE(answer.status == 400 || answer.status == 404) << answer.status << " " << needed;
            } else {
                ExpectAnswer(answer, 403, MissesRight(needed));
            }
        }
    }
}

TEST_F(SandboxCallsTest, ClientMayAlwaysRemoveItselfByEitherCall) {
    Start({"--client-rights", ""});
    for (const std::string path : {"/v1/auth/clients", "/v1/auth/clients/c"}) {
        Enroll("c");
        Enroll("other");
        const std::string token = ClientToken("c", "v1-auth");
        ExpectAnswer(Delete("/v1/auth/clients/other", token), 403, MissesRight("unenroll-clients"));
        ExpectAnswer(Delete(path, token), 204, "");
        EXPECT_FALSE(state.HasClient("c"));
        ExpectAnswer(Delete(path, token), 401, NeedsToken("v1-auth"));
        EXPECT_TRUE(state.RemoveClient("other"));
    }
    ExpectAnswer(Delete("/v1/auth/clients", UserToken("v1-auth")), 403,
                 ErrorDocument("insufficient_scope", "Only a client can remove itself."));
}

TEST_F(SandboxCallsTest, TokensOfADeletedClientStopWorkingEvenIfItsIdComesBack) {
    Start({"--datacenters-need-token"});
    Enroll("c");
    const std::string token = ClientToken("c", "v1-ddbmanagement");
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 200);
    EXPECT_EQ(Delete("/v1/auth/clients/c", UserToken("v1-auth")).status, 204);
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 401);
    EXPECT_EQ(Post(ClientTokens, Basic("c:s3cr3t"), FormOf("v1-auth"), FormType).status, 401);
    Enroll("c");
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 401);
    EXPECT_EQ(Get(Datacenters, Bearer(ClientToken("c", "v1-ddbmanagement"))).status, 200);
}

TEST_F(SandboxCallsTest, DeletingWhatIsNotThereIsTold) {
    Start();
    ExpectAnswer(Delete("/v1/auth/clients/x", UserToken("v1-auth")), 404,
                 ErrorDocument("not_found", "There is no client of this id."));
    ExpectAnswer(Delete(Services + "/x", UserToken("v1-service")), 404,
                 ErrorDocument("not_found", "There is no service of this id."));
    const std::string token = UserToken("v1-auth");
    EXPECT_EQ(Delete("/v1/auth/clients/user:admin", token).status, 404);
    EXPECT_EQ(Delete("/v1/auth/clients/x", token).status, 404);  // the user's token still works
}

TEST_F(SandboxCallsTest, ServiceIsEnrolledOnceAndDeletedOnce) {
    Start();
    Enroll("c");
    const std::string token = ClientToken("c", "v1-service");
    ExpectAnswer(Post(Services, Bearer(token), ServiceBody()), 201, R"({"id":"i"})");
    ExpectAnswer(Post(Services, Bearer(token), ServiceBody(R"("n")", R"("other")")), 409,
                 ErrorDocument("conflict", "There is a service of this id."));
    EXPECT_EQ(UserToken("n").substr(0, 2), "ey");  // a service of that name is known now
    ExpectAnswer(Delete(Services + "/i", token), 200, "");
    EXPECT_EQ(Delete(Services + "/i", token).status, 404);
}

TEST_F(SandboxCallsTest, ServiceBodyThatDoesNotFitIsRefused) {
    Start();
    Enroll("c");
    const std::string token = ClientToken("c", "v1-service");
    const std::string needed =
        "serviceId, serviceName, endpointUrl, serviceHostname, serviceNamespace, a known datacenterID and "
        "the "
        "clientId of an enrolled client are needed.";
    const auto wrong = [](const std::string& name) { return "'" + name + "' is of the wrong type."; };
    std::vector<std::pair<std::string, std::string>> bodies = {
        {ServiceBody(R"("clientId":"c")", R"("clientId":"x")"), needed},
        {ServiceBody(R"("datacenterID":"d")", R"("datacenterID":"x")"), needed},
        {ServiceBody(R"("datacenterID":"d")", R"("datacenterId":"d")"), needed},
        {ServiceBody(R"("roles":null)", R"("roles":{})"), wrong("roles")},
        {ServiceBody(R"("roles":null)", R"("roles":["a",null])"), wrong("roles")},
        {ServiceBody(R"("links":null)", R"("links":"")"), wrong("links")},
        {ServiceBody(R"("ttlSeconds":null)", R"("ttlSeconds":"1")"), wrong("ttlSeconds")},
        {ServiceBody(R"("ttlSeconds":null)", R"("ttlSeconds":2147483648)"), wrong("ttlSeconds")},
        {ServiceBody(R"("serviceProps":null)", R"("serviceProps":{})"), wrong("serviceProps")},
    };
    for (const std::string name :
         {"serviceId\":\"i", "serviceName\":\"n", "clientId\":\"c", "endpointUrl\":\"u",
          "serviceHostname\":\"h", "serviceNamespace\":\"s", "datacenterID\":\"d"}) {
        const std::string key = name.substr(0, name.find('"'));
        bodies.emplace_back(ServiceBody("\"" + name + "\"", "\"" + key + "\":null"), needed);
        bodies.emplace_back(ServiceBody("\"" + name + "\"", "\"" + key + "\":false"), wrong(key));
    }
    for (const std::string key : {"directCert", "endpointCert", "status"})
        bodies.emplace_back(ServiceBody("\"" + key + "\":null", "\"" + key + "\":1"), wrong(key));
    bodies.emplace_back(ServiceBody(R"("directUrl":"u")", R"("directUrl":1)"), wrong("directUrl"));
    for (const auto& [body, description] : bodies) {
        SCOPED_TRACE(body);
        ExpectAnswer(Post(Services, Bearer(token), body), 400, ErrorDocument("invalid_request", description));
    }
    EXPECT_TRUE(state.FindServices({}).empty());
}

}  // namespace
}  // namespace Ombry::Tests::SandboxService
