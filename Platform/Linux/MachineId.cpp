#include "Platform/IFiles.h"
#include "Platform/IMachineId.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/MadeOnce.h"

namespace Ombry::Platform {
namespace {

class LinuxMachineId : public IMachineId {
public:
    ValueOr<std::string> MachineId() override {
        const auto content = Production<IFiles>().Read("/etc/machine-id");
        if (content) return content->substr(0, content->find_first_of("\r\n"));
        // What is enciphered without the identity of a machine that has one could never be read again.
        if (!Linux::MeansNoFile(content.Error())) return Result::Failure(content.Error());
        return std::string();
    }
};

}  // namespace

template <>
IMachineId& Production<IMachineId>() {
    return MadeOnce<LinuxMachineId>();
}

}  // namespace Ombry::Platform
