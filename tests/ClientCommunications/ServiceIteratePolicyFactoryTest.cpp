#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/ExponentialDelayRetryIteratorFactory.h"
#include "ClientCommunications/Impl/FailedServices.h"
#include "ClientCommunications/Impl/ServiceIteratePolicyFactory.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeFailedServices.h"
#include "tests/Fakes/FakeServiceFinder.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using namespace std::chrono_literals;
using Cancellation::Token;
using Lines = std::vector<std::string>;

/// The policies together with the executors that they make.
class ServiceIteratePolicyFactoryTest : public testing::Test {
protected:
    FakeClock clock;
    Platform::Testing::Replace<Platform::IClock> replaced{clock};
    std::shared_ptr<FakeFailedServices> failed = std::make_shared<FakeFailedServices>();
    std::shared_ptr<FakeServiceFinder> finder = std::make_shared<FakeServiceFinder>();
};

TEST_F(ServiceIteratePolicyFactoryTest, A503ThenA200AreTwoAttemptsAndTheFirstServerHasAFailureRecord) {
    const auto memory = std::make_shared<FailedServices>(
        std::make_shared<ExponentialDelayRetryIteratorFactory>(1s, 30s), 30min);
    ServiceIteratePolicyFactory policies(memory, nullptr);
    finder->Set({"l"}, {"r"});
    const auto executor = policies.CreateIterateAfterMaxFailures(1)->CreateExecutor(finder);
    Lines attempts;
    const auto response = executor->Execute(
        CreateServiceRequest("GET", "/", "1"), Token(), [&](auto service, bool isLocal, Token) {
            attempts.push_back(service->GetId() + (isLocal ? " local" : " remote"));
            return std::static_pointer_cast<IStringServiceResponse>(
                std::make_shared<PlainResponse>(isLocal ? 503 : 200, ""));
        });
    EXPECT_EQ(response->GetStatusCode(), 200);
    EXPECT_EQ(attempts, (Lines{"l local", "r remote"}));
    EXPECT_EQ(memory->Get("l").failureCount, 1);
    EXPECT_FALSE(memory->Get("r").failed);
}

TEST_F(ServiceIteratePolicyFactoryTest, ACallThatRunsOutOfRetriesRecordsAFailureOfItsLastServer) {
    ServiceIteratePolicyFactory policies(failed, nullptr);
    finder->Set({"l"}, {});
    const auto executor = policies.CreateIterateAfterMaxFailures(3)->CreateExecutor(finder);
    const auto request = CreateServiceRequest("GET", "/", "1");
    request->SetMaxRetries(0);
    EXPECT_THROW(executor->Execute(request, Token(),
                                   [](auto, bool, Token) -> std::shared_ptr<IServiceResponse> {
                                       throw CommunicationsError("refused");
                                   }),
                 CommunicationsError);
    EXPECT_EQ(failed->Changes(), (Lines{"failed l local"}));
}

TEST_F(ServiceIteratePolicyFactoryTest, BothPoliciesLogTheirWaitsAndTheirEnd) {
    finder->Set({"l"}, {});
    for (const bool sticky : {false, true}) {
        SCOPED_TRACE(sticky);
        const auto logger = std::make_shared<RecordingLogger>();
        ServiceIteratePolicyFactory policies(failed, logger);
        const auto policy =
            sticky ? policies.CreateIndefinitelySticky() : policies.CreateIterateAfterMaxFailures(1);
        failed->Set("l", {true, true, clock.Now() + Duration(1s), 1});
        EXPECT_THROW(policy->CreateExecutor(finder)->Execute(
                         CreateServiceRequest("GET", "/", "1"), Token(),
                         [](auto, bool, Token) -> std::shared_ptr<IServiceResponse> {
                             throw CommunicationsError("refused");
                         }),
                     CommunicationsError);
        EXPECT_EQ(logger->Messages(1),
                  (Lines{"Waiting 1000 milliseconds before trying to call https://l.example:8181 again.",
                         "Caught exception: refused", "Failure from all servers.",
                         "Throwing exception since no server responded."}));
    }
}

TEST_F(ServiceIteratePolicyFactoryTest, ThreadsShareOneExecutor) {
    ServiceIteratePolicyFactory policies(failed, nullptr);
    finder->Set({"l"}, {"r"});
    const auto executor = policies.CreateIterateAfterMaxFailures(2)->CreateExecutor(finder);
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 60; ++n) {
                const auto request = CreateServiceRequest("GET", "/", "1");
                const bool localIsDown = n < 55;
                const auto response = executor->Execute(request, Token(), [&](auto, bool isLocal, Token) {
                    const bool good = !isLocal || !localIsDown || (n + i) % 7 == 0;
                    return std::static_pointer_cast<IStringServiceResponse>(
                        std::make_shared<PlainResponse>(good ? 200 : 503, ""));
                });
                if (response->GetStatusCode() == 200) ++answered;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(answered, 240);
}

}  // namespace
}  // namespace Ombry::Tests
