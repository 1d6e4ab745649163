#include "ClientCommunications/Impl/LocalServiceFinderFactory.h"
#include "ClientCommunications/Impl/ServiceFinderFactory.h"
#include "ClientCommunications/Impl/ServiceRequestFactory.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

/// Knows one component of the machine.
class OneComponent : public ILocalServiceLookup {
public:
    std::string Lookup(const std::string& name) override {
        if (name != "component") throw std::runtime_error("no such component");
        return "parent";
    }
};

TEST(LocalServiceFinderFactoryTest, AServiceIsFoundThroughTheComponentItBelongsTo) {
    const auto gateway = std::make_shared<ScriptedGateway>();
    gateway->Answer(200, "{}");
    LocalServiceFinderFactory factory(
        std::make_shared<OneComponent>(),
        std::make_shared<ServiceFinderFactory>(
            gateway, std::make_shared<ServiceRequestFactory>("id", "client", "dc"), nullptr, nullptr));
    factory.Create("component", "service")->Find(Cancellation::Token());
    EXPECT_EQ(gateway->calls.at(0).path, "/services/services/secure/name/service/parent-id/parent");
    EXPECT_THROW(factory.Create("other", "service"), std::runtime_error);
}

}  // namespace
}  // namespace Ombry::Tests
