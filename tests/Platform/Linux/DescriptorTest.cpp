#include "Platform/Linux/Descriptor.h"
#include "tests/Platform/Linux/SystemCalls.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <cerrno>

namespace Ombry::Tests {
namespace {

using Platform::Linux::Descriptor;

TEST(DescriptorTest, CloseThatASignalInterruptedHasClosed) {
    Descriptor descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(descriptor);
    SystemCalls calls;
    calls.Fail("close", EINTR);
    EXPECT_TRUE(descriptor.Close());
    EXPECT_FALSE(descriptor);
    EXPECT_EQ(calls.Count("close"), 1u);
}

TEST(DescriptorTest, CloseThatFailsTellsWhyAndIsNotRepeated) {
    Descriptor descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    SystemCalls calls;
    calls.Fail("close", EIO);
    EXPECT_EQ(descriptor.Close().Error(), EIO);
    EXPECT_FALSE(descriptor);
    EXPECT_EQ(calls.Count("close"), 1u);
}

TEST(DescriptorTest, OnlyWhatStandsInTheFilesPlaceMeansThatThereIsNone) {
    for (const int error : {ENOENT, ENOTDIR, EISDIR, ELOOP, EINVAL, ENXIO})
        EXPECT_TRUE(Platform::Linux::MeansNoFile(error)) << error;
    for (const int error : {0, EACCES, EIO, EMFILE, ENOMEM})
        EXPECT_FALSE(Platform::Linux::MeansNoFile(error)) << error;
}

}  // namespace
}  // namespace Ombry::Tests
