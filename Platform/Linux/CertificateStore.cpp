#include "Platform/Linux/CertificateStore.h"

#include "Platform/IClock.h"
#include "Platform/IFiles.h"
#include "Platform/IKnownFolders.h"
#include "Platform/ITextConversion.h"
#include "Platform/Linux/CertificateOutline.h"
#include "Platform/Linux/Descriptor.h"
#include "Platform/Linux/ProgramData.h"
#include "Platform/Linux/X509.h"

#include <sys/file.h>

#include <algorithm>
#include <utility>

namespace Ombry::Platform::Linux {
namespace {

// One certificate of an open store. Its address is what callers hold.
struct Entry {
    std::string fileName;
    std::string text;  // of the file
    StoredCertificate certificate;
    CertificateContext context;
};

std::unique_ptr<Entry> MakeEntry(std::string fileName, std::string text, StoredCertificate certificate) {
    auto entry = std::make_unique<Entry>();
    entry->fileName = std::move(fileName);
    entry->text = std::move(text);
    entry->certificate = std::move(certificate);
    entry->context = ContextOf(entry->certificate.encoded);
    return entry;
}

// The friendly name of an entry as bytes of UTF-16LE with a terminator; empty if it has none.
std::string FriendlyName(const Entry& entry) {
    const std::optional<std::string>& text = entry.certificate.alias;
    if (!text) return {};
    std::wstring wide(text->size(), L'\0');  // never more units than bytes
    const auto converted = Production<ITextConversion>().Utf8ToWide(*text, wide.data(), wide.size());
    wide.resize(static_cast<std::size_t>(std::max(converted.count, 0)));
    std::string bytes;
    for (const wchar_t unit : wide) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8 & 0xFF);
    }
    return bytes + std::string(2, '\0');
}

// The UTF-8 text of a friendly name; a failure unless it is whole units with one terminator, at the end.
ValueOr<std::string> AliasOf(std::span<const std::uint8_t> name) {
    if (name.size() < 2 || name.size() % 2 != 0) return Result::Failure(EINVAL);
    std::wstring wide;
    for (std::size_t at = 0; at < name.size(); at += 2) {
        wide += static_cast<wchar_t>(name[at] | name[at + 1] << 8);
    }
    if (wide.find(L'\0') != wide.size() - 1) return Result::Failure(EINVAL);
    wide.pop_back();
    return Utf8(wide);
}

// What a change may need on the disk: two copies of an entry, beside what is there.
constexpr std::uint64_t ReservedSpace = 16384;

class FolderStore : public ICertificateStore {
public:
    FolderStore(std::string folder, Descriptor lock, StoreAccess access)
        : folder(std::move(folder)), lock(std::move(lock)), access(access) {}

    // Holds space for the changes to come: on a full disk a store cannot be opened for writing, rather than
    // lose an entry that is deleted before its successor is added.
    Result Reserve() {
        auto begun = Files().BeginReplace(PathOf(".reserve"), ReservedSpace, Durability::Unsynced);
        if (!begun) return Result::Failure(begun.Error());
        reserve = std::move(*begun);
        return Result::Success();
    }

    // Reads all entries, in the order of their file names. What is no file or no certificate is left out;
    // hidden files are replacements under way. A file that cannot be read now may be the one that is looked
    // for, or that has to go before another comes.
    Result Load() {
        auto names = Files().List(folder);
        if (!names) return Result::Failure(names.Error());
        std::sort(names->begin(), names->end());
        for (std::string& name : *names) {
            if (name.starts_with('.')) continue;
            auto text = Files().Read(PathOf(name));
            if (!text && !MeansNoFile(text.Error())) return Result::Failure(text.Error());
            auto certificate = text ? StoredCertificate::FromPem(*text) : std::nullopt;
            if (!certificate) continue;
            // A trusted certificate of no bytes would be taken for trust in whoever answers.
            if (certificate->encoded.empty()) return Result::Failure(EIO);
            entries.push_back(MakeEntry(std::move(name), std::move(*text), std::move(*certificate)));
        }
        return Result::Success();
    }

    CertificateContextPointer FindNext(CertificateContextPointer previous) override {
        auto next = entries.begin();
        if (previous) {
            next = Find(previous);
            if (next != entries.end()) ++next;
        }
        return next == entries.end() ? nullptr : &(*next)->context;
    }

    ValueOr<std::uint32_t> GetFriendlyName(CertificateContextPointer certificate,
                                           std::span<std::uint8_t> buffer) override {
        const auto entry = Find(certificate);
        if (entry == entries.end()) return Result::Failure(EINVAL);
        const std::string name = FriendlyName(**entry);
        if (name.empty()) return Result::Failure(ENODATA);
        if (name.size() > buffer.size()) return Result::Failure(ERANGE);
        std::copy(name.begin(), name.end(), buffer.begin());
        return static_cast<std::uint32_t>(name.size());
    }

    Result Delete(CertificateContextPointer certificate) override {
        const auto entry = Find(certificate);
        if (const Result result = CheckWritable(entry); !result) return result;
        // Not synced by itself: the sync of its successor, in the same folder, takes it along, and until then
        // a power cut may bring the old trust back.
        const Result removed = Files().Remove(PathOf((*entry)->fileName), Durability::Unsynced);
        if (!removed) return removed;
        entries.erase(entry);
        return Result::Success();
    }

    ValueOr<CertificateContextPointer> AddReplaceExisting(const CertificateContext& certificate) override {
        if (access != StoreAccess::ReadWrite) return Result::Failure(EACCES);
        const auto parsed = ParseDer(BytesOf(certificate));
        if (!parsed) return Result::Failure(EINVAL);
        auto added = MakeEntry({}, EncodePem(parsed.get()), {EncodeDer(parsed.get()), std::nullopt});
        const std::string& encoded = added->certificate.encoded;
        const auto equal = std::find_if(entries.begin(), entries.end(), [&](const auto& entry) {
            return entry->certificate.encoded == encoded;
        });
        added->fileName = equal == entries.end() ? Fingerprint(encoded) : (*equal)->fileName;
        if (encoded.empty() || added->fileName.empty()) return Result::Failure(EIO);
        if (const Result result = Write(added->fileName, added->text); !result) return result;
        if (equal != entries.end()) {
            // The properties go with the certificate that was replaced; contexts handed out stay valid.
            (*equal)->text = std::move(added->text);
            (*equal)->certificate.alias.reset();
            return CertificateContextPointer(&(*equal)->context);
        }
        const auto place = std::find_if(entries.begin(), entries.end(),
                                        [&](const auto& entry) { return entry->fileName > added->fileName; });
        return CertificateContextPointer(&(*entries.insert(place, std::move(added)))->context);
    }

    Result SetFriendlyName(CertificateContextPointer certificate,
                           std::span<const std::uint8_t> name) override {
        const auto entry = Find(certificate);
        if (const Result result = CheckWritable(entry); !result) return result;
        auto alias = AliasOf(name);
        if (!alias) return Result::Failure(alias.Error());
        // A write that fails leaves the entry as the file has it.
        const X509Pointer changed = ParsePem((*entry)->text);
        if (!changed || X509_alias_set1(changed.get(), reinterpret_cast<const unsigned char*>(alias->data()),
                                        static_cast<int>(alias->size())) != 1) {
            return OpenSSLFailure(ENOMEM);
        }
        std::string text = EncodePem(changed.get());
        if (const Result result = Write((*entry)->fileName, text); !result) return result;
        (*entry)->text = std::move(text);
        (*entry)->certificate.alias = std::move(*alias);
        return Result::Success();
    }

private:
    using Entries = std::vector<std::unique_ptr<Entry>>;

    std::string PathOf(const std::string& fileName) const { return folder + "/" + fileName; }

    Entries::iterator Find(CertificateContextPointer certificate) {
        return std::find_if(entries.begin(), entries.end(),
                            [&](const auto& entry) { return &entry->context == certificate; });
    }

    Result CheckWritable(Entries::iterator entry) const {
        if (access != StoreAccess::ReadWrite) return Result::Failure(EACCES);
        return entry == entries.end() ? Result::Failure(EINVAL) : Result::Success();
    }

    Result Write(const std::string& fileName, const std::string& text) {
        if (text.empty()) return Result::Failure(EIO);
        reserve.reset();
        auto replacement = Files().BeginReplace(PathOf(fileName), text.size(), Durability::Synced);
        if (!replacement) return Result::Failure(replacement.Error());
        return (*replacement)->Complete(text);
    }

    const std::string folder;
    const Descriptor lock;
    const StoreAccess access;
    Entries entries;                            // ascending by file name
    std::unique_ptr<IFileReplacement> reserve;  // given back to the first write
};

// A store is open for milliseconds. Whoever holds it for longer than this was stopped, or means no good.
constexpr Duration LockLimit = std::chrono::seconds(15);
constexpr Duration LockSlice = std::chrono::milliseconds(10);

// Takes the lock as soon as nobody is in the way. The system knows no waiting with a limit, so the lock is
// tried again and again, with sleeps between. A lock that is held until the end fails with EWOULDBLOCK.
Result AwaitLock(int folder, int kind) {
    const Duration start = Clock().SteadyNow();
    for (;;) {
        if (Retry([&] { return flock(folder, kind | LOCK_NB); }) == 0) return Result::Success();
        if (errno != EWOULDBLOCK) return Result::Failure(errno);
        if (Clock().SteadyNow() - start >= LockLimit) return Result::Failure(EWOULDBLOCK);
        Clock().Sleep(LockSlice);
    }
}

}  // namespace

ValueOr<std::string> CertificateStoreFolder(StoreLocation location, std::wstring_view name) {
    if (name.empty() || name == L"." || name == L"..") return Result::Failure(EINVAL);
    const bool leadsAway = std::any_of(name.begin(), name.end(), [](wchar_t unit) {
        return unit == L'/' || unit == L'\\' || unit == L'\0';
    });
    if (leadsAway) return Result::Failure(EINVAL);
    auto folder =
        location == StoreLocation::CurrentUser ? KnownFolders().CurrentUserQuennet() : ProgramDataFolder();
    if (!folder) return folder;
    auto text = Utf8(name);
    if (!text) return text;
    return *folder + "/CertificateStores/" + *text;
}

ValueOr<std::unique_ptr<ICertificateStore>> OpenCertificateStore(const std::string& folder,
                                                                 StoreAccess access) {
    if (access == StoreAccess::ReadWrite) {
        const Result made = Files().CreateDirectories(folder, Durability::Synced);
        if (!made) return made;
    }
    Descriptor lock(
        Retry([&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
    if (!lock) return Result::Failure(errno);
    if (access != StoreAccess::ReadOnlyUnlocked) {
        const int kind = access == StoreAccess::ReadWrite ? LOCK_EX : LOCK_SH;
        if (const Result result = AwaitLock(lock.Number(), kind); !result) return result;
    }
    auto store = std::make_unique<FolderStore>(folder, std::move(lock), access);
    if (access == StoreAccess::ReadWrite) {
        if (const Result result = store->Reserve(); !result) return result;
    }
    if (const Result result = store->Load(); !result) return result;
    return std::unique_ptr<ICertificateStore>(std::move(store));
}

}  // namespace Ombry::Platform::Linux
