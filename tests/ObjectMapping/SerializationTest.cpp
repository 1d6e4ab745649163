#include "tests/ObjectMapping/MappingSupport.h"

#include <stdexcept>
#include <string>

namespace Ombry::Tests {
namespace {

using namespace ObjectMapping;

class OAuth2TokenLike : public ObjectIf {
public:
    void Map(MapperIf& mapper) override {
        mapper.Field("token_type", tokenType, nullptr);
        mapper.Field("expires_in", expiresIn, nullptr);
    }
    void Reset() override { *this = OAuth2TokenLike(); }

    std::string tokenType = "none";
    unsigned long expiresIn = 0;
};

/// A field that older stored text may lack: written always, read if it is there.
class WithLaterField : public ObjectIf {
public:
    void Map(MapperIf& mapper) override {
        bool present = true;
        mapper.Field("servicename", serviceName, &present);
    }
    void Reset() override { serviceName.clear(); }

    std::string serviceName;
};

class EmptyDictionaryLike : public ObjectIf {
public:
    void Map(MapperIf&) override {}
    void Reset() override {}
};

/// An object that is an exception as well.
class ErrorDocument : public ObjectIf, public std::runtime_error {
public:
    ErrorDocument() : std::runtime_error("error document") {}
    void Map(MapperIf& mapper) override { mapper.Field("error", error, nullptr); }
    void Reset() override { error.clear(); }

    std::string error;
};

TEST(SerializeObjectTest, WritesTheFieldsOfMapInItsOrder) {
    OAuth2TokenLike token;
    token.tokenType = "bearer";
    token.expiresIn = 3600;
    EXPECT_EQ(SerializeObject(token, nullptr),
              "{\n    \"token_type\": \"bearer\",\n    \"expires_in\": 3600\n}");
}

TEST(SerializeObjectTest, WritesNullForAnObjectThatIsAbsent) {
    OAuth2TokenLike token;
    bool present = false;
    EXPECT_EQ(SerializeObject(token, &present), "null");
    present = true;
    EXPECT_NE(SerializeObject(token, &present), "null");
}

TEST(SerializeObjectTest, WritesAnObjectWithoutFieldsAsBraces) {
    EmptyDictionaryLike object;
    EXPECT_EQ(SerializeObject(object, nullptr), "{}");
}

TEST(DeserializeObjectTest, ReadsWhatSerializeObjectWrote) {
    OAuth2TokenLike token, copy;
    token.tokenType = "quote \" tab \t NUL \\ \x1f";
    token.tokenType.push_back('\0');
    token.tokenType += "behind";
    token.expiresIn = 4294967295UL;
    DeserializeObject(copy, SerializeObject(token, nullptr), nullptr, true);
    EXPECT_EQ(copy.tokenType, token.tokenType);
    EXPECT_EQ(copy.expiresIn, token.expiresIn);
}

TEST(DeserializeObjectTest, SetsPresentAndResetsOnANullRoot) {
    OAuth2TokenLike token;
    token.tokenType = "bearer";
    bool present = false;
    DeserializeObject(token, R"({"token_type":"x","expires_in":1})", &present, true);
    EXPECT_TRUE(present);
    DeserializeObject(token, "null", &present, true);
    EXPECT_FALSE(present);
    EXPECT_EQ(token.tokenType, "none");
}

TEST(DeserializeObjectTest, HandsItsStrictnessOn) {
    OAuth2TokenLike token;
    token.tokenType = "kept";
    token.expiresIn = 7;
    DeserializeObject(token, "{}", nullptr, false);
    EXPECT_EQ(token.tokenType, "kept");
    EXPECT_EQ(token.expiresIn, 7u);
    EXPECT_EQ(FailureOf([&] { DeserializeObject(token, "{}", nullptr, true); }),
              "ERROR: Missing required field '.token_type' serialization_='{}'");
}

TEST(DeserializeObjectTest, LeavesTheObjectAsFarAsItHadGot) {
    OAuth2TokenLike token;
    EXPECT_THROW(DeserializeObject(token, R"({"token_type":"read","expires_in":"x"})", nullptr, true),
                 std::runtime_error);
    EXPECT_EQ(token.tokenType, "read");
}

TEST(DeserializeObjectTest, ToleratesTheAbsenceOfAFieldDeclaredThroughALocalFlag) {
    WithLaterField object;
    object.serviceName = "old";
    EXPECT_EQ(SerializeObject(object, nullptr), "{\n    \"servicename\": \"old\"\n}");
    DeserializeObject(object, "{}", nullptr, true);
    EXPECT_EQ(object.serviceName, "");
    DeserializeObject(object, R"({"servicename":"new"})", nullptr, true);
    EXPECT_EQ(object.serviceName, "new");
}

TEST(DeserializeObjectTest, ReadsIntoAnObjectThatIsAlsoAnException) {
    ErrorDocument document;
    DeserializeObject(document, R"({"error":"invalid_client"})", nullptr, false);
    EXPECT_EQ(document.error, "invalid_client");
    EXPECT_STREQ(document.what(), "error document");
}

}  // namespace
}  // namespace Ombry::Tests
