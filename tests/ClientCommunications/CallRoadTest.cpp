#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/EmptyAuthenticator.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"
#include "ClientCommunications/Impl/FailedServices.h"
#include "ClientCommunications/Impl/FoundServices.h"
#include "ClientCommunications/Impl/HttpClientServiceGatewayFactory.h"
#include "ClientCommunications/Impl/Service.h"
#include "ClientCommunications/Impl/ServiceGateway.h"
#include "ClientCommunications/Impl/ServiceGatewayFactory.h"
#include "ClientCommunications/Impl/ServiceIteratePolicyFactory.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/Impl/SyncStringWriter.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedSockets.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using namespace std::chrono_literals;
using Cancellation::Token;
using Lines = std::vector<std::string>;

/// The whole road of a call over the real network core: a local server "l" and a remote one "r", both on
/// scripted sockets. Only the remote one answers, unless a test says otherwise.
class CallRoadTest : public testing::Test {
protected:
    class TwoServers : public IServiceFinder {
    public:
        std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData>, Token) override {
            return Find(Token());
        }
        std::shared_ptr<IFoundServices> Find(Token) override {
            auto found = std::make_shared<FoundServices>();
            found->AddLocal(Server("l"));
            found->AddRemote(Server("r"));
            return found;
        }

    private:
        static std::shared_ptr<IService> Server(const std::string& id) {
            ServiceDto dto;
            dto.id = id;
            dto.endpointUrl = "http://" + id + ":80";
            return std::make_shared<Service>(dto);
        }
    };

    CallRoadTest() {
        sockets.OnSend([this](ScriptedSockets::Handle handle, const std::string& bytes) {
            const bool toLocal = bytes.find("\r\nHost: l:80\r\n") != std::string::npos;
            asked.push_back(toLocal ? "l" : "r");
            if (toLocal ? localAnswers : remoteAnswers)
                sockets.Deliver(handle, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi");
        });
        // A wait in which nothing comes lasts a second.
        sockets.OnIdle([this](std::int64_t) { clock.Advance(1s); });
    }

    std::shared_ptr<IServiceGateway> Make() {
        const auto policy = ServiceIteratePolicyFactory(memory, logger).CreateIterateAfterMaxFailures(1);
        return ServiceGatewayFactory(std::make_shared<HttpClientServiceGatewayFactory>(logger, false),
                                     std::make_shared<EmptyAuthenticator>(), policy)
            .Create(std::make_shared<TwoServers>());
    }

    /// What the executor said of the attempts.
    Lines Caught() const {
        Lines lines;
        for (const auto& entry : logger->Entries()) {
            if (entry.function == "Ombry::ClientCommunications::ServiceIteratePolicyExecutor::Execute")
                lines.push_back(entry.message);
        }
        return lines;
    }

    FakeClock clock;
    FakeRandom random;
    ScriptedSockets sockets;
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    Lines asked;
    bool localAnswers = false;
    bool remoteAnswers = true;
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    std::shared_ptr<FailedServices> memory = std::make_shared<FailedServices>(
        std::make_shared<ExponentialDelayRetryIteratorFactory>(1s, 30s), 30min);
    std::shared_ptr<IServiceRequest> request = CreateServiceRequest("GET", "/path", "1");
};

TEST_F(CallRoadTest, ServerThatAnswersIsTheOnlyOneAsked) {
    localAnswers = true;
    EXPECT_EQ(Make()->CallForString(request, Token())->GetService()->GetId(), "l");
    EXPECT_EQ(asked, Lines{"l"});
    EXPECT_EQ(Caught(), Lines{});
}

TEST_F(CallRoadTest, StreamGoesToTheWriterOfTheCallerFromTheServerThatAnswers) {
    sockets.OnConnect("l:80", {111, true, false, 0});
    std::string text = "before";
    const auto response = Make()->CallForStream(request, std::make_shared<SyncStringWriter>(text), Token());
    EXPECT_EQ(response->GetService()->GetId(), "r");
    EXPECT_EQ(text, "hi");
    EXPECT_EQ(response->GetBody(), "");
}

TEST_F(CallRoadTest, ServerThatRefusesIsLeftForTheNextAndRemembered) {
    sockets.OnConnect("l:80", {111, true, false, 0});
    const auto response = Make()->CallForString(request, Token());
    EXPECT_EQ(response->GetService()->GetId(), "r");
    EXPECT_EQ(response->GetBody(), "hi");
    EXPECT_EQ(asked, Lines{"r"});
    EXPECT_EQ(Caught(), Lines{"Caught exception: Error 11.0"});
    EXPECT_EQ(memory->Get("l").failureCount, 1);
    EXPECT_EQ(memory->Get("l").nextRetryTime, clock.Now() + Duration(1s));
    EXPECT_FALSE(memory->Get("r").failed);
}

TEST_F(CallRoadTest, AwayFromAHomeThatRefusesOneCallInFiftyWaitsForItAndIsAnsweredElsewhere) {
    sockets.OnConnect("l:80", {111, true, false, 0});
    const auto gateway = Make();
    std::vector<std::pair<int, Duration>> waits;
    for (int call = 1; call <= 150; ++call) {
        const TimePoint start = clock.Now();
        const auto answer = gateway->CallForString(CreateServiceRequest("GET", "/path", "1"), Token());
        EXPECT_EQ(answer->GetService()->GetId(), "r");
        if (clock.Now() != start) waits.emplace_back(call, clock.Now() - start);
    }
    EXPECT_EQ(waits, (std::vector<std::pair<int, Duration>>{{51, 1s}, {100, 2s}, {149, 4s}}));
}

TEST_F(CallRoadTest, SilentServerIsLeftForTheNextAfterTheTimeOfOneAttempt) {
    const TimePoint start = clock.Now();
    const auto response = Make()->CallForString(request, Token());
    EXPECT_EQ(response->GetService()->GetId(), "r");
    EXPECT_EQ(clock.Now() - start, Duration(100s));
    EXPECT_EQ(asked, (Lines{"l", "r"}));  // a time-out is not tried again on the same server
    EXPECT_EQ(Caught(), Lines{"Caught exception: Error 11.13"});
    EXPECT_EQ(memory->Get("l").failureCount, 1);
    EXPECT_EQ(memory->Get("l").nextRetryTime, clock.Now() + Duration(1s));
}

TEST_F(CallRoadTest, WithAllServersSilentTheCallSaysThatNoneResponded) {
    remoteAnswers = false;
    const TimePoint start = clock.Now();
    try {
        Make()->CallForString(request, Token());
        ADD_FAILURE() << "nothing thrown";
    } catch (const CommunicationsError& failure) {
        EXPECT_STREQ(failure.what(), "No IServiceResponse from any servers.");
    }
    EXPECT_EQ(clock.Now() - start, Duration(200s));
    EXPECT_EQ(asked, (Lines{"l", "r"}));
    EXPECT_EQ(Caught(),
              (Lines{"Caught exception: Error 11.13", "Caught exception: Error 11.13",
                     "Failure from all servers.", "Throwing exception since no server responded."}));
    EXPECT_TRUE(memory->Get("r").failed);
}

TEST_F(CallRoadTest, OverallLimitEndsACallInTheMiddleOfAnAttempt) {
    request->SetOverallTimeout(30s);
    const TimePoint start = clock.Now();
    try {
        Make()->CallForString(request, Token());
        ADD_FAILURE() << "nothing thrown";
    } catch (const Cancellation::TimeoutException& failure) {
        EXPECT_STREQ(failure.what(), "Operation timed out.");
    }
    EXPECT_EQ(clock.Now() - start, Duration(30s));
    EXPECT_EQ(asked, Lines{"l"});
    EXPECT_EQ(Caught(), (Lines{"Caught exception: Operation timed out.", "Operation was cancelled."}));
}

}  // namespace
}  // namespace Ombry::Tests
