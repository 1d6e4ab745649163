#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/BodyLimit.h"
#include "ClientCommunications/Impl/HttpClientServiceGateway.h"
#include "ClientCommunications/Impl/HttpClientServiceGatewayFactory.h"
#include "ClientCommunications/Impl/Service.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/Impl/SyncStringWriter.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephSSLManagerProvider.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/LoopbackServer.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// Notes how each TLS session would be validated, and has no engine.
class NoEngines : public OmbryZephCore::ZephSSLManagerProviderIf {
public:
    std::unique_ptr<OmbryZephCore::ZephSSLInitializableManagerIf> MakeManager(
        const std::shared_ptr<LibraryLogger::ILogger>&, bool bVerbose) override {
        class Manager : public OmbryZephCore::ZephSSLInitializableManagerIf {
        public:
            explicit Manager(NoEngines& owner) : owner(owner) {}
            std::uint32_t Initialize(const std::string& targetName, bool bManualValidation,
                                     const OmbryZephCore::ZephCertificateValidator& validator) override {
                owner.rules.push_back(targetName + (bManualValidation ? " manual" : " platform") +
                                      (validator ? " pinned" : ""));
                return 0;
            }
            OmbryZephCore::ZephSSLConnectionIf* GetConnection() override { return nullptr; }
            void ReleaseConnection(OmbryZephCore::ZephSSLConnectionIf*) override {}

        private:
            NoEngines& owner;
        };
        verbose = bVerbose;
        return std::make_unique<Manager>(*this);
    }

    std::vector<std::string> rules;
    bool verbose = false;
};

class HttpClientServiceGatewayTest : public ::testing::Test {
protected:
    using Logged = std::vector<std::pair<int, std::string>>;

    HttpClientServiceGatewayTest() { AnswerWith("200 OK", "body"); }

    static std::shared_ptr<IService> At(const std::string& url, const std::string& certificate = "") {
        ServiceDto dto;
        dto.endpointUrl = url;
        dto.endpointCert = certificate;
        return std::make_shared<Service>(dto);
    }

    void AnswerWith(const std::string& status, const std::string& body, const std::string& headers = "") {
        sockets.OnSend([=, this](ScriptedSockets::Handle handle, const std::string& bytes) {
            if (!bytes.ends_with("\r\n\r\n") && !waitForBody.empty() && !bytes.ends_with(waitForBody)) return;
            if (!waitForBody.empty() && bytes.ends_with("\r\n\r\n")) return;
            sockets.Deliver(handle, "HTTP/1.1 " + status + "\r\n" + headers +
                                        "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
        });
    }

    std::shared_ptr<IServiceGateway> Gateway(const std::string& url = "http://server:8080/base",
                                             const std::string& certificate = "AAAA") {
        return factory.Create(At(url, certificate));
    }

    std::shared_ptr<IStringServiceResponse> Call(Cancellation::Token token = {}) {
        return Gateway()->CallForString(request, std::move(token));
    }

    /// Lines of the gateway itself.
    Logged GatewayLog() const {
        Logged lines;
        for (const RecordingLogger::Entry& entry : logger->Entries()) {
            if (entry.function.starts_with("Ombry::ClientCommunications::HttpClientServiceGateway::"))
                lines.emplace_back(entry.level, entry.message);
        }
        return lines;
    }

    template <class Exception>
    std::string ThrownBy(const std::function<void()>& call) {
        try {
            call();
        } catch (const Exception& e) {
            EXPECT_EQ(typeid(e), typeid(Exception));
            return e.what();
        }
        return "nothing was thrown";
    }

    /// Makes every wait for an answer a silent one.
    void BeSilent(Duration eachWait) {
        sockets.OnSend(nullptr);
        sockets.OnIdle([this, eachWait](std::int64_t) { clock.Advance(eachWait); });
    }

    FakeClock clock;
    ScriptedSockets sockets;
    NoEngines engines;
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    Platform::Testing::Replace<OmbryZephCore::ZephSSLManagerProviderIf> replacedEngines{engines};
    std::string waitForBody;
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    HttpClientServiceGatewayFactory factory{logger, false};
    std::shared_ptr<IServiceRequest> request = CreateServiceRequest("GET", "/path", "7");
};

TEST_F(HttpClientServiceGatewayTest, ACallReturnsStatusHeadersBodyAndService) {
    AnswerWith("201 Created", "body", "Content-Type: text/plain\r\n");
    const auto service = At("http://server:8080/base", "AAAA");
    const auto response = factory.Create(service)->CallForString(request, {});
    EXPECT_EQ(response->GetStatusCode(), 201);
    EXPECT_EQ(response->GetBody(), "body");
    EXPECT_EQ(response->GetHeader("content-type"), "text/plain");
    EXPECT_EQ(response->GetService(), service);
}

TEST_F(HttpClientServiceGatewayTest, TheRequestCarriesItsHeadersBehindTheBasePathOfTheEndpoint) {
    request->SetHeader("A", "1");
    Call();
    EXPECT_EQ(sockets.Sent(100),
              "GET /base/path HTTP/1.1\r\nHost: server:8080\r\nContent-Length: 0\r\nA: 1\r\n"
              "Contract-Version: 7\r\n\r\n");
}

TEST_F(HttpClientServiceGatewayTest, TheBodyOfTheRequestIsSent) {
    request = CreateServiceRequest("POST", "path", "7");
    request->SetBody("question");
    waitForBody = "question";
    EXPECT_EQ(Call()->GetStatusCode(), 200);
    EXPECT_THAT(sockets.Sent(100), ::testing::StartsWith("POST /base/path HTTP/1.1\r\n"));
    EXPECT_THAT(sockets.Sent(100), HasSubstr("\r\nContent-Length: 8\r\n"));
    EXPECT_THAT(sockets.Sent(100), EndsWith("\r\n\r\nquestion"));
}

TEST_F(HttpClientServiceGatewayTest, LogsTheCallAndItsStatusWithoutBracketsIfThereIsNothingToCorrelate) {
    AnswerWith("500 Oops", "");
    request->SetHeader("sf-Lower", "x");
    request->SetHeader("SF", "x");
    EXPECT_EQ(Call()->GetStatusCode(), 500) << "no status is an exception";
    EXPECT_EQ(GatewayLog(),
              (Logged{{1, "Calling GET http://server:8080/base/path"}, {1, "Got HTTP status 500"}}));
}

TEST_F(HttpClientServiceGatewayTest, LogLinesBearTheWholeNameOfTheirFunctionAndTheSourcePath) {
    try {
        Gateway("https://server:8080", "")->CallForString(request, {});
    } catch (const std::exception&) {
    }
    std::set<std::string> functions;
    for (const RecordingLogger::Entry& entry : logger->Entries()) {
        if (!entry.function.starts_with("Ombry::")) continue;
        functions.insert(entry.function);
        EXPECT_EQ(entry.file, SourcePath("ClientCommunications/Impl/HttpClientServiceGateway.cpp"));
    }
    EXPECT_EQ(functions, (std::set<std::string>{
                             "Ombry::ClientCommunications::HttpClientServiceGateway::DoRequest",
                             "Ombry::ClientCommunications::HttpClientServiceGateway::GetHttpClient"}));
}

/// Counts how often its headers are gone through.
class CountingRequest : public ServiceRequest {
public:
    CountingRequest() : ServiceRequest("GET", "/x", "1") {}
    void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const override {
        ++walks;
        ServiceRequest::ForEachHeader(std::move(callback));
    }

    mutable int walks = 0;
};

TEST_F(HttpClientServiceGatewayTest, HeadersAreWalkedForTheLogThoughNobodyLogs) {
    const auto silent = std::make_shared<RecordingLogger>(5);
    for (const auto& given : {std::shared_ptr<RecordingLogger>(), silent, logger}) {
        AnswerWith("200 OK", "");
        const auto counting = std::make_shared<CountingRequest>();
        HttpClientServiceGatewayFactory(given, false)
            .Create(At("http://server:8080"))
            ->CallForString(counting, {});
        EXPECT_EQ(counting->walks, 3) << "the headers themselves, the call and its status";
    }
}

TEST_F(HttpClientServiceGatewayTest, ARequestOfAnotherClassIsSentAndLoggedAlike) {
    const auto counting = std::make_shared<CountingRequest>();
    counting->SetHeader("SF-One", "1");
    Gateway()->CallForString(counting, {});
    EXPECT_EQ(sockets.Sent(100),
              "GET /base/x HTTP/1.1\r\nHost: server:8080\r\nContent-Length: 0\r\nContract-Version: 1\r\n"
              "SF-One: 1\r\n\r\n");
    EXPECT_EQ(GatewayLog(), (Logged{{1, "Calling GET http://server:8080/base/x [SF-One: 1]"},
                                    {1, "Got HTTP status 200 [SF-One: 1]"}}));
}

TEST_F(HttpClientServiceGatewayTest, CallsToSeveralServicesInTurnGoEachToItsOwn) {
    const auto one = At("http://one:81/a", "AAAA"), two = At("http://two:82/b", "");
    for (int i = 0; i < 2; ++i) {
        for (const auto& service : {one, two})
            EXPECT_EQ(factory.Create(service)->CallForString(request, {})->GetService(), service);
    }
    const auto times = [](const std::string& text, const std::string& part) {
        int found = 0;
        for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
            ++found;
        return found;
    };
    EXPECT_EQ(times(sockets.Sent(100), "GET /a/path HTTP/1.1\r\nHost: one:81\r\n"), 2);
    EXPECT_EQ(times(sockets.Sent(101), "GET /b/path HTTP/1.1\r\nHost: two:82\r\n"), 2);
    EXPECT_EQ(GatewayLog()[2].second,
              "No certificate is registered so TLS certificate validation will not be done for endpoint "
              "http://two:82/b");
    EXPECT_EQ(GatewayLog()[3].second, "Calling GET http://two:82/b/path");
}

class MovingService : public Service {
public:
    MovingService() : Service(ServiceDto()) {}
    std::string GetEndpointUrl() const override { return url; }

    std::string url;
};

TEST_F(HttpClientServiceGatewayTest, AServiceOfAnotherClassIsAskedForItsUrlAtEachCall) {
    const auto moving = std::make_shared<MovingService>();
    const auto gateway = factory.Create(moving);
    moving->url = "http://one:81/a";
    gateway->CallForString(request, {});
    moving->url = "http://two:82/b";
    gateway->CallForString(request, {});
    EXPECT_THAT(sockets.Sent(100), ::testing::StartsWith("GET /a/path HTTP/1.1\r\nHost: one:81\r\n"));
    EXPECT_THAT(sockets.Sent(101), ::testing::StartsWith("GET /b/path HTTP/1.1\r\nHost: two:82\r\n"));
}

TEST_F(HttpClientServiceGatewayTest, HeadersAreWalkedForAFailureThatNobodyLogs) {
    sockets.OnConnect("server:8080", {111, true, false, 0});
    const auto counting = std::make_shared<CountingRequest>();
    const auto gateway = HttpClientServiceGatewayFactory(nullptr, false).Create(At("http://server:8080"));
    EXPECT_THROW(gateway->CallForString(counting, {}), CommunicationsError);
    EXPECT_EQ(counting->walks, 3) << "the headers themselves, the call and its failure";
}

TEST_F(HttpClientServiceGatewayTest, CorrelatesByTheHeadersThatBeginWithSFInTheirOrder) {
    request->SetHeader("SF-One", "1");
    Call();
    request->SetHeader("SF-B", "b");
    request->SetHeader("SF-", "");
    Call();
    EXPECT_EQ(GatewayLog(),
              (Logged{{1, "Calling GET http://server:8080/base/path [SF-One: 1]"},
                      {1, "Got HTTP status 200 [SF-One: 1]"},
                      {1, "Calling GET http://server:8080/base/path [SF-: , SF-B: b, SF-One: 1]"},
                      {1, "Got HTTP status 200 [SF-: , SF-B: b, SF-One: 1]"}}));
}

TEST_F(HttpClientServiceGatewayTest, QueryPartsAreNoPartOfTheBasePath) {
    Gateway("http://server:8080/base/?x=y")->CallForString(request, {});
    EXPECT_THAT(sockets.Sent(100), ::testing::StartsWith("GET /base/path HTTP/1.1\r\n"));
}

// --- Where and how it connects ---

struct PortCase {
    const char* url;
    const char* address;
};

class HttpClientServiceGatewayPortTest : public HttpClientServiceGatewayTest,
                                         public ::testing::WithParamInterface<PortCase> {};

TEST_P(HttpClientServiceGatewayPortTest, ComesFromTheUrl) {
    try {
        Gateway(GetParam().url)->CallForString(request, {});
    } catch (const CommunicationsError&) {
        // Those with TLS: there is no engine here.
    }
    EXPECT_THAT(sockets.Calls(), Contains(std::string("Connect(100, ") + GetParam().address + ")"));
}

INSTANTIATE_TEST_SUITE_P(
    All, HttpClientServiceGatewayPortTest,
    ::testing::Values(PortCase{"http://h", "h:80"}, PortCase{"https://h", "h:443"},
                      PortCase{"https://h:8181/x", "h:8181"}, PortCase{"HTTPS://h", "h:0"},
                      PortCase{"HTTP://h", "h:0"}, PortCase{"h:81", "h:81"}, PortCase{"h", "h:0"},
                      PortCase{"http://h:port", "h:0"}, PortCase{"http://h:70000", "h:4464"},
                      PortCase{"http://h:65535", "h:65535"}, PortCase{"http://h:65536", "h:0"},
                      PortCase{"http://h:-1", "h:65535"}, PortCase{"http://h:010", "h:10"},
                      PortCase{"http://h:0x50", "h:0"}, PortCase{"http://h:99999999999999999999", "h:65535"},
                      PortCase{"http://h:4294967739", "h:65535"}, PortCase{"http://h:80x", "h:80"},
                      PortCase{"http://[::1]:81", "::1:81"}));

TEST_F(HttpClientServiceGatewayTest, WithoutARegisteredCertificateNothingIsValidatedAndTheLogSaysSoEachTime) {
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(Gateway("https://server", "")->CallForString(request, {}), CommunicationsError);
    EXPECT_THAT(engines.rules, ::testing::Each("server manual"));
    const std::string line =
        "No certificate is registered so TLS certificate validation will not be done for endpoint "
        "https://server";
    EXPECT_EQ(GatewayLog(), (Logged{{3, line},
                                    {1, "Calling GET https://server/path"},
                                    {4, "Error 11.0 from GET https://server/path"},
                                    {3, line},
                                    {1, "Calling GET https://server/path"},
                                    {4, "Error 11.0 from GET https://server/path"}}));
}

TEST_F(HttpClientServiceGatewayTest, TheLineAboutTheCertificateComesForPlainHttpToo) {
    Gateway("http://server", "")->CallForString(request, {});
    EXPECT_EQ(GatewayLog().front(),
              (std::pair<int, std::string>(3,
                                           "No certificate is registered so TLS certificate validation "
                                           "will not be done for endpoint http://server")));
    EXPECT_THAT(engines.rules, IsEmpty());
}

TEST_F(HttpClientServiceGatewayTest, ARegisteredCertificateIsPinnedByItsKey) {
    EXPECT_THROW(Gateway("https://server", "AAAA")->CallForString(request, {}), CommunicationsError);
    EXPECT_THAT(engines.rules, ::testing::Each("server manual pinned"));
    EXPECT_FALSE(engines.rules.empty());
    EXPECT_THAT(logger->Messages(3), ::testing::Not(Contains(HasSubstr("No certificate is registered"))));
}

TEST_F(HttpClientServiceGatewayTest, ASchemeInCapitalsIsNotHttps) {
    Gateway("HTTPS://server:443")->CallForString(request, {});
    EXPECT_THAT(engines.rules, IsEmpty());
    EXPECT_THAT(sockets.Sent(100), ::testing::StartsWith("GET /path"));
}

TEST_F(HttpClientServiceGatewayTest, GatewaysOfAFactoryShareItsPoolWhichOutlivesIt) {
    std::shared_ptr<IServiceGateway> last;
    {
        HttpClientServiceGatewayFactory shortLived(nullptr, false);
        shortLived.Create(At("http://server"))->CallForString(request, {});
        last = shortLived.Create(At("http://server"));
    }
    EXPECT_EQ(last->CallForString(request, {})->GetStatusCode(), 200);
    EXPECT_EQ(sockets.CallsOf("Connect"), 1u);
    last.reset();
    EXPECT_EQ(sockets.OpenSockets(), 0u);
}

TEST_F(HttpClientServiceGatewayTest, TheFactoryScansItsPoolEvery300Seconds) {
    clock.AwaitWaiters(1);
    EXPECT_THAT(clock.Waits(), ElementsAre(Duration(std::chrono::seconds(300))));
}

TEST_F(HttpClientServiceGatewayTest, TheFactoryKeepsAnIdleConnectionFor300SecondsAndNoLonger) {
    clock.AwaitWaits(1);
    clock.Advance(std::chrono::seconds(299));
    Gateway("http://old")->CallForString(request, {});
    clock.Advance(std::chrono::seconds(1));
    clock.AwaitWaits(2);
    Gateway("http://young")->CallForString(request, {});
    EXPECT_EQ(sockets.OpenSockets(), 2u);

    clock.Advance(std::chrono::seconds(300));  // to the next scan, which finds ages of 301 and 300 seconds
    clock.AwaitWaits(3);

    EXPECT_EQ(sockets.OpenSockets(), 1u);
    Gateway("http://young")->CallForString(request, {});
    EXPECT_EQ(sockets.CallsOf("Connect"), 2u);
}

TEST_F(HttpClientServiceGatewayTest, VerbosityOfTheFactoryReachesTheConnections) {
    HttpClientServiceGatewayFactory verbose(nullptr, true);
    EXPECT_THROW(verbose.Create(At("https://server"))->CallForString(request, {}), CommunicationsError);
    EXPECT_TRUE(engines.verbose);
    EXPECT_THROW(Gateway("https://server")->CallForString(request, {}), CommunicationsError);
    EXPECT_FALSE(engines.verbose);
}

TEST_F(HttpClientServiceGatewayTest, VerbosityOfAGatewayWithoutAPoolReachesItsOwnConnection) {
    for (const bool verbose : {true, false}) {
        HttpClientServiceGateway alone(At("https://server"), nullptr, nullptr, verbose);
        EXPECT_THROW(alone.CallForString(request, {}), CommunicationsError);
        EXPECT_EQ(engines.verbose, verbose);
    }
}

TEST_F(HttpClientServiceGatewayTest, TheHttpClientLogsToTheSameLogger) {
    Call();
    std::vector<std::string> lines;
    for (const RecordingLogger::Entry& entry : logger->Entries()) {
        if (entry.function == "OmbryZephCore::ZephSorrelSyncHttpClient_Impl::DoRequest")
            lines.push_back(entry.message);
    }
    EXPECT_THAT(lines, ElementsAre("sending GET to /base/path", "Got HTTP response code 200"));
}

TEST_F(HttpClientServiceGatewayTest, LevelsThatAreOffAreNotLogged) {
    auto coarse = std::make_shared<RecordingLogger>(4);
    HttpClientServiceGatewayFactory quiet(coarse, false);
    quiet.Create(At("http://server"))->CallForString(request, {});
    EXPECT_THAT(coarse->Messages(), IsEmpty());
}

// --- The three roads of an exchange without an answer ---

TEST_F(HttpClientServiceGatewayTest, ALostConnectionIsACommunicationsError) {
    sockets.OnSend(
        [this](ScriptedSockets::Handle handle, const std::string&) { sockets.CloseByPeer(handle); });
    request->SetHeader("SF-One", "1");
    EXPECT_EQ(ThrownBy<CommunicationsError>([&] { Call(); }), "Error 11.0");
    EXPECT_EQ(GatewayLog(), (Logged{{1, "Calling GET http://server:8080/base/path [SF-One: 1]"},
                                    {4, "Error 11.0 from GET http://server:8080/base/path [SF-One: 1]"}}));
}

TEST_F(HttpClientServiceGatewayTest, ARefusedConnectionIsACommunicationsError) {
    sockets.OnConnect("server:8080", {111, true, false, 0});
    EXPECT_EQ(ThrownBy<CommunicationsError>([&] { Call(); }), "Error 11.0");
}

TEST_F(HttpClientServiceGatewayTest, SilenceWithALiveTokenIsATimeoutWithTheNumbers) {
    BeSilent(std::chrono::seconds(1));
    const TimePoint start = clock.Now();
    EXPECT_EQ(ThrownBy<Cancellation::TimeoutException>([&] { Call(); }), "Error 11.13");
    EXPECT_EQ(clock.Now() - start, Duration(std::chrono::seconds(100))) << "the attempt time-out";
    EXPECT_EQ(GatewayLog().back(),
              (std::pair<int, std::string>(4, "Error 11.13 from GET http://server:8080/base/path")));
}

TEST_F(HttpClientServiceGatewayTest, AnotherFailureIsNoReasonToTryAnotherServer) {
    Call();  // a connection that stands, so that only the request meets the lack of memory
    request->SetBody(std::string(100'000, 'x'));
    const auto previous =
        OmbryZephCore::ZephIOBuffer::ReplaceAllocator([](std::uint64_t) -> std::uint8_t* { return nullptr; });
    EXPECT_EQ(ThrownBy<std::runtime_error>([&] { Call(); }), "Error 3.0");
    OmbryZephCore::ZephIOBuffer::ReplaceAllocator(previous);
    EXPECT_EQ(GatewayLog().back(),
              (std::pair<int, std::string>(4, "Error 3.0 from GET http://server:8080/base/path")));
}

TEST_F(HttpClientServiceGatewayTest, ACancelledCallEndsAsCancelledWhateverElseHasFailed) {
    Call();  // as above
    request->SetBody(std::string(100'000, 'x'));
    const Cancellation::Token token = Cancellation::CreateCancellable();
    token.Cancel();
    const auto previous =
        OmbryZephCore::ZephIOBuffer::ReplaceAllocator([](std::uint64_t) -> std::uint8_t* { return nullptr; });
    EXPECT_EQ(ThrownBy<Cancellation::OperationCancelledException>([&] { Call(token); }),
              "Operation cancelled.");
    OmbryZephCore::ZephIOBuffer::ReplaceAllocator(previous);
    EXPECT_EQ(GatewayLog().back(),
              (std::pair<int, std::string>(4, "Error 3.0 from GET http://server:8080/base/path")));
}

struct TimeoutCase {
    std::int64_t ticks;
    int seconds;
};

class HttpClientServiceGatewayTimeoutTest : public HttpClientServiceGatewayTest,
                                            public ::testing::WithParamInterface<TimeoutCase> {};

TEST_P(HttpClientServiceGatewayTimeoutTest, CountsWholeSeconds) {
    BeSilent(std::chrono::seconds(1));
    request->SetAttemptTimeout(Duration(GetParam().ticks));
    const TimePoint start = clock.Now();
    EXPECT_EQ(ThrownBy<Cancellation::TimeoutException>([&] { Call(); }), "Error 11.13");
    EXPECT_EQ(clock.Now() - start, Duration(std::chrono::seconds(GetParam().seconds)));
}

INSTANTIATE_TEST_SUITE_P(All, HttpClientServiceGatewayTimeoutTest,
                         ::testing::Values(TimeoutCase{10'000'000, 1}, TimeoutCase{19'999'999, 1},
                                           TimeoutCase{20'000'000, 2}, TimeoutCase{50'000'000, 5}));

TEST_F(HttpClientServiceGatewayTest, AnAttemptTimeoutOfMoreSecondsThanAreCountedIsTheLongest) {
    constexpr std::int64_t most = std::numeric_limits<std::uint32_t>::max();
    BeSilent(std::chrono::seconds(most / 2));
    request->SetAttemptTimeout(std::chrono::seconds(most + 2));
    const TimePoint start = clock.Now();
    EXPECT_EQ(ThrownBy<Cancellation::TimeoutException>([&] { Call(); }), "Error 11.13");
    EXPECT_GE(clock.Now() - start, Duration(std::chrono::seconds(most)));
}

TEST_F(HttpClientServiceGatewayTest, AnAttemptTimeoutBelowASecondIsNoLimitAtAll) {
    constexpr std::int64_t wrapsToASecond = -4'294'967'295 * TicksPerSecond;
    for (const std::int64_t ticks : {std::int64_t{0}, std::int64_t{5'000'000}, std::int64_t{9'999'999},
                                     std::int64_t{-10'000'000}, wrapsToASecond}) {
        int waits = 0;
        sockets.OnSend(nullptr);
        sockets.OnIdle([&](std::int64_t) {
            clock.Advance(std::chrono::seconds(10));
            if (++waits == 100) sockets.CloseByPeer(100);
        });
        sockets.SetNextHandle(100);
        request->SetAttemptTimeout(Duration(ticks));
        sockets.FailNthCall("Connect", 2, 111);
        EXPECT_EQ(ThrownBy<CommunicationsError>([&] { Call(); }), "Error 11.0") << ticks;
        EXPECT_EQ(waits, 100) << ticks;
    }
}

TEST_F(HttpClientServiceGatewayTest, ATokenThatExpiredShowsAsItselfBehindTheLogLine) {
    BeSilent(std::chrono::seconds(1));
    const auto token = Cancellation::CreateTimeout(std::chrono::seconds(3));
    EXPECT_EQ(ThrownBy<Cancellation::TimeoutException>([&] { Call(token); }), "Operation timed out.");
    EXPECT_EQ(GatewayLog().back(),
              (std::pair<int, std::string>(4, "Error 11.13 from GET http://server:8080/base/path")));
}

TEST_F(HttpClientServiceGatewayTest, ATokenThatWasCancelledShowsAsItself) {
    const auto token = Cancellation::CreateCancellable();
    sockets.OnSend(nullptr);
    sockets.OnIdle([&](std::int64_t) { token.Cancel(); });
    EXPECT_EQ(ThrownBy<Cancellation::OperationCancelledException>([&] { Call(token); }),
              "Operation cancelled.");
}

TEST_F(HttpClientServiceGatewayTest, ATokenThatFiredCountsForALostConnectionToo) {
    const auto token = Cancellation::CreateCancellable();
    token.Cancel();
    sockets.OnSend(
        [this](ScriptedSockets::Handle handle, const std::string&) { sockets.CloseByPeer(handle); });
    EXPECT_EQ(ThrownBy<Cancellation::OperationCancelledException>([&] { Call(token); }),
              "Operation cancelled.");
}

TEST_F(HttpClientServiceGatewayTest, ATokenThatFiredDoesNotTakeAnAnswerAway) {
    const auto token = Cancellation::CreateCancellable();
    token.Cancel();
    EXPECT_EQ(Call(token)->GetStatusCode(), 200);
}

// --- Stream calls ---

struct StreamCase {
    const char* status;
    const char* written;
    const char* body;
};

class HttpClientServiceGatewayStreamTest : public HttpClientServiceGatewayTest,
                                           public ::testing::WithParamInterface<StreamCase> {};

TEST_P(HttpClientServiceGatewayStreamTest, GoesToTheWriterBelow300AndToTheResponseFromThereOn) {
    AnswerWith(GetParam().status, "data");
    std::string text = "untouched";
    const auto response =
        Gateway()->CallForStream(request, std::make_shared<SyncStringWriter>(text), Cancellation::Token());
    EXPECT_EQ(text, GetParam().written);
    EXPECT_EQ(response->GetBody(), GetParam().body);
    EXPECT_EQ(response->GetStatusCode(), std::atoi(GetParam().status));
}

INSTANTIATE_TEST_SUITE_P(All, HttpClientServiceGatewayStreamTest,
                         ::testing::Values(StreamCase{"200 OK", "data", ""}, StreamCase{"299 X", "data", ""},
                                           StreamCase{"300 X", "untouched", "data"},
                                           StreamCase{"404 X", "untouched", "data"},
                                           StreamCase{"500 X", "untouched", "data"}));

// --- Bodies that are too long to be held in memory ---

/// What the message says of a body of more than 256 MiB.
const char TooLong[] =
    "The answer to GET http://server:8080/base/path is longer than the 268435456 bytes that are held in "
    "memory.";

/// Gives the room that is asked for, which takes no memory until it is written to, and notes the most of it.
class NotedRoom {
public:
    NotedRoom()
        : previous(OmbryZephCore::ZephIOBuffer::ReplaceAllocator([](std::uint64_t nBytes) {
              most = std::max(most, nBytes);
              return new (std::nothrow) std::uint8_t[nBytes];
          })) {
        most = 0;
    }
    ~NotedRoom() { OmbryZephCore::ZephIOBuffer::ReplaceAllocator(previous); }

    std::uint64_t Most() const { return most; }

private:
    static inline std::uint64_t most = 0;  // calls are made on the thread of the test
    OmbryZephCore::ZephIOBuffer::Allocator previous;
};

class HttpClientServiceGatewayLongBodyTest : public HttpClientServiceGatewayTest,
                                             public ::testing::WithParamInterface<const char*> {
protected:
    /// The answer begins like this, and then the peer closes.
    void BeginAnswer(const std::string& status, const std::string& rest) {
        sockets.OnSend([=, this](ScriptedSockets::Handle handle, const std::string&) {
            sockets.Deliver(handle, "HTTP/1.1 " + status + "\r\n" + rest);
            sockets.CloseByPeer(handle);
        });
    }

    void CallForStream() {
        Gateway()->CallForStream(request, std::make_shared<SyncStringWriter>(streamed), {});
    }

    const NotedRoom room;
    std::string streamed;
};

TEST_P(HttpClientServiceGatewayLongBodyTest, EndsTheCallBeforeRoomIsMadeAndIsNotAskedForAgain) {
    BeginAnswer("200 OK", GetParam());
    EXPECT_EQ(ThrownBy<std::runtime_error>([&] { Call(); }), TooLong) << "no other server is tried for it";
    EXPECT_EQ(GatewayLog().back(), (std::pair<int, std::string>(4, TooLong)));
    EXPECT_EQ(sockets.CallsOf("Connect"), 1u);
    EXPECT_LT(room.Most(), MaxBodyInMemory);
}

TEST_P(HttpClientServiceGatewayLongBodyTest, LeavesNoConnectionBehind) {
    BeginAnswer("200 OK", GetParam());
    EXPECT_THROW(Call(), std::runtime_error);
    AnswerWith("200 OK", "body");
    EXPECT_EQ(Call()->GetBody(), "body");
    EXPECT_EQ(sockets.CallsOf("Connect"), 2u);
}

TEST_P(HttpClientServiceGatewayLongBodyTest, EndsAStreamCallWhereItIsNotTheCallersBody) {
    BeginAnswer("404 X", GetParam());
    EXPECT_EQ(ThrownBy<std::runtime_error>([&] { CallForStream(); }), TooLong);
    EXPECT_EQ(streamed, "");
}

INSTANTIATE_TEST_SUITE_P(All, HttpClientServiceGatewayLongBodyTest,
                         ::testing::Values("Content-Length: 268435457\r\n\r\nx",
                                           "Content-Length: 4294967295\r\n\r\nx",
                                           "Transfer-Encoding: chunked\r\n\r\n10000001\r\n",
                                           "Transfer-Encoding: chunked\r\n\r\nFFFFFFFF\r\n",
                                           "Transfer-Encoding: chunked\r\n\r\n1\r\nx\r\n10000000\r\n"));

TEST_F(HttpClientServiceGatewayLongBodyTest, InAnAnswerAheadOfTheRealOneCountsToo) {
    BeginAnswer("102 Wait", "Transfer-Encoding: chunked\r\n\r\n10000001\r\n");
    EXPECT_EQ(ThrownBy<std::runtime_error>([&] { Call(); }), TooLong);
}

TEST_F(HttpClientServiceGatewayLongBodyTest, OfExactlyTheLimitIsReceived) {
    for (const char* rest :
         {"Content-Length: 268435456\r\n\r\nx", "Transfer-Encoding: chunked\r\n\r\n1\r\nx\r\nFFFFFFF\r\nx"}) {
        BeginAnswer("200 OK", rest);
        EXPECT_EQ(ThrownBy<CommunicationsError>([&] { Call(); }), "Error 11.0")
            << "the peer closed: " << rest;
    }
    EXPECT_GT(room.Most(), MaxBodyInMemory) << "for the chunk, with its size line and its end";
}

TEST_F(HttpClientServiceGatewayLongBodyTest, IsNoConcernOfAStream) {
    BeginAnswer("200 OK", "Content-Length: 268435457\r\n\r\nx");
    EXPECT_EQ(ThrownBy<CommunicationsError>([&] { CallForStream(); }), "Error 11.0") << "the peer closed";
    EXPECT_EQ(streamed, "x");
    BeginAnswer("200 OK", "Transfer-Encoding: chunked\r\n\r\n1\r\ny\r\n10000000\r\n");
    EXPECT_EQ(ThrownBy<CommunicationsError>([&] { CallForStream(); }), "Error 11.0") << "the peer closed";
    EXPECT_EQ(streamed, "y");
    EXPECT_GT(room.Most(), MaxBodyInMemory);
}

TEST(HttpClientServiceGatewayOnLoopbackTest, ABodyThatLastsUntilThePeerClosesEndsAtTheLimit) {
    if (!HasMemoryFor(3 * MaxBodyInMemory)) return;
    LoopbackServer server([](LoopbackServer::Connection& connection) {
        connection.ReadRequest();
        const std::string piece(1 << 20, 'x');
        connection.Send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
        for (int n = 0; n < 300 && connection.Send(piece); ++n) {
        }
    });
    ServiceDto dto;
    dto.endpointUrl = server.Url();
    HttpClientServiceGatewayFactory factory(nullptr, false);
    try {
        factory.Create(std::make_shared<Service>(dto))
            ->CallForString(CreateServiceRequest("GET", "/path", "7"), {});
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_EQ(failure.what(), "The answer to GET " + server.Url() +
                                      "/path is longer than the 268435456 bytes that are held in memory.");
    }
}

TEST(BodyLimitTest, CountsWhatWasWrittenSinceTheBodyBegan) {
    class Counting : public OmbryZephCore::ZephSyncDataWriterIf {
    public:
        void Begin() override { calls.push_back("Begin"); }
        void Write(const std::uint8_t*, std::uint32_t nBytes) override {
            calls.push_back("Write " + std::to_string(nBytes));
        }
        void End() override { calls.push_back("End"); }
        std::vector<std::string> calls;
    };
    Counting sink;
    BodyLimit limit(sink);
    limit.Begin();
    limit.Write(nullptr, 1);
    EXPECT_THROW(limit.Write(nullptr, 0x10000000), BodyTooLong);
    EXPECT_THROW(limit.Write(nullptr, 0xFFFFFFFF), BodyTooLong);
    limit.Write(nullptr, 0x0FFFFFFF);
    EXPECT_THROW(limit.Write(nullptr, 1), BodyTooLong);
    limit.Begin();
    limit.Write(nullptr, 0x10000000);
    limit.End();
    EXPECT_THAT(sink.calls,
                ElementsAre("Begin", "Write 1", "Write 268435455", "Begin", "Write 268435456", "End"));
}

TEST_F(HttpClientServiceGatewayTest, AStreamCallFailsAsAStringCallDoes) {
    sockets.OnSend(
        [this](ScriptedSockets::Handle handle, const std::string&) { sockets.CloseByPeer(handle); });
    std::string text;
    EXPECT_EQ(ThrownBy<CommunicationsError>(
                  [&] { Gateway()->CallForStream(request, std::make_shared<SyncStringWriter>(text), {}); }),
              "Error 11.0");
}

TEST_F(HttpClientServiceGatewayTest, TheTokenOfAStreamCallEndsItsWait) {
    const auto token = Cancellation::CreateCancellable();
    sockets.OnSend(nullptr);
    sockets.OnIdle([&](std::int64_t) {
        token.Cancel();
        clock.Advance(std::chrono::seconds(1));
    });
    std::string text;
    EXPECT_EQ(ThrownBy<Cancellation::OperationCancelledException>([&] {
                  Gateway()->CallForStream(request, std::make_shared<SyncStringWriter>(text), token);
              }),
              "Operation cancelled.");
}

}  // namespace
}  // namespace Ombry::Tests
