// The page at the root of the address: who gets it, what it says of itself, what it is told and what it may
// switch.

#include "tests/Sandbox/ServiceFixture.h"

#include <gmock/gmock.h>
#include <openssl/sha.h>

namespace Ombry::Tests::SandboxService {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string Switch = "/page/faults";
const std::string StatusOn = R"({"fault":"status=503","on":true,"path":"/v1/ddb","count":2})";

class SandboxPageTest : public SandboxServiceTest {
protected:
    void Start(const Words& words = {}) {
        SandboxServiceTest::Start(words);
        askedBasePath = "";
    }
    std::string Own() const { return "http://127.0.0.1:" + std::to_string(port); }

    static httplib::Headers With(httplib::Headers headers, const httplib::Headers& more) {
        headers.insert(more.begin(), more.end());
        return headers;
    }
    static httplib::Headers Admin() { return Basic("admin:secret"); }

    /// A page that is open: the answer to its request for events, read as far as a text.
    class OpenPage {
    public:
        explicit OpenPage(SandboxPageTest& test) : peer(test.Connect()) {
            peer.Send("GET /page/events HTTP/1.1\r\nHost: " + test.Own().substr(7) +
                      "\r\nAuthorization: Basic " + Base64Of("admin:secret") +
                      "\r\nAccept-Encoding: gzip\r\n\r\n");
        }
        /// Whether this comes, now or later; a request is noted behind its answer. The rest of the event is
        /// read as well.
        bool Hears(const std::string& text) {
            bool found = false;
            for (std::string byte;
                 !(found = heard.find(text) != std::string::npos) || !heard.ends_with("\n");) {
                if ((byte = peer.Receive(1)).empty()) break;
                heard += byte;
            }
            return found;
        }
        /// All that came so far.
        std::string heard;

    private:
        LoopbackPeer peer;
    };
};

TEST_F(SandboxPageTest, NothingOfItIsGivenWithoutTheUsersNameAndPassword) {
    Start();
    const std::vector<Question> all = {
        {.path = "/"},
        {.path = "/page/events"},
        {.method = "POST", .path = Switch, .body = StatusOn, .type = JsonType}};
    const std::vector<httplib::Headers> wrong = {{},
                                                 Basic("admin:wrong"),
                                                 Basic("other:secret"),
                                                 Basic("admin:"),
                                                 Basic("admin"),
                                                 Basic("admin:secret2"),
                                                 Bearer(TokenIn(Ask({.method = "POST",
                                                                     .path = "/b" + UserTokens,
                                                                     .headers = Admin(),
                                                                     .body = FormOf("v1-auth"),
                                                                     .type = FormType})))};
    for (Question question : all) {
        for (const httplib::Headers& headers : wrong) {
            question.headers = headers;
            const Answer answer = Ask(question);
            EXPECT_EQ(answer.status, 401) << question.path;
            EXPECT_EQ(answer.Header("WWW-Authenticate"), R"(Basic realm="Ombry sandbox", charset="UTF-8")");
            EXPECT_THAT(answer.body, Not(HasSubstr("html")));
        }
    }
    EXPECT_EQ(Get("/", Admin()).status, 200);
    EXPECT_EQ(Get("/b" + Datacenters).status, 200);  // no fault was switched on
}

TEST_F(SandboxPageTest, PolicyAllowsItsOwnTextsAndNothingElse) {
    Start();
    const Answer answer = Get("/", Admin());
    EXPECT_EQ(answer.Header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(answer.Header("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(answer.Header("Referrer-Policy"), "no-referrer");
    EXPECT_EQ(answer.Header("Cache-Control"), "no-store");
    EXPECT_EQ(answer.Header("Cross-Origin-Opener-Policy"), "same-origin");
    EXPECT_EQ(answer.Header("Cross-Origin-Resource-Policy"), "same-origin");
    const auto hashOf = [&](const std::string& element) {
        const std::size_t begin = answer.body.find("<" + element + ">") + element.size() + 2;
        const std::size_t end = answer.body.find("</" + element + ">");
        EXPECT_LT(begin, end) << element;
        EXPECT_EQ(answer.body.find("<" + element, begin), std::string::npos);
        unsigned char digest[SHA256_DIGEST_LENGTH];
        SHA256(reinterpret_cast<const unsigned char*>(answer.body.data()) + begin, end - begin, digest);
        return "'sha256-" + Base64Of(std::string(std::begin(digest), std::end(digest))) + "'";
    };
    EXPECT_EQ(answer.Header("Content-Security-Policy"),
              "default-src 'none'; script-src " + hashOf("script") + "; style-src " + hashOf("style") +
                  "; img-src data:; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                  "frame-ancestors 'none'; require-trusted-types-for 'script'; trusted-types 'none'");
    // No script in an attribute, nothing from elsewhere, and nothing that makes markup of a text.
    EXPECT_FALSE(std::regex_search(answer.body, std::regex(R"(<[^>]*\son[a-z]+=)")));
    EXPECT_FALSE(std::regex_search(answer.body, std::regex(R"((src|href)="(?!data:))")));
    EXPECT_FALSE(
        std::regex_search(answer.body, std::regex("innerHTML|outerHTML|insertAdjacentHTML|write\\(")));
}

TEST_F(SandboxPageTest, OtherOriginsMayNeitherSwitchNorListenNorCall) {
    Start();
    const std::vector<httplib::Headers> foreign = {
        {{"Origin", "https://evil.test"}},  {{"Origin", "null"}},
        {{"Origin", "http://127.0.0.1:1"}}, {{"Origin", "https" + Own().substr(4)}},
        {{"Origin", Own() + "0"}},          {{"Sec-Fetch-Site", "cross-site"}},
        {{"Sec-Fetch-Site", "same-site"}},  {{"Origin", Own()}, {"Sec-Fetch-Site", "cross-site"}},
    };
    const std::vector<Question> all = {
        {.method = "POST", .path = Switch, .body = StatusOn, .type = JsonType},
        {.path = "/page/events"},
        {.method = "POST", .path = "/b/sandbox/faults", .body = "/v1/ddb:1:status=503", .type = "text/plain"},
        {.method = "POST", .path = "/b" + UserTokens, .body = FormOf("v1-auth"), .type = FormType},
    };
    for (Question question : all) {
        for (const httplib::Headers& headers : foreign) {
            question.headers = With(Admin(), headers);
            ExpectAnswer(Ask(question), 403,
                         ErrorDocument("access_denied", "Pages of other origins have no access."));
            if (HasFailure()) return;  // events that are not refused have no end
        }
    }
    EXPECT_TRUE(Get("/b" + Datacenters).status == 200 && Get("/", Admin()).status == 200);
    // It can be linked to, and is not opened by what embeds or fetches.
    const auto open = [&](const std::string& mode) {
        return Get("/", With(Admin(), {{"Sec-Fetch-Site", "cross-site"}, {"Sec-Fetch-Mode", mode}})).status;
    };
    EXPECT_EQ(open("navigate"), 200);
    EXPECT_EQ(open("no-cors"), 403);
    EXPECT_EQ(open("cors"), 403);
    EXPECT_EQ(Get("/page/events", With(Admin(), {{"Connection", "close"},
                                                 {"Sec-Fetch-Site", "cross-site"},
                                                 {"Sec-Fetch-Mode", "navigate"}}))
                  .status,
              403);
}

TEST_F(SandboxPageTest, NoCallIsMadeForAPageOfAnotherOrigin) {
    Start();
    for (const httplib::Headers& foreign : {httplib::Headers{{"Origin", "https://evil.test"}},
                                            httplib::Headers{{"Sec-Fetch-Site", "same-site"}}}) {
        for (auto& [question, status] : EveryCall()) {
            question.path.insert(0, "/b");
            question.headers = foreign;
            EXPECT_EQ(Ask(question).status, 403) << question.method << " " << question.path;
        }
    }
}

TEST_F(SandboxPageTest, FormOfAnOlderBrowserIsNoSwitch) {
    Start();
    for (const std::string type :
         {"text/plain", "application/x-www-form-urlencoded", "multipart/form-data; boundary=x", ""})
        EXPECT_EQ(Post(Switch, Admin(), StatusOn, type).status, type.starts_with("m") ? 400 : 415) << type;
    EXPECT_EQ(Get("/b" + Datacenters).status, 200);
    // What asks beforehand whether it may send something else is told nothing.
    EXPECT_EQ(Ask({.method = "OPTIONS", .path = Switch, .headers = {{"Origin", "https://evil.test"}}})
                  .Header("Access-Control-Allow-Origin"),
              "none");
}

TEST_F(SandboxPageTest, NameThatIsNotItsOwnLeadsToNothing) {
    Start({"--page-host", "Rehearsal.test"});
    const std::string at = ":" + std::to_string(port);
    const auto ask = [&](const std::string& host) {
        const std::string line = host == "none" ? "" : "Host: " + host + "\r\n";
        return Raw("GET / HTTP/1.1\r\n" + line + "Connection: close\r\nAuthorization: Basic " +
                   Base64Of("admin:secret") + "\r\n\r\n")
            .substr(9, 3);
    };
    for (const std::string& host : Words{"127.0.0.1" + at, "127.0.0.1", "192.0.2.1" + at, "localhost" + at,
                                         "LOCALHOST", "[::1]" + at, "[::1]", "rehearsal.test" + at})
        EXPECT_EQ(ask(host), "200") << host;
    for (const std::string& host : Words{"evil.test" + at, "127.0.0.1.evil.test" + at, "localhost.evil.test",
                                         "1.2.3", "[evil.test]", "", "none"})
        EXPECT_EQ(ask(host), "421") << host;
    // A name that was made to lead here is its own origin, which does not help it.
    EXPECT_EQ(
        Post(Switch,
             With(Admin(),
                  {{"Host", "evil.test"}, {"Origin", "http://evil.test"}, {"Sec-Fetch-Site", "same-origin"}}),
             StatusOn)
            .status,
        421);
    EXPECT_EQ(Get("/page/events", With(Admin(), {{"Host", "evil.test"}})).status, 421);
    EXPECT_EQ(Get("/b" + Datacenters).status, 200);
}

TEST_F(SandboxPageTest, NameThatIsNotItsOwnPutsNoFaultIn) {
    Start({"--page-host", "rehearsal.test"});
    const auto put = [&](const std::string& host) {
        return Post("/b/sandbox/faults", With(Admin(), {{"Host", host}}), "/v1/ddb:1:status=503",
                    "text/plain")
            .status;
    };
    EXPECT_EQ(put("evil.test"), 421);
    EXPECT_EQ(Get("/b" + Datacenters).status, 200);
    EXPECT_EQ(put("rehearsal.test:1"), 204);
    EXPECT_EQ(Get("/b" + Datacenters).status, 503);
}

TEST_F(SandboxPageTest, SwitchPutsAFaultInAndTakesItOut) {
    Start();
    const httplib::Headers own = With(Admin(), {{"Origin", Own()}, {"Sec-Fetch-Site", "same-origin"}});
    ExpectAnswer(Post(Switch, own, StatusOn), 200, R"([{"path":"/v1/ddb","count":2,"fault":"status=503"}])");
    EXPECT_EQ(Get("/b" + Datacenters).status, 503);
    ExpectAnswer(
        Post(Switch, own, R"({"fault":"delay=5","on":true})"), 200,
        R"([{"path":"/v1/ddb","count":1,"fault":"status=503"},{"path":"","count":1,"fault":"delay=5"}])");
    ExpectAnswer(Post(Switch, own, R"({"fault":"status","on":false})"), 200,
                 R"([{"path":"","count":1,"fault":"delay=5"}])");
    ExpectAnswer(Post(Switch, own, R"({"fault":"delay","on":false})"), 200, "[]");
    EXPECT_EQ(Get("/b" + Datacenters).status, 200);
}

TEST_F(SandboxPageTest, BadSwitchIsNamed) {
    Start();
    const std::string shape = "A switch is a fault, and whether it is on.";
    const std::string unknown =
        "' is no fault; known are status=CODE, delay=MILLISECONDS, reset, cut and silence";
    const std::vector<std::pair<std::string, std::string>> bad = {
        {"{}", shape},
        {R"({"fault":"reset"})", shape},
        {R"({"fault":"reset","on":1})", shape},
        {R"({"fault":1,"on":true})", shape},
        {R"({"fault":"reset","on":true,"count":"1"})", shape},
        {R"({"fault":"reset","on":true,"count":1.5})", shape},
        {R"({"fault":"reset","on":true,"path":1})", shape},
        {R"({"fault":"reset","on":true,"count":0})", "'0' is no number from 1 to 1000000"},
        {R"({"fault":"status=99","on":true})", "'99' is no number from 200 to 599"},
        {R"({"fault":"nosuch","on":true})", "'nosuch" + unknown},
        {R"({"fault":"status=503","on":false})", "'status=503" + unknown},
        {R"({"on":false})", "'" + unknown},
    };
    for (const auto& [body, text] : bad)
        ExpectAnswer(Post(Switch, Admin(), body), 400, ErrorDocument("invalid_request", text));
    EXPECT_EQ(Post(Switch, Admin(), "[]").status, 400);
}

TEST_F(SandboxPageTest, OpenPageIsToldEverythingAndThenWhatComes) {
    Start();
    askedBasePath = "/b";
    Enroll("c");
    askedBasePath = "";
    OpenPage open(*this);
    EXPECT_TRUE(open.Hears(
        R"("method":"POST","path":"/v1/auth/locationawareclients","status":201,"milliseconds":0.0,"fault":"")"));
    EXPECT_TRUE(open.Hears("event: overview\ndata: {"));
    EXPECT_THAT(open.heard, HasSubstr("Content-Type: text/event-stream\r\n"));
    EXPECT_THAT(open.heard, Not(HasSubstr("Content-Encoding")));
    EXPECT_THAT(
        open.heard,
        HasSubstr(R"({"id":"d","name":"Here","instances":[{"url":")" + Own() +
                  R"(/b","silentSeconds":0,"isThis":true}]},{"id":"e","name":"There","instances":[]})"));
    EXPECT_THAT(
        open.heard,
        HasSubstr(
            R"("clientCount":1,"clients":[{"id":"c","description":"","datacenter":"d","services":0}])"));
    EXPECT_THAT(open.heard, HasSubstr(R"("tokens":[{"below":60,"users":1,"clients":0},)"));
    EXPECT_THAT(open.heard, Not(HasSubstr("s3cr3t")));
    Get("/b" + Datacenters);
    EXPECT_TRUE(open.Hears(R"("path":"/v1/ddb/datacenters","status":200)"));
    Get("/", Admin());  // what the page asks itself is not told
    Get("/page/nosuch", Admin());
    Get("/b/nosuch");
    EXPECT_TRUE(open.Hears(R"("path":"/nosuch","status":404)"));
    EXPECT_THAT(open.heard, Not(HasSubstr(R"("path":"/","status":200)")));
    EXPECT_THAT(open.heard, Not(HasSubstr(R"("path":"/page)")));
}

TEST_F(SandboxPageTest, OpenPageHearsSomethingEvenIfNothingHappens) {
    Start();
    OpenPage open(*this);
    EXPECT_TRUE(open.Hears("event: overview\n"));
    open.heard.clear();
    for (int tick = 0; tick < 6; ++tick) {
        AwaitWaits(std::chrono::milliseconds(500), static_cast<std::size_t>(tick) + 1);
        clock.Advance(std::chrono::milliseconds(500));
    }
    EXPECT_TRUE(open.Hears("event: overview\n"));
}

TEST_F(SandboxPageTest, RequestIsToldWithItsFaultAndHowLongItTook) {
    Start({"--fault", "/v1/ddb:1:delay=1500", "--fault", "/v1/ddb:1:status=503"});
    auto late = std::async(std::launch::async, [&] { return Get("/b" + Datacenters).status; });
    AwaitWaits(std::chrono::milliseconds(1500), 1);
    clock.Advance(std::chrono::milliseconds(1500));
    EXPECT_EQ(late.get(), 200);
    EXPECT_EQ(Get("/b" + Datacenters).status, 503);
    OpenPage open(*this);
    EXPECT_TRUE(open.Hears(R"("status":200,"milliseconds":1500.0,"fault":"delay=1500")"));
    EXPECT_TRUE(open.Hears(R"("status":503,"milliseconds":0.0,"fault":"status=503")"));
}

TEST_F(SandboxPageTest, PagesHaveThreadsOfTheirOwnAndNoMoreThanFourAreOpen) {
    Start({"--threads", "1"});
    std::vector<OpenPage> open;
    for (int i = 0; i < Sandbox::Service::MostStreams; ++i) {
        open.emplace_back(*this);
        EXPECT_TRUE(open.back().Hears("HTTP/1.1 200 OK"));
    }
    EXPECT_EQ(Get("/b" + Datacenters).status, 200);
    const Answer more = Get("/page/events", Admin());
    ExpectAnswer(more, 503, ErrorDocument("temporarily_unavailable", "Too many pages are open."));
    EXPECT_EQ(more.Header("Retry-After"), "5");
    // One that is closed makes room at its next tick.
    open.pop_back();
    std::string status;
    while (status != "HTTP/1.1 200") {
        clock.Advance(std::chrono::milliseconds(500));
        OpenPage another(*this);
        EXPECT_TRUE(another.Hears("HTTP/1.1 "));
        status = another.heard.substr(0, 12);
    }
}

TEST_F(SandboxPageTest, RequestsFromOnePortOfTwoMachinesAreToldApart) {
    Start({"--fault", "/v1/ddb:1:delay=30000"});
    LoopbackPeer one = Connect();
    const int from = lastFrom;
    one.Send(RequestFor(Datacenters));
    AwaitWaits(std::chrono::seconds(30), 1);
    OpenPage page(*this);  // no fault waits any more
    LoopbackPeer other = Connect(2, from);
    other.Send(RequestFor("/services/services/nonsecure/name/ssds"));
    EXPECT_THAT(other.Receive(1 << 20), HasSubstr("HTTP/1.1 200 "));
    clock.Advance(std::chrono::seconds(30));
    EXPECT_THAT(one.Receive(1 << 20), HasSubstr("HTTP/1.1 200 "));
    EXPECT_TRUE(page.Hears(Datacenters));
    EXPECT_THAT(page.heard, HasSubstr(R"("fault":"delay=30000")"));
}

TEST_F(SandboxPageTest, OpenPagesDoNotHoldTheStopUp) {
    Start();
    std::vector<OpenPage> open;
    for (int i = 0; i < 3; ++i) {
        open.emplace_back(*this);
        EXPECT_TRUE(open.back().Hears("event: overview\n"));
    }
    AwaitWaits(std::chrono::milliseconds(500), open.size());  // a stop between two pieces just breaks off
    Stop();
    for (OpenPage& page : open) {
        EXPECT_FALSE(page.Hears("nothing more"));
        EXPECT_TRUE(page.heard.ends_with("\r\n0\r\n\r\n"));
    }
}

}  // namespace
}  // namespace Ombry::Tests::SandboxService
