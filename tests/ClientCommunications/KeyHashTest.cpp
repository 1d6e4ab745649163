#include "ClientCommunications/Impl/KeyHash.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "Platform/IHash.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using ClientCommunications::getSHA256HashBase64Encoded;
using Platform::Result;
using testing::ElementsAre;

/// Hashes nothing: gives a value of the test's choice, fails one step, and records what is made and released.
class ScriptedHash : public Platform::IHash {
public:
    Platform::ValueOr<std::unique_ptr<Platform::IHashProvider>> AcquireProvider() override {
        if (failing == "acquire") return Result::Failure(41);
        return std::unique_ptr<Platform::IHashProvider>(std::make_unique<Provider>(*this));
    }

    std::string failing;
    std::string value = std::string(32, 'v');
    std::uint32_t size = 32;
    std::vector<std::string> events;

private:
    class Object : public Platform::IHashObject {
    public:
        explicit Object(ScriptedHash& owner) : owner(owner) { owner.events.push_back("+hash"); }
        ~Object() override { owner.events.push_back("-hash"); }
        Result Update(std::string_view data) override {
            owner.events.push_back("update " + std::string(data));
            return owner.failing == "update" ? Result::Failure(43) : Result::Success();
        }
        Platform::ValueOr<std::uint32_t> GetSize() override {
            owner.events.push_back("size");
            if (owner.failing == "size") return Result::Failure(44);
            return owner.size;
        }
        Result GetValue(std::span<std::uint8_t> bytes) override {
            owner.events.push_back("value " + std::to_string(bytes.size()));
            if (owner.failing == "value") return Result::Failure(45);
            std::copy(owner.value.begin(), owner.value.end(), bytes.begin());
            return Result::Success();
        }

    private:
        ScriptedHash& owner;
    };

    class Provider : public Platform::IHashProvider {
    public:
        explicit Provider(ScriptedHash& owner) : owner(owner) { owner.events.push_back("+provider"); }
        ~Provider() override { owner.events.push_back("-provider"); }
        Platform::ValueOr<std::unique_ptr<Platform::IHashObject>> CreateSha256() override {
            if (owner.failing == "create") return Result::Failure(42);
            return std::unique_ptr<Platform::IHashObject>(std::make_unique<Object>(owner));
        }

    private:
        ScriptedHash& owner;
    };
};

std::string FailureWith(ScriptedHash& hash) {
    const Platform::Testing::Replace<Platform::IHash> replaced(hash);
    try {
        return "no failure: " + getSHA256HashBase64Encoded("key");
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
}

std::string FailureAt(const std::string& step) {
    ScriptedHash hash;
    hash.failing = step;
    return FailureWith(hash);
}

TEST(KeyHashTest, IsTheSha256OfTheBytesAsBase64) {
    EXPECT_EQ(getSHA256HashBase64Encoded(""), "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
    EXPECT_EQ(getSHA256HashBase64Encoded("abc"), "ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=");
    EXPECT_EQ(getSHA256HashBase64Encoded(std::string(1000000, 'a')),
              "zcduXJkU+5KBocfihNc+Z/GAmkiklyAOBG05zMcRLNA=");
}

TEST(KeyHashTest, HasFortyFourCharactersWithOneSignAtTheEnd) {
    for (const std::string key : {"", "a", "a long key with blanks / and \xff"}) {
        const std::string text = getSHA256HashBase64Encoded(key);
        EXPECT_EQ(text.size(), 44u);
        EXPECT_EQ(text.find('='), 43u);
    }
}

TEST(KeyHashTest, CountsNulBytesAndNoTerminator) {
    EXPECT_NE(getSHA256HashBase64Encoded(std::string("a\0", 2)), getSHA256HashBase64Encoded("a"));
    EXPECT_EQ(getSHA256HashBase64Encoded(std::string("\0", 1)),
              "bjQLnP+zepicpUTmu3gKLHiQHT+zNzh2hRGjBhevoB0=");
}

TEST(KeyHashTest, EachFailingStepHasItsTextAndTheNumberOfTheSystem) {
    const std::string front = "getSHA256HashBase64Encoded failed. error: ";
    EXPECT_EQ(FailureAt("acquire"), front + "CryptAcquireContext failed with error: 41");
    EXPECT_EQ(FailureAt("create"), front + "CryptCreateHash failed with error: 42");
    EXPECT_EQ(FailureAt("update"), front + "CryptHashData failed with error: 43");
    EXPECT_EQ(FailureAt("size"), front + "CryptGetHashParam failed to get hash size. error: 44");
    EXPECT_EQ(FailureAt("value"), front + "CryptGetHashParam failed to get hash value. error: 45");
}

TEST(KeyHashTest, AValueForWhichThereIsNoMemoryIsReportedWithItsSize) {
    ScriptedHash hash;
    hash.size = 1234567;
    const auto previous =
        OmbryZephCore::ZephIOBuffer::ReplaceAllocator([](std::uint64_t) -> std::uint8_t* { return nullptr; });
    const std::string failure = FailureWith(hash);
    OmbryZephCore::ZephIOBuffer::ReplaceAllocator(previous);

    EXPECT_EQ(failure,
              "getSHA256HashBase64Encoded failed. error: Failed to allocate memory for hash value. "
              "dwHashSize=1234567");
    EXPECT_EQ(hash.events.back(), "-provider");
}

TEST(KeyHashTest, StepsRunInOrderAndTheValueIsTakenAsLongAsTheProviderSays) {
    ScriptedHash hash;
    hash.size = 3;
    hash.value = "foo";
    EXPECT_EQ(FailureWith(hash), "no failure: Zm9v");
    EXPECT_THAT(hash.events,
                ElementsAre("+provider", "+hash", "update key", "size", "value 3", "-hash", "-provider"));
}

TEST(KeyHashTest, WhateverFailsHashAndProviderAreReleased) {
    for (const std::string step : {"create", "update", "size", "value"}) {
        ScriptedHash hash;
        hash.failing = step;
        FailureWith(hash);
        EXPECT_EQ(hash.events.back(), "-provider") << step;
        EXPECT_EQ(std::count(hash.events.begin(), hash.events.end(), "+hash"),
                  std::count(hash.events.begin(), hash.events.end(), "-hash"))
            << step;
    }
}

}  // namespace
}  // namespace Ombry::Tests
