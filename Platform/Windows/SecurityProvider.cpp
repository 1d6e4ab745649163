#include "Platform/ISecurityProvider.h"
#include "Platform/MadeOnce.h"
#include "Platform/Windows/SystemCertificate.h"
#include "Platform/Windows/SystemSecurityFunctions.h"

#include <map>
#include <mutex>

namespace Ombry::Platform {
namespace {

HMODULE HandleOf(SecurityModule module) {
    return reinterpret_cast<HMODULE>(module);
}

class WindowsSecurityProvider : public ISecurityProvider {
public:
    ValueOr<SecurityModule> LoadModule(const char* name) override {
        // From the system's folder alone: a library of that name in a folder that others may write to would
        // see all that goes through TLS.
        const HMODULE module = LoadLibraryExA(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        if (module == nullptr) return Windows::LastError();
        return reinterpret_cast<SecurityModule>(module);
    }

    ValueOr<SecurityEntryPoint> FindEntryPoint(SecurityModule module, const char* name) override {
        const FARPROC function = GetProcAddress(HandleOf(module), name);
        if (function == nullptr) return Windows::LastError();
        return reinterpret_cast<SecurityEntryPoint>(function);
    }

    ValueOr<SecurityFunctions*> CallEntryPoint(SecurityEntryPoint entryPoint) override {
        const auto initialize = reinterpret_cast<INIT_SECURITY_INTERFACE_A>(entryPoint);
        const PSecurityFunctionTableA table = initialize();
        if (table == nullptr) return Windows::LastError();
        const std::lock_guard guard(mutex);
        return static_cast<SecurityFunctions*>(&tables.try_emplace(table, *table).first->second);
    }

    void ReleaseModule(SecurityModule module) override { FreeLibrary(HandleOf(module)); }

    void FreeCertificate(CertificateContextPointer certificate) override {
        CertFreeCertificateContext(Windows::SystemsOwn(certificate));
    }

private:
    std::mutex mutex;
    // Guarded by mutex: one for each library that was ever loaded, at the address where it was. They are not
    // taken out: another thread may have the same library loaded still.
    std::map<PSecurityFunctionTableA, Windows::SystemSecurityFunctions> tables;
};

}  // namespace

template <>
ISecurityProvider& Production<ISecurityProvider>() {
    return MadeOnce<WindowsSecurityProvider>();
}

}  // namespace Ombry::Platform
