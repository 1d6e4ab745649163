#include "ClientCommunications/LocalConfiguration.h"
#include "ObjectMapping/Serialization.h"

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

TEST(LocalConfigurationTest, TheBootstrapFileHasOneRequiredField) {
    OmbrySecurityConfig config;
    config.ssdsUri = "https://host";
    EXPECT_EQ(ObjectMapping::SerializeObject(config, nullptr), "{\n    \"ssdsUri\": \"https://host\"\n}");
    EXPECT_THROW(ObjectMapping::DeserializeObject(config, "{}", nullptr, true), std::runtime_error);
    config.Reset();
    EXPECT_EQ(config.ssdsUri, "");
}

TEST(LocalConfigurationTest, TheRecordOfAServiceHasKeysInCapitalsAndStartsWithAVersion) {
    LocalServiceStorageDto record;
    EXPECT_EQ(record.version, "1.0");
    EXPECT_EQ(record.guid, "");
    record.guid = "g";
    EXPECT_EQ(ObjectMapping::SerializeObject(record, nullptr),
              "{\n    \"Version\": \"1.0\",\n    \"Guid\": \"g\"\n}");
    EXPECT_THROW(ObjectMapping::DeserializeObject(record, R"({"Version":"1.0"})", nullptr, true),
                 std::runtime_error);
    EXPECT_THROW(ObjectMapping::DeserializeObject(record, R"({"Guid":"g"})", nullptr, true),
                 std::runtime_error);
    record.version = "2";
    record.Reset();
    EXPECT_EQ(record.version, "1.0");
    EXPECT_EQ(record.guid, "");
}

}  // namespace
}  // namespace Ombry::Tests
