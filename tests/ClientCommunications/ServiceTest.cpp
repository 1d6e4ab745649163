#include "ClientCommunications/Impl/RuntimeTexts.h"
#include "ClientCommunications/Impl/Service.h"
#include "ObjectMapping/Serialization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using ::testing::ElementsAre;
using ::testing::Pair;

ServiceDto::Property Property(const std::string& key, const std::string& value) {
    ServiceDto::Property property;
    property.key = key;
    property.value = value;
    return property;
}

ServiceDto Record() {
    ServiceDto dto;
    dto.serviceHostname = "host";
    dto.serviceNamespace = "namespace";
    dto.id = "id";
    dto.serviceName = "name";
    dto.endpointUrl = "https://host";
    dto.endpointCert = "AAAA";
    return dto;
}

TEST(ServiceTest, TellsWhatItsRecordSays) {
    const Service service(Record());
    EXPECT_EQ(service.GetEndpointUrl(), "https://host");
    EXPECT_EQ(service.GetEndpointCertificate(), "AAAA");
    EXPECT_EQ(service.GetId(), "id");
    EXPECT_EQ(service.GetHostname(), "host");
    EXPECT_EQ(service.GetNamespace(), "namespace");
    EXPECT_EQ(service.GetName(), "name");
    EXPECT_THAT(service.GetProperties(), ::testing::IsEmpty());
}

TEST(ServiceTest, ARepeatedPropertyKeepsItsLastValue) {
    ServiceDto dto = Record();
    dto.properties = {Property("b", "1"), Property("a", "2"), Property("b", "3"), Property("B", "4")};
    EXPECT_THAT(Service(dto).GetProperties(), ElementsAre(Pair("B", "4"), Pair("a", "2"), Pair("b", "3")));
}

TEST(ServiceTest, EqualityIsOfIdUrlHostNameAndNamespaceExactly) {
    const Service service(Record());
    EXPECT_TRUE(service.Equals(Service(Record())));
    for (std::string ServiceDto::*field :
         {&ServiceDto::id, &ServiceDto::endpointUrl, &ServiceDto::serviceHostname, &ServiceDto::serviceName,
          &ServiceDto::serviceNamespace}) {
        ServiceDto other = Record();
        (other.*field)[0] = 'X';
        EXPECT_FALSE(service.Equals(Service(other))) << other.*field;
        other = Record();
        (other.*field)[0] = static_cast<char>((other.*field)[0] - 'a' + 'A');
        EXPECT_FALSE(service.Equals(Service(other))) << other.*field;
    }
}

TEST(ServiceTest, CertificateAndPropertiesTakeNoPartInEquality) {
    ServiceDto other = Record();
    other.endpointCert = "BBBB";
    other.properties = {Property("a", "b")};
    EXPECT_TRUE(Service(Record()).Equals(Service(other)));
}

TEST(ServiceDtoTest, TravelsWithItsKeysInTheirOrderAndComesBackWhole) {
    ServiceDto dto = Record();
    dto.properties = {Property("k1", "v1"), Property("k2", "v2")};
    std::string text = ObjectMapping::SerializeObject(dto, nullptr);
    std::size_t last = 0;
    for (const char* key :
         {"\"serviceHostname\"", "\"serviceNamespace\"", "\"id\"", "\"serviceName\"", "\"endpointUrl\"",
          "\"endpointCert\"", "\"properties\"", "\"key\"", "\"value\""}) {
        const std::size_t at = text.find(key, last);
        ASSERT_NE(at, std::string::npos) << key << " in " << text;
        last = at;
    }
    ServiceDto read;
    ObjectMapping::DeserializeObject(read, text, nullptr, true);
    EXPECT_TRUE(Service(read).Equals(Service(dto)));
    EXPECT_EQ(read.endpointCert, "AAAA");
    EXPECT_THAT(Service(read).GetProperties(), ElementsAre(Pair("k1", "v1"), Pair("k2", "v2")));
    read.Reset();
    EXPECT_EQ(read.id, "");
    EXPECT_TRUE(read.properties.empty());
}

TEST(ServiceDtoTest, ANullAmongThePropertiesIsAFailure) {
    ServiceDto dto = Record();
    dto.properties = {Property("k", "v")};
    std::string text = ObjectMapping::SerializeObject(dto, nullptr);
    const std::size_t last = text.rfind(']');
    text.insert(last, ", null");
    try {
        ObjectMapping::DeserializeObject(dto, text, nullptr, false);
        FAIL() << "a null was taken for a property";
    } catch (const std::runtime_error& failure) {
        EXPECT_EQ(failure.what(),
                  "ERROR: Expected type 'object' when processing '.properties.properties[1]' "
                  "serialization_='" +
                      text + "'");
    }
}

TEST(ServiceDtoTest, APropertyIsReset) {
    ServiceDto::Property property = Property("k", "v");
    property.Reset();
    EXPECT_EQ(property.key + property.value, "");
}

TEST(ServiceDtoTest, EveryKeyIsRequired) {
    ServiceDto dto = Record();
    dto.properties = {Property("k1", "v1")};
    const std::string text = ObjectMapping::SerializeObject(dto, nullptr);
    for (const std::string key : {"serviceHostname", "serviceNamespace", "id", "serviceName", "endpointUrl",
                                  "endpointCert", "properties", "key", "value"}) {
        std::string without = text;
        without.replace(without.find('"' + key + '"'), key.size() + 2, "\"another\"");
        ServiceDto read;
        EXPECT_THROW(ObjectMapping::DeserializeObject(read, without, nullptr, true), std::runtime_error)
            << key;
    }
}

// --- Texts of the designed platform ---

struct NumberCase {
    const char* text;
    std::uint32_t value;
};

class ParseUnsigned32Test : public ::testing::TestWithParam<NumberCase> {};

TEST_P(ParseUnsigned32Test, GivesTheNumber) {
    EXPECT_EQ(ParseUnsigned32(GetParam().text), GetParam().value) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(All, ParseUnsigned32Test,
                         ::testing::Values(NumberCase{"0", 0}, NumberCase{"80", 80},
                                           NumberCase{" \t\n80", 80}, NumberCase{"+80", 80},
                                           NumberCase{"80x", 80}, NumberCase{"80 9", 80},
                                           NumberCase{"4294967295", 4294967295}, NumberCase{"-1", 4294967295},
                                           NumberCase{"-4294967295", 1}, NumberCase{"007", 7},
                                           NumberCase{"0x10", 0}));

TEST(RuntimeTextsTest, ANumberThatIsNoneOrTooLargeThrowsTheTextsOfTheDesignedPlatform) {
    for (const char* text : {"", " ", "x", "-", "+", "+-1", "- 1", "\b1",
                             "\x0E"
                             "1"}) {
        try {
            ParseUnsigned32(text);
            FAIL() << text;
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), "invalid stoul argument");
        }
    }
    for (const char* text : {"4294967296", "-4294967296", "99999999999999999999999"}) {
        try {
            ParseUnsigned32(text);
            FAIL() << text;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "stoul argument out of range");
        }
    }
}

TEST(RuntimeTextsTest, APositionBeyondATextThrowsTheTextOfTheDesignedPlatform) {
    try {
        ThrowInvalidStringPosition();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid string position");
    }
}

}  // namespace
}  // namespace Ombry::Tests
