#include "Platform/Windows/PrivateAccess.h"

#include <sddl.h>

namespace Ombry::Platform::Windows {

// In the system's language of such lists: D:P, nothing is inherited from above; FA, all access; SY and BA,
// the two accounts; OICI, handed down to files and folders.
ValueOr<PrivateAccess> PrivateAccess::ToFile() {
    return By(L"D:P(A;;FA;;;SY)(A;;FA;;;BA)");
}

ValueOr<PrivateAccess> PrivateAccess::ToFolder() {
    return By(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
}

ValueOr<PrivateAccess> PrivateAccess::By(const wchar_t* text) {
    void* descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &descriptor, nullptr)) {
        return LastError();
    }
    return PrivateAccess(Descriptor(descriptor, &LocalFree));
}

}  // namespace Ombry::Platform::Windows
