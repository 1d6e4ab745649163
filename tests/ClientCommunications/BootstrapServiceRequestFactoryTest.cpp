#include "ClientCommunications/Impl/BootstrapServiceRequestFactory.h"
#include "ClientCommunications/RootRequestMetaData.h"
#include "tests/Fakes/HeadersOf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using testing::ElementsAre;
using testing::Pair;

TEST(BootstrapServiceRequestFactoryTest, RequestsCarryTheContractVersionAndNothingElse) {
    BootstrapServiceRequestFactory factory;
    const auto plain = factory.Create("GET", "/path", "7");
    const auto dropped = factory.Create("GET", "/path", "7", RootRequestMetaData::create("Type"));
    for (const auto& request : {plain, dropped}) {
        EXPECT_EQ(request->GetMethod(), "GET");
        EXPECT_EQ(request->GetPath(), "/path");
        EXPECT_THAT(HeadersOf(*request), ElementsAre(Pair("Contract-Version", "7")));
        EXPECT_EQ(request->GetBodyReader(), nullptr);
    }
}

}  // namespace
}  // namespace Ombry::Tests
