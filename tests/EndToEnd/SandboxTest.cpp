// The sandbox service itself, asked by curl.

#include "tests/EndToEnd/Sandbox.h"

namespace Ombry::Tests {
namespace {

struct Answer {
    std::string status;
    std::string body;
};

/// What the service answers to a request below its base path. "000" if it did not.
Answer Ask(const Sandbox& sandbox, const std::string& path, Words options = {}) {
    Words words{"curl", "-sk", "--max-time", "60", "-w", "\n%{http_code}"};
    words.insert(words.end(), options.begin(), options.end());
    words.push_back(sandbox.Url() + path);
    const std::string out = RunProcess(words).out;
    const std::size_t last = out.rfind('\n');
    return {out.substr(last + 1), out.substr(0, last)};
}

void ExpectAnswer(const Answer& answer, const std::string& status, const std::string& body) {
    EXPECT_EQ(answer.status, status);
    EXPECT_EQ(answer.body, body);
}

std::string ErrorDocument(const std::string& error, const std::string& description) {
    return R"({"error":")" + error + R"(","error_description":")" + description + R"("})";
}

const std::string TokenPath = "/v1/auth/users/servicetokens";

Answer AskForToken(const Sandbox& sandbox, const std::string& body, Words options = {"-u", "admin:secret"}) {
    options.insert(options.end(), {"-d", body});
    return Ask(sandbox, TokenPath, options);
}

std::string TokenForm(const std::string& service) {
    return "grant_type=client_credentials&servicename=" + service;
}

std::string TokenFor(const Sandbox& sandbox, const std::string& service) {
    const std::string body = AskForToken(sandbox, TokenForm(service)).body;
    const std::size_t begin = body.find(R"("access_token":")") + 16;
    return body.substr(begin, body.find('"', begin) - begin);
}

Words Bearer(const std::string& token) {
    return {"-H", "Authorization: Bearer " + token};
}

std::string DecodeUrl(std::string text) {
    for (char& c : text)
        c = c == '-' ? '+' : c == '_' ? '/' : c;
    while (text.size() % 4 != 0)
        text += '=';
    std::string bytes(text.size(), '\0');
    const int size =
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    bytes.resize(static_cast<std::size_t>(std::max(size, 0)));
    return bytes.substr(0, bytes.rfind('}') + 1);
}

long NumberBehind(const std::string& text, const std::string& key) {
    return std::stol(text.substr(text.find(key) + key.size()));
}

TEST(SandboxOptionsTest, FaultsAreNamed) {
    const std::vector<std::pair<Words, std::string>> faults = {
        {{"--nope"}, "Unknown option '--nope'"},
        {{"--port"}, "--port: 1 required PORT missing"},
        {{"--port", "65536"}, "--port wants a number from 0 to 65535, not '65536'"},
        {{"--port", "-1"}, "--port wants a number from 0 to 65535, not '-1'"},
        {{"--port", "8x"}, "--port wants a number from 0 to 65535, not '8x'"},
        {{"--token-seconds", ""}, "--token-seconds wants a number from 0 to 315360000, not ''"},
        {{"--datacenter", "no-name"}, "--datacenter wants ID=NAME, not 'no-name'"},
        {{"--datacenter", "=name"}, "--datacenter wants ID=NAME, not '=name'"},
        {{"--fault", "x"}, "A fault is PATH:COUNT:KIND, not 'x'"},
        {{"--fault", "/:0:reset"}, "'0' is no number from 1 to 1000000"},
        {{"--fault", "/:1:status=600"}, "'600' is no number from 200 to 599"},
        {{"--fault", "/:1:delay=x"}, "'x' is no number from 0 to 600000"},
        {{"--fault", "/:1:crash"},
         "'crash' is no fault; known are status=CODE, delay=MILLISECONDS, reset, cut and silence"},
    };
    const TemporaryDirectory folder;
    for (const auto& [options, text] : faults) {
        Words words{OMBRY_SANDBOX_SERVICE};
        words.insert(words.end(), options.begin(), options.end());
        const ProcessOutcome outcome = RunProcess(words, {.folder = folder.Path()});
        EXPECT_EQ(outcome.error, "ombry-sandbox: " + text + "\n");
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.exitCode, 1);
    }
}

TEST(SandboxOptionsTest, HelpNamesEveryOption) {
    const ProcessOutcome outcome = RunProcess({OMBRY_SANDBOX_SERVICE, "--port", "0", "--help"});
    EXPECT_EQ(outcome.exitCode, 0);
    for (const char* option :
         {"--address", "--port", "--state", "--base-path", "--user", "--password", "--install-token",
          "--datacenter ", "--own-datacenter", "--client-rights", "--cache-control", "--token-seconds",
          "--datacenters-need-token", "--plain-http", "--fault", "--help"})
        EXPECT_NE(outcome.out.find(option), std::string::npos) << option;
}

TEST(SandboxOptionsTest, PortThatIsTakenIsNamed) {
    Sandbox first;
    const ProcessOutcome second = RunProcess(
        {OMBRY_SANDBOX_SERVICE, "--state", first.State()->Path(), "--port", std::to_string(first.Port())});
    EXPECT_EQ(second.error,
              "ombry-sandbox: Cannot listen on 127.0.0.1:" + std::to_string(first.Port()) + ".\n");
    EXPECT_EQ(second.exitCode, 1);
}

TEST(SandboxTest, ReadyLineAndBasePath) {
    Sandbox sandbox({"--base-path", "other/"});
    EXPECT_EQ(sandbox.ReadyLine(), R"({"baseUrl":"https://127.0.0.1:)" + std::to_string(sandbox.Port()) +
                                       R"(/other","port":)" + std::to_string(sandbox.Port()) +
                                       R"(,"fingerprint":")" + sandbox.Fingerprint() + "\"}");
    ExpectAnswer(Ask(sandbox, "/v1/ddb/datacenters"), "200",
                 R"([{"id":")" + Sandbox::DatacenterId + R"(","name":"Sandbox"}])");
}

TEST(SandboxTest, WrongCredentialsGetTheErrorDocument) {
    Sandbox sandbox;
    const std::string wrong = ErrorDocument("invalid_client", "Name or secret is wrong.");
    for (const Words& options :
         {Words{"-u", "admin:wrong"}, Words{"-u", "nobody:secret"}, Words{"-u", "admin:"}, Words{},
          Words{"-H", "Authorization: Basic !!"}, Bearer("admin:secret")})
        ExpectAnswer(AskForToken(sandbox, TokenForm("v1-auth"), options), "401", wrong);
    ExpectAnswer(
        Ask(sandbox, "/v1/auth/clients/servicetokens", {"-u", "admin:secret", "-d", TokenForm("v1-auth")}),
        "401", wrong);
}

TEST(SandboxTest, WrongTypeOrBodyGetsTheErrorDocument) {
    Sandbox sandbox;
    ExpectAnswer(
        AskForToken(sandbox, TokenForm("v1-auth"), {"-u", "admin:secret", "-H", "Content-Type: text/plain"}),
        "415", ErrorDocument("invalid_request", "The body must be a form."));
    ExpectAnswer(AskForToken(sandbox, "grant_type=password&servicename=v1-auth"), "400",
                 ErrorDocument("unsupported_grant_type", "Only client_credentials is known."));
    ExpectAnswer(AskForToken(sandbox, "grant_type=client_credentials"), "400",
                 ErrorDocument("invalid_request", "servicename is missing."));
    ExpectAnswer(AskForToken(sandbox, TokenForm("nosuch")), "400",
                 ErrorDocument("invalid_target", "There is no service of that name."));
    ExpectAnswer(Ask(sandbox, "/nosuch"), "404", ErrorDocument("invalid_request", "There is no such call."));
}

TEST(SandboxTest, TokenIsASignedJwtThatExpires) {
    Sandbox sandbox({"--token-seconds", "100"});
    const Answer answer = AskForToken(sandbox, TokenForm("v1-ddbmanagement"));
    EXPECT_EQ(answer.status, "200");
    EXPECT_EQ(answer.body.find(R"({"token_type":"Bearer","access_token":"ey)"), 0u) << answer.body;
    EXPECT_TRUE(answer.body.ends_with(R"(","expires_in":100,"scope":"v1-ddbmanagement"})")) << answer.body;

    const std::string token = TokenFor(sandbox, "v1-auth");
    const std::size_t first = token.find('.');
    const std::size_t last = token.rfind('.');
    ASSERT_LT(first, last);
    EXPECT_EQ(DecodeUrl(token.substr(0, first)), R"({"alg":"ES256","typ":"JWT"})");
    const std::string claims = DecodeUrl(token.substr(first + 1, last - first - 1));
    EXPECT_NE(claims.find(R"("sub":"user:admin","aud":"v1-auth",)"), std::string::npos) << claims;
    EXPECT_EQ(NumberBehind(claims, "\"exp\":") - NumberBehind(claims, "\"iat\":"), 100) << claims;
}

TEST(SandboxTest, OnlyATokenForTheServiceThatIsWholeAndAliveIsTaken) {
    Sandbox sandbox({"--datacenters-need-token"});
    const std::string good = TokenFor(sandbox, "v1-ddbmanagement");
    const std::string foreign = TokenFor(sandbox, "v1-auth");
    std::string tampered = good;
    tampered[good.find('.') + 5] ^= 1;
    EXPECT_EQ(Ask(sandbox, "/v1/ddb/datacenters", Bearer(good)).status, "200");
    const std::string refused =
        ErrorDocument("invalid_token", "A valid token for 'v1-ddbmanagement' is needed.");
    for (const std::string& token :
         {foreign, tampered, good.substr(0, good.size() - 4), good + "x", std::string("x.y.z")})
        ExpectAnswer(Ask(sandbox, "/v1/ddb/datacenters", Bearer(token)), "401", refused);
    ExpectAnswer(Ask(sandbox, "/v1/ddb/datacenters"), "401", refused);

    Sandbox other({"--datacenters-need-token"});
    EXPECT_EQ(Ask(other, "/v1/ddb/datacenters", Bearer(good)).status, "401");
    Sandbox shortLived({"--datacenters-need-token", "--token-seconds", "0"});
    EXPECT_EQ(Ask(shortLived, "/v1/ddb/datacenters", Bearer(TokenFor(shortLived, "v1-ddbmanagement"))).status,
              "401");
}

std::string ClientBody(const std::string& id) {
    return R"({"id":")" + id + R"(","clientSecretId":"s3cr3t","datacenterId":")" + Sandbox::DatacenterId +
           R"(","rolesPerService":{}})";
}

Answer EnrollClient(const Sandbox& sandbox, const std::string& token, const std::string& body,
                    const std::string& type = "application/json") {
    Words options = Bearer(token);
    options.insert(options.end(), {"-H", "Content-Type: " + type, "-d", body});
    return Ask(sandbox, "/v1/auth/locationawareclients", options);
}

TEST(SandboxTest, ClientIsEnrolledOnceWithABodyThatFits) {
    Sandbox sandbox;
    const std::string token = TokenFor(sandbox, "v1-auth");
    const std::string needed = ErrorDocument(
        "invalid_request", "id, clientSecretId, a known datacenterId and rolesPerService are needed.");

    EXPECT_EQ(EnrollClient(sandbox, TokenFor(sandbox, "v1-service"), ClientBody("c")).status, "401");
    EXPECT_EQ(EnrollClient(sandbox, token, ClientBody("c"), "text/plain").status, "415");
    ExpectAnswer(EnrollClient(sandbox, token, "{}"), "400", needed);
    ExpectAnswer(EnrollClient(sandbox, token, ClientBody("")), "400", needed);
    ExpectAnswer(EnrollClient(sandbox, token, "[]"), "400",
                 ErrorDocument("invalid_request", "The body must be a JSON object."));
    ExpectAnswer(EnrollClient(sandbox, token, ClientBody("c")), "201", R"({"id":"c"})");
    ExpectAnswer(EnrollClient(sandbox, token, ClientBody("c")), "409",
                 ErrorDocument("conflict", "There is a client of this id."));
}

TEST(SandboxTest, DeletedClientIsKnownNoMoreAndItsTokensStopWorking) {
    Sandbox sandbox({"--datacenters-need-token"});
    EnrollClient(sandbox, TokenFor(sandbox, "v1-auth"), ClientBody("c"));
    const Words asClient{"-u", "c:s3cr3t", "-d", TokenForm("v1-ddbmanagement")};
    const std::string body = Ask(sandbox, "/v1/auth/clients/servicetokens", asClient).body;
    const std::string token = body.substr(body.find("ey"), body.find("\",\"expires") - body.find("ey"));
    EXPECT_EQ(Ask(sandbox, "/v1/ddb/datacenters", Bearer(token)).status, "200");

    Words deletion = Bearer(TokenFor(sandbox, "v1-auth"));
    deletion.insert(deletion.end(), {"-X", "DELETE"});
    EXPECT_EQ(Ask(sandbox, "/v1/auth/clients/c", deletion).status, "204");

    EXPECT_EQ(Ask(sandbox, "/v1/auth/clients/c", deletion).status, "404");
    EXPECT_EQ(Ask(sandbox, "/v1/ddb/datacenters", Bearer(token)).status, "401");
    EXPECT_EQ(Ask(sandbox, "/v1/auth/clients/servicetokens", asClient).status, "401");
}

TEST(SandboxTest, StateOutlivesTheProcessAndIsSharedByTwo) {
    auto state = std::make_shared<TemporaryDirectory>();
    std::string token;
    std::string fingerprint;
    {
        Sandbox first({"--datacenters-need-token"}, state);
        fingerprint = first.Fingerprint();
        EnrollClient(first, TokenFor(first, "v1-auth"), ClientBody("c"));
        token = TokenFor(first, "v1-ddbmanagement");
        EXPECT_EQ(first.Stop().exitCode, 0);
    }
    Sandbox again({"--datacenters-need-token"}, state);
    Sandbox beside({"--datacenters-need-token", "--plain-http"}, state);
    for (const Sandbox* sandbox : {&again, &beside}) {
        EXPECT_EQ(sandbox->Fingerprint(), fingerprint);
        EXPECT_EQ(Ask(*sandbox, "/v1/ddb/datacenters", Bearer(token)).status, "200");
        EXPECT_EQ(EnrollClient(*sandbox, TokenFor(*sandbox, "v1-auth"), ClientBody("c")).status, "409");
    }
    // The service that stopped is not listed any more.
    const std::string found = Ask(again, "/services/services/nonsecure/name/ssds").body;
    EXPECT_NE(found.find(again.Url()), std::string::npos) << found;
    EXPECT_NE(found.find(beside.Url()), std::string::npos) << found;
    std::size_t services = 0;
    for (std::size_t at = 0; (at = found.find("\"endpointUrl\"", at)) != std::string::npos; ++at)
        ++services;
    EXPECT_EQ(services, 2u) << found;
}

TEST(SandboxTest, InstancesOfOtherDatacentersAreRemote) {
    auto state = std::make_shared<TemporaryDirectory>();
    const Words datacenters{"--datacenter", "e=East", "--datacenter", "w=West"};
    Sandbox east(datacenters, state);
    Words western = datacenters;
    western.insert(western.end(), {"--own-datacenter", "w"});
    Sandbox west(western, state);
    for (const std::string own : {"e", "w"}) {
        const std::string found =
            Ask(east, "/services/services/nonsecure/name/aa", {"-H", "Datacenter-Id: " + own}).body;
        const std::size_t remote = found.find("\"remote\":");
        EXPECT_EQ(found.find(east.Url()) < remote, own == "e") << found;
        EXPECT_EQ(found.find(west.Url()) < remote, own == "w") << found;
    }
}

TEST(SandboxTest, LogHasOneLineARequestAndNoSecret) {
    Sandbox sandbox({"--password", "pa55word", "--install-token", "install-t0ken"});
    AskForToken(sandbox, TokenForm("v1-auth"), {"-u", "admin:pa55word"});
    const std::string wrong = "/v1/ddb/datacenters?token=query-t0ken";
    Ask(sandbox, wrong, Bearer("install-t0ken"));
    const std::string body = AskForToken(sandbox, TokenForm("v1-auth"), {"-u", "admin:pa55word"}).body;

    const std::string log = sandbox.Stop().error;

    EXPECT_EQ(sandbox.Requests(),
              "POST /securityframeworkservice/v1/auth/users/servicetokens 200\n"
              "GET /securityframeworkservice/v1/ddb/datacenters 200\n"
              "POST /securityframeworkservice/v1/auth/users/servicetokens 200\n");
    for (const char* secret : {"pa55word", "t0ken", "YWRtaW46", "ey"})
        EXPECT_EQ(log.find(secret), std::string::npos) << log;
}

TEST(SandboxTest, LineOfARequestIsWrittenBeforeItsAnswer) {
    for (int round = 0; round < 5; ++round) {
        Sandbox sandbox;
        EXPECT_EQ(Ask(sandbox, "/v1/ddb/datacenters").status, "200");
        sandbox.Process().Signal(SIGKILL);
        EXPECT_TRUE(sandbox.Process().Wait().error.ends_with(
            " GET /securityframeworkservice/v1/ddb/datacenters 200\n"));
    }
}

TEST(SandboxTest, StateIsPrivateAndHoldsNoSecretInPlainText) {
    Sandbox sandbox;
    EnrollClient(sandbox, TokenFor(sandbox, "v1-auth"), ClientBody("c"));
    for (const auto& [path, content] : TreeOf(sandbox.State()->Path())) {
        EXPECT_TRUE(content.starts_with("600 ")) << path;
        EXPECT_EQ(content.find("s3cr3t"), std::string::npos) << path;
    }
}

TEST(SandboxTest, MissingStateFolderIsMadeForItsOwnerAlone) {
    const TemporaryDirectory folder;
    Sandbox sandbox({"--state", folder / "a/b"});
    Tree tree = TreeOf(folder.Path());
    EXPECT_EQ(tree["a"], "700/");
    EXPECT_EQ(tree["a/b"], "700/");
    EXPECT_TRUE(tree["a/b/identity.pem"].starts_with("600 "));
    EXPECT_TRUE(tree["a/b/state.sqlite"].starts_with("600 "));
}

TEST(SandboxTest, StateThatCannotBeUsedIsNamed) {
    const TemporaryDirectory folder;
    const auto start = [&](const std::string& state) {
        const ProcessOutcome outcome = RunProcess({OMBRY_SANDBOX_SERVICE, "--state", state});
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(outcome.out, "");
        return outcome.error;
    };
    const std::string file = folder.Write("file", "");
    EXPECT_EQ(start(file), "ombry-sandbox: Cannot make the folder '" + file + "'.\n");
    folder.Write("key/identity.pem", "no key");
    EXPECT_EQ(start(folder / "key"),
              "ombry-sandbox: '" + folder / "key/identity.pem" + "' holds no key and certificate.\n");
    folder.Write("data/state.sqlite", std::string(4096, 'x'));
    EXPECT_EQ(start(folder / "data"),
              "ombry-sandbox: Cannot open '" + folder / "data/state.sqlite" + "': file is not a database\n");
}

TEST(SandboxTest, FailureAtTheStopIsNamed) {
    Sandbox sandbox;
    for (const char* file : {"state.sqlite", "state.sqlite-wal", "state.sqlite-shm"})
        sandbox.State()->Write(file, std::string(40000, 'x'));
    sandbox.Process().Signal(SIGTERM);
    const ProcessOutcome& outcome = sandbox.Process().Wait();
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_TRUE(outcome.error.starts_with("ombry-sandbox: Database: ")) << outcome.error;
}

TEST(SandboxTest, StopsOnEitherSignal) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Sandbox sandbox({"--fault", "/v1/ddb:1:silence"});
        ChildProcess waiting({"curl", "-sk", sandbox.Url() + "/v1/ddb/datacenters"});  // does not keep it
        sandbox.Process().Signal(signal);
        EXPECT_EQ(sandbox.Process().Wait().exitCode, 0);
        EXPECT_NE(waiting.Wait().exitCode, 0);
    }
}

TEST(SandboxTest, StopsAsSoonAsItIsReady) {
    for (int round = 0; round < 5; ++round)
        EXPECT_EQ(Sandbox().Stop().exitCode, 0);
}

TEST(SandboxTest, FaultsCountDownInTheirOrder) {
    Sandbox sandbox({"--fault", "/v1/ddb:2:status=503", "--fault", "/v1/ddb/datacenters:1:status=418"});
    const auto ask = [&] { return Ask(sandbox, "/v1/ddb/datacenters").status; };
    EXPECT_EQ(ask(), "503");
    EXPECT_EQ(AskForToken(sandbox, TokenForm("v1-auth")).status, "200");
    EXPECT_EQ(ask(), "503");
    EXPECT_EQ(ask(), "418");
    EXPECT_EQ(ask(), "200");
}

TEST(SandboxTest, FaultOfARequestWithABodyLeavesItsConnectionInOrder) {
    Sandbox sandbox({"--fault", "/v1/auth:1:status=503"});
    const std::string url = sandbox.Url() + TokenPath;
    const ProcessOutcome both =
        RunProcess({"curl", "-sk", "-u", "admin:secret", "-d", TokenForm("v1-auth"), "-o", "/dev/null", "-o",
                    "/dev/null", "-w", "%{http_code} %{num_connects}\n", url, url});
    EXPECT_EQ(both.out, "503 1\n200 0\n");
}

TEST(SandboxTest, FaultsAreAddedWhileItRuns) {
    Sandbox sandbox;
    const auto add = [&](const std::string& fault, const std::string& who = "admin:secret") {
        return Ask(sandbox, "/sandbox/faults", {"-u", who, "-d", fault});
    };
    const auto ask = [&] { return Ask(sandbox, "/v1/ddb/datacenters"); };
    EXPECT_EQ(add("/v1/ddb:1:reset", "admin:wrong").status, "401");
    ExpectAnswer(add("x"), "400", ErrorDocument("invalid_request", "A fault is PATH:COUNT:KIND, not 'x'"));
    EXPECT_EQ(ask().status, "200");

    EXPECT_EQ(add("/v1/ddb:1:status=429").status, "204");
    ExpectAnswer(ask(), "429", ErrorDocument("server_error", "A fault that was asked for."));
    EXPECT_EQ(add("/v1/ddb:1:reset").status, "204");
    EXPECT_EQ(ask().status, "000");
    EXPECT_EQ(add("/v1/ddb:1:cut").status, "204");
    ExpectAnswer(ask(), "200", "[");
    EXPECT_EQ(add("/v1/ddb:1:delay=1").status, "204");
    EXPECT_EQ(ask().status, "200");
}

}  // namespace
}  // namespace Ombry::Tests
