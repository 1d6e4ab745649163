#include "Platform/Process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

namespace Ombry::Platform {
namespace {

// Puts something harmless in the place of each standard stream that is closed. It is opened the wrong way
// round, so that using the stream fails as before.
void OccupyStandardStreams() noexcept {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) != -1) continue;
        // The lowest free number is the one that was found free.
        const int opened = open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        if (opened != stream && opened != -1) close(opened);
    }
}

}  // namespace

void HardenProcess() noexcept {
    OccupyStandardStreams();
    umask(077);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    prctl(PR_SET_DUMPABLE, 0);
    // A reader that has gone and a file that grows past its limit are errors of the write that meets them.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

// They come as they were typed or given.
void TakeArguments(int&, char**&) {}

}  // namespace Ombry::Platform
