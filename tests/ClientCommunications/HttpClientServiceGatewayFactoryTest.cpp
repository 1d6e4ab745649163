#include "ClientCommunications/Impl/HttpClientServiceGatewayFactory.h"
#include "tests/Fakes/LockFree.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using ClientCommunications::HttpClientServiceGatewayFactory;

TEST(HttpClientServiceGatewayFactoryTest, APoolThatStartedIsNoFailure) {
    EXPECT_NO_THROW(HttpClientServiceGatewayFactory::RequireStarted(0));
}

TEST(HttpClientServiceGatewayFactoryTest, APoolThatDidNotStartIsReportedWithItsCode) {
    for (const std::uint32_t code : {1u, 7u, 4294967295u}) {
        try {
            HttpClientServiceGatewayFactory::RequireStarted(code);
            ADD_FAILURE() << "No exception for " << code;
        } catch (const std::runtime_error& failure) {
            EXPECT_EQ(failure.what(),
                      "Connection pool initialization failed due to error " + std::to_string(code));
        }
    }
}

// For a thread sanitizer.
TEST(HttpClientServiceGatewayFactoryTest, GatewaysAreMadeByTwoThreadsTogether) {
    HttpClientServiceGatewayFactory factory(nullptr, false);
    const auto create = [&factory, services = std::array{MakeService("a"), MakeService("b")}](int thread) {
        EXPECT_TRUE(factory.Create(services[static_cast<std::size_t>(thread)]));
    };
    RunInStep({create, create});
}

}  // namespace
}  // namespace Ombry::Tests
