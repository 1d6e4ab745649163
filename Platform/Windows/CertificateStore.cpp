#include "Platform/Windows/CertificateStore.h"

#include "Platform/Windows/SystemCertificate.h"

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

namespace Ombry::Platform::Windows {
namespace {

struct CloseStore {
    void operator()(void* store) const { CertCloseStore(store, 0); }
};
using StoreHandle = std::unique_ptr<void, CloseStore>;

// Others see each change when its operation returns: the system's stores have no lock that could hold a
// reader back until a certificate is replaced.
class SystemStore : public ICertificateStore {
public:
    SystemStore(StoreHandle store, StoreAccess access) : store(std::move(store)), access(access) {}

    CertificateContextPointer FindNext(CertificateContextPointer previous) override {
        if (previous != nullptr && !IsHeld(previous)) return nullptr;
        // The search takes the reference that it starts from, so it is given one of its own.
        PCCERT_CONTEXT from = previous ? CertDuplicateCertificateContext(SystemsOwn(previous)) : nullptr;
        return Hold(SystemCertificate(
            CertFindCertificateInStore(store.get(), CertificateEncoding, 0, CERT_FIND_ANY, nullptr, from)));
    }

    ValueOr<std::uint32_t> GetFriendlyName(CertificateContextPointer certificate,
                                           std::span<std::uint8_t> buffer) override {
        if (!IsHeld(certificate)) return Result::Failure(ERROR_INVALID_PARAMETER);
        if (buffer.empty()) return Result::Failure(ERROR_MORE_DATA);  // to the system it would mean "measure"
        DWORD size = static_cast<DWORD>(std::min<std::size_t>(buffer.size(), LargestBlob));
        if (!CertGetCertificateContextProperty(SystemsOwn(certificate), CERT_FRIENDLY_NAME_PROP_ID,
                                               buffer.data(), &size)) {
            return LastError();
        }
        return std::uint32_t{size};
    }

    Result Delete(CertificateContextPointer certificate) override {
        if (const Result result = CheckWritable(certificate); !result) return result;
        // The deletion takes the reference that it is given, also where it fails.
        if (!CertDeleteCertificateFromStore(CertDuplicateCertificateContext(SystemsOwn(certificate)))) {
            return LastError();
        }
        held.erase(certificate);
        return Commit();
    }

    ValueOr<CertificateContextPointer> AddReplaceExisting(const CertificateContext& certificate) override {
        if (access != StoreAccess::ReadWrite) return Result::Failure(ERROR_ACCESS_DENIED);
        const SystemCertificate parsed = ParseCertificate({certificate.encoded, certificate.encodedLength});
        if (!parsed) return LastError();
        PCCERT_CONTEXT stored = nullptr;
        if (!CertAddCertificateContextToStore(store.get(), parsed.get(), CERT_STORE_ADD_REPLACE_EXISTING,
                                              &stored)) {
            return LastError();
        }
        const CertificateContextPointer shown = Hold(SystemCertificate(stored));
        if (const Result result = Commit(); !result) return result;
        return shown;
    }

    Result SetFriendlyName(CertificateContextPointer certificate,
                           std::span<const std::uint8_t> name) override {
        if (const Result result = CheckWritable(certificate); !result) return result;
        if (name.size() > LargestBlob) return Result::Failure(ERROR_INVALID_PARAMETER);
        const CRYPT_DATA_BLOB blob{static_cast<DWORD>(name.size()), const_cast<BYTE*>(name.data())};
        if (!CertSetCertificateContextProperty(SystemsOwn(certificate), CERT_FRIENDLY_NAME_PROP_ID, 0,
                                               &blob)) {
            return LastError();
        }
        return Commit();
    }

private:
    static constexpr std::size_t LargestBlob = std::numeric_limits<DWORD>::max();

    bool IsHeld(CertificateContextPointer certificate) const { return held.contains(certificate); }

    // Keeps what the system found for as long as the store is open; null stays null.
    CertificateContextPointer Hold(SystemCertificate certificate) {
        const CertificateContextPointer shown = Shown(certificate.get());
        if (certificate) held.try_emplace(shown, std::move(certificate));
        return shown;
    }

    Result CheckWritable(CertificateContextPointer certificate) const {
        if (access != StoreAccess::ReadWrite) return Result::Failure(ERROR_ACCESS_DENIED);
        return IsHeld(certificate) ? Result::Success() : Result::Failure(ERROR_INVALID_PARAMETER);
    }

    // Not every system of this kind writes a change through at once. One that does may know nothing of the
    // request, and has nothing left to do.
    Result Commit() {
        if (CertControlStore(store.get(), CERT_STORE_CTRL_COMMIT_FORCE_FLAG, CERT_STORE_CTRL_COMMIT,
                             nullptr)) {
            return Result::Success();
        }
        const DWORD error = GetLastError();
        const bool unknown = error == ERROR_CALL_NOT_IMPLEMENTED || error == ERROR_NOT_SUPPORTED;
        return unknown ? Result::Success() : LastError();
    }

    const StoreHandle store;
    const StoreAccess access;
    std::map<CertificateContextPointer, SystemCertificate>
        held;  // what was handed out; goes before the store
};

}  // namespace

std::uint32_t FlagsFor(StoreLocation location, StoreAccess access) {
    const std::uint32_t place = location == StoreLocation::CurrentUser ? CERT_SYSTEM_STORE_CURRENT_USER
                                                                       : CERT_SYSTEM_STORE_LOCAL_MACHINE;
    if (access == StoreAccess::ReadWrite) return place;
    return place | CERT_STORE_OPEN_EXISTING_FLAG | CERT_STORE_READONLY_FLAG;
}

ValueOr<std::unique_ptr<ICertificateStore>> OpenCertificateStore(StoreLocation location, StoreAccess access,
                                                                 const std::wstring& name) {
    StoreHandle store(
        CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, FlagsFor(location, access), name.c_str()));
    if (!store) return LastError();
    return std::unique_ptr<ICertificateStore>(std::make_unique<SystemStore>(std::move(store), access));
}

}  // namespace Ombry::Platform::Windows
