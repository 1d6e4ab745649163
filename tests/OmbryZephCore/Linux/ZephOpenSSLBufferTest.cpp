#include "OmbryZephCore/ZephOpenSSLBuffer.h"
#include "tests/Fakes/Linux/OpenSSLFaults.h"
#include "tests/OmbryZephCore/ReplacedAllocator.h"

#include <gtest/gtest.h>
#include <openssl/bio.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephIOBuffer;
using OmbryZephCore::ZephOpenSSLBuffer;

using Bio = std::unique_ptr<BIO, int (*)(BIO*)>;

bool Append(ZephOpenSSLBuffer& buffer, const std::string& text) {
    return buffer.Append(reinterpret_cast<const std::uint8_t*>(text.data()),
                         static_cast<std::uint32_t>(text.size()));
}

std::string Take(ZephOpenSSLBuffer& buffer, std::uint32_t atMost) {
    std::string text(atMost, '\0');
    text.resize(buffer.Take(reinterpret_cast<std::uint8_t*>(text.data()), atMost));
    return text;
}

TEST(ZephOpenSSLBufferTest, WhatWentInFirstComesOutFirst) {
    ZephOpenSSLBuffer buffer;
    EXPECT_EQ(Take(buffer, 5), "");
    EXPECT_TRUE(Append(buffer, "abc"));
    EXPECT_TRUE(Append(buffer, ""));
    EXPECT_TRUE(Append(buffer, "def"));
    EXPECT_EQ(buffer.Pending(), 6u);
    EXPECT_EQ(Take(buffer, 4), "abcd");
    EXPECT_EQ(Take(buffer, 0), "");
    EXPECT_EQ(Take(buffer, 9), "ef");
    EXPECT_EQ(buffer.Pending(), 0u);
    EXPECT_TRUE(Append(buffer, "x"));
    buffer.Clear();
    EXPECT_EQ(Take(buffer, 9), "");
}

TEST(ZephOpenSSLBufferTest, IsAQueueOfBytesWhateverThePieces) {
    std::mt19937 random(3);
    ZephOpenSSLBuffer buffer;
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        std::string piece(random() % 3000, '\0');
        for (char& byte : piece)
            byte = static_cast<char>(random());
        ASSERT_TRUE(Append(buffer, piece));
        expected += piece;
        const std::uint32_t count = random() % 3100;
        const std::string taken = Take(buffer, count);
        ASSERT_EQ(taken, expected.substr(0, count));
        expected.erase(0, taken.size());
        ASSERT_EQ(buffer.Pending(), expected.size());
    }
}

TEST(ZephOpenSSLBufferTest, SessionReadsAndWritesThroughABio) {
    ZephOpenSSLBuffer buffer;
    const Bio bio(buffer.MakeBio(), BIO_free);
    ASSERT_NE(bio, nullptr);
    char room[10] = {};
    EXPECT_LE(BIO_read(bio.get(), room, 10), 0);
    EXPECT_TRUE(BIO_should_read(bio.get())) << "nothing yet is no end";
    EXPECT_EQ(BIO_write(bio.get(), "abcdef", 6), 6);
    EXPECT_FALSE(BIO_should_retry(bio.get()));
    EXPECT_EQ(BIO_flush(bio.get()), 1);
    EXPECT_EQ(BIO_pending(bio.get()), 6);
    EXPECT_EQ(Take(buffer, 2), "ab");
    EXPECT_EQ(BIO_read(bio.get(), room, 10), 4);
    EXPECT_EQ(std::string(room, 4), "cdef");
    EXPECT_FALSE(BIO_should_retry(bio.get()));
    EXPECT_EQ(BIO_pending(bio.get()), 0);
}

TEST(ZephOpenSSLBufferTest, WithoutMemoryNothingIsAdded) {
    ZephOpenSSLBuffer buffer;
    const Bio bio(buffer.MakeBio(), BIO_free);
    ASSERT_TRUE(Append(buffer, "abc"));
    const auto previous =
        ZephIOBuffer::ReplaceAllocator([](std::uint64_t) -> std::uint8_t* { return nullptr; });
    const std::string large(100'000, 'x');
    EXPECT_FALSE(Append(buffer, large));
    EXPECT_LE(BIO_write(bio.get(), large.data(), 100'000), 0);
    EXPECT_FALSE(BIO_should_retry(bio.get())) << "a failure, and not to be tried again";
    ZephIOBuffer::ReplaceAllocator(previous);
    EXPECT_EQ(Take(buffer, 10), "abc");
    EXPECT_TRUE(Append(buffer, large));
    EXPECT_EQ(buffer.Pending(), 100'000u);
}

TEST(ZephOpenSSLBufferTest, MemoryGoesOnlyWithoutBytesInIt) {
    ZephOpenSSLBuffer buffer;
    ASSERT_TRUE(Append(buffer, "abc"));
    buffer.ReleaseIdleMemory();
    EXPECT_EQ(Take(buffer, 10), "abc");
    buffer.ReleaseIdleMemory();
    const ReplacedAllocator none(&RefuseEveryAllocation);
    EXPECT_FALSE(Append(buffer, "d"));
}

TEST(ZephOpenSSLBufferTest, MoreThanTheLibraryCanCountIsRefusedUnseen) {
    ZephOpenSSLBuffer buffer;
    const Bio bio(buffer.MakeBio(), BIO_free);
    ASSERT_TRUE(Append(buffer, "abc"));
    EXPECT_FALSE(buffer.Append(nullptr, 0x7FFFFFFF - 2));
    std::size_t written = 1;
    EXPECT_EQ(BIO_write_ex(bio.get(), "", std::size_t{0x80000000}, &written), 0);
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(Take(buffer, 10), "abc");
}

// What is made of the library's is made once, so this is a process of its own.
TEST(ZephOpenSSLBufferDeathTest, WithoutMemoryThereIsNoBioAndTheNextOneTriesAgain) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto makeTwo = [] {
        ZephOpenSSLBuffer buffer;
        bool refused = false;
        {
            const OpenSSLFault fault("BIO_meth_new");
            refused = buffer.MakeBio() == nullptr && fault.Happened();
        }
        const Bio bio(buffer.MakeBio(), BIO_free);
        std::exit(refused && bio ? 0 : 1);
    };
    EXPECT_EXIT(makeTwo(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Ombry::Tests
