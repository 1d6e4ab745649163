#include "Platform/IFiles.h"
#include "Platform/IInspection.h"
#include "Platform/Linux/CertificateOutline.h"
#include "Platform/Linux/CertificateStore.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/FileReading.h"
#include "Platform/Linux/IMachineId.h"
#include "Platform/Linux/MachineId.h"
#include "Platform/Linux/MachineKey.h"
#include "Platform/Linux/MachineProtection.h"
#include "Platform/Linux/X509.h"
#include "Platform/MadeOnce.h"
#include "Platform/SecureWipe.h"
#include "Platform/TemporaryName.h"

#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <sstream>

namespace Ombry::Platform {
namespace {

using BioPointer = Linux::Owned<BIO, BIO_free>;

FileKind KindOf(mode_t mode) {
    if (S_ISREG(mode)) return FileKind::File;
    if (S_ISDIR(mode)) return FileKind::Folder;
    return S_ISLNK(mode) ? FileKind::Link : FileKind::Other;
}

KeyState::Verdict VerdictOf(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return KeyState::Verdict::Missing;
        case Linux::KeyIsNotPrivate:
            return KeyState::Verdict::NotPrivate;
        case EBADMSG:
            return KeyState::Verdict::Damaged;
        default:
            return Linux::MeansNoFile(error) ? KeyState::Verdict::Damaged : KeyState::Verdict::OutOfReach;
    }
}

TimePoint TimeOf(const timespec& time) {
    return SaturatingAdd(TimePoint(Duration(SecondsToTicks(time.tv_sec))), Duration(time.tv_nsec / 100));
}

ValueOr<FileDetails> Look(const std::string& path, int (*look)(const char*, struct stat*)) {
    struct stat status {};
    if (look(path.c_str(), &status) != 0) return Result::Failure(errno);
    return FileDetails{.kind = KindOf(status.st_mode),
                       .mode = status.st_mode & 07777,
                       .owner = status.st_uid,
                       .links = status.st_nlink,
                       .device = status.st_dev,
                       .file = status.st_ino,
                       .size = static_cast<std::uint64_t>(status.st_size),
                       .modified = TimeOf(status.st_mtim),
                       .changed = TimeOf(status.st_ctim)};
}

std::string SubjectOf(const X509_NAME* name) {
    const BioPointer bio(BIO_new(BIO_s_mem()));
    const unsigned long form = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    if (!bio || X509_NAME_print_ex(bio.get(), name, 0, form) < 0) {
        ERR_clear_error();
        return {};
    }
    char* data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<std::size_t>(length));
}

// The beginning of 1970 for a time that cannot be read.
TimePoint TimeOf(const ASN1_TIME* time) {
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1) {
        ERR_clear_error();
        return {};
    }
    return TimePoint(Duration(SecondsToTicks(timegm(&parts))));
}

void DecodeKey(const CertificateContext& context, CertificateFacts& facts) {
    const Linux::X509Pointer certificate = Linux::ParseDer(Linux::BytesOf(context));
    const EVP_PKEY* const key = certificate ? X509_get0_pubkey(certificate.get()) : nullptr;
    if (key) {
        facts.keyType = EVP_PKEY_get0_type_name(key);
        facts.keyBits = EVP_PKEY_get_bits(key);
    }
    ERR_clear_error();
}

class LinuxInspection : public IInspection {
public:
    ValueOr<FileDetails> Details(const std::string& path) override { return Look(path, lstat); }
    ValueOr<FileDetails> Target(const std::string& path) override { return Look(path, stat); }

    ValueOr<std::vector<std::string>> Names(const std::string& folder, std::size_t most) override {
        return Linux::NamesIn(folder, most);
    }
    ValueOr<std::string> Read(const std::string& path, std::uint64_t longest) override {
        return Linux::ReadFile(path, longest);
    }

    bool MeansForbidden(int error) override { return error == EACCES || error == EPERM; }

    std::uint32_t User() override { return geteuid(); }

    // The kernel's own list (proc(5)): to try the lock would be to hold it for a moment. Of the device there
    // stands the one that carries the file system, which is not always the one that a file tells; its number
    // alone is compared, and two files that share one are taken for locked both.
    std::optional<std::int64_t> LockHolder(const FileDetails& details) override {
        const auto text = Production<IFiles>().Read("/proc/locks");
        if (!text) return std::nullopt;
        std::istringstream lines(*text);
        const std::string number = ":" + std::to_string(details.file);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string index, kind, advisory, access, process, place;
            words >> index >> kind >> advisory >> access >> process >> place;
            if (kind == "FLOCK" && access == "WRITE" && place.ends_with(number)) {
                return std::strtoll(process.c_str(), nullptr, 10);
            }
        }
        return std::nullopt;
    }

    bool IsUnnamed(std::string_view fileName) override { return IsTemporaryName(fileName); }

    ValueOr<std::string> StoreFolder(std::wstring_view name) override {
        return Linux::CertificateStoreFolder(StoreLocation::LocalMachine, name);
    }

    ValueOr<KeyState> MachineKey() override {
        auto path = Linux::KeyFile(Linux::KeyScope::Machine);
        if (!path) return Result::Failure(path.Error());
        const auto judged = [&path](KeyState::Verdict verdict, int error) {
            return KeyState{*path, verdict, error, Linux::MachineIdFile};
        };
        // First, as who enciphers does: without it nothing is, and no key is made.
        const auto machineId = MachineIdentity().MachineId();
        if (!machineId) return judged(KeyState::Verdict::NoIdentity, machineId.Error());
        auto key = Linux::LoadKey(Linux::KeyScope::Machine);
        if (!key) return judged(VerdictOf(key.Error()), key.Error());
        SecureWipe(*key);
        return judged(KeyState::Verdict::Whole, 0);
    }

    IMachineProtection& Deciphering() override { return Linux::DecipheringOnly(); }

    ValueOr<CertificateFacts> Facts(const CertificateContext& context) override {
        const auto certificate = Linux::CertificateOutline::FromDer(Linux::BytesOf(context));
        if (!certificate) return Result::Failure(EINVAL);
        CertificateFacts facts;
        facts.subject = SubjectOf(certificate->Subject());
        if (const auto key = certificate->CommonKey()) {
            facts.keyType = key->type;
            facts.keyBits = key->bits;
        } else {
            DecodeKey(context, facts);
        }
        facts.notBefore = TimeOf(certificate->NotBefore());
        facts.notAfter = TimeOf(certificate->NotAfter());
        return facts;
    }

    // The one variable of the environment that is read: it changes how a text looks, and nothing else.
    bool TakesColours() override {
        const char* const plain = std::getenv("NO_COLOR");
        return isatty(STDOUT_FILENO) == 1 && (!plain || *plain == '\0');
    }
};

}  // namespace

template <>
IInspection& Production<IInspection>() {
    return MadeOnce<LinuxInspection>();
}

}  // namespace Ombry::Platform
