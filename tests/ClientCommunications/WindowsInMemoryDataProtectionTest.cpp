#include "ClientCommunications/Impl/Base64.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "tests/Fakes/FailureOf.h"
#include "tests/Fakes/FakeProtections.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/SystemProtection.h"

namespace Ombry::Tests {
namespace {

using ClientCommunications::Base64Decode;
using ClientCommunications::Base64Encode;
using ClientCommunications::WindowsInMemoryDataProtection;

/// What the fake makes of bytes.
std::string Flipped(std::string bytes) {
    for (char& byte : bytes)
        byte = static_cast<char>(~byte);
    return bytes;
}

std::string Padded(const std::string& plain) {
    const std::size_t padding = 16 - plain.size() % 16;
    return plain + std::string(padding, static_cast<char>(padding));
}

class WindowsInMemoryDataProtectionTest : public testing::Test {
protected:
    std::string Unprotected(std::string text) {
        protection.Unprotect(text);
        return text;
    }

    FakeMemoryProtection memory;
    Platform::Testing::Replace<Platform::IMemoryProtection> replaced{memory};
    WindowsInMemoryDataProtection protection{0};
};

TEST_F(WindowsInMemoryDataProtectionTest, ProtectsPaddedBytesAndGivesThemAsBase64) {
    std::string data = "secret";
    protection.Protect(data);

    ASSERT_EQ(memory.calls.size(), 1u);
    EXPECT_EQ(memory.calls[0].operation, "Protect");
    EXPECT_EQ(memory.calls[0].bytes, "secret" + std::string(10, '\x0a'));
    EXPECT_EQ(data, Base64Encode(Flipped(memory.calls[0].bytes)));
}

TEST_F(WindowsInMemoryDataProtectionTest, PadsToTheNextWholeBlockAndAlwaysByOneByteAtLeast) {
    const std::vector<std::pair<std::size_t, std::size_t>> sizes = {{1, 16},  {2, 16},  {14, 16}, {15, 16},
                                                                    {16, 32}, {17, 32}, {31, 32}, {32, 48}};
    for (const auto& [length, padded] : sizes) {
        memory.calls.clear();
        std::string data(length, 'x');
        protection.Protect(data);
        EXPECT_EQ(memory.calls[0].bytes.size(), padded) << length;
        EXPECT_EQ(memory.calls[0].bytes, Padded(std::string(length, 'x')));
        EXPECT_EQ(Base64Decode(data).size(), padded);
    }
}

TEST_F(WindowsInMemoryDataProtectionTest, EmptyTextStaysEmptyWithoutASystemCall) {
    std::string data;
    protection.Protect(data);
    EXPECT_EQ(data, "");
    protection.Unprotect(data);
    EXPECT_EQ(data, "");
    EXPECT_TRUE(memory.calls.empty());
}

TEST_F(WindowsInMemoryDataProtectionTest, ScopeOneAndTwoAreFlagsAndAnyOtherIsZero) {
    const std::vector<std::pair<int, std::uint32_t>> scopes = {{0, 0},  {1, 1},  {2, 2},      {3, 0},
                                                               {-1, 0}, {99, 0}, {0x10001, 0}};
    for (const auto& [scope, flags] : scopes) {
        memory.calls.clear();
        WindowsInMemoryDataProtection scoped(scope);
        std::string data = "x";
        scoped.Protect(data);
        scoped.Unprotect(data);
        EXPECT_EQ(memory.calls[0].flags, flags) << scope;
        EXPECT_EQ(memory.calls[1].flags, flags) << scope;
    }
}

TEST_F(WindowsInMemoryDataProtectionTest, AFailedProtectHasItsTextAndLeavesTheData) {
    memory.failing = "Protect";
    memory.error = 8;
    std::string data = "secret";
    EXPECT_EQ(FailureOf([&] { protection.Protect(data); }), "CryptProtectMemory failed with error 8");
    EXPECT_EQ(data, "secret");
}

TEST_F(WindowsInMemoryDataProtectionTest, AFailedUnprotectHasItsTextAndLeavesTheDecodedBytes) {
    memory.failing = "Unprotect";
    memory.error = 87;
    std::string data = Base64Encode("0123456789abcdef");
    EXPECT_EQ(FailureOf([&] { protection.Unprotect(data); }), "CryptUnprotectMemory failed with error 87");
    EXPECT_EQ(data, "0123456789abcdef");
}

TEST_F(WindowsInMemoryDataProtectionTest, PlainTextIsWipedInPlaceBeforeTheStringIsReassigned) {
    // A short text lies in the string object itself, and the longer result moves out of it: what is left
    // behind there tells whether the text was wiped first.
    std::string data = "0123456789abcde";
    const auto insideOf = [](const std::string& text) {
        return std::string(reinterpret_cast<const char*>(&text), sizeof text);
    };
    ASSERT_NE(insideOf(data).find("89abcde"), std::string::npos);
    protection.Protect(data);
    EXPECT_EQ(insideOf(data).find("89abcde"), std::string::npos);
    EXPECT_EQ(insideOf(data).find("abc"), std::string::npos);
}

TEST(WindowsInMemoryDataProtectionOnSystemTest, NoPlainTextIsLeftInFreedMemory) {
    if (!SystemProtectsMemory()) return LeaveOut("this system leaves protected memory as it is");
    WindowsInMemoryDataProtection protection;
    const std::string plain = "a secret too long for a string object";
    std::string data = plain;
    const FreedMemory freed(plain);
    protection.Protect(data);
    protection.Unprotect(data);
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_EQ(data, plain);
}

/// Leaves every text as it is, or fails.
class Trusting : public Platform::IMemoryProtection {
public:
    explicit Trusting(int failure) : failure(failure) {}
    Platform::Result Protect(std::span<std::uint8_t>, std::uint32_t) override { return Outcome(); }
    Platform::Result Unprotect(std::span<std::uint8_t>, std::uint32_t) override { return Outcome(); }

private:
    Platform::Result Outcome() const {
        return failure == 0 ? Platform::Result::Success() : Platform::Result::Failure(failure);
    }
    const int failure;
};

TEST(WindowsInMemoryDataProtectionFailureTest, TheBufferIsWipedOnEveryWayOut) {
    // Nothing is enciphered here, so that whatever is left in the buffer is the plain text.
    const std::string plain = "a secret, and behind it no padding at all......";
    for (const int failure : {0, 8}) {
        Trusting memory(failure);
        const Platform::Testing::Replace<Platform::IMemoryProtection> replaced(memory);
        WindowsInMemoryDataProtection protection;
        std::string data = plain, encoded = Base64Encode(plain + "x");
        data.reserve(1000);  // the texts themselves stay where they are
        encoded.reserve(1000);
        const FreedMemory freed(plain);
        if (failure != 0) {
            EXPECT_EQ(FailureOf([&] { protection.Protect(data); }), "CryptProtectMemory failed with error 8");
        }
        EXPECT_NE(FailureOf([&] { protection.Unprotect(encoded); }), "no failure");
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    }
}

TEST_F(WindowsInMemoryDataProtectionTest, EveryLengthComesBackWithNulsAndAllBytes) {
    std::string plain;
    for (int length = 1; length <= 64; ++length) {
        plain += static_cast<char>(static_cast<unsigned char>(length % 5 == 0 ? 0 : length * 53));
        std::string data = plain;
        protection.Protect(data);
        EXPECT_NE(data, plain);
        EXPECT_EQ(Unprotected(data), plain) << length;
    }
}

TEST_F(WindowsInMemoryDataProtectionTest, UnprotectTakesOffThePaddingOfEveryLength) {
    for (std::size_t padding = 1; padding <= 16; ++padding) {
        const std::string plain(32 - padding, 'p');
        const std::string bytes = plain + std::string(padding, static_cast<char>(padding));
        EXPECT_EQ(Unprotected(Base64Encode(Flipped(bytes))), plain) << padding;
    }
}

TEST_F(WindowsInMemoryDataProtectionTest, PaddingThatProtectCannotHaveMadeIsIncorrect) {
    using Runs = std::vector<std::pair<std::size_t, char>>;
    const auto failureFor = [&](const Runs& runs) {
        std::string data;
        for (const auto& [count, byte] : runs)
            data.append(count, byte);
        data = Base64Encode(Flipped(data));
        return FailureOf([&] { protection.Unprotect(data); });
    };
    const std::string incorrect = "Padding is incorrect after CryptUnprotectMemory.";

    EXPECT_EQ(failureFor({{15, 'x'}, {1, '\0'}}), incorrect);
    EXPECT_EQ(failureFor({{16, '\x11'}}), incorrect);
    EXPECT_EQ(failureFor({{32, '\x11'}}), incorrect);
    EXPECT_EQ(failureFor({{15, 'x'}, {1, '\xff'}}), incorrect);
    EXPECT_EQ(failureFor({{15, 'x'}, {1, '\x02'}}), incorrect);
    EXPECT_EQ(failureFor({{13, 'x'}, {1, '\x02'}, {2, '\x03'}}), incorrect);
    EXPECT_EQ(failureFor({{1, 'x'}, {15, '\x10'}}), incorrect);
    // The byte before the padding is not looked at.
    EXPECT_EQ(failureFor({{13, 'x'}, {1, '\x03'}, {2, '\x02'}}), "no failure");
    EXPECT_EQ(failureFor({{15, 'x'}, {1, '\x01'}}), "no failure");
    EXPECT_EQ(failureFor({{16, '\x10'}}), "no failure");
}

TEST_F(WindowsInMemoryDataProtectionTest, PaddingLongerThanTheBytesIsIncorrect) {
    std::string data = Base64Encode(Flipped("\x05"));
    EXPECT_EQ(FailureOf([&] { protection.Unprotect(data); }),
              "Padding is incorrect after CryptUnprotectMemory.");
}

TEST_F(WindowsInMemoryDataProtectionTest, ABlockOfNothingButPaddingIsAnEmptyText) {
    EXPECT_EQ(Unprotected(Base64Encode(Flipped(std::string(16, '\x10')))), "");
}

TEST(WindowsInMemoryDataProtectionOnSystemTest, SecretsComeBackAndNeverStandInTheProtectedForm) {
    if (!SystemProtectsMemory()) return LeaveOut("this system leaves protected memory as it is");
    WindowsInMemoryDataProtection protection;
    for (std::size_t length = 1; length <= 64; ++length) {
        std::string plain;
        for (std::size_t i = 0; i < length; ++i)
            plain += static_cast<char>(i % 7 == 3 ? 0 : static_cast<int>(i + length));
        std::string data = plain;
        protection.Protect(data);
        EXPECT_EQ(data.size(), (length / 16 + 1) * 16 / 3 * 4 + ((length / 16 + 1) * 16 % 3 == 0 ? 0 : 4));
        // A few bytes of what was enciphered may be those of the text by chance.
        const std::string decoded = Base64Decode(data);
        EXPECT_NE(decoded, Padded(plain));
        if (length >= 8) {
            EXPECT_EQ(decoded.find(plain), std::string::npos);
        }
        protection.Unprotect(data);
        EXPECT_EQ(data, plain) << length;
    }
}

TEST(WindowsInMemoryDataProtectionOnSystemTest, TextOfNoWholeBlocksFailsWithNumber87) {
    WindowsInMemoryDataProtection protection;
    for (const std::size_t length : {1U, 15U, 17U}) {
        std::string data = Base64Encode(std::string(length, 'x'));
        EXPECT_EQ(FailureOf([&] { protection.Unprotect(data); }),
                  "CryptUnprotectMemory failed with error 87");
    }
}

}  // namespace
}  // namespace Ombry::Tests
