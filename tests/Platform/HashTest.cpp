#include "Platform/IHash.h"

namespace Ombry::Tests {
namespace {

std::string Hex(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string Sha256(const std::vector<std::string>& pieces) {
    const auto provider = Platform::Hash().AcquireProvider();
    const auto hash = (*provider)->CreateSha256();
    for (const std::string& piece : pieces)
        EXPECT_TRUE((*hash)->Update(piece));
    std::vector<std::uint8_t> value(*(*hash)->GetSize());
    EXPECT_TRUE((*hash)->GetValue(value));
    return Hex(value);
}

TEST(HashTest, ValuesAreThoseOfTheStandard) {
    EXPECT_EQ(Sha256({}), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(Sha256({"abc"}), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(Sha256({"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"}),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(HashTest, PiecesAndEmptyPiecesPlayNoPart) {
    EXPECT_EQ(Sha256({"", "a", "", "bc"}), Sha256({"abc"}));
    EXPECT_NE(Sha256({std::string("a\0", 2)}), Sha256({"a"}));
}

TEST(HashTest, SizeIsThirtyTwoAndNoOtherRoomWillDo) {
    const auto provider = Platform::Hash().AcquireProvider();
    ASSERT_TRUE(provider);
    const auto hash = (*provider)->CreateSha256();
    ASSERT_TRUE(hash);
    EXPECT_EQ(*(*hash)->GetSize(), 32u);
    std::vector<std::uint8_t> value(33);
    EXPECT_FALSE((*hash)->GetValue(std::span(value).first(31)));
    EXPECT_FALSE((*hash)->GetValue(value));
    EXPECT_TRUE((*hash)->GetValue(std::span(value).first(32)));
}

TEST(HashTest, HashesOfOneProviderAreIndependent) {
    const auto provider = Platform::Hash().AcquireProvider();
    const auto first = (*provider)->CreateSha256();
    const auto second = (*provider)->CreateSha256();
    EXPECT_TRUE((*first)->Update("a"));
    EXPECT_TRUE((*second)->Update("abc"));
    EXPECT_TRUE((*first)->Update("bc"));
    std::array<std::uint8_t, 32> one{};
    std::array<std::uint8_t, 32> two{};
    EXPECT_TRUE((*first)->GetValue(one));
    EXPECT_TRUE((*second)->GetValue(two));
    EXPECT_EQ(one, two);
}

}  // namespace
}  // namespace Ombry::Tests
