#include "Platform/Process.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

namespace Ombry::Platform {

void HardenProcess() noexcept {
    umask(077);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    prctl(PR_SET_DUMPABLE, 0);
    std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace Ombry::Platform
