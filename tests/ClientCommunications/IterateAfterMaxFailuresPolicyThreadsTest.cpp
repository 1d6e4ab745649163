#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "ClientCommunications/Impl/IterateAfterMaxFailuresPolicy.h"
#include "tests/Fakes/FakeService.h"

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using Cancellation::Token;

// Nothing here but the policy has a lock, so that a thread sanitizer sees every access of the policy that is
// without one: locks of fakes would order what the policy leaves unordered.

class NoMemory : public IFailedServices {
public:
    FailureInfo Get(const std::string&) override { return {}; }
    void RecordFailure(const std::string&, bool) override {}
    void Remove(const std::string&) override {}
};

class FixedFinder : public IServiceFinder {
public:
    explicit FixedFinder(std::vector<std::string> ids) : ids(std::move(ids)) {}
    std::shared_ptr<IFoundServices> Find(std::shared_ptr<IRootRequestMetaData>, Token token) override {
        return Find(std::move(token));
    }
    std::shared_ptr<IFoundServices> Find(Token) override {
        class Ordered : public IFoundServices {
        public:
            using Services = std::list<std::shared_ptr<IService>>;
            explicit Ordered(const std::vector<std::string>& ids) : remote(MakeServices(ids)) {}
            Services GetAll() const override { return remote; }
            Services GetLocal() const override { return {}; }
            void AddLocal(std::shared_ptr<IService>) override {}
            void AddLocal(Services) override {}
            Services GetRemote() const override { return remote; }
            void AddRemote(std::shared_ptr<IService>) override {}
            void AddRemote(Services) override {}
            void CopyFrom(std::shared_ptr<IFoundServices>) override {}

        private:
            const Services remote;
        };
        return std::make_shared<Ordered>(ids);
    }

private:
    const std::vector<std::string> ids;
};

/// Four threads that each make calls over one shared state.
void MakeCalls(const std::vector<std::string>& ids, int calls,
               const std::function<void(ICandidateServiceFinder& call, int n)>& work) {
    const auto shared = std::make_shared<IterateAfterMaxFailuresPolicyCandidateFinderFactory>(
        std::make_shared<NoMemory>(), nullptr, 2);
    const auto finder = std::make_shared<FixedFinder>(ids);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < calls; ++n)
                work(*shared->Create(finder), n);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

TEST(IterateAfterMaxFailuresPolicyThreadsTest, CallsThatSucceedShareTheirStateUnderItsLock) {
    MakeCalls({"r", "s"}, 120, [](ICandidateServiceFinder& call, int) {
        EXPECT_TRUE(call.GetNextCandidate(Token()).service);
        call.MarkSuccess();
    });
}

TEST(IterateAfterMaxFailuresPolicyThreadsTest, CallsThatFailShareTheirStateUnderItsLock) {
    MakeCalls({"r", "s"}, 50, [](ICandidateServiceFinder& call, int n) {
        EXPECT_TRUE(call.GetNextCandidate(Token()).service);
        if (n % 2 == 0) call.GetNextCandidate(Token());
    });
}

TEST(IterateAfterMaxFailuresPolicyThreadsTest, CallsThatFindNothingShareTheirStateUnderItsLock) {
    MakeCalls({}, 50, [](ICandidateServiceFinder& call, int) {
        EXPECT_FALSE(call.GetNextCandidate(Token()).service);
    });
}

}  // namespace
}  // namespace Ombry::Tests
