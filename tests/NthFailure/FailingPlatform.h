#pragma once

#include "Platform/ICertificates.h"
#include "Platform/IClock.h"
#include "Platform/IFiles.h"
#include "Platform/IHash.h"
#include "Platform/IKnownFolders.h"
#include "Platform/IMachineProtection.h"
#include "Platform/IMemoryProtection.h"
#include "Platform/IRandom.h"
#include "Platform/ISockets.h"
#include "Platform/ITextConversion.h"
#include "Platform/Linux/IMachineId.h"
#include "tests/NthFailure/NthFailure.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// The groups of the platform that are in force when it is made, each of whose calls can be the one that
/// fails, and a network that can break or fall silent behind each byte. The two that tests replace with fakes
/// of their own, files and sockets, are not disturbed by lack of memory while they work if the test says so.
/// The clock can't fail and is not here.
class FailingPlatform {
public:
    struct Fakes {
        bool files = false;
        bool sockets = false;
    };

    explicit FailingPlatform(Fakes fakes) : files(*this, fakes.files), sockets(fakes.sockets) {}

    /// Whether a call has failed whose result is ignored on purpose, so that nobody was told: a removal, a
    /// renaming, or what goes wrong with a file once it is open.
    bool HasFailedUnseen() const { return hasFailedUnseen; }

private:
    using Result = Platform::Result;
    template <class T>
    using ValueOr = Platform::ValueOr<T>;

    static constexpr int Error = EIO;
    static Result Failure() { return Result::Failure(Error); }
    static bool Strikes() { return NthFailure::Strikes(NthFailure::Of::PlatformCall); }

    /// Calls unless this is the call that fails.
    template <class Call>
    static auto Try(bool isFake, Call call) -> decltype(call()) {
        if (Strikes()) return Failure();
        std::optional<NthFailure::Pause> pause;
        if (isFake) pause.emplace();
        return call();
    }

    template <class Group>
    class Failing : public Group {
    protected:
        Group& inner = Platform::Current<Group>();

    private:
        const Platform::Testing::Replace<Group> replaced{*this};
    };

    /// As `Try`, and notes that nobody was told.
    template <class Call>
    Result TryUnseen(bool isFake, Call call) {
        bool called = false;
        const Result result = Try(isFake, [&] {
            called = true;
            return call();
        });
        if (!called) hasFailedUnseen = true;
        return result;
    }

    class Replacement : public Platform::IFileReplacement {
    public:
        Replacement(FailingPlatform& platform, std::unique_ptr<IFileReplacement> inner, bool isFake)
            : platform(platform), inner(std::move(inner)), isFake(isFake) {}
        Result Complete(std::string_view data) override {
            return platform.TryUnseen(isFake, [&] { return inner->Complete(data); });
        }
        bool IsRefused() const override { return inner->IsRefused(); }

    private:
        FailingPlatform& platform;
        const std::unique_ptr<IFileReplacement> inner;
        const bool isFake;
    };

    class FailingFiles : public Failing<Platform::IFiles> {
    public:
        FailingFiles(FailingPlatform& platform, bool isFake) : platform(platform), isFake(isFake) {}
        ValueOr<std::string> Read(const std::string& path) override {
            return Try(isFake, [&] { return inner.Read(path); });
        }
        ValueOr<Platform::FileState> State(const std::string& path) override {
            return Try(isFake, [&] { return inner.State(path); });
        }
        ValueOr<std::unique_ptr<Platform::IFileReplacement>> BeginReplace(
            const std::string& path, std::uint64_t size, Platform::Durability durability) override {
            using Begun = ValueOr<std::unique_ptr<Platform::IFileReplacement>>;
            return Try(isFake, [&]() -> Begun {
                auto begun = inner.BeginReplace(path, size, durability);
                if (!begun) return begun;
                const NthFailure::Pause pause;
                return std::unique_ptr<Platform::IFileReplacement>(
                    std::make_unique<Replacement>(platform, std::move(*begun), isFake));
            });
        }
        Result Remove(const std::string& path, Platform::Durability durability) override {
            return platform.TryUnseen(isFake, [&] { return inner.Remove(path, durability); });
        }
        Result Rename(const std::string& from, const std::string& to) override {
            return platform.TryUnseen(isFake, [&] { return inner.Rename(from, to); });
        }
        ValueOr<std::vector<std::string>> List(const std::string& directory) override {
            return Try(isFake, [&] { return inner.List(directory); });
        }
        Result CreateDirectories(const std::string& directory, Platform::Durability durability) override {
            return Try(isFake, [&] { return inner.CreateDirectories(directory, durability); });
        }

    private:
        FailingPlatform& platform;
        const bool isFake;
    };

    class FailingSockets : public Failing<Platform::ISockets> {
    public:
        using Handle = Platform::SocketHandle;

        explicit FailingSockets(bool isFake) : isFake(isFake) {}
        ValueOr<std::uint16_t> Startup(std::uint16_t version) override {
            return Try(isFake, [&] { return inner.Startup(version); });
        }
        // The two that give something back do so, and then fail.
        Result Cleanup() override {
            const Result result = Try(isFake, [&] { return inner.Cleanup(); });
            return result ? result : (static_cast<void>(inner.Cleanup()), result);
        }
        Result Close(Handle socket) override {
            Forget(socket);
            const Result result = Try(isFake, [&] { return inner.Close(socket); });
            return result ? result : (static_cast<void>(inner.Close(socket)), result);
        }
        ValueOr<std::vector<Platform::AddressEntry>> GetAddressInfo(
            const char* host, const char* service, const Platform::AddressHints& hints) override {
            return Try(isFake, [&] { return inner.GetAddressInfo(host, service, hints); });
        }
        ValueOr<Platform::NumericName> NumericNameOf(const Platform::AddressEntry& address,
                                                     std::size_t hostRoom, std::size_t serviceRoom) override {
            return Try(isFake, [&] { return inner.NumericNameOf(address, hostRoom, serviceRoom); });
        }
        ValueOr<Handle> Create(int family, int socketType, int protocol) override {
            return Try(isFake, [&] { return inner.Create(family, socketType, protocol); });
        }
        Result Bind(Handle socket, const Platform::AddressEntry& address) override {
            return Try(isFake, [&] { return inner.Bind(socket, address); });
        }
        Result SetNonBlocking(Handle socket, bool nonBlocking) override {
            return Try(isFake, [&] { return inner.SetNonBlocking(socket, nonBlocking); });
        }
        Result Connect(Handle socket, const Platform::AddressEntry& address) override {
            if (IsDown()) return Result::Failure(ECONNREFUSED);
            return Try(isFake, [&] { return inner.Connect(socket, address); });
        }
        Platform::SelectResult Select(Platform::SocketSet* read, Platform::SocketSet* write,
                                      Platform::SocketSet* except, std::int64_t milliseconds) override {
            if (const int broken = LeaveBroken({read, write, except})) return {broken, 0};
            LeaveOutSilent({read, except});
            const auto outcome = Try(isFake, [&]() -> ValueOr<Platform::SelectResult> {
                return inner.Select(read, write, except, milliseconds);
            });
            return outcome ? *outcome : Platform::SelectResult{-1, Error};
        }
        ValueOr<int> GetSocketError(Handle socket) override {
            return Try(isFake, [&] { return inner.GetSocketError(socket); });
        }
        Platform::TransferResult Receive(Handle socket, void* buffer, std::uint32_t length) override {
            if (const std::optional<End> end = EndOf(socket)) {
                if (*end == End::Silence) return {-1, Platform::ErrorWouldBlock};
                return *end == End::InOrder ? Platform::TransferResult{0, 0}
                                            : Platform::TransferResult{-1, ECONNRESET};
            }
            const auto received = {Of::ReceivedByte, Of::LastByte, Of::SilentByte};
            const std::uint32_t most = Before(received, length);  // ahead of the pause of a fake
            const auto outcome = Try(isFake, [&]() -> ValueOr<Platform::TransferResult> {
                return inner.Receive(socket, buffer, most);
            });
            if (outcome) BreakBehind(received, socket, outcome->count);
            return outcome ? *outcome : Platform::TransferResult{-1, Error};
        }
        Platform::TransferResult Send(Handle socket, const void* buffer, std::uint32_t length,
                                      bool moreFollows) override {
            if (const std::optional<End> end = EndOf(socket)) {
                return *end == End::Silence ? Platform::TransferResult{static_cast<std::int32_t>(length), 0}
                                            : Platform::TransferResult{-1, ECONNRESET};
            }
            const std::uint32_t most = Before({Of::SentByte}, length);
            const auto outcome = Try(isFake, [&]() -> ValueOr<Platform::TransferResult> {
                return inner.Send(socket, buffer, most, moreFollows);
            });
            if (outcome) BreakBehind({Of::SentByte}, socket, outcome->count);
            return outcome ? *outcome : Platform::TransferResult{-1, Error};
        }

    private:
        using Of = NthFailure::Of;
        enum class End { Reset, InOrder, Silence };

        /// No byte of the calling thread passes any more, on whatever connection.
        static bool IsDown() {
            return std::ranges::any_of(NthFailure::Bytes, [](Of what) {
                return what != Of::SilentByte && NthFailure::HasStruckForGood(what);
            });
        }
        std::optional<End> EndOf(Handle socket) {
            const std::lock_guard guard(mutex);
            const auto found = ends.find(socket);
            if (found != ends.end()) return found->second;
            if (NthFailure::HasStruckForGood(Of::SilentByte)) return End::Silence;
            return IsDown() ? std::optional(End::Reset) : std::nullopt;
        }
        void Forget(Handle socket) {
            const std::lock_guard guard(mutex);
            ends.erase(socket);
        }
        static std::uint32_t Before(std::initializer_list<Of> bytes, std::uint32_t length) {
            std::size_t left = length;
            for (const Of what : bytes)
                left = NthFailure::Before(what, left);
            return static_cast<std::uint32_t>(left);
        }
        void BreakBehind(std::initializer_list<Of> bytes, Handle socket, std::int32_t count) {
            for (const Of what : bytes) {
                if (count <= 0 || !NthFailure::StrikesBehind(what, static_cast<std::size_t>(count))) continue;
                const NthFailure::Pause pause;
                const std::lock_guard guard(mutex);
                ends[socket] = what == Of::LastByte     ? End::InOrder
                               : what == Of::SilentByte ? End::Silence
                                                        : End::Reset;
            }
        }
        /// If connections that are waited for are broken, leaves these alone in the sets.
        int LeaveBroken(std::initializer_list<Platform::SocketSet*> sets) {
            std::array<Platform::SocketSet, 3> broken;
            std::size_t count = 0;
            std::size_t at = 0;
            for (const Platform::SocketSet* const set : sets) {
                for (const Handle socket : set ? *set : Platform::SocketSet()) {
                    const std::optional<End> end = EndOf(socket);
                    if (end && *end != End::Silence) broken[at].Add(socket);
                }
                count += broken[at++].Count();
            }
            at = 0;
            for (Platform::SocketSet* const set : sets) {
                if (set && count > 0) *set = broken[at];
                ++at;
            }
            return static_cast<int>(count);
        }

        void LeaveOutSilent(std::initializer_list<Platform::SocketSet*> sets) {
            for (Platform::SocketSet* const set : sets) {
                if (!set) continue;
                const Platform::SocketSet all = *set;
                set->Clear();
                for (const Handle socket : all) {
                    if (EndOf(socket) != End::Silence) set->Add(socket);
                }
            }
        }

        const bool isFake;
        std::mutex mutex;
        std::map<Handle, End> ends;  // of connections that have broken or are silent; guarded by mutex
    };

    class FailingRandom : public Failing<Platform::IRandom> {
    public:
        // A background thread that gets no seed ends the process.
        std::uint32_t SeedWord() override {
            if (NthFailure::ThisThread() == 0 && Strikes()) throw std::runtime_error("no random word");
            return inner.SeedWord();
        }
        Result Bytes(std::span<std::uint8_t> bytes) override {
            return Try(false, [&] { return inner.Bytes(bytes); });
        }
        Platform::Guid NewGuid() override {
            if (Strikes()) throw std::runtime_error("no random bytes");
            return inner.NewGuid();
        }
    };

    class FailingStore : public Platform::ICertificateStore {
    public:
        using Context = Platform::CertificateContextPointer;

        explicit FailingStore(std::unique_ptr<ICertificateStore> inner) : inner(std::move(inner)) {}
        Context FindNext(Context previous) override {
            return Strikes() ? nullptr : inner->FindNext(previous);
        }
        ValueOr<std::uint32_t> GetFriendlyName(Context certificate, std::span<std::uint8_t> buffer) override {
            return Try(false, [&] { return inner->GetFriendlyName(certificate, buffer); });
        }
        Result Delete(Context certificate) override {
            return Try(false, [&] { return inner->Delete(certificate); });
        }
        ValueOr<Context> AddReplaceExisting(const Platform::CertificateContext& certificate) override {
            return Try(false, [&] { return inner->AddReplaceExisting(certificate); });
        }
        Result SetFriendlyName(Context certificate, std::span<const std::uint8_t> name) override {
            return Try(false, [&] { return inner->SetFriendlyName(certificate, name); });
        }

    private:
        const std::unique_ptr<ICertificateStore> inner;
    };

    class FailingCertificates : public Failing<Platform::ICertificates> {
    public:
        using Opened = ValueOr<std::unique_ptr<Platform::ICertificateStore>>;

        Opened OpenStore(Platform::StoreLocation location, Platform::StoreAccess access,
                         std::wstring_view name) override {
            return Try(false, [&]() -> Opened {
                auto opened = inner.OpenStore(location, access, name);
                if (!opened) return opened;
                const NthFailure::Pause pause;
                return std::unique_ptr<Platform::ICertificateStore>(
                    std::make_unique<FailingStore>(std::move(*opened)));
            });
        }
        ValueOr<std::unique_ptr<Platform::ICertificate>> CreateCertificate(
            std::span<const std::uint8_t> encoded) override {
            return Try(false, [&] { return inner.CreateCertificate(encoded); });
        }
        bool EqualPublicKeys(const Platform::CertificateContext& left,
                             const Platform::CertificateContext& right) override {
            return !Strikes() && inner.EqualPublicKeys(left, right);
        }
        ValueOr<std::uint32_t> BinaryToBase64(std::span<const std::uint8_t> binary, char* text,
                                              std::uint32_t room) override {
            return Try(false, [&] { return inner.BinaryToBase64(binary, text, room); });
        }
        ValueOr<std::uint32_t> Base64ToBinary(std::string_view text, std::uint8_t* binary,
                                              std::uint32_t room) override {
            return Try(false, [&] { return inner.Base64ToBinary(text, binary, room); });
        }
    };

    class FailingMemoryProtection : public Failing<Platform::IMemoryProtection> {
    public:
        Result Protect(std::span<std::uint8_t> memory, std::uint32_t flags) override {
            return Try(false, [&] { return inner.Protect(memory, flags); });
        }
        Result Unprotect(std::span<std::uint8_t> memory, std::uint32_t flags) override {
            return Try(false, [&] { return inner.Unprotect(memory, flags); });
        }
    };

    class FailingMachineProtection : public Failing<Platform::IMachineProtection> {
    public:
        using Outcome = ValueOr<std::optional<std::string>>;

        Outcome Protect(std::string_view plain, std::string_view entropy, std::uint32_t flags) override {
            return Try(false, [&] { return inner.Protect(plain, entropy, flags); });
        }
        Outcome Unprotect(std::string_view blob, std::string_view entropy, std::uint32_t flags) override {
            return Try(false, [&] { return inner.Unprotect(blob, entropy, flags); });
        }
    };

    class HashObject : public Platform::IHashObject {
    public:
        explicit HashObject(std::unique_ptr<IHashObject> inner) : inner(std::move(inner)) {}
        Result Update(std::string_view data) override {
            return Try(false, [&] { return inner->Update(data); });
        }
        ValueOr<std::uint32_t> GetSize() override {
            return Try(false, [&] { return inner->GetSize(); });
        }
        Result GetValue(std::span<std::uint8_t> value) override {
            return Try(false, [&] { return inner->GetValue(value); });
        }

    private:
        const std::unique_ptr<IHashObject> inner;
    };

    class HashProvider : public Platform::IHashProvider {
    public:
        using Created = ValueOr<std::unique_ptr<Platform::IHashObject>>;

        explicit HashProvider(std::unique_ptr<IHashProvider> inner) : inner(std::move(inner)) {}
        Created CreateSha256() override {
            return Try(false, [&]() -> Created {
                auto created = inner->CreateSha256();
                if (!created) return created;
                const NthFailure::Pause pause;
                return std::unique_ptr<Platform::IHashObject>(
                    std::make_unique<HashObject>(std::move(*created)));
            });
        }

    private:
        const std::unique_ptr<IHashProvider> inner;
    };

    class FailingHash : public Failing<Platform::IHash> {
    public:
        using Acquired = ValueOr<std::unique_ptr<Platform::IHashProvider>>;

        Acquired AcquireProvider() override {
            return Try(false, [&]() -> Acquired {
                auto acquired = inner.AcquireProvider();
                if (!acquired) return acquired;
                const NthFailure::Pause pause;
                return std::unique_ptr<Platform::IHashProvider>(
                    std::make_unique<HashProvider>(std::move(*acquired)));
            });
        }
    };

    class FailingText : public Failing<Platform::ITextConversion> {
    public:
        Count Utf8ToWide(std::string_view text, wchar_t* out, std::size_t room) override {
            return Strikes() ? Count{0, Error} : inner.Utf8ToWide(text, out, room);
        }
        Count WideToUtf8(std::wstring_view text, char* out, std::size_t room) override {
            return Strikes() ? Count{0, Error} : inner.WideToUtf8(text, out, room);
        }
    };

    class FailingMachineId : public Failing<Platform::IMachineId> {
    public:
        ValueOr<std::string> MachineId() override {
            return Try(false, [&] { return inner.MachineId(); });
        }
    };

    class FailingKnownFolders : public Failing<Platform::IKnownFolders> {
    public:
        ValueOr<std::wstring> ProgramDataQuennet() override {
            return Try(false, [&] { return inner.ProgramDataQuennet(); });
        }
        ValueOr<std::string> CurrentUserQuennet() override {
            return Try(false, [&] { return inner.CurrentUserQuennet(); });
        }
    };

    std::atomic<bool> hasFailedUnseen = false;
    FailingFiles files;
    FailingSockets sockets;
    FailingRandom random;
    FailingCertificates certificates;
    FailingMemoryProtection memoryProtection;
    FailingMachineProtection machineProtection;
    FailingHash hash;
    FailingText text;
    FailingMachineId machineId;
    FailingKnownFolders knownFolders;
};

}  // namespace Ombry::Tests
