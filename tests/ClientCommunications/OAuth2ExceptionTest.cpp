#include "ClientCommunications/Impl/OAuth2Exception.h"
#include "ObjectMapping/Serialization.h"

namespace Ombry::Tests {
namespace {

using ClientCommunications::OAuth2Exception;

TEST(OAuth2ExceptionTest, MapsTheErrorDocumentInOrderAndResets) {
    OAuth2Exception failure;
    failure.error = "e";
    failure.errorDescription = "d";
    failure.errorUri = "u";
    EXPECT_STREQ(failure.what(), "OAuth2 exception");
    EXPECT_EQ(ObjectMapping::SerializeObject(failure, nullptr),
              "{\n    \"error\": \"e\",\n    \"error_description\": \"d\",\n    \"error_uri\": \"u\"\n}");
    failure.Reset();
    EXPECT_EQ(failure.error + failure.errorDescription + failure.errorUri, "");
    EXPECT_STREQ(failure.what(), "OAuth2 exception");
}

}  // namespace
}  // namespace Ombry::Tests
