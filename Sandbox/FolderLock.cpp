#include "Sandbox/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace Ombry::Sandbox {

FolderLock::FolderLock(const std::string& folder)
    : descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (descriptor < 0) throw std::runtime_error("Cannot open the folder '" + folder + "'.");
    while (flock(descriptor, LOCK_EX) != 0) {
        if (errno == EINTR) continue;
        close(descriptor);
        throw std::runtime_error("Cannot lock the folder '" + folder + "'.");
    }
}

FolderLock::~FolderLock() {
    close(descriptor);
}

}  // namespace Ombry::Sandbox
