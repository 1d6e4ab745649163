#include "ClientCommunications/EnrollmentRecords.h"
#include "ObjectMapping/Serialization.h"
#include "tests/Fakes/FreedMemory.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications::SfsGateway;
using ObjectMapping::DeserializeObject;
using ObjectMapping::SerializeObject;

template <class T>
std::string GetFailure(const Property<T>& property) {
    try {
        property.Get();
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return "";
}

ServicePropsInner MakeProps(const std::string& key, const std::string& value) {
    ServicePropsInner props;
    props.key.Set(key);
    props.value.Set(value);
    return props;
}

/// Every field set.
LocationAwareClient MakeFullClient() {
    LocationAwareClient client;
    client.id.Set("1");
    client.clientSecretId.Set("2");
    client.publicCertPem.Set("3");
    client.groups.Set({"4", "5"});
    client.description.Set("6");
    client.datacenterId.Set("7");
    client.rolesPerService.Set(EmptyDictionary());
    return client;
}

ServiceEnrollment MakeFullService() {
    ServiceEnrollment service;
    service.serviceId.Set("1");
    service.serviceName.Set("2");
    service.clientId.Set("3");
    service.directUrl.Set("4");
    service.directCert.Set("5");
    service.endpointUrl.Set("6");
    service.endpointCert.Set("7");
    service.serviceHostname.Set("8");
    service.serviceNamespace.Set("9");
    service.datacenterId.Set("10");
    service.links.Set(EmptyDictionary());
    service.roles.Set({"11"});
    service.ttlSeconds.Set(-12);
    service.status.Set("13");
    service.serviceProps.Set({MakeProps("14", "15"), ServicePropsInner()});
    return service;
}

TEST(PropertyTest, StartsUnsetAndSaysSo) {
    EXPECT_EQ(GetFailure(Property<std::string>("id")), "id is not set.");
    EXPECT_EQ(GetFailure(Property<int>("ttlSeconds")), "ttlSeconds is not set.");
    EXPECT_FALSE(Property<int>("a").IsSet());
}

TEST(PropertyTest, KeepsTheLastValueUntilReset) {
    Property<std::string> property("id");
    property.Set("a");
    property.Set("");
    EXPECT_TRUE(property.IsSet());
    EXPECT_EQ(property.Get(), "");
    property.Set("b");
    EXPECT_EQ(property.Get(), "b");

    property.Reset();

    EXPECT_FALSE(property.IsSet());
    EXPECT_EQ(GetFailure(property), "id is not set.");
}

TEST(LocationAwareClientTest, BodyOfTheToolHasNoMissingKeyAndNoRole) {
    LocationAwareClient client;
    client.id.Set("1");
    client.clientSecretId.Set("2");
    client.datacenterId.Set("dc");
    client.rolesPerService.Set(EmptyDictionary());

    EXPECT_EQ(SerializeObject(client, nullptr),
              "{\n"
              "    \"id\": \"1\",\n"
              "    \"clientSecretId\": \"2\",\n"
              "    \"publicCertPem\": null,\n"
              "    \"groups\": null,\n"
              "    \"description\": null,\n"
              "    \"datacenterId\": \"dc\",\n"
              "    \"rolesPerService\": {}\n"
              "}");
}

TEST(LocationAwareClientTest, EveryFieldIsWrittenInItsPlaceAndReadBack) {
    LocationAwareClient client = MakeFullClient();
    const std::string text = SerializeObject(client, nullptr);

    EXPECT_EQ(text,
              "{\n"
              "    \"id\": \"1\",\n"
              "    \"clientSecretId\": \"2\",\n"
              "    \"publicCertPem\": \"3\",\n"
              "    \"groups\": [\n"
              "        \"4\",\n"
              "        \"5\"\n"
              "    ],\n"
              "    \"description\": \"6\",\n"
              "    \"datacenterId\": \"7\",\n"
              "    \"rolesPerService\": {}\n"
              "}");
    LocationAwareClient read;
    DeserializeObject(read, text, nullptr, true);
    EXPECT_EQ(SerializeObject(read, nullptr), text);
    EXPECT_EQ(read.groups.Get(), (std::list<std::string>{"4", "5"}));
}

TEST(LocationAwareClientTest, NullAndMissingKeysReadAsUnset) {
    LocationAwareClient client;
    client.id.Set("old");
    client.groups.Set({"old"});
    client.description.Set("old");
    client.rolesPerService.Set(EmptyDictionary());

    DeserializeObject(client, R"({"id": null, "groups": null, "description": "new"})", nullptr, true);

    EXPECT_FALSE(client.id.IsSet());
    EXPECT_FALSE(client.groups.IsSet());
    EXPECT_EQ(client.description.Get(), "new");
    EXPECT_FALSE(client.rolesPerService.IsSet());
}

TEST(LocationAwareClientTest, NullsAmongTheGroupsAreDroppedWithoutAHole) {
    LocationAwareClient client;
    DeserializeObject(client, R"({"groups": [null, "a", null, "b"]})", nullptr, true);
    EXPECT_EQ(client.groups.Get(), (std::list<std::string>{"a", "b"}));
}

TEST(LocationAwareClientTest, ResetUnsetsEveryField) {
    LocationAwareClient unset;
    LocationAwareClient client = MakeFullClient();

    client.Reset();

    EXPECT_EQ(SerializeObject(client, nullptr), SerializeObject(unset, nullptr));
}

TEST(LocationAwareClientTest, ResetLeavesNeitherIdNorSecretInFreedMemory) {
    const std::string plain = "an id, or a secret, too long for a string object";
    const FreedMemory freed(plain);
    {
        LocationAwareClient client;
        client.id.Set(plain);
        client.clientSecretId.Set(plain);
        client.Reset();
    }
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST(ServiceEnrollmentTest, EveryFieldIsWrittenInItsPlaceAndReadBack) {
    ServiceEnrollment service = MakeFullService();
    const std::string text = SerializeObject(service, nullptr);

    EXPECT_EQ(text,
              "{\n"
              "    \"serviceId\": \"1\",\n"
              "    \"serviceName\": \"2\",\n"
              "    \"clientId\": \"3\",\n"
              "    \"directUrl\": \"4\",\n"
              "    \"directCert\": \"5\",\n"
              "    \"endpointUrl\": \"6\",\n"
              "    \"endpointCert\": \"7\",\n"
              "    \"serviceHostname\": \"8\",\n"
              "    \"serviceNamespace\": \"9\",\n"
              "    \"datacenterID\": \"10\",\n"
              "    \"links\": {},\n"
              "    \"roles\": [\n"
              "        \"11\"\n"
              "    ],\n"
              "    \"ttlSeconds\": -12,\n"
              "    \"status\": \"13\",\n"
              "    \"serviceProps\": [\n"
              "        {\n"
              "            \"key\": \"14\",\n"
              "            \"value\": \"15\"\n"
              "        },\n"
              "        {\n"
              "            \"key\": null,\n"
              "            \"value\": null\n"
              "        }\n"
              "    ]\n"
              "}");
    ServiceEnrollment read;
    DeserializeObject(read, text, nullptr, true);
    EXPECT_EQ(SerializeObject(read, nullptr), text);
    EXPECT_EQ(read.ttlSeconds.Get(), -12);
}

TEST(ServiceEnrollmentTest, NullsAmongThePropertiesAreDroppedWithoutAHole) {
    ServiceEnrollment service;
    DeserializeObject(service, R"({"serviceProps": [null, {"key": "k", "value": null}, null]})", nullptr,
                      true);
    ASSERT_EQ(service.serviceProps.Get().size(), 1u);
    EXPECT_EQ(service.serviceProps.Get().front().key.Get(), "k");
    EXPECT_FALSE(service.serviceProps.Get().front().value.IsSet());
}

TEST(ServiceEnrollmentTest, ALifetimeWrittenAsADoubleIsReadButNotSetOnPurpose) {
    ServiceEnrollment service;
    DeserializeObject(service, R"({"ttlSeconds": 5.0})", nullptr, true);
    EXPECT_FALSE(service.ttlSeconds.IsSet());
    DeserializeObject(service, R"({"ttlSeconds": 5})", nullptr, true);
    EXPECT_EQ(service.ttlSeconds.Get(), 5);
}

TEST(ServiceEnrollmentTest, ResetUnsetsEveryField) {
    ServiceEnrollment unset;
    ServiceEnrollment service = MakeFullService();

    service.Reset();

    EXPECT_EQ(SerializeObject(service, nullptr), SerializeObject(unset, nullptr));
    ServicePropsInner props = MakeProps("a", "b");
    props.Reset();
    EXPECT_FALSE(props.key.IsSet());
    EXPECT_FALSE(props.value.IsSet());
}

TEST(ServiceEnrollmentTest, ResetLeavesNoIdOfTheOwnerInFreedMemory) {
    const std::string id = "an id too long for a string object";
    const FreedMemory freed(id);
    {
        ServiceEnrollment service;
        service.clientId.Set(id);
        service.Reset();
    }
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

}  // namespace
}  // namespace Ombry::Tests
