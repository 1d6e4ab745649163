// `get-datacenters` against the sandbox service, and byte for byte against a server with a script.

#include "tests/EndToEnd/Sandbox.h"
#include "tests/Fakes/Linux/TlsStream.h"

namespace Ombry::Tests {
namespace {

const std::string SandboxList = Sandbox::DatacenterId + "\tSandbox\n";
const std::string WrongCredentials =
    "OAuth2 request failed with response code 401 and response body "
    R"({"error":"invalid_client","error_description":"Name or secret is wrong."})";
const std::string Refused = "GET /v1/ddb/datacenters failed with http status 401.";

/// TLS and plain HTTP.
class GetDatacentersTest : public testing::TestWithParam<bool> {
protected:
    Words With(Words options) const {
        if (GetParam()) options.push_back("--plain-http");
        return options;
    }
};

INSTANTIATE_TEST_SUITE_P(TlsAndPlain, GetDatacentersTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "PlainHttp" : "Tls"; });

TEST_P(GetDatacentersTest, UserGetsTheListWithATokenAndLeavesNoFile) {
    Sandbox sandbox(
        With({"--datacenters-need-token", "--datacenter", "1-a=East", "--datacenter", "2-b=West"}));
    const Machine machine{};

    ExpectSuccess(machine.Run({"get-datacenters", "-u", "admin", "-p", "secret", "-r", sandbox.Url()}),
                  "1-a\tEast\n2-b\tWest\n");

    EXPECT_EQ(machine.Files(), Tree());
    EXPECT_EQ(sandbox.Requests(),
              "POST /securityframeworkservice/v1/auth/users/servicetokens 200\n"
              "GET /securityframeworkservice/v1/ddb/datacenters 200\n");
}

TEST_P(GetDatacentersTest, WrongPasswordEndsWithTheAnswerOfTheTokenCall) {
    Sandbox sandbox(With({}));

    ExpectException(Machine().Run({"get-datacenters", "-u", "admin", "-p", "Secret", "-r", sandbox.Url()}),
                    WrongCredentials);
    ExpectException(Machine().Run({"get-datacenters", "-u", "Admin", "-p", "secret", "-r", sandbox.Url()}),
                    WrongCredentials);

    EXPECT_EQ(sandbox.Requests(),
              "POST /securityframeworkservice/v1/auth/users/servicetokens 401\n"
              "POST /securityframeworkservice/v1/auth/users/servicetokens 401\n");
}

TEST_P(GetDatacentersTest, FixedTokenGoesOutAsItIs) {
    Sandbox sandbox(With({"--datacenters-need-token", "--install-token", "let-me-in"}));

    ExpectSuccess(Machine().Run({"get-datacenters", "-t", "let-me-in", "-r", sandbox.Url()}), SandboxList);
    ExpectException(Machine().Run({"get-datacenters", "-t", "let-me-out", "-r", sandbox.Url()}), Refused);

    EXPECT_EQ(sandbox.Requests(),
              "GET /securityframeworkservice/v1/ddb/datacenters 200\n"
              "GET /securityframeworkservice/v1/ddb/datacenters 401\n");
}

TEST_P(GetDatacentersTest, ClientNameAloneGoesOutAsNobody) {
    Sandbox open(With({}));
    ExpectSuccess(Machine().Run({"get-datacenters", "-n", "client", "-r", open.Url()}), SandboxList);

    Sandbox closed(With({"--datacenters-need-token"}));
    ExpectException(Machine().Run({"get-datacenters", "-n", "client", "-r", closed.Url()}), Refused);
}

TEST_P(GetDatacentersTest, TokenThatIsExpiredWhenItArrivesIsRefused) {
    Sandbox sandbox(With({"--datacenters-need-token", "--token-seconds", "0"}));

    ExpectException(Machine().Run({"get-datacenters", "-u", "admin", "-p", "secret", "-r", sandbox.Url()}),
                    Refused);
}

TEST(GetDatacentersWireTest, UserMakesTwoRequestsOnOneConnection) {
    for (const bool tls : {false, true}) {
        const auto answer = [](const std::string& request) {
            return LoopbackServer::Response(request.starts_with("POST") ? R"({"access_token":"a.b-c"})"
                                                                        : R"([{"id":"i","name":"n"}])");
        };
        std::optional<TlsServerRecipe> recipe;
        if (tls) recipe = TlsServerRecipe{.certificate = MakeCertificate({})};
        LoopbackServer server(LoopbackServer::AnsweringWith(answer), recipe);

        ExpectSuccess(
            Machine().Run({"get-datacenters", "-u", "Ann", "-p", "p:w", "-r", server.Url() + "/Base"}),
            "i\tn\n");

        const std::string host = "127.0.0.1:" + std::to_string(server.Port());
        EXPECT_EQ(server.Requests(), (Words{"POST /Base/v1/auth/users/servicetokens HTTP/1.1\r\n"
                                            "Host: " +
                                                host +
                                                "\r\n"
                                                "Content-Length: 58\r\n"
                                                "Authorization: Basic QW5uOnA6dw==\r\n"
                                                "Content-Type: application/x-www-form-urlencoded\r\n"
                                                "Contract-Version: 1\r\n"
                                                "\r\n"
                                                "grant_type=client_credentials&servicename=v1-ddbmanagement",
                                            "GET /Base/v1/ddb/datacenters HTTP/1.1\r\n"
                                            "Host: " +
                                                host +
                                                "\r\n"
                                                "Content-Length: 0\r\n"
                                                "Authorization: Bearer a.b-c\r\n"
                                                "Contract-Version: 1\r\n"
                                                "\r\n"}));
        EXPECT_EQ(server.Connections(), 1u);
    }
}

TEST(GetDatacentersWireTest, FixedTokenAndNobodyMakeOneRequestEach) {
    LoopbackServer server(LoopbackServer::Answering(LoopbackServer::Response("[]")));
    const std::string head =
        "GET /v1/ddb/datacenters HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) +
        "\r\nContent-Length: 0\r\n";

    ExpectSuccess(Machine().Run({"get-datacenters", "-t", "tok", "-r", server.Url()}));
    ExpectSuccess(Machine().Run({"get-datacenters", "-n", "client", "-r", server.Url()}));

    EXPECT_EQ(server.Requests(), (Words{head + "Authorization: Bearer tok\r\nContract-Version: 1\r\n\r\n",
                                        head + "Contract-Version: 1\r\n\r\n"}));
}

TEST(GetDatacentersWireTest, NothingGoesOutAfterATokenCallThatFailed) {
    LoopbackServer server(LoopbackServer::Answering(LoopbackServer::Response("<html>", "403 Forbidden")));

    ExpectException(Machine().Run({"get-datacenters", "-u", "u", "-p", "p", "-r", server.Url()}),
                    "OAuth2 request failed with response code 403 and response body <html>");

    EXPECT_EQ(server.Requests().size(), 1u);
}

TEST(GetDatacentersWireTest, NamesArePrintedAsTheyCameAndMissingOnesAsEmpty) {
    LoopbackServer server(LoopbackServer::Answering(LoopbackServer::Response(
        R"([{"id":"1","name":"M\u00fcnchen"},{"name":"only\tname"},{"id":"3","name":null},{}])")));

    ExpectSuccess(Machine().Run({"get-datacenters", "-t", "t", "-r", server.Url()}),
                  "1\tM\xC3\xBCnchen\n\tonly\tname\n3\t\n\t\n");
}

TEST(GetDatacentersWireTest, OptionFaultsReachNoServer) {
    LoopbackServer server(LoopbackServer::Answering(LoopbackServer::Response("[]")));

    EXPECT_EQ(Machine().Run({"get-datacenters", "-u", "u", "-r", server.Url()}).exitCode, 255);
    EXPECT_EQ(Machine().Run({"get-datacenters", "-t", "t", "-n", "n", "-r", server.Url()}).exitCode, 255);
    EXPECT_EQ(Machine().Run({"get-datacenters", "-t", "t", "-r"}).exitCode, 255);

    EXPECT_EQ(server.Connections(), 0u);
}

}  // namespace
}  // namespace Ombry::Tests
