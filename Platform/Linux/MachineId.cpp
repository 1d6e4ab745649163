#include "Platform/Linux/MachineId.h"

#include "Platform/IFiles.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/IMachineId.h"
#include "Platform/MadeOnce.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <memory>

namespace Ombry::Platform {
namespace Linux {

// What is enciphered without the identity of a machine that has one could never be read again. Hence only a
// machine without the file, or with a folder or a device in its place, has none; a link that leads nowhere is
// an identity that is out of reach.
ValueOr<std::string> ReadMachineId(const std::string& path) {
    // Systems whose image cannot be written to keep the file elsewhere, behind a link.
    const std::unique_ptr<char, decltype(&free)> target(realpath(path.c_str(), nullptr), free);
    if (!target) {
        const int error = errno;
        struct stat status {};
        if (lstat(path.c_str(), &status) != 0 && errno == ENOENT) return std::string();
        return Result::Failure(error);
    }
    const auto content = Production<IFiles>().Read(target.get());
    if (!content) {
        if (content.Error() == EISDIR || content.Error() == EINVAL || content.Error() == ENXIO) {
            return std::string();
        }
        return Result::Failure(content.Error());
    }
    std::string id = content->substr(0, content->find_first_of("\r\n"));
    // The word stands in an image until the first start of a machine that is made from it (machine-id(5)).
    if (id == "uninitialized") id.clear();
    return id;
}

}  // namespace Linux

namespace {

class LinuxMachineId : public IMachineId {
public:
    ValueOr<std::string> MachineId() override { return Linux::ReadMachineId(Linux::MachineIdFile); }
};

}  // namespace

template <>
IMachineId& Production<IMachineId>() {
    return MadeOnce<LinuxMachineId>();
}

}  // namespace Ombry::Platform
