#pragma once

#include "Platform/Current.h"
#include "Platform/ICertificates.h"
#include "Platform/IMachineProtection.h"
#include "Platform/Result.h"
#include "Platform/Time.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Ombry::Platform {

enum class FileKind { File, Folder, Link, Other };

/// What a system knows of a file, a folder or a link itself.
struct FileDetails {
    FileKind kind = FileKind::Other;
    std::uint32_t mode = 0;   ///< who may do what, as chmod(1) has it
    std::uint32_t owner = 0;  ///< the owner's number
    std::uint64_t links = 0;  ///< how many names it has
    std::uint64_t device = 0;
    std::uint64_t file = 0;  ///< its number on its device
    std::uint64_t size = 0;
    TimePoint modified{};  ///< when its content last changed
    TimePoint changed{};   ///< when its content, its owner, its mode or its names did
};

/// What can be said of the key to what is enciphered for the machine, without making one.
struct KeyState {
    enum class Verdict {
        Whole,
        Missing,
        NotPrivate,  ///< others may read or write it, or somebody else owns it: it is not used
        Damaged,
        OutOfReach,  ///< it cannot be read now
        NoIdentity,  ///< what else the system takes for a key cannot be read now, whatever the file is like
    };

    std::string path;
    Verdict verdict = Verdict::OutOfReach;
    int error = 0;              ///< the system's number for all but `Whole`
    std::string identity = {};  ///< the file that tells this machine from a copy of its disk
};

/// What a certificate says of itself.
struct CertificateFacts {
    std::string subject;  ///< in one line, UTF-8
    std::string keyType;  ///< such as "RSA" or "EC"
    int keyBits = 0;
    TimePoint notBefore{};
    TimePoint notAfter{};
};

/// What a program asks that looks after a machine's state and leaves it alone: nothing here writes, creates,
/// removes or locks anything. All operations may be called from any thread.
class IInspection {
public:
    virtual ~IInspection() = default;

    /// Of what the path itself names: a link is not followed.
    virtual ValueOr<FileDetails> Details(const std::string& path) = 0;

    /// Of what the path leads to, whatever links are on the way.
    virtual ValueOr<FileDetails> Target(const std::string& path) = 0;

    /// The names in a folder, as `IFiles::List` gives them, but no more than that.
    virtual ValueOr<std::vector<std::string>> Names(const std::string& folder, std::size_t most) = 0;

    /// What `IFiles::Read` gives, of a file that is no longer than that: a longer one counts as one that
    /// cannot be opened.
    virtual ValueOr<std::string> Read(const std::string& path, std::uint64_t longest) = 0;

    /// Whether a failure means that the user of this process may not look there.
    virtual bool MeansForbidden(int error) = 0;

    /// The number of the user that this process acts as; 0 may do everything.
    virtual std::uint32_t User() = 0;

    /// The process that holds a file or a folder locked for itself alone, as far as this one can see.
    virtual std::optional<std::int64_t> LockHolder(const FileDetails& details) = 0;

    /// Whether a file of that name is one that has not got its final name yet.
    virtual bool IsUnnamed(std::string_view fileName) = 0;

    /// The folder of the machine's certificate store of that name.
    virtual ValueOr<std::string> StoreFolder(std::wstring_view name) = 0;

    /// The state of the machine's key file.
    virtual ValueOr<KeyState> MachineKey() = 0;

    /// Deciphers what `MachineProtection()` has enciphered, and refuses what that refuses, but without what
    /// makes the first of many quick: for a program that ends after a few. It enciphers to nothing, and
    /// makes, removes and sweeps nothing.
    virtual IMachineProtection& Deciphering() = 0;

    /// Fails for what is no certificate.
    virtual ValueOr<CertificateFacts> Facts(const CertificateContext& certificate) = 0;

    /// Whether the standard output is a terminal whose user has not asked for plain text (NO_COLOR).
    virtual bool TakesColours() = 0;
};

template <>
IInspection& Production<IInspection>();

inline IInspection& Inspection() {
    return Current<IInspection>();
}

}  // namespace Ombry::Platform
