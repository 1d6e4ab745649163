// The service in this process, asked over loopback. Time and chance are the test's.

#include "Sandbox/Service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <latch>
#include <thread>

#include "Sandbox/Tokens.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/LoopbackPeer.h"
#include "tests/Fakes/TemporaryDirectory.h"
#include "tests/Fakes/TestCertificates.h"

namespace Ombry::Tests {
namespace {

using testing::HasSubstr;
using testing::Not;
using Words = std::vector<std::string>;

struct Answer {
    int status = 0;  ///< 0 if there was none
    std::string body;
    httplib::Headers headers = {};

    std::string Header(const std::string& name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? "none" : found->second;
    }
};

struct Question {
    std::string method = "GET";
    std::string path;
    httplib::Headers headers = {};
    std::string body = {};
    std::string type = {};
};

std::string ErrorDocument(const std::string& error, const std::string& description) {
    return R"({"error":")" + error + R"(","error_description":")" + description + R"("})";
}

void ExpectAnswer(const Answer& answer, int status, const std::string& body) {
    EXPECT_EQ(answer.status, status);
    EXPECT_EQ(answer.body, body);
}

httplib::Headers Bearer(const std::string& token) {
    return {{"Authorization", "Bearer " + token}};
}
httplib::Headers Basic(const std::string& nameAndSecret) {
    return {{"Authorization", "Basic " + Base64Of(nameAndSecret)}};
}

const std::string FormType = "application/x-www-form-urlencoded";
const std::string JsonType = "application/json";
const std::string UserTokens = "/v1/auth/users/servicetokens";
const std::string ClientTokens = "/v1/auth/clients/servicetokens";
const std::string Clients = "/v1/auth/locationawareclients";
const std::string Services = "/v1/services/services";
const std::string Datacenters = "/v1/ddb/datacenters";
const std::string Found = "/services/services/secure/";

std::string FormOf(const std::string& service) {
    return "grant_type=client_credentials&servicename=" + service;
}

class SandboxServiceTest : public testing::Test {
protected:
    SandboxServiceTest() { testing::internal::CaptureStderr(); }
    ~SandboxServiceTest() override {
        Stop();
        testing::internal::GetCapturedStderr();
    }

    void Start(Words words = {}) {
        words.insert(words.begin(), {"ombry-sandbox", "--plain-http", "--datacenter", "d=Here",
                                     "--datacenter", "e=There", "--base-path", "/b"});
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        options = Sandbox::ParseOptions(static_cast<int>(arguments.size()), arguments.data());
        service = std::make_unique<Sandbox::Service>(options, identity, state);
        port = service->Bind();
        thread = std::thread([this] { service->Serve(); });
    }

    /// Calls `meanwhile` over and over until the service has stopped.
    void Stop(const std::function<void()>& meanwhile = [] {}) {
        if (!thread.joinable()) return;
        auto stopped = std::async(std::launch::async, [this] { service->Stop(); });
        // Its rounds are as long as this clock says.
        while (stopped.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
            meanwhile();
            clock.Advance(std::chrono::milliseconds(100));
        }
        thread.join();
    }

    Answer Ask(const Question& question) {
        httplib::Client client(options.address, port);
        client.set_read_timeout(120);
        httplib::Request request;
        request.method = question.method;
        request.path = options.basePath + question.path;
        request.headers = question.headers;
        request.body = question.body;
        if (!question.type.empty()) request.headers.emplace("Content-Type", question.type);
        const httplib::Result result = client.send(request);
        return result ? Answer{result->status, result->body, result->headers} : Answer{};
    }
    Answer Get(const std::string& path, const httplib::Headers& headers = {}) {
        return Ask({.path = path, .headers = headers});
    }
    Answer Delete(const std::string& path, const std::string& token) {
        return Ask({.method = "DELETE", .path = path, .headers = Bearer(token)});
    }
    Answer Post(const std::string& path, const httplib::Headers& headers, const std::string& body,
                const std::string& type = JsonType) {
        return Ask({.method = "POST", .path = path, .headers = headers, .body = body, .type = type});
    }

    static std::string TokenIn(const Answer& answer) {
        const std::string key = R"("access_token":")";
        const std::size_t begin = answer.body.find(key);
        if (begin == std::string::npos) return "no token in " + answer.body;
        return answer.body.substr(begin + key.size(),
                                  answer.body.find('"', begin + key.size()) - begin - key.size());
    }
    std::string UserToken(const std::string& serviceName) {
        return TokenIn(Post(UserTokens, Basic("admin:secret"), FormOf(serviceName), FormType));
    }
    std::string ClientToken(const std::string& id, const std::string& serviceName) {
        return TokenIn(Post(ClientTokens, Basic(id + ":s3cr3t"), FormOf(serviceName), FormType));
    }

    static std::string ClientBody(const std::string& id) {
        return R"({"id":")" + id +
               R"(","clientSecretId":"s3cr3t","publicCertPem":null,"groups":null,"description":null,)"
               R"("datacenterId":"d","rolesPerService":{}})";
    }
    void Enrol(const std::string& id) {
        ExpectAnswer(Post(Clients, Bearer(UserToken("v1-auth")), ClientBody(id)), 201,
                     R"({"id":")" + id + "\"}");
    }
    /// The body of a service of client "c", with one text in the place of another.
    static std::string ServiceBody(const std::string& from = {}, const std::string& to = {}) {
        std::string body =
            R"({"serviceId":"i","serviceName":"n","clientId":"c","directUrl":"u","directCert":null,)"
            R"("endpointUrl":"u","endpointCert":null,"serviceHostname":"h","serviceNamespace":"s",)"
            R"("datacenterID":"d","links":null,"roles":null,"ttlSeconds":null,"status":null,"serviceProps":null})";
        if (!from.empty()) body.replace(body.find(from), from.size(), to);
        return body;
    }

    /// A connection that this test writes to itself.
    LoopbackPeer Connect() {
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return LoopbackPeer(descriptor);
    }
    /// The status line of an answer to these bytes, and all that follows on the connection.
    std::string Raw(const std::string& bytes) {
        LoopbackPeer peer = Connect();
        peer.Send(bytes);
        return peer.Receive(1 << 20);
    }

    FakeClock clock;
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    FakeRandom random;
    const Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
    const TemporaryDirectory folder;
    const Sandbox::Identity identity{folder.Path()};
    Sandbox::State state{folder.Path()};
    Sandbox::Options options;
    std::unique_ptr<Sandbox::Service> service;
    int port = 0;
    std::thread thread;
};

std::string RequestFor(const std::string& path) {
    return "GET /b" + path + " HTTP/1.1\r\nConnection: close\r\n\r\n";
}

std::string NeedsToken(const std::string& serviceName) {
    return ErrorDocument("invalid_token", "A valid token for '" + serviceName + "' is needed.");
}
std::string MissesRight(const std::string& right) {
    return ErrorDocument("insufficient_scope", "The right '" + right + "' is missing.");
}

TEST_F(SandboxServiceTest, DatacentersAreListedInTheirOrder) {
    Start();
    ExpectAnswer(Get(Datacenters), 200, R"([{"id":"d","name":"Here"},{"id":"e","name":"There"}])");
    EXPECT_EQ(service->BaseUrl(), "http://127.0.0.1:" + std::to_string(port) + "/b");
}

TEST_F(SandboxServiceTest, IPv6AddressStandsInBracketsInTheBaseUrl) {
    if (LoopbackListener(AF_INET6).Port() == 0) return;  // a machine without it
    Start({"--address", "::1"});
    EXPECT_EQ(service->BaseUrl(), "http://[::1]:" + std::to_string(port) + "/b");
    EXPECT_EQ(Get(Datacenters).status, 200);
    EXPECT_THAT(Get("/services/services/nonsecure/name/ssds").body, HasSubstr(R"("serviceHostname":"::1")"));
}

TEST_F(SandboxServiceTest, BasePathIsNoPattern) {
    Start({"--base-path", "/a.b"});
    EXPECT_EQ(Get(Datacenters).status, 200);
    options.basePath = "/aXb";
    EXPECT_EQ(Get(Datacenters).status, 404);
}

TEST_F(SandboxServiceTest, TokenAnswerHasTheStatedFields) {
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

TEST_F(SandboxServiceTest, WrongCredentialsAreRefusedOnEveryBasicCall) {
    Start();
    Enrol("c");
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
    EXPECT_EQ(Get(Datacenters).status, 200);  // no fault was added
}

TEST_F(SandboxServiceTest, TokenFormIsChecked) {
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
    // Parameters of the address are none of the form.
    EXPECT_EQ(Post(UserTokens + "?" + form, Basic("admin:secret"), "a=b", FormType).status, 400);
}

TEST_F(SandboxServiceTest, TokenOfTheInstantOfItsExpiryIsRefused) {
    Start({"--datacenters-need-token", "--token-seconds", "100"});
    const std::string token = UserToken("v1-ddbmanagement");
    clock.Advance(Duration(SecondsToTicks(99)));
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 200);
    clock.Advance(Duration(SecondsToTicks(1)));
    const Answer answer = Get(Datacenters, Bearer(token));
    ExpectAnswer(answer, 401, NeedsToken("v1-ddbmanagement"));
    EXPECT_EQ(answer.Header("WWW-Authenticate"), "Bearer error=\"invalid_token\"");
}

TEST_F(SandboxServiceTest, TokenThatIsSignedButWasNotIssuedIsRefused) {
    Start({"--datacenters-need-token"});
    const std::string token = Sandbox::SignToken(
        {"never-issued", "user:admin", "v1-ddbmanagement", 1'600'000'060}, 1'600'000'000, identity);
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 401);
    state.AddToken("never-issued", "user:admin", 1'600'000'060);
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 200);
}

TEST_F(SandboxServiceTest, TokenOfAClientThatIsNoneIsRefused) {
    // As one that was issued while another instance removed the client.
    Start({"--datacenters-need-token"});
    const std::string token =
        Sandbox::SignToken({"t", "gone", "v1-ddbmanagement", 1'600'000'060}, 1'600'000'000, identity);
    state.AddToken("t", "gone", 1'600'000'060);
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 401);
}

TEST_F(SandboxServiceTest, EachCallWantsATokenForItsOwnService) {
    Start({"--datacenters-need-token"});
    Enrol("c");
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

TEST_F(SandboxServiceTest, InstallTokenMayDoEverythingAndNoOtherTextMay) {
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

TEST_F(SandboxServiceTest, NoInstallTokenMeansThatNoneIsTaken) {
    Start({"--datacenters-need-token"});
    EXPECT_EQ(Get(Datacenters, Bearer("")).status, 401);
    EXPECT_EQ(Get(Datacenters).status, 401);
}

TEST_F(SandboxServiceTest, ClientIsEnrolledOnce) {
    Start();
    Enrol("c");
    ExpectAnswer(Post(Clients, Bearer(UserToken("v1-auth")), ClientBody("c")), 409,
                 ErrorDocument("conflict", "There is a client of this id."));
    EXPECT_TRUE(state.IsClientSecret("c", "s3cr3t"));
}

TEST_F(SandboxServiceTest, ClientBodyThatDoesNotFitIsRefused) {
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

TEST_F(SandboxServiceTest, ClientHasOnlyTheRightsThatItWasGiven) {
    const std::vector<std::pair<Question, std::string>> calls = {
        {{.method = "POST", .path = Clients, .body = "{}", .type = JsonType}, "enroll-clients"},
        {{.method = "DELETE", .path = "/v1/auth/clients/x"}, "unenroll-clients"},
        {{.method = "POST", .path = Services, .body = "{}", .type = JsonType}, "enroll-services"},
        {{.method = "DELETE", .path = Services + "/x"}, "unenroll-services"},
    };
    for (const auto& [granted, right] : calls) {
        Start({"--client-rights", right});
        if (!state.HasClient("c")) Enrol("c");
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
        Stop();
    }
}

TEST_F(SandboxServiceTest, ClientMayAlwaysRemoveItselfByEitherCall) {
    Start({"--client-rights", ""});
    for (const std::string path : {"/v1/auth/clients", "/v1/auth/clients/c"}) {
        Enrol("c");
        Enrol("other");
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

TEST_F(SandboxServiceTest, TokensOfADeletedClientStopWorkingEvenIfItsIdComesBack) {
    Start({"--datacenters-need-token"});
    Enrol("c");
    const std::string token = ClientToken("c", "v1-ddbmanagement");
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 200);
    EXPECT_EQ(Delete("/v1/auth/clients/c", UserToken("v1-auth")).status, 204);
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 401);
    EXPECT_EQ(Post(ClientTokens, Basic("c:s3cr3t"), FormOf("v1-auth"), FormType).status, 401);
    Enrol("c");
    EXPECT_EQ(Get(Datacenters, Bearer(token)).status, 401);
    EXPECT_EQ(Get(Datacenters, Bearer(ClientToken("c", "v1-ddbmanagement"))).status, 200);
}

TEST_F(SandboxServiceTest, DeletingWhatIsNotThereIsTold) {
    Start();
    ExpectAnswer(Delete("/v1/auth/clients/x", UserToken("v1-auth")), 404,
                 ErrorDocument("not_found", "There is no client of this id."));
    ExpectAnswer(Delete(Services + "/x", UserToken("v1-service")), 404,
                 ErrorDocument("not_found", "There is no service of this id."));
    const std::string token = UserToken("v1-auth");
    EXPECT_EQ(Delete("/v1/auth/clients/user:admin", token).status, 404);
    EXPECT_EQ(Delete("/v1/auth/clients/x", token).status, 404);  // the user's token still works
}

TEST_F(SandboxServiceTest, ServiceIsEnrolledOnceAndDeletedOnce) {
    Start();
    Enrol("c");
    const std::string token = ClientToken("c", "v1-service");
    ExpectAnswer(Post(Services, Bearer(token), ServiceBody()), 201, R"({"id":"i"})");
    ExpectAnswer(Post(Services, Bearer(token), ServiceBody(R"("n")", R"("other")")), 409,
                 ErrorDocument("conflict", "There is a service of this id."));
    EXPECT_EQ(UserToken("n").substr(0, 2), "ey");  // a service of that name is known now
    ExpectAnswer(Delete(Services + "/i", token), 200, "");
    EXPECT_EQ(Delete(Services + "/i", token).status, 404);
}

TEST_F(SandboxServiceTest, ServiceBodyThatDoesNotFitIsRefused) {
    Start();
    Enrol("c");
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

TEST_F(SandboxServiceTest, OpenDiscoveryKnowsTwoNames) {
    Start();
    const std::string document =
        R"({"expiryTime":1600000300,"local":[{"serviceHostname":"127.0.0.1","serviceNamespace":"Ombry","id":"@@)" +
        service->BaseUrl() + R"(","serviceName":"@","endpointUrl":")" + service->BaseUrl() +
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

TEST_F(SandboxServiceTest, CacheControlIsAsToldAndLeftOutIfEmpty) {
    Start({"--cache-control", "max-age=7"});
    EXPECT_EQ(Get("/services/services/nonsecure/name/aa").Header("Cache-Control"), "max-age=7");
    Stop();
    Start({"--cache-control", ""});
    EXPECT_THAT(Raw(RequestFor("/services/services/nonsecure/name/aa")), Not(HasSubstr("Cache-Control")));
}

TEST_F(SandboxServiceTest, SecureDiscoveryKnowsEveryForm) {
    Start();
    Enrol("c");
    Enrol("p");
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

TEST_F(SandboxServiceTest, OwnServicesAreFoundByTheirNameAlone) {
    Start();
    const std::string token = UserToken("v1-service");
    for (const std::string name : {"v1-auth", "v1-service"}) {
        EXPECT_THAT(Get(Found + "name/" + name, Bearer(token)).body, HasSubstr(service->BaseUrl()));
        for (const std::string more : {"/parent-id/x", "/role/x", "/namespace/x", "/host/x"})
            EXPECT_THAT(Get(Found + "name/" + name + more, Bearer(token)).body,
                        Not(HasSubstr(service->BaseUrl())));
    }
    EXPECT_THAT(Get(Found + "name/x", Bearer(token)).body, Not(HasSubstr(service->BaseUrl())));
}

TEST_F(SandboxServiceTest, OwnServicesHaveTheHostAndTheDatacenterOfTheirInstance) {
    Start();
    state.AddInstance({"https://far.test:8443/b", "CERT", "e"});
    state.AddInstance({"https://[::2]:8443", "CERT", "e"});
    const std::string body = Get("/services/services/nonsecure/name/ssds").body;
    EXPECT_THAT(body, HasSubstr(R"("remote":[{"serviceHostname":"::2",)"));
    EXPECT_THAT(body, HasSubstr(R"({"serviceHostname":"far.test","serviceNamespace":"Ombry",)"
                                R"("id":"v1-service@https://far.test:8443/b","serviceName":"v1-service",)"
                                R"("endpointUrl":"https://far.test:8443/b","endpointCert":"CERT",)"));
    EXPECT_THAT(Get("/services/services/nonsecure/name/ssds", {{"Datacenter-Id", "e"}}).body,
                HasSubstr(R"("remote":[{"serviceHostname":"127.0.0.1")"));
}

TEST_F(SandboxServiceTest, StoppedInstanceIsListedNoMore) {
    Start();
    EXPECT_EQ(state.Instances().size(), 1u);
    Stop();
    EXPECT_TRUE(state.Instances().empty());
}

TEST_F(SandboxServiceTest, WhatIsNoCallGetsTheErrorDocument) {
    Start();
    const std::string none = ErrorDocument("invalid_request", "There is no such call.");
    for (const std::string path :
         {"", "/", "/nosuch", "/v1/ddb/datacenters/", "/v1/ddb/datacentersx", "/../v1/ddb/datacenters",
          "/v1/auth/clients/a/b", "/v1/ddb/datacenters%00", "/v1/ddb/datacenters%0a", "/%zz", "/%u0041%"})
        ExpectAnswer(Get(path), 404, none);
    ExpectAnswer(Delete(Datacenters, "x"), 404, none);
    options.basePath = "";
    ExpectAnswer(Get("/v1/ddb/datacenters"), 404, none);
    ExpectAnswer(Get("/x/b/v1/ddb/datacenters"), 404, none);
}

TEST_F(SandboxServiceTest, HugeHeadsAreRefused) {
    Start();
    const auto ask = [&](const std::string& head, const std::string& description) {
        LoopbackPeer peer = Connect();
        peer.Send(head);
        // The connection stays open for a while, so only the document is waited for.
        const std::string document = ErrorDocument("invalid_request", description);
        std::string answer;
        for (std::string byte; !answer.ends_with(document) && !(byte = peer.Receive(1)).empty();)
            answer += byte;
        return answer.substr(0, 12);
    };
    EXPECT_EQ(ask("GET /b" + std::string(9000, 'a') + " HTTP/1.1\r\n\r\n", "The address is too long."),
              "HTTP/1.1 414");
    EXPECT_EQ(ask("GET /b HTTP/1.1\r\nX: " + std::string(9000, 'a') + "\r\n\r\n",
                  "The request cannot be understood."),
              "HTTP/1.1 400");
    EXPECT_EQ(Get(Datacenters, Bearer(std::string(8000, 'a'))).status, 200);
    EXPECT_EQ(
        Get("/services/service/secure/id/" + std::string(8000, 'a'), Bearer(UserToken("v1-service"))).status,
        200);
}

TEST_F(SandboxServiceTest, BodyIsTakenUpToItsLimitAndNoFurther) {
    Start();
    const std::string token = UserToken("v1-auth");
    const std::string tooLarge = ErrorDocument("invalid_request", "The body is too large.");
    std::string body = ClientBody("c");
    body += std::string((1 << 20) - body.size(), ' ');
    ExpectAnswer(Post(Clients, Bearer(token), body + " "), 413, tooLarge);
    EXPECT_EQ(Post(Clients, Bearer(token), body).status, 201);
}

TEST_F(SandboxServiceTest, BodyInChunksIsTakenUpToItsLimitAndNoFurther) {
    Start();
    const std::string head = "POST /b" + UserTokens + " HTTP/1.1\r\nAuthorization: Basic " +
                             Base64Of("admin:secret") + "\r\nContent-Type: " + FormType +
                             "\r\nTransfer-Encoding: chunked\r\nConnection: ";
    const std::string form = FormOf("v1-auth") + "&x=";
    const auto chunk = [](const std::string& data) {
        char size[20];
        std::snprintf(size, sizeof size, "%zx\r\n", data.size());
        return size + data + "\r\n";
    };
    const std::string rest((1 << 20) - form.size(), 'x');
    EXPECT_THAT(Raw(head + "close\r\n\r\n" + chunk(form) + chunk(rest) + "0\r\n\r\n"),
                HasSubstr("HTTP/1.1 200 "));
    // What is too much is read all the same, so that the next request on the connection is understood.
    EXPECT_THAT(Raw(head + "close\r\n\r\n" + chunk(form) + chunk(rest + rest) + chunk("y") + "0\r\n\r\n"),
                HasSubstr("HTTP/1.1 413 "));
    LoopbackPeer peer = Connect();
    peer.Send(head + "keep-alive\r\n\r\n" + chunk(form) + chunk(rest) + chunk("y") + "0\r\n\r\n");
    EXPECT_EQ(peer.Receive(12), "HTTP/1.1 413");
    peer.Send(RequestFor(Datacenters));
    EXPECT_THAT(peer.Receive(1 << 20), HasSubstr("HTTP/1.1 200 "));
    EXPECT_THAT(Raw(head + "close\r\n\r\nzz\r\n"), HasSubstr("HTTP/1.1 400 "));
}

TEST_F(SandboxServiceTest, RequestWithoutABodyIsNotWaitedFor) {
    Start();
    EXPECT_THAT(Raw("POST /b" + UserTokens + " HTTP/1.1\r\nConnection: close\r\n\r\n"),
                HasSubstr("HTTP/1.1 401 "));
}

TEST_F(SandboxServiceTest, BodyInPartsIsNoForm) {
    Start();
    EXPECT_EQ(Post(UserTokens, Basic("admin:secret"),
                   "--x\r\nContent-Disposition: form-data; "
                   "name=\"grant_type\"\r\n\r\nclient_credentials\r\n--x--\r\n",
                   "multipart/form-data; boundary=x")
                  .status,
              415);
    EXPECT_EQ(Post(UserTokens, Basic("admin:secret"), "x", "multipart/form-data").status, 400);
}

TEST_F(SandboxServiceTest, FailureOfTheDatabaseIsAnAnswerToo) {
    Start();
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open((folder / "state.sqlite").c_str(), &database), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, "DROP TABLE tokens", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
    ExpectAnswer(Post(UserTokens, Basic("admin:secret"), FormOf("v1-auth"), FormType), 500,
                 ErrorDocument("server_error", "The request could not be carried out."));
    EXPECT_EQ(Get(Datacenters).status, 200);
}

TEST_F(SandboxServiceTest, StatusFaultHasTheDocumentUnlessTheStatusForbidsABody) {
    Start({"--fault", "/v1/ddb:1:status=503", "--fault", "/v1/ddb:1:status=204", "--fault",
           "/v1/ddb:1:status=205", "--fault", "/v1/ddb:1:status=304", "--fault", "/v1/ddb:1:status=599"});
    const std::string document = ErrorDocument("server_error", "A fault that was asked for.");
    ExpectAnswer(Get(Datacenters), 503, document);
    for (const char* status : {"204", "205", "304"}) {
        const std::string answer = Raw(RequestFor(Datacenters));
        EXPECT_EQ(answer.substr(0, 12), std::string("HTTP/1.1 ") + status);
        EXPECT_EQ(answer.find("\r\n\r\n"), answer.size() - 4) << answer;
    }
    ExpectAnswer(Get(Datacenters), 599, document);
    EXPECT_EQ(Get(Datacenters).status, 200);
}

TEST_F(SandboxServiceTest, DelayFaultAnswersWhenItsTimeIsUp) {
    Start({"--fault", "/v1/ddb:1:delay=30000"});
    auto answer = std::async(std::launch::async, [&] { return Get(Datacenters).status; });
    clock.AwaitWaiters(1);
    EXPECT_EQ(clock.Waits().front(), Duration(std::chrono::seconds(30)));
    clock.Advance(std::chrono::seconds(30));
    EXPECT_EQ(answer.get(), 200);
}

/// How the other end sees its connection end.
std::string EndOf(const std::string& answer, int error) {
    return answer + (error == 0 ? " end" : error == ECONNRESET ? " reset" : " error");
}

TEST_F(SandboxServiceTest, ResetFaultIsAReset) {
    Start({"--fault", "/v1/ddb:1:reset"});
    LoopbackPeer peer = Connect();
    peer.Send(RequestFor(Datacenters));
    errno = 0;
    const std::string answer = peer.Receive(1);
    EXPECT_EQ(EndOf(answer, errno), " reset");
    EXPECT_EQ(Get(Datacenters).status, 200);
}

TEST_F(SandboxServiceTest, CutFaultEndsInTheBody) {
    Start({"--fault", "/v1/ddb:1:cut"});
    const std::string answer = Raw(RequestFor(Datacenters));
    EXPECT_THAT(answer, HasSubstr("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("Content-Length: 1000\r\n"));
    EXPECT_TRUE(answer.ends_with("\r\n\r\n["));
    EXPECT_EQ(Get(Datacenters).status, 200);
}

TEST_F(SandboxServiceTest, SilencesGiveTheirThreadsBackWhenTheClientsHangUp) {
    Start({"--fault", "/v1/ddb:100:silence"});
    {
        std::vector<LoopbackPeer> silent;
        for (std::size_t i = 0; i < CPPHTTPLIB_THREAD_POOL_COUNT; ++i) {
            silent.push_back(Connect());
            silent.back().Send(RequestFor(Datacenters));
        }
        clock.AwaitWaiters(silent.size());
        clock.Advance(std::chrono::hours(2));  // however long they wait
        clock.AwaitWaiters(silent.size());
    }
    auto answer = std::async(std::launch::async, [&] { return Get("/nosuch").status; });
    while (answer.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready)
        clock.Advance(std::chrono::seconds(1));
    EXPECT_EQ(answer.get(), 404);
}

TEST_F(SandboxServiceTest, StopWaitsForNeitherIdleNorSilentNorUnfinishedConnections) {
    Start({"--fault", "/v1/ddb:1:silence"});
    LoopbackPeer idle = Connect();
    idle.Send("GET /b/nosuch HTTP/1.1\r\n\r\n");
    EXPECT_EQ(idle.Receive(12), "HTTP/1.1 404");
    LoopbackPeer unfinished = Connect();
    unfinished.Send("GET /b/services/services/nonsecure/name/aa HTTP/1.1\r\n\r\n");
    EXPECT_EQ(unfinished.Receive(12), "HTTP/1.1 200");
    unfinished.Send("GET /b HTTP/1.1\r\n");
    LoopbackPeer half = Connect();
    half.Send("POST /b" + UserTokens + " HTTP/1.1\r\nContent-Length: 5\r\n\r\n1");
    LoopbackPeer silent = Connect();
    silent.Send(RequestFor(Datacenters));
    clock.AwaitWaiters(1);
    // The library alone would wait for the next byte of each, five seconds at a time.
    Stop([&] { unfinished.Send("X: y\r\n"); });
}

TEST_F(SandboxServiceTest, DelayEndsWithItsAnswerWhenTheServiceStops) {
    Start({"--fault", "/v1/ddb:1:delay=600000"});
    LoopbackPeer peer = Connect();
    peer.Send(RequestFor(Datacenters));
    clock.AwaitWaiters(1);
    Stop();
    EXPECT_THAT(peer.Receive(1 << 20), HasSubstr(R"([{"id":"d","name":"Here"},)"));
}

/// Holds who draws an id until the test lets it go.
class GatedRandom : public FakeRandom {
public:
    Platform::Guid NewGuid() override {
        entered.count_down();
        opened.wait();
        return FakeRandom::NewGuid();
    }
    std::latch entered{1};
    std::latch opened{1};
};

TEST_F(SandboxServiceTest, AnswerUnderWayIsFinishedHoweverOftenTheOthersWereEnded) {
    GatedRandom gated;
    const Platform::Testing::Replace<Platform::IRandom> replaced(gated);
    Start();
    auto answer = std::async(std::launch::async, [&] {
        return Post(UserTokens, Basic("admin:secret"), FormOf("v1-auth"), FormType).status;
    });
    gated.entered.wait();
    bool isOpen = false;
    Stop([&] {
        // Each round of the stop ends with a wait.
        if (isOpen || clock.Waits().size() < 3) return;
        isOpen = true;
        gated.opened.count_down();
    });
    EXPECT_EQ(answer.get(), 200);
}

TEST_F(SandboxServiceTest, PortThatIsTakenIsNamedAndNotListed) {
    Start();
    Sandbox::Options second = options;
    second.port = port;
    Sandbox::Service other(second, identity, state);
    try {
        other.Bind();
        ADD_FAILURE() << "bound";
    } catch (const std::runtime_error& failure) {
        EXPECT_EQ(failure.what(), "Cannot listen on 127.0.0.1:" + std::to_string(port) + ".");
    }
    EXPECT_EQ(state.Instances().size(), 1u);
}

}  // namespace
}  // namespace Ombry::Tests
