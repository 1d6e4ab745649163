// Datacenters, tokens, rights and discovery.

#include "Sandbox/Tokens.h"
#include "tests/Sandbox/CallsFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests::SandboxService {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST_F(SandboxCallsTest, DatacentersAreListedInTheirOrder) {
    Start();
    ExpectAnswer(Get(Datacenters), 200, R"([{"id":"d","name":"Here"},{"id":"e","name":"There"}])");
}

TEST_F(SandboxCallsTest, TokenAnswerHasTheStatedFields) {
    Start({"--token-seconds", "100"});
    const Answer answer = Post(UserTokens, Basic("admin:secret"), FormOf("v1-auth"), FormType);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, R"({"token_type":"Bearer","access_token":")" + TokenIn(answer) +
                               R"(","expires_in":100,"scope":"v1-auth"})");
    EXPECT_EQ(answer.Header("Cache-Control"), "no-store");
    EXPECT_EQ(answer.Header("Pragma"), "no-cache");
    const auto claims = Sandbox::VerifyToken(TokenIn(answer), 1'600'000'000, identity);
    ASSERT_TRUE(claims);
    EXPECT_EQ(claims->id, FakeRandom::GuidText(1));
    EXPECT_EQ(claims->subject, "user:admin");
    EXPECT_EQ(claims->serviceName, "v1-auth");
    EXPECT_EQ(claims->expires, 1'600'000'100);
}

TEST_F(SandboxCallsTest, WrongCredentialsAreRefusedOnEveryBasicCall) {
    Start();
    Enroll("c");
    const std::string refused = ErrorDocument("invalid_client", "Name or secret is wrong.");
    for (const std::string& path : {UserTokens, ClientTokens, std::string("/sandbox/faults")}) {
        for (const httplib::Headers& headers :
             {httplib::Headers{}, Basic("admin:"), Basic("admin:secre"), Basic("admin:secrets"),
              Basic("Admin:secret"), Basic(":"), Basic("c:wrong"),
              httplib::Headers{{"Authorization", "Basic ?"}}, Bearer("admin:secret")}) {
            const Answer answer = Post(path, headers, "/:1:cut", FormType);
            ExpectAnswer(answer, 401, refused);
            EXPECT_EQ(answer.Header("WWW-Authenticate"), "Basic realm=\"sandbox\"");
        }
    }
    // Neither kind is taken for the other.
    ExpectAnswer(Post(UserTokens, Basic("c:s3cr3t"), FormOf("v1-auth"), FormType), 401, refused);
    ExpectAnswer(Post(ClientTokens, Basic("admin:secret"), FormOf("v1-auth"), FormType), 401, refused);
    EXPECT_FALSE(faults.Take("/x"));
}

TEST_F(SandboxCallsTest, TokenFormIsChecked) {
    Start();
    const auto ask = [&](const std::string& body, const std::string& type = FormType) {
        return Post(UserTokens, Basic("admin:secret"), body, type);
    };
    const std::string form = FormOf("v1-auth");
    ExpectAnswer(ask(form, "text/plain"), 415, ErrorDocument("invalid_request", "The body must be a form."));
    ExpectAnswer(ask(form, FormType + "x"), 415,
                 ErrorDocument("invalid_request", "The body must be a form."));
    ExpectAnswer(ask("servicename=v1-auth"), 400, ErrorDocument("invalid_request", "grant_type is missing."));
    ExpectAnswer(ask("grant_type=&servicename=v1-auth"), 400,
                 ErrorDocument("invalid_request", "grant_type is missing."));
    for (const std::string grant : {"password", "xclient_credentials", "client_credentialsx"}) {
        ExpectAnswer(ask("grant_type=" + grant + "&servicename=v1-auth"), 400,
                     ErrorDocument("unsupported_grant_type", "Only client_credentials is known."));
    }
    ExpectAnswer(ask("grant_type=client_credentials"), 400,
                 ErrorDocument("invalid_request", "servicename is missing."));
    ExpectAnswer(ask(form + "&grant_type=client_credentials"), 400,
                 ErrorDocument("invalid_request", "A parameter is given twice."));
    ExpectAnswer(ask(FormOf("nosuch")), 400,
                 ErrorDocument("invalid_target", "There is no service of that name."));
    for (const char* name : {"v1-auth", "v1-service", "v1-ddbmanagement"})
        EXPECT_EQ(ask(FormOf(name), FormType + "; charset=UTF-8").status, 200) << name;
}

TEST_F(SandboxCallsTest, TokenOfTheInstantOfItsExpiryIsRefused) {
    Start({"--datacenters-need-token", "--token-seconds", "100"});
    const std::string token = UserToken("v1-ddbmanagement");
    clock.Advance(Duration(SecondsToTicks(99)));
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 200);
    clock.Advance(Duration(SecondsToTicks(1)));
    const Answer answer = Get(Datacenters, Bearer(token));
    ExpectAnswer(answer, 401, NeedsToken("v1-ddbmanagement"));
    EXPECT_EQ(answer.Header("WWW-Authenticate"), "Bearer error=\"invalid_token\"");
}

TEST_F(SandboxCallsTest, TokenThatIsSignedButWasNotIssuedIsRefused) {
    Start({"--datacenters-need-token"});
    const std::string token = Sandbox::SignToken(
        {"never-issued", "user:admin", "v1-ddbmanagement", 1'600'000'060}, 1'600'000'000, identity);
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 401);
    state.AddToken("never-issued", "user:admin", 0, 1'600'000'060);
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 200);
}

TEST_F(SandboxCallsTest, TokenOfAClientThatIsNoneIsRefused) {
    // As one that was issued while another instance removed the client.
    Start({"--datacenters-need-token"});
    const std::string token =
        Sandbox::SignToken({"t", "gone", "v1-ddbmanagement", 1'600'000'060}, 1'600'000'000, identity);
    state.AddToken("t", "gone", 0, 1'600'000'060);
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 401);
}

TEST_F(SandboxCallsTest, EachCallWantsATokenForItsOwnService) {
    Start({"--datacenters-need-token"});
    Enroll("c");
    const std::map<std::string, std::string> tokens = {{"v1-auth", UserToken("v1-auth")},
                                                       {"v1-service", UserToken("v1-service")},
                                                       {"v1-ddbmanagement", UserToken("v1-ddbmanagement")}};
    const std::vector<std::pair<Question, std::string>> calls = {
        {{.path = Datacenters}, "v1-ddbmanagement"},
        {{.method = "POST", .path = Clients, .body = "{}", .type = JsonType}, "v1-auth"},
        {{.method = "DELETE", .path = "/v1/auth/clients"}, "v1-auth"},
        {{.method = "DELETE", .path = "/v1/auth/clients/x"}, "v1-auth"},
        {{.method = "POST", .path = Services, .body = "{}", .type = JsonType}, "v1-service"},
        {{.method = "DELETE", .path = Services + "/x"}, "v1-service"},
        {{.path = Found + "name/x"}, "v1-service"},
        {{.path = "/services/service/secure/id/x"}, "v1-service"},
    };
    for (auto [question, wanted] : calls) {
        ExpectAnswer(Ask(question), 401, NeedsToken(wanted));
        for (const auto& [name, token] : tokens) {
            question.headers = Bearer(token);
            EXPECT_EQ(Ask(question).status != 401, name == wanted) << question.path << " " << name;
        }
    }
}

TEST_F(SandboxCallsTest, InstallTokenMayDoEverythingAndNoOtherTextMay) {
    Start({"--datacenters-need-token", "--install-token", "let-me-in"});
    for (const char* wrong : {"let-me-i", "let-me-inn", "Let-me-in", ""})
        EXPECT_EQ(Get(Datacenters, Bearer(wrong)).status, 401) << wrong;
    EXPECT_EQ(Get(Datacenters, Bearer("let-me-in")).status, 200);
    EXPECT_EQ(Post(Clients, Bearer("let-me-in"), ClientBody("c")).status, 201);
    EXPECT_EQ(Post(Services, Bearer("let-me-in"), ServiceBody()).status, 201);
    EXPECT_EQ(Delete(Services + "/i", "let-me-in").status, 200);
    ExpectAnswer(Delete("/v1/auth/clients", "let-me-in"), 403,
                 ErrorDocument("insufficient_scope", "Only a client can remove itself."));
    EXPECT_EQ(Delete("/v1/auth/clients/c", "let-me-in").status, 204);
}

TEST_F(SandboxCallsTest, NoInstallTokenMeansThatNoneIsTaken) {
    Start({"--datacenters-need-token"});
    EXPECT_EQ(Get(Datacenters, Bearer("")).status, 401);
    EXPECT_EQ(Get(Datacenters).status, 401);
}

TEST_F(SandboxCallsTest, OpenDiscoveryKnowsTwoNames) {
    Start();
    const std::string document =
        R"({"expiryTime":1600000300,"local":[{"serviceHostname":"127.0.0.1","serviceNamespace":"Ombry","id":"@@)" +
        baseUrl + R"(","serviceName":"@","endpointUrl":")" + baseUrl +
        R"(","endpointCert":"","properties":[#]}],"remote":[]})";
    const auto expected = [&](const std::string& name, const std::string& property) {
        std::string text = document;
        text.replace(text.find("@@"), 2, name + "@");
        text.replace(text.find("\"@\""), 3, "\"" + name + "\"");
        return text.replace(text.find('#'), 1, property);
    };
    const Answer answer = Get("/services/services/nonsecure/name/ssds");
    ExpectAnswer(answer, 200, expected("v1-service", ""));
    EXPECT_EQ(answer.Header("Cache-Control"), "max-age=300, stale-while-revalidate=604500");
    ExpectAnswer(
        Get("/services/services/nonsecure/name/aa"), 200,
        expected("v1-auth", R"({"key":"AaSigningCert","value":")" + identity.CertificateBase64() + "\"}"));
    ExpectAnswer(Get("/services/services/nonsecure/name/v1-auth"), 404,
                 ErrorDocument("not_found", "There is no such open service."));
}

TEST_F(SandboxCallsTest, CacheControlIsAsToldAndLeftOutIfEmpty) {
    Start({"--cache-control", "max-age=7"});
    EXPECT_EQ(Get("/services/services/nonsecure/name/aa").Header("Cache-Control"), "max-age=7");
    Start({"--cache-control", ""});
    EXPECT_EQ(Get("/services/services/nonsecure/name/aa").Header("Cache-Control"), "none");
}

TEST_F(SandboxCallsTest, SecureDiscoveryKnowsEveryForm) {
    Start();
    Enroll("c");
    Enroll("p");
    const std::string token = UserToken("v1-service");
    EXPECT_EQ(Post(Services, Bearer(token), ServiceBody(R"("roles":null)", R"("roles":["r"])")).status, 201);
    std::string far = ServiceBody(R"("serviceId":"i")", R"("serviceId":"j")");
    far.replace(far.find(R"("clientId":"c")"), 14, R"("clientId":"p")");
    far.replace(far.find(R"("datacenterID":"d")"), 18, R"("datacenterID":"e")");
    EXPECT_EQ(Post(Services, Bearer(token), far).status, 201);
    const auto found = [&](const std::string& path, const std::string& datacenter = {}) {
        httplib::Headers headers = Bearer(token);
        if (!datacenter.empty()) headers.emplace("Datacenter-Id", datacenter);
        const Answer answer = Get(path, headers);
        EXPECT_EQ(answer.status, 200) << path;
        std::string ids;
        const std::size_t remote = answer.body.find("\"remote\"");
        for (std::size_t at = 0; (at = answer.body.find("\"id\":\"", at)) != std::string::npos; ++at)
            ids += (at < remote ? "local " : "remote ") + answer.body.substr(at + 6, 1) + ";";
        return ids;
    };
    EXPECT_EQ(found(Found + "name/n"), "local i;remote j;");
    EXPECT_EQ(found(Found + "name/n", "e"), "local j;remote i;");
    EXPECT_EQ(found(Found + "name/n", "x"), "remote i;remote j;");
    EXPECT_EQ(found(Found + "name/n/parent-id/p"), "remote j;");
    EXPECT_EQ(found(Found + "name/n/role/r"), "local i;");
    EXPECT_EQ(found(Found + "name/n/namespace/s/host/h"), "local i;remote j;");
    EXPECT_EQ(found(Found + "name/n/namespace/s/host/x"), "");
    EXPECT_EQ(found(Found + "name/x"), "");
    EXPECT_EQ(found("/services/service/secure/id/j"), "remote j;");
    const std::string refused =
        ErrorDocument("invalid_request", "There is no such way to look a service up.");
    for (const std::string path : {"/services/service/secure/name/n", "/services/services/secure/id/i",
                                   "/services/services/secure/name", "/services/services/secure/"})
        ExpectAnswer(Get(path, Bearer(token)), 400, refused);
}

TEST_F(SandboxCallsTest, OwnServicesAreFoundByTheirNameAlone) {
    Start();
    const std::string token = UserToken("v1-service");
    for (const std::string name : {"v1-auth", "v1-service"}) {
        EXPECT_THAT(Get(Found + "name/" + name, Bearer(token)).body, HasSubstr(baseUrl));
        for (const std::string more : {"/parent-id/x", "/role/x", "/namespace/x", "/host/x"})
            EXPECT_THAT(Get(Found + "name/" + name + more, Bearer(token)).body, Not(HasSubstr(baseUrl)));
    }
    EXPECT_THAT(Get(Found + "name/x", Bearer(token)).body, Not(HasSubstr(baseUrl)));
}

TEST_F(SandboxCallsTest, OwnServicesHaveTheHostAndTheDatacenterOfTheirInstance) {
    Start();
    state.AddInstance({"https://far.test:8443/b", "CERT", "e"}, 0);
    state.AddInstance({"https://[::2]:8443", "CERT", "e"}, 0);
    const std::string body = Get("/services/services/nonsecure/name/ssds").body;
    EXPECT_THAT(body, HasSubstr(R"("remote":[{"serviceHostname":"::2",)"));
    EXPECT_THAT(body, HasSubstr(R"({"serviceHostname":"far.test","serviceNamespace":"Ombry",)"
                                R"("id":"v1-service@https://far.test:8443/b","serviceName":"v1-service",)"
                                R"("endpointUrl":"https://far.test:8443/b","endpointCert":"CERT",)"));
    EXPECT_THAT(Get("/services/services/nonsecure/name/ssds", {{"Datacenter-Id", "e"}}).body,
                HasSubstr(R"("remote":[{"serviceHostname":"127.0.0.1")"));
}

}  // namespace
}  // namespace Ombry::Tests::SandboxService
