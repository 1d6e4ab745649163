#include "ClientCommunications/Impl/LocalServiceLookup.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

/// Texts by name; a name without one cannot be loaded.
class NamedTexts : public INamedStorage {
public:
    explicit NamedTexts(std::map<std::string, std::string> texts) : texts(std::move(texts)) {}

    std::unique_ptr<IStorage> Get(const std::string& name) override {
        const auto found = texts.find(name);
        return std::make_unique<Text>(found == texts.end() ? nullptr : &found->second);
    }
    void Delete(const std::string&) override { ADD_FAILURE() << "nothing is to be deleted"; }
    void Rename(const std::string&, const std::string&) override { ADD_FAILURE() << "nor renamed"; }

private:
    class Text : public IStorage {
    public:
        explicit Text(const std::string* text) : text(text) {}
        std::string Load() override {
            if (!text) throw std::runtime_error("no such text");
            return *text;
        }
        void Save(const std::string&) override { ADD_FAILURE() << "nothing is to be saved"; }

    private:
        const std::string* text;
    };

    const std::map<std::string, std::string> texts;
};

std::string LookupFailure(LocalServiceLookup& lookup, const std::string& name) {
    try {
        return lookup.Lookup(name);
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
}

TEST(LocalServiceLookupTest, TheRecordOfThatNameGivesTheId) {
    LocalServiceLookup lookup(std::make_shared<NamedTexts>(std::map<std::string, std::string>{
        {"one", R"({"Version":"1.0","Guid":"id of one"})"}, {"two", R"({"Guid":"2","Version":"9"})"}}));
    EXPECT_EQ(lookup.Lookup("one"), "id of one");
    EXPECT_EQ(lookup.Lookup("two"), "2");
}

TEST(LocalServiceLookupTest, AMissingRecordIsAFailureOfTheStorage) {
    LocalServiceLookup lookup(std::make_shared<NamedTexts>(std::map<std::string, std::string>{}));
    EXPECT_EQ(LookupFailure(lookup, "one"), "no such text");
}

TEST(LocalServiceLookupTest, ARecordThatLacksAKeyIsAFailure) {
    LocalServiceLookup lookup(std::make_shared<NamedTexts>(std::map<std::string, std::string>{
        {"noguid", R"({"Version":"1.0"})"}, {"nover", R"({"Guid":"g"})"}}));
    EXPECT_EQ(LookupFailure(lookup, "noguid"),
              R"(ERROR: Missing required field '.Guid' serialization_='{"Version":"1.0"}')");
    EXPECT_EQ(LookupFailure(lookup, "nover"),
              R"(ERROR: Missing required field '.Version' serialization_='{"Guid":"g"}')");
}

}  // namespace
}  // namespace Ombry::Tests
