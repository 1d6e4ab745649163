#include "Platform/Process.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>

namespace Ombry::Tests {
namespace {

/// Runs `prepare`, hardens and asks `holds` in a process of its own, since nothing of it can be undone.
void ExpectInAChild(const std::function<void()>& prepare, const std::function<bool()>& holds) {
    const auto child = [&] {
        prepare();
        Platform::HardenProcess();
        _exit(holds() ? 0 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

void Nothing() {}

TEST(HardenProcessTest, NewFilesArePrivateToTheirOwner) {
    ExpectInAChild([] { umask(0); }, [] { return umask(0) == 077; });
}

TEST(HardenProcessTest, NoCoreIsDumped) {
    ExpectInAChild(Nothing, [] {
        rlimit limit{1, 1};
        return getrlimit(RLIMIT_CORE, &limit) == 0 && limit.rlim_cur == 0 && limit.rlim_max == 0 &&
               prctl(PR_GET_DUMPABLE) == 0;
    });
}

TEST(HardenProcessTest, WritingToAPipeWithoutAReaderIsAnError) {
    ExpectInAChild([] { std::signal(SIGPIPE, SIG_DFL); },
                   [] {
                       int ends[2];
                       if (pipe(ends) != 0) return false;
                       close(ends[0]);
                       return write(ends[1], "x", 1) == -1 && errno == EPIPE;
                   });
}

TEST(HardenProcessTest, WritingPastTheLimitOfFileSizesIsAnError) {
    ExpectInAChild([] { std::signal(SIGXFSZ, SIG_DFL); },
                   [] {
                       const rlimit none{0, 0};
                       const int file = open(".", O_TMPFILE | O_WRONLY, 0600);
                       return setrlimit(RLIMIT_FSIZE, &none) == 0 && write(file, "x", 1) == -1 &&
                              errno == EFBIG;
                   });
}

TEST(HardenProcessTest, NoNewFileTakesThePlaceOfAClosedStandardStream) {
    for (int stream = 0; stream <= 2; ++stream) {
        ExpectInAChild([stream] { close(stream); },
                       [] {
                           const int opened = open("/dev/null", O_RDWR);
                           return opened > 2;
                       });
    }
    ExpectInAChild(
        [] {
            for (int stream = 0; stream <= 2; ++stream)
                close(stream);
        },
        [] { return open("/dev/null", O_RDWR) > 2; });
}

TEST(HardenProcessTest, WithoutAFreeDescriptorTheRestIsDoneAllTheSame) {
    static rlimit before;
    ExpectInAChild(
        [] {
            getrlimit(RLIMIT_NOFILE, &before);
            const rlimit none{0, before.rlim_max};
            close(0);
            setrlimit(RLIMIT_NOFILE, &none);
            umask(0);
        },
        [] {
            const bool isFree = fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) != -1;
            return setrlimit(RLIMIT_NOFILE, &before) == 0 && isFree && umask(0) == 077;
        });
}

TEST(HardenProcessTest, UsingAClosedStandardStreamStaysAnError) {
    ExpectInAChild([] { close(0); },
                   [] {
                       char byte;
                       return read(0, &byte, 1) == -1 && errno == EBADF;
                   });
    for (int stream = 1; stream <= 2; ++stream) {
        ExpectInAChild([stream] { close(stream); },
                       [stream] { return write(stream, "x", 1) == -1 && errno == EBADF; });
    }
}

TEST(HardenProcessTest, OpenStandardStreamsAreLeftAlone) {
    static int ends[2];
    ExpectInAChild(
        [] {
            if (pipe(ends) != 0 || dup2(ends[0], 0) != 0 || dup2(ends[1], 1) != 1) _exit(2);
        },
        [] {
            char byte = 0;
            return write(1, "x", 1) == 1 && read(0, &byte, 1) == 1 && byte == 'x';
        });
}

TEST(TakeArgumentsTest, ArgumentsStayAsTheyWereGiven) {
    char word[] = "\xFF*";
    char* words[] = {word, nullptr};
    int count = 1;
    char** values = words;
    Platform::TakeArguments(count, values);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(values, words);
    EXPECT_STREQ(word, "\xFF*");
}

}  // namespace
}  // namespace Ombry::Tests
