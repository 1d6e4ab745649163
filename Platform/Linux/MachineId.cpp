#include "Platform/IFiles.h"
#include "Platform/IMachineId.h"

namespace Ombry::Platform {
namespace {

class LinuxMachineId : public IMachineId {
public:
    std::string MachineId() override {
        const auto content = Production<IFiles>().Read("/etc/machine-id");
        return content ? content->substr(0, content->find_first_of("\r\n")) : std::string();
    }
};

}  // namespace

template <>
IMachineId& Production<IMachineId>() {
    static LinuxMachineId id;
    return id;
}

}  // namespace Ombry::Platform
