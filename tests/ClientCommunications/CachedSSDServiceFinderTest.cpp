#include "ClientCommunications/Impl/CachedSSDServiceFinder.h"
#include "ClientCommunications/Impl/FoundServices.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using Cancellation::Token;

class FixedCache : public IFoundServicesCache {
public:
    TimePoint GetNextRefreshTime() override { return TimePoint(); }
    std::shared_ptr<IFoundServices> GetFoundServices() override {
        ++reads;
        return services;
    }
    void Save(std::shared_ptr<IFoundServices>, TimePoint) override { ADD_FAILURE() << "not to be saved"; }

    std::shared_ptr<IFoundServices> services;
    int reads = 0;
};

TEST(CachedSSDServiceFinderTest, ItReturnsTheCurrentSetOfItsCache) {
    const auto cache = std::make_shared<FixedCache>();
    CachedSSDServiceFinder finder(cache);
    cache->services = std::make_shared<FoundServices>();
    EXPECT_EQ(finder.Find(Token()), cache->services);
    cache->services = std::make_shared<FoundServices>();
    EXPECT_EQ(finder.Find(nullptr, Token()), cache->services);
    EXPECT_EQ(cache->reads, 2);
}

TEST(CachedSSDServiceFinderTest, ACancelledTokenIsNotAsked) {
    const auto cache = std::make_shared<FixedCache>();
    CachedSSDServiceFinder finder(cache);
    const Token token = Cancellation::CreateCancellable();
    token.Cancel();
    EXPECT_NO_THROW(finder.Find(token));
}

}  // namespace
}  // namespace Ombry::Tests
