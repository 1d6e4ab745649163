#include "ObjectMapping/Impl/CheckedAllocator.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>

// The sanitizers' allocators end the process on a length that no machine has, unless told to give null.
// They look for these by name in the executable, hence the visibility.
extern "C" {
__attribute__((visibility("default"))) const char* __asan_default_options();
__attribute__((visibility("default"))) const char* __tsan_default_options();

const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
}

namespace Ombry::Tests {
namespace {

using ObjectMapping::Impl::CheckedAllocator;

/// More than there is, and hidden from the compiler, which warns of it.
std::size_t TooMuch() {
    volatile std::size_t length = PTRDIFF_MAX;
    return length;
}

TEST(CheckedAllocatorTest, ThrowsWhereThereIsNoMemory) {
    CheckedAllocator allocator;
    EXPECT_THROW(allocator.Malloc(TooMuch()), std::bad_alloc);
    EXPECT_THROW(allocator.Realloc(nullptr, 0, TooMuch()), std::bad_alloc);
    EXPECT_THROW(allocator.Malloc(SIZE_MAX), std::bad_alloc) << "with what stands in front it is none";
}

TEST(CheckedAllocatorTest, AFailedReallocLeavesTheOldBlock) {
    CheckedAllocator allocator;
    auto* block = static_cast<char*>(allocator.Malloc(2));
    block[0] = 'a';
    block[1] = 'b';
    EXPECT_THROW(allocator.Realloc(block, 2, TooMuch()), std::bad_alloc);
    EXPECT_EQ(block[1], 'b');
    block = static_cast<char*>(allocator.Realloc(block, 2, 100'000));
    EXPECT_EQ(block[0], 'a');
    EXPECT_EQ(block[1], 'b');
    EXPECT_EQ(allocator.Realloc(block, 100'000, 0), nullptr);
}

TEST(CheckedAllocatorTest, NothingAskedForIsANullPointerAndNoFailure) {
    CheckedAllocator allocator;
    EXPECT_EQ(allocator.Malloc(0), nullptr);
    EXPECT_EQ(allocator.Realloc(nullptr, 0, 0), nullptr);
    CheckedAllocator::Free(nullptr);
}

}  // namespace
}  // namespace Ombry::Tests
