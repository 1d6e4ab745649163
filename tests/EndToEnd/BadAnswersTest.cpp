// Servers that answer badly, or not at all.

#include "tests/EndToEnd/Machine.h"
#include "tests/Fakes/HeldPort.h"
#include "tests/Fakes/Linux/TlsStream.h"

namespace Ombry::Tests {
namespace {

using Connection = LoopbackServer::Connection;

ProcessOutcome ListFrom(const std::string& url) {
    return Machine().Run({"get-datacenters", "-t", "t", "-r", url});
}

/// Lists from a server that answers every request with these bytes.
ProcessOutcome ListAnswered(const std::string& answer) {
    LoopbackServer server(LoopbackServer::Answering(answer));
    return ListFrom(server.Url());
}

ProcessOutcome ListOf(const std::string& body) {
    return ListAnswered(LoopbackServer::Response(body));
}

TEST(BadUrlTest, UrlIsJudgedByTheTextOfItsPort) {
    for (const std::string command : {"get-datacenters", "configure-bootstrap-url"}) {
        const Machine machine{};
        const auto run = [&](const std::string& url) {
            Words words{command, "-t", "t", "-r", url};
            if (command != "get-datacenters") words.insert(words.end(), {"-d", "i"});
            return machine.Run(words);
        };
        ExpectException(run("https://localhost:port/x"), "invalid stoul argument");
        ExpectException(run("https://localhost:4294967296/x"), "stoul argument out of range");
        ExpectException(run(NoHost + ":8181"), "Error 11.0");
        ExpectException(run("ftp://127.0.0.1:0/"), "Error 11.0");
        ExpectException(run("://"), "Error 11.0");
        ExpectException(run("/"), "Error 11.0");
        ExpectException(run("https://" + NoHost + "/x"), "Error 11.0");
        ExpectException(run("https://" + std::string(300, 'h') + "/"), "Error 11.0");
        ExpectException(run("https://\x01\xff\n/"), "Error 11.0");
        EXPECT_EQ(machine.Files(), Tree());
    }
}

TEST(BadUrlTest, PortOfTheUrlIsTakenInSixteenBits) {
    LoopbackServer server(LoopbackServer::Answering(LoopbackServer::Response("[]")));
    ExpectSuccess(ListFrom("http://127.0.0.1:" + std::to_string(65536 + server.Port())));
}

TEST(BadServerTest, ClosedPortIsAFailedConnection) {
    const HeldPort port;
    for (const std::string scheme : {"http", "https"})
        ExpectException(ListFrom(scheme + "://127.0.0.1:" + port.Text()), "Error 11.0");
}

TEST(BadServerTest, ConnectionThatBreaksIsTriedOnceMore) {
    const std::vector<std::pair<const char*, LoopbackServer::Script>> breaks = {
        {"reset", [](Connection& c) { c.ReadRequest(), c.Reset(); }},
        {"closed", [](Connection& c) { c.ReadRequest(); }},
        {"cut in the head", [](Connection& c) { c.ReadRequest(), c.Send("HTTP/1.1 200 OK\r\nContent-Le"); }},
        {"cut in the body",
         [](Connection& c) { c.ReadRequest(), c.Send("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n[]"); }},
        {"cut in a chunk",
         [](Connection& c) {
             c.ReadRequest();
             c.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n[]");
         }},
    };
    for (const auto& [name, script] : breaks) {
        for (const bool tls : {false, true}) {
            SCOPED_TRACE(name);
            std::optional<TlsServerRecipe> recipe;
            if (tls) recipe = TlsServerRecipe{.certificate = MakeCertificate({})};
            LoopbackServer never(script, recipe);
            const ProcessOutcome failed = ListFrom(never.Url());
            EXPECT_EQ(failed.exitCode, 255);
            EXPECT_EQ(failed.error, "Caught exception: Error 11.0\n");
            EXPECT_EQ(never.Connections(), 2u);

            LoopbackServer once({script, LoopbackServer::Answering(LoopbackServer::Response("[]"))}, recipe);
            ExpectSuccess(ListFrom(once.Url()));
            EXPECT_EQ(once.Connections(), 2u);
        }
    }
}

TEST(BadServerTest, IdleConnectionThatTheServerClosedIsReplaced) {
    for (const bool tls : {false, true}) {
        std::optional<TlsServerRecipe> recipe;
        if (tls) recipe = TlsServerRecipe{.certificate = MakeCertificate({})};
        const auto token = LoopbackServer::Response(R"({"access_token":"x"})");
        LoopbackServer server({[&](Connection& c) { c.ReadRequest(), c.Send(token); },
                               LoopbackServer::Answering(LoopbackServer::Response("[]"))},
                              recipe);

        ExpectSuccess(Machine().Run({"get-datacenters", "-u", "u", "-p", "p", "-r", server.Url()}));

        EXPECT_EQ(server.Connections(), 2u);
        EXPECT_EQ(server.Requests().size(), 2u);
    }
}

TEST(OddAnswerTest, EveryFormOfHttpThatAServerMayChooseIsRead) {
    const std::string body = R"([{"id":"i","name":"n"}])";
    const std::string chunked =
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
        "1;extension=\"x\"\r\n[\r\n016\r\n" +
        body.substr(1) + "\r\n0\r\nTrailer: value\r\n\r\n";
    const std::string continued =
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early\r\nLink: x\r\n\r\n" + LoopbackServer::Response(body);
    for (const std::string& answer :
         {LoopbackServer::Response(body), chunked, continued,
          "HTTP/1.1 200 \r\ncontent-length : 23\r\nContent-Length: 23\r\n\r\n" + body,
          LoopbackServer::Response(body, "200 OK", "X: " + std::string(1 << 20, 'x') + "\r\n")}) {
        ExpectSuccess(ListAnswered(answer), "i\tn\n");
    }
    for (const std::string& answer : {chunked, continued}) {
        LoopbackServer bytewise(LoopbackServer::Answering(answer, 1));
        ExpectSuccess(ListFrom(bytewise.Url()), "i\tn\n");
    }
    LoopbackServer untilClose([&](Connection& c) {
        c.ReadRequest();
        c.Send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body);
    });
    ExpectSuccess(ListFrom(untilClose.Url()), "i\tn\n");
}

TEST(OddAnswerTest, EmptyListPrintsNothingAndNamesNoDatacenter) {
    ExpectSuccess(ListOf("[]"));

    LoopbackServer server(LoopbackServer::Answering(LoopbackServer::Response("[]")));
    const Machine machine{};
    ExpectException(
        machine.Run({"configure-bootstrap-url", "-t", "t", "-d", "i", "-dn", "n", "-r", server.Url()}),
        "Unknown datacenter id 'i' or name 'n'");
    EXPECT_EQ(machine.Files(), Tree());
}

TEST(BadAnswerTest, StatusOtherThanOkIsTheTextOfTheFailure) {
    for (const std::string status : {"201", "204", "299", "300", "302", "401", "404", "500", "599"}) {
        ExpectException(ListAnswered(LoopbackServer::Response("[]", status + " Any")),
                        "GET /v1/ddb/datacenters failed with http status " + status + ".");
    }
}

TEST(BadAnswerTest, HostileLengthsFailTheExchange) {
    for (const std::string head : {"Content-Length: 4294967296", "Content-Length: 99999999999999999999",
                                   "Transfer-Encoding: chunked\r\n\r\n100000000",
                                   "Transfer-Encoding: chunked\r\n\r\nffffffffffffffffff"}) {
        SCOPED_TRACE(head);
        const ProcessOutcome outcome = ListAnswered("HTTP/1.1 200 OK\r\n" + head + "\r\n\r\n[]");
        EXPECT_EQ(outcome.exitCode, 255);
        EXPECT_EQ(outcome.error.find("Caught exception: Error "), 0u) << outcome.error;
        EXPECT_EQ(outcome.out, "");
    }
}

TEST(BadAnswerTest, GarbageInPlaceOfAHeadFailsTheExchange) {
    for (const std::string& answer :
         {std::string("garbage\r\n\r\n"), std::string("\r\n\r\n\r\n"), std::string(4096, '\0') + "\r\n\r\n",
          std::string("HTTP/1.1 abc OK\r\n\r\n")}) {
        LoopbackServer server([&](Connection& c) { c.ReadRequest(), c.Send(answer); });
        const ProcessOutcome outcome = ListFrom(server.Url());
        EXPECT_EQ(outcome.exitCode, 255);
        EXPECT_EQ(outcome.error.find("Caught exception: "), 0u) << outcome.error;
        EXPECT_EQ(outcome.out, "");
    }
}

TEST(BadAnswerTest, BodyThatIsNoJsonIsShownWithThePlaceOfTheFault) {
    ExpectException(ListOf("<html>"),
                    "ERROR: Parse failed at offset 0 due to error 'Invalid value.' (near '<html>') "
                    "serialization_='<html>'");
    ExpectException(ListOf(""),
                    "ERROR: Parse failed at offset 0 due to error 'The document is empty.' (near '') "
                    "serialization_=''");
    ExpectException(ListOf("[] x"),
                    "ERROR: Parse failed at offset 3 due to error 'The document root must not be followed by "
                    "other values.' (near '[] x') serialization_='[] x'");
}

TEST(BadAnswerTest, BodyOfTheWrongShapeIsShownWithThePathOfTheFault) {
    ExpectException(ListOf("{}"), "ERROR: Expected type 'array' when processing '.' serialization_='{}'");
    ExpectException(ListOf("[1]"),
                    "ERROR: Expected type 'object' when processing '[0]' serialization_='[1]'");
    ExpectException(
        ListOf(R"([{"id":"a"},{"id":1}])"),
        R"(ERROR: Expected type 'string' when processing '[1].id' serialization_='[{"id":"a"},{"id":1}]')");
}

TEST(BadAnswerTest, NestingAHundredThousandDeepIsRefusedLikeAnyOtherShape) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    ExpectException(ListOf(deep),
                    "ERROR: Expected type 'object' when processing '[0]' serialization_='" + deep + "'");

    const std::string open(100000, '[');
    ExpectException(ListOf(open),
                    "ERROR: Parse failed at offset 100000 due to error 'Invalid value.' (near '" +
                        std::string(40, '[') + "') serialization_='" + open + "'");
}

TEST(BadAnswerTest, AnswerOfAHundredMegabytesIsReadWhole) {
    const std::string name(100 << 20, 'n');
    const ProcessOutcome outcome = ListOf(R"([{"id":"i","name":")" + name + R"("}])");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(outcome.out == "i\t" + name + "\n");  // too long to be shown
    EXPECT_EQ(outcome.error, "");
}

TEST(BadAnswerTest, TokenOfTheWrongShapeIsShown) {
    const auto asUser = [](const std::string& body, const std::string& status = "200 OK") {
        LoopbackServer server(LoopbackServer::Answering(LoopbackServer::Response(body, status)));
        return Machine().Run({"get-datacenters", "-u", "u", "-p", "p", "-r", server.Url()});
    };
    ExpectException(asUser("no"),
                    "ERROR: Parse failed at offset 1 due to error 'Invalid value.' (near 'no') "
                    "serialization_='no'");
    ExpectException(asUser(R"({"expires_in":"3600"})"),
                    "ERROR: Expected type 'unsigned long' when processing '.expires_in' "
                    R"(serialization_='{"expires_in":"3600"}')");
    ExpectException(asUser("", "300 Choose"),
                    "OAuth2 request failed with response code 300 and response body ");
    ExpectException(asUser(R"({"error":"e"})", "500 No"),
                    R"(OAuth2 request failed with response code 500 and response body {"error":"e"})");
}

}  // namespace
}  // namespace Ombry::Tests
