#pragma once

#include "Platform/ISockets.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace Ombry::Tests {

/// The machine's sockets with a hand on them: counts the calls, cuts transfers into pieces, fails a call with
/// a number, and lets waits end without a second passing. Any thread may use it.
class ForwardingSockets : public Platform::ISockets {
public:
    using Handle = Platform::SocketHandle;

    /// From now on a wait in which nothing is ready returns 0 at once, as if its time had passed; `onIdle`,
    /// if there is one, runs first, on the thread that waits. May be called from any thread, and also ends
    /// the wait that is under way.
    void BeSilent(std::function<void()> onIdle = nullptr) {
        std::lock_guard guard(mutex);
        idle = std::move(onIdle);
        silent = true;
    }

    /// Waits take their time again.
    void EndSilence() {
        std::lock_guard guard(mutex);
        idle = nullptr;
        silent = false;
    }

    /// No transfer moves more bytes than this.
    void SetMostPerTransfer(std::uint32_t send, std::uint32_t receive) {
        mostPerSend = send;
        mostPerReceive = receive;
    }

    /// The n-th call of one operation from now on, counted from 1, fails with the number; "Send", "Receive",
    /// "Connect", "Create" or "Select".
    void FailNthCall(const std::string& operation, std::size_t n, int error) {
        std::lock_guard guard(mutex);
        failures[{operation, counts[operation] + n}] = error;
    }

    /// From now on the next `transfers` sends and receives go through and the one behind them is reset; with
    /// `forGood` every later one and every connect as well.
    void CutAfter(std::size_t transfers, bool forGood) {
        std::lock_guard guard(mutex);
        transfersLeft = transfers;
        staysCut = forGood;
        isDown = false;
    }
    /// Whether the cut has come.
    bool WasCut() const {
        std::lock_guard guard(mutex);
        return isDown;
    }
    /// The network is whole again.
    void Mend() { CutAfter(Endless, false); }

    std::size_t CallsOf(const std::string& operation) const {
        std::lock_guard guard(mutex);
        const auto found = counts.find(operation);
        return found == counts.end() ? 0 : found->second;
    }

    /// Blocks until something lies in the socket that was made last. False after ten seconds.
    bool AwaitReadable() {
        Platform::SocketSet readable, none, noneEither;
        readable.Add(lastCreated);
        return real.Select(&readable, &none, &noneEither, 10'000).count == 1;
    }

    /// Calls of all operations.
    std::size_t Calls() const {
        std::lock_guard guard(mutex);
        std::size_t total = 0;
        for (const auto& [operation, count] : counts)
            total += count;
        return total;
    }

    Platform::ValueOr<std::uint16_t> Startup(std::uint16_t version) override {
        Count("Startup");
        return real.Startup(version);
    }
    Platform::Result Cleanup() override {
        Count("Cleanup");
        return real.Cleanup();
    }
    Platform::ValueOr<std::vector<Platform::AddressEntry>> GetAddressInfo(
        const char* host, const char* service, const Platform::AddressHints& hints) override {
        Count("GetAddressInfo");
        return real.GetAddressInfo(host, service, hints);
    }
    Platform::ValueOr<Platform::NumericName> NumericNameOf(const Platform::AddressEntry& address,
                                                           std::size_t hostRoom,
                                                           std::size_t serviceRoom) override {
        Count("NumericNameOf");
        return real.NumericNameOf(address, hostRoom, serviceRoom);
    }
    Platform::ValueOr<Handle> Create(int family, int socketType, int protocol) override {
        if (const int error = Count("Create")) return Platform::Result::Failure(error);
        const auto created = real.Create(family, socketType, protocol);
        if (created) lastCreated = *created;
        return created;
    }
    Platform::Result Close(Handle socket) override {
        Count("Close");
        return real.Close(socket);
    }
    Platform::Result Bind(Handle socket, const Platform::AddressEntry& address) override {
        Count("Bind");
        return real.Bind(socket, address);
    }
    Platform::Result SetNonBlocking(Handle socket, bool nonBlocking) override {
        Count("SetNonBlocking");
        return real.SetNonBlocking(socket, nonBlocking);
    }
    Platform::Result Connect(Handle socket, const Platform::AddressEntry& address) override {
        if (const int error = Count("Connect")) return Platform::Result::Failure(error);
        return real.Connect(socket, address);
    }
    Platform::SelectResult Select(Platform::SocketSet* read, Platform::SocketSet* write,
                                  Platform::SocketSet* except, std::int64_t milliseconds) override {
        if (const int error = Count("Select")) return {-1, error};
        // Short waits in a row, so that silence that begins on another thread is noticed at once.
        constexpr std::int64_t slice = 5;
        for (std::int64_t left = milliseconds;; left -= slice) {
            const Sets sets{Copy(read), Copy(write), Copy(except)};
            const bool isSilent = silent;
            const Platform::SelectResult result =
                real.Select(read, write, except, isSilent ? 0 : std::min(left, slice));
            if (result.count != 0) return result;
            if (isSilent) {
                if (const auto hook = Idle()) hook();
                return result;
            }
            if (left <= slice) return result;
            Restore(read, sets.read);
            Restore(write, sets.write);
            Restore(except, sets.except);
        }
    }
    Platform::ValueOr<int> GetSocketError(Handle socket) override {
        Count("GetSocketError");
        return real.GetSocketError(socket);
    }
    Platform::TransferResult Receive(Handle socket, void* buffer, std::uint32_t length) override {
        if (const int error = Count("Receive")) return {-1, error};
        return real.Receive(socket, buffer, std::min(length, mostPerReceive.load()));
    }
    Platform::TransferResult Send(Handle socket, const void* buffer, std::uint32_t length,
                                  bool moreFollows) override {
        if (const int error = Count("Send")) return {-1, error};
        return real.Send(socket, buffer, std::min(length, mostPerSend.load()), moreFollows);
    }

private:
    static constexpr std::size_t Endless = std::numeric_limits<std::size_t>::max();

    struct Sets {
        Platform::SocketSet read, write, except;
    };

    static Platform::SocketSet Copy(const Platform::SocketSet* set) {
        Platform::SocketSet copy;
        Restore(&copy, set ? *set : Platform::SocketSet());
        return copy;
    }
    static void Restore(Platform::SocketSet* set, const Platform::SocketSet& from) {
        if (!set) return;
        set->Clear();
        for (const Handle handle : from)
            set->Add(handle);
    }

    // The error that the call is to fail with, or 0.
    int Count(const std::string& operation) {
        std::lock_guard guard(mutex);
        const auto found = failures.find({operation, ++counts[operation]});
        if (IsCut(operation)) return ECONNRESET;
        return found == failures.end() ? 0 : found->second;
    }
    // Called with the mutex held.
    bool IsCut(const std::string& operation) {
        if (operation != "Send" && operation != "Receive") {
            return operation == "Connect" && isDown && staysCut;
        }
        if (isDown) return staysCut;
        isDown = transfersLeft == 0;
        if (transfersLeft != Endless && !isDown) --transfersLeft;
        return isDown;
    }
    std::function<void()> Idle() const {
        std::lock_guard guard(mutex);
        return idle;
    }

    Platform::ISockets& real = Platform::Production<Platform::ISockets>();
    std::atomic<bool> silent = false;
    std::atomic<Handle> lastCreated = Platform::InvalidSocket;
    std::atomic<std::uint32_t> mostPerSend = std::numeric_limits<std::uint32_t>::max();
    std::atomic<std::uint32_t> mostPerReceive = std::numeric_limits<std::uint32_t>::max();
    mutable std::mutex mutex;
    // Guarded by mutex:
    std::map<std::string, std::size_t> counts;
    std::map<std::pair<std::string, std::size_t>, int> failures;
    std::function<void()> idle;
    std::size_t transfersLeft = Endless;
    bool staysCut = false;
    bool isDown = false;
};

}  // namespace Ombry::Tests
