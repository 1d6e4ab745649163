// Requests of the worst kind, faults on demand, and how connections and the service end.

#include "tests/Sandbox/ServiceFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <latch>

namespace Ombry::Tests::SandboxService {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

TEST_F(SandboxServiceTest, WhatIsNoCallGetsTheErrorDocument) {
    Start();
    const std::string none = ErrorDocument("invalid_request", "There is no such call.");
    for (const std::string path :
         {"", "/", "/nosuch", "/v1/ddb/datacenters/", "/v1/ddb/datacentersx", "/../v1/ddb/datacenters",
          "/v1/auth/clients/a/b", "/v1/ddb/datacenters%00", "/v1/ddb/datacenters%0a", "/%zz", "/%u0041%"})
        ExpectAnswer(Get(path), 404, none);
    ExpectAnswer(Delete(Datacenters, "x"), 404, none);
    askedBasePath = "";
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
    const std::string tooLarge = "The headers are too many or too large.";
    EXPECT_EQ(ask("GET /b HTTP/1.1\r\nX: " + std::string(9000, 'a') + "\r\n\r\n", tooLarge), "HTTP/1.1 431");
    // Neither of these waits for the end of the head, which never comes.
    EXPECT_EQ(ask("GET /b HTTP/1.1\r\nX: " + std::string(9000, 'a'), tooLarge), "HTTP/1.1 431");
    // Of a line that is as long as this newer versions of the library read no more.
    EXPECT_THAT(ask("GET /b" + std::string(70000, 'a'), "The address is too long."),
                AnyOf("HTTP/1.1 414", ""));
    EXPECT_EQ(Get(Datacenters, Bearer(std::string(8000, 'a'))).status, 200);
    EXPECT_EQ(
        Get("/services/service/secure/id/" + std::string(8000, 'a'), Bearer(UserToken("v1-service"))).status,
        200);
}

TEST_F(SandboxServiceTest, HeadHasAHundredHeadersAnd64KiBAndNoMore) {
    Start();
    const auto statusOf = [&](int count, std::size_t each) {
        std::string head = "GET /b" + Datacenters + " HTTP/1.1\r\nConnection: close\r\n";
        for (int i = 1; i < count; ++i)
            head += "X: " + std::string(each, 'a') + "\r\n";
        const std::string answer = Raw(head + "\r\n");
        return answer.substr(0, answer.find("\r\n"));
    };
    EXPECT_EQ(statusOf(100, 10), "HTTP/1.1 200 OK");
    EXPECT_EQ(statusOf(101, 10), "HTTP/1.1 431 Request Header Fields Too Large");
    EXPECT_EQ(statusOf(16, 4096), "HTTP/1.1 200 OK");
    EXPECT_EQ(statusOf(17, 4096), "HTTP/1.1 431 Request Header Fields Too Large");
}

TEST_F(SandboxServiceTest, WhatFollowsAHeadThatIsTooLargeIsNoRequest) {
    Start();
    // Much follows, and the answer arrives all the same: the connection is ended and not reset.
    LoopbackPeer peer = Connect();
    EXPECT_TRUE(peer.Send("GET /b HTTP/1.1\r\nX: " + std::string(500000, 'a') + "\r\n\r\n" +
                          RequestFor(Datacenters)));
    errno = 0;
    const std::string answer = peer.Receive(1 << 20);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(answer.find("HTTP/1.1 431 "), 0u);
    EXPECT_TRUE(answer.ends_with(ErrorDocument("invalid_request", "The headers are too many or too large.")));
    // Nor is the head of what is no request one.
    EXPECT_EQ(Raw("nonsense\r\n" + RequestFor(Datacenters)).find("HTTP/1.1 400 "), 0u);
    EXPECT_EQ(Raw("nonsense\r\n" + RequestFor(Datacenters)).find("HTTP/1.1 200 "), std::string::npos);
}

TEST_F(SandboxServiceTest, HeadInPiecesIsReadLikeAWholeOne) {
    Start();
    const std::string request = RequestFor(Datacenters);
    LoopbackPeer peer = Connect();
    for (const char byte : request)
        peer.Send(std::string(1, byte));
    EXPECT_THAT(peer.Receive(1 << 20), HasSubstr("HTTP/1.1 200 "));
    // Two requests in one piece, the second with what makes the service close.
    const std::string two = "GET /b" + Datacenters + " HTTP/1.1\r\n\r\n" + request;
    const std::string answers = Raw(two);
    EXPECT_EQ(answers.find("HTTP/1.1 200 "), 0u);
    EXPECT_NE(answers.find("HTTP/1.1 200 ", 1), std::string::npos);
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
    EXPECT_THAT(Raw(head + "close\r\n\r\n" + chunk(form) + chunk(rest + rest) + chunk("y") + "0\r\n\r\n"),
                HasSubstr("HTTP/1.1 413 "));
    LoopbackPeer peer = Connect();
    peer.Send(head + "keep-alive\r\n\r\n" + chunk(form) + chunk(rest) + chunk("y") + "0\r\n\r\n");
    EXPECT_EQ(peer.Receive(12), "HTTP/1.1 413");
    // What is too much is read all the same, so that the next request on the connection is understood; where
    // the library does not, nothing on it is taken for one.
    peer.Send(RequestFor(Datacenters));
    const std::string rests = peer.Receive(1 << 20);
    EXPECT_THAT(rests, AnyOf(HasSubstr("HTTP/1.1 200 "), Not(HasSubstr("HTTP/1.1"))));
    EXPECT_THAT(Raw(head + "close\r\n\r\nzz\r\n"), HasSubstr("HTTP/1.1 400 "));
}

/// Sends bytes, a second apart by the clock of the service, until it closes; not more than it would read in
/// all. How many those were.
int Drip(LoopbackPeer& peer, FakeClock& clock) {
    int count = 0;
    while (count < 1 << 20 && peer.Send("x")) {
        ++count;
        clock.Advance(std::chrono::seconds(1));
    }
    return count;
}

TEST_F(SandboxServiceTest, BodyThatDripsIsGivenUp) {
    Start();
    for (const char* length : {"Content-Length: 1048576", "Transfer-Encoding: chunked"}) {
        LoopbackPeer peer = Connect();
        peer.Send("POST /b" + UserTokens + " HTTP/1.1\r\n" + length + "\r\nExpect: 100-continue\r\n\r\n");
        // The time of the head is over before that of the body begins.
        EXPECT_EQ(peer.Receive(25), "HTTP/1.1 100 Continue\r\n\r\n");
        EXPECT_LT(Drip(peer, clock), 1 << 20);
        EXPECT_THAT(peer.Receive(1 << 20), HasSubstr("HTTP/1.1 408 "));
    }
}

TEST_F(SandboxServiceTest, WhatDripsBehindAnAnswerThatClosesIsGivenUp) {
    Start();
    LoopbackPeer peer = Connect();
    peer.Send("GET /b HTTP/1.1\r\nX: " + std::string(9000, 'a') + "\r\n\r\n");
    EXPECT_EQ(peer.Receive(12), "HTTP/1.1 431");
    EXPECT_LT(Drip(peer, clock), 1 << 20);
}

TEST_F(SandboxServiceTest, ConnectionIsKeptBehindItsAnswerUntilOthersWaitForAThread) {
    Start({"--threads", "1"});
    const std::string keep = "GET /b" + Datacenters + " HTTP/1.1\r\n\r\n";
    std::vector<LoopbackPeer> kept;
    for (int i = 0; i < 1 + Sandbox::Service::MostStreams; ++i) {
        kept.push_back(Connect());
        kept.back().Send(keep);
        EXPECT_EQ(kept.back().Receive(12), "HTTP/1.1 200");
    }
    LoopbackPeer waits = Connect();
    waits.Send(RequestFor(Datacenters));
    // Whoever accepts the next one has put the last one in the queue.
    const LoopbackPeer next = Connect();
    httplib::Request request;
    request.remote_addr = "127.0.0.1";
    request.remote_port = lastFrom;
    while (Sandbox::FindConnection(request) < 0)
        std::this_thread::yield();
    kept.front().Send(keep);
    const std::string answers = kept.front().Receive(1 << 20);
    EXPECT_THAT(answers.substr(0, answers.find("HTTP/1.1", 1)), HasSubstr("Keep-Alive: timeout=5"));
    EXPECT_THAT(answers, HasSubstr("Connection: close\r\n"));
    EXPECT_THAT(waits.Receive(1 << 20), HasSubstr("HTTP/1.1 200 "));
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
    AwaitWaits(std::chrono::seconds(30), 1);
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
        clock.AwaitWaiters(silent.size() + 1);  // and the heart-beat
        clock.Advance(std::chrono::hours(2));   // however long they wait
        clock.AwaitWaiters(silent.size() + 1);
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
    AwaitWaits(HangUpInterval, 1);
    // The library alone would wait for the next byte of each, five seconds at a time.
    Stop([&] { unfinished.Send("X: y\r\n"); });
}

TEST_F(SandboxServiceTest, DelayEndsWithItsAnswerWhenTheServiceStops) {
    Start({"--fault", "/v1/ddb:1:delay=600000"});
    LoopbackPeer peer = Connect();
    peer.Send(RequestFor(Datacenters));
    AwaitWaits(std::chrono::minutes(10), 1);
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
        if (isOpen || CountOfWaits(HangUpInterval) < 3) return;
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
}  // namespace Ombry::Tests::SandboxService
