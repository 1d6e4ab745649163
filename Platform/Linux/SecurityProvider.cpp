#include "Platform/ISecurityProvider.h"
#include "Platform/MadeOnce.h"

#include <cerrno>

namespace Ombry::Platform {
namespace {

// There is no such provider here: no library of it is ever found, and nothing behind that is reached.
class LinuxSecurityProvider : public ISecurityProvider {
public:
    ValueOr<SecurityModule> LoadModule(const char*) override { return Result::Failure(ENOENT); }

    ValueOr<SecurityEntryPoint> FindEntryPoint(SecurityModule, const char*) override {
        return Result::Failure(ENOENT);
    }

    ValueOr<SecurityFunctions*> CallEntryPoint(SecurityEntryPoint) override {
        return Result::Failure(ENOENT);
    }

    void ReleaseModule(SecurityModule) override {}
    void FreeCertificate(CertificateContextPointer) override {}
};

}  // namespace

template <>
ISecurityProvider& Production<ISecurityProvider>() {
    return MadeOnce<LinuxSecurityProvider>();
}

}  // namespace Ombry::Platform
