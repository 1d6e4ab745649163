#include "ClientCommunications/Impl/ServiceFinderByUrl.h"
#include "ClientCommunications/Impl/ServiceFinderFactory.h"
#include "ClientCommunications/Impl/ServiceRequestFactory.h"
#include "tests/Fakes/FakeService.h"
#include "tests/Fakes/FakeServiceFinder.h"
#include "tests/Fakes/MemoryKeyValueStorage.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using Cancellation::Token;

class ServiceFinderFactoryTest : public testing::Test {
protected:
    std::string PathOf(std::shared_ptr<IServiceFinder> finder) {
        gateway->Answer(200, "{}");
        finder->Find(Token());
        return gateway->calls.back().path;
    }

    std::shared_ptr<ScriptedGateway> gateway = std::make_shared<ScriptedGateway>();
    std::shared_ptr<MemoryKeyValueStorage> cache = std::make_shared<MemoryKeyValueStorage>();
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    ServiceFinderFactory factory{gateway, std::make_shared<ServiceRequestFactory>("id", "client", "dc"),
                                 cache, logger};
};

TEST_F(ServiceFinderFactoryTest, EachWayOfAskingHasItsPath) {
    EXPECT_EQ(PathOf(factory.CreateById("7")), "/services/service/secure/id/7");
    EXPECT_EQ(PathOf(factory.CreateByName("n")), "/services/services/secure/name/n");
    EXPECT_EQ(PathOf(factory.CreateByNameAndParentId("n", "p")),
              "/services/services/secure/name/n/parent-id/p");
    EXPECT_EQ(PathOf(factory.CreateByNameAndRole("n", "r")), "/services/services/secure/name/n/role/r");
    EXPECT_EQ(PathOf(factory.CreateByNameNamespaceAndHost("n", "s", "h")),
              "/services/services/secure/name/n/namespace/s/host/h");
}

TEST_F(ServiceFinderFactoryTest, PartsGoIntoThePathUnescaped) {
    EXPECT_EQ(PathOf(factory.CreateByNameAndRole("a b/../%41?x", "\xc3\xa4#")),
              "/services/services/secure/name/a b/../%41?x/role/\xc3\xa4#");
}

TEST_F(ServiceFinderFactoryTest, FindersShareTheCacheAndTheLogger) {
    PathOf(factory.CreateByName("n"));
    EXPECT_TRUE(cache->Values().contains("/services/services/secure/name/n"));
    EXPECT_TRUE(logger->Has(0, "Storing result in cache."));
    factory.CreateByName("n")->Find(Token());
    EXPECT_EQ(gateway->calls.size(), 1u);
}

TEST_F(ServiceFinderFactoryTest, AFixedAddressIsFoundWithoutDiscovery) {
    const auto finder = factory.CreateByUrl("https://there:1");
    const auto found = finder->Find(Token());
    ASSERT_EQ(found->GetLocal().size(), 1u);
    EXPECT_TRUE(found->GetRemote().empty());
    const auto service = found->GetLocal().front();
    EXPECT_EQ(service->GetEndpointUrl(), "https://there:1");
    EXPECT_EQ(service->GetId() + service->GetName() + service->GetHostname() + service->GetNamespace() +
                  service->GetEndpointCertificate(),
              "");
    EXPECT_TRUE(service->GetProperties().empty());
    EXPECT_EQ(finder->Find(nullptr, Token()), found);  // one fixed set, whatever the form
    EXPECT_TRUE(gateway->calls.empty());
    const Token token = Cancellation::CreateCancellable();
    token.Cancel();
    EXPECT_EQ(finder->Find(nullptr, token), found);  // and whatever the token says
}

}  // namespace
}  // namespace Ombry::Tests
