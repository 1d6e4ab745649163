#pragma once

#include "Platform/ISockets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// Sockets in memory that do what they are told. Every call is recorded in order, as text such as
/// "Send(100, 5)" or "Select(-, {100}, {100}, 1000)". Any call can be made to fail with a number. Without a
/// script, hosts resolve to one address each, connects succeed after one wait, nothing is readable and
/// everything is writable. Time does not pass: a wait in which nothing is ready calls the idle hook and
/// returns. Any thread may use it; hooks run on the thread that made the call.
class ScriptedSockets : public Platform::ISockets {
public:
    using Handle = Platform::SocketHandle;
    using Entry = Platform::AddressEntry;

    static constexpr std::size_t NoLimit = std::numeric_limits<std::size_t>::max();

    /// How the connect to one address goes. Error 0: at once; `ErrorInProgress` or `ErrorWouldBlock`: a wait
    /// follows, in which the socket shows as `writable` and `exceptional` say, then `socketError` is read.
    struct ConnectScript {
        int error = Platform::ErrorInProgress;
        bool writable = true;
        bool exceptional = false;
        int socketError = 0;
    };

    // --- Script: failures ---

    /// The n-th call from now on, counted from 1 over all operations, fails with the number.
    void FailNthCall(std::size_t n, int error) {
        const std::lock_guard guard(mutex);
        failures.push_back({"", calls.size() + n, error});
    }

    /// The n-th call from now on of one operation, such as "Connect", fails with the number.
    void FailNthCall(const std::string& operation, std::size_t n, int error) {
        const std::lock_guard guard(mutex);
        failures.push_back({operation, CountOf(operation) + n, error});
    }

    // --- Script: library, names, connects ---

    /// The version word that `Startup` offers, and the last error beside it.
    void OfferVersion(std::uint16_t word, int lastError) {
        const std::lock_guard guard(mutex);
        offered = {word, lastError};
    }

    /// An address of this fake; its text is "host:service".
    static Entry Address(int family, const std::string& host, const std::string& service) {
        Entry entry;
        entry.family = family;
        entry.socketType = Platform::SocketTypeStream;
        entry.protocol = Platform::ProtocolTcp;
        const std::string bytes = host + '|' + service;
        entry.address.assign(bytes.begin(), bytes.end());
        return entry;
    }

    /// What a host (or the lack of one) resolves to; the list may be empty.
    void Resolve(const std::string& host, std::vector<Entry> entries) {
        const std::lock_guard guard(mutex);
        hosts[host] = std::move(entries);
    }
    static constexpr const char* NullHost = "(null)";

    /// How a connect to the address "host:service" goes.
    void OnConnect(const std::string& address, ConnectScript script) {
        const std::lock_guard guard(mutex);
        connects[address] = script;
    }

    void SetNextHandle(Handle next) {
        const std::lock_guard guard(mutex);
        nextHandle = next;
    }

    // --- Script: connected sockets ---

    /// A socket that is connected already.
    Handle AddConnected() {
        const std::lock_guard guard(mutex);
        const Handle handle = nextHandle++;
        sockets[handle].connected = true;
        return handle;
    }

    /// A connected socket with a number of the caller's choice, that of a closed one for example.
    Handle AddConnected(Handle handle) {
        const std::lock_guard guard(mutex);
        sockets[handle] = Socket();
        sockets[handle].connected = true;
        return handle;
    }

    /// Bytes that the peer sent.
    void Deliver(Handle handle, const std::string& bytes) {
        const std::lock_guard guard(mutex);
        sockets.at(handle).incoming += bytes;
    }

    /// The peer closes in good order, behind what it sent.
    void CloseByPeer(Handle handle) {
        const std::lock_guard guard(mutex);
        sockets.at(handle).peerClosed = true;
    }

    /// Receives (behind what was delivered) and sends fail with the number; the socket shows as ready.
    void Break(Handle handle, int error) {
        const std::lock_guard guard(mutex);
        sockets.at(handle).brokenBy = error;
    }

    /// The socket shows up in exception sets.
    void SetExceptional(Handle handle, bool exceptional = true) {
        const std::lock_guard guard(mutex);
        sockets.at(handle).exceptional = exceptional;
    }

    /// Bytes that can be sent before the socket is not writable any more.
    void SetSendRoom(Handle handle, std::size_t room) {
        const std::lock_guard guard(mutex);
        sockets.at(handle).sendRoom = room;
    }

    /// One send moves at most `send` bytes, one receive at most `receive`.
    void SetMostPerCall(Handle handle, std::size_t send, std::size_t receive) {
        const std::lock_guard guard(mutex);
        sockets.at(handle).mostPerSend = send;
        sockets.at(handle).mostPerReceive = receive;
    }

    // --- Script: waits ---

    /// The next wait that has no result yet gives this one, with all sets empty.
    void NextSelect(Platform::SelectResult result) {
        const std::lock_guard guard(mutex);
        selects.push_back({result, {}, {}, {}});
    }

    /// The next wait shows these handles as ready, whatever their state.
    void NextReady(std::vector<Handle> read, std::vector<Handle> write, std::vector<Handle> except = {}) {
        const std::lock_guard guard(mutex);
        const int count = static_cast<int>(read.size() + write.size() + except.size());
        selects.push_back({{count, 0}, std::move(read), std::move(write), std::move(except)});
    }

    /// Called with the milliseconds of a wait in which nothing is ready; what it does counts for that wait.
    void OnIdle(std::function<void(std::int64_t)> hook) {
        const std::lock_guard guard(mutex);
        onIdle = std::move(hook);
    }

    /// Called after each send that moved bytes: the place for a peer that answers.
    void OnSend(std::function<void(Handle, const std::string&)> hook) {
        const std::lock_guard guard(mutex);
        onSend = std::move(hook);
    }

    // --- What happened ---

    std::vector<std::string> Calls() const {
        const std::lock_guard guard(mutex);
        return calls;
    }

    void ClearCalls() {
        const std::lock_guard guard(mutex);
        calls.clear();
        failures.clear();
    }

    std::size_t CallsOf(const std::string& operation) const {
        const std::lock_guard guard(mutex);
        return CountOf(operation);
    }

    /// All bytes that were sent on a socket, closed ones included.
    std::string Sent(Handle handle) const {
        const std::lock_guard guard(mutex);
        const auto found = sent.find(handle);
        return found == sent.end() ? "" : found->second;
    }

    std::size_t OpenSockets() const {
        const std::lock_guard guard(mutex);
        return sockets.size();
    }

    bool IsOpen(Handle handle) const {
        const std::lock_guard guard(mutex);
        return sockets.contains(handle);
    }

    bool IsNonBlocking(Handle handle) const {
        const std::lock_guard guard(mutex);
        return sockets.at(handle).nonBlocking;
    }

    /// `Startup` calls that succeeded minus `Cleanup` calls.
    int LibraryReferences() const {
        const std::lock_guard guard(mutex);
        return references;
    }

    // --- The operations ---

    Platform::ValueOr<std::uint16_t> Startup(std::uint16_t version) override {
        const std::lock_guard guard(mutex);
        if (const auto error = Record("Startup", version)) return Platform::Result::Failure(*error);
        ++references;
        if (!offered) return version;
        return {offered->first, offered->second};
    }

    Platform::Result Cleanup() override {
        const std::lock_guard guard(mutex);
        const auto error = Record("Cleanup");
        --references;
        return Outcome(error);
    }

    Platform::ValueOr<std::vector<Entry>> GetAddressInfo(const char* host, const char* service,
                                                         const Platform::AddressHints& hints) override {
        const std::lock_guard guard(mutex);
        const std::string name = host ? host : NullHost;
        const std::string port = service ? service : "(null)";
        if (const auto error = Record("GetAddressInfo", name, port, hints.flags, hints.family,
                                      hints.socketType, hints.protocol)) {
            return Platform::Result::Failure(*error);
        }
        const auto found = hosts.find(name);
        if (found != hosts.end()) return found->second;
        return std::vector<Entry>{Address(Platform::FamilyIPv4, name, port)};
    }

    Platform::ValueOr<Platform::NumericName> NumericNameOf(const Entry& address, std::size_t hostRoom,
                                                           std::size_t serviceRoom) override {
        const std::lock_guard guard(mutex);
        if (const auto error = Record("NumericNameOf", Text(address), hostRoom, serviceRoom)) {
            return Platform::Result::Failure(*error);
        }
        const Platform::NumericName name = NameOf(address);
        if (name.host.size() >= hostRoom || name.service.size() >= serviceRoom) {
            return Platform::Result::Failure(-12);
        }
        return name;
    }

    Platform::ValueOr<Handle> Create(int family, int socketType, int protocol) override {
        const std::lock_guard guard(mutex);
        if (const auto error = Record("Create", family, socketType, protocol)) {
            return Platform::Result::Failure(*error);
        }
        const Handle handle = nextHandle++;
        sockets[handle] = Socket();
        return handle;
    }

    Platform::Result Close(Handle handle) override {
        const std::lock_guard guard(mutex);
        const auto error = Record("Close", handle);
        if (sockets.erase(handle) == 0) return BadHandle("Close", handle);
        return Outcome(error);
    }

    Platform::Result Bind(Handle handle, const Entry& address) override {
        const std::lock_guard guard(mutex);
        if (const auto error = Record("Bind", handle, Text(address))) return Outcome(error);
        return Find(handle) ? Platform::Result::Success() : BadHandle("Bind", handle);
    }

    Platform::Result SetNonBlocking(Handle handle, bool nonBlocking) override {
        const std::lock_guard guard(mutex);
        if (const auto error = Record("SetNonBlocking", handle, nonBlocking)) return Outcome(error);
        Socket* const socket = Find(handle);
        if (!socket) return BadHandle("SetNonBlocking", handle);
        socket->nonBlocking = nonBlocking;
        return Platform::Result::Success();
    }

    Platform::Result Connect(Handle handle, const Entry& address) override {
        const std::lock_guard guard(mutex);
        if (const auto error = Record("Connect", handle, Text(address))) return Outcome(error);
        Socket* const socket = Find(handle);
        if (!socket) return BadHandle("Connect", handle);
        const auto found = connects.find(Text(address));
        socket->connect = found == connects.end() ? ConnectScript() : found->second;
        socket->connected = socket->connect.error == 0;
        return socket->connected ? Platform::Result::Success()
                                 : Platform::Result::Failure(socket->connect.error);
    }

    Platform::SelectResult Select(Platform::SocketSet* read, Platform::SocketSet* write,
                                  Platform::SocketSet* except, std::int64_t milliseconds) override {
        std::function<void(std::int64_t)> hook;
        {
            const std::lock_guard guard(mutex);
            if (const auto error =
                    Record("Select", SetText(read), SetText(write), SetText(except), milliseconds)) {
                return {-1, *error};
            }
            if (!selects.empty()) return TakeScripted(read, write, except);
            if (const int count = CountReady(read, write, except)) {
                KeepReady(read, write, except);
                return {count, 0};
            }
            hook = onIdle;
            if (!hook || ++idleWaits > MostIdleWaits) {
                ADD_FAILURE() << "a wait that nothing ends: " << calls.back();
                return {-1, 9999};
            }
        }
        hook(milliseconds);
        const std::lock_guard guard(mutex);
        const int count = CountReady(read, write, except);
        KeepReady(read, write, except);
        return {count, 0};
    }

    Platform::ValueOr<int> GetSocketError(Handle handle) override {
        const std::lock_guard guard(mutex);
        if (const auto error = Record("GetSocketError", handle)) return Platform::Result::Failure(*error);
        Socket* const socket = Find(handle);
        if (!socket) return BadHandle("GetSocketError", handle);
        const int error = std::exchange(socket->connect.socketError, 0);
        socket->connected = socket->connected || error == 0;
        return error;
    }

    Platform::TransferResult Receive(Handle handle, void* buffer, std::uint32_t length) override {
        const std::lock_guard guard(mutex);
        if (const auto error = Record("Receive", handle, length)) return {-1, *error};
        Socket* const socket = Find(handle);
        if (!socket) return {-1, BadHandle("Receive", handle).Error()};
        if (!socket->incoming.empty()) {
            const std::size_t count =
                std::min({std::size_t{length}, socket->incoming.size(), socket->mostPerReceive});
            std::memcpy(buffer, socket->incoming.data(), count);
            socket->incoming.erase(0, count);
            return {static_cast<std::int32_t>(count), 0};
        }
        if (socket->brokenBy != 0) return {-1, socket->brokenBy};
        if (socket->peerClosed) return {0, 0};
        return {-1, Platform::ErrorWouldBlock};
    }

    Platform::TransferResult Send(Handle handle, const void* buffer, std::uint32_t length,
                                  bool moreFollows) override {
        std::function<void(Handle, const std::string&)> hook;
        std::string bytes;
        {
            const std::lock_guard guard(mutex);
            const auto error = moreFollows ? Record("Send", handle, length, std::string("more"))
                                           : Record("Send", handle, length);
            if (error) return {-1, *error};
            Socket* const socket = Find(handle);
            if (!socket) return {-1, BadHandle("Send", handle).Error()};
            if (socket->brokenBy != 0) return {-1, socket->brokenBy};
            if (socket->sendRoom == 0) return {-1, Platform::ErrorWouldBlock};
            const std::size_t count = std::min({std::size_t{length}, socket->sendRoom, socket->mostPerSend});
            bytes.assign(static_cast<const char*>(buffer), count);
            if (socket->sendRoom != NoLimit) socket->sendRoom -= count;
            sent[handle] += bytes;
            hook = onSend;
        }
        if (hook) hook(handle, bytes);
        return {static_cast<std::int32_t>(bytes.size()), 0};
    }

private:
    static constexpr int MostIdleWaits = 100'000;
    static constexpr int ErrorBadHandle = 9;

    struct Socket {
        ConnectScript connect;
        bool connected = false;
        bool nonBlocking = false;
        std::string incoming;
        bool peerClosed = false;
        int brokenBy = 0;
        bool exceptional = false;
        std::size_t sendRoom = NoLimit;
        std::size_t mostPerSend = NoLimit;
        std::size_t mostPerReceive = NoLimit;

        bool Readable() const { return !incoming.empty() || peerClosed || brokenBy != 0; }
        bool Writable() const { return connected ? sendRoom > 0 || brokenBy != 0 : connect.writable; }
        bool Exceptional() const { return connected ? exceptional : connect.exceptional; }
    };

    struct Failure {
        std::string operation;  // empty: any
        std::size_t at;
        int error;
    };

    struct ScriptedSelect {
        Platform::SelectResult result;
        std::vector<Handle> read;
        std::vector<Handle> write;
        std::vector<Handle> except;
    };

    // Notes the call; the number if it is to fail.
    template <class... Args>
    std::optional<int> Record(const std::string& operation, const Args&... args) {
        std::string text;
        ((text += (text.empty() ? "" : ", ") + ArgText(args)), ...);
        calls.push_back(operation + '(' + text + ')');
        for (const Failure& failure : failures) {
            const std::size_t count = failure.operation.empty() ? calls.size() : CountOf(failure.operation);
            if ((failure.operation.empty() || failure.operation == operation) && failure.at == count) {
                return failure.error;
            }
        }
        return std::nullopt;
    }

    static std::string ArgText(const std::string& text) { return text; }
    template <class Number>
    static std::string ArgText(Number number) {
        return std::to_string(number);
    }

    std::size_t CountOf(const std::string& operation) const {
        const std::string start = operation + '(';
        return static_cast<std::size_t>(std::count_if(
            calls.begin(), calls.end(),
            [&](const std::string& call) { return call.compare(0, start.size(), start) == 0; }));
    }

    static Platform::Result Outcome(std::optional<int> error) {
        return error ? Platform::Result::Failure(*error) : Platform::Result::Success();
    }

    static Platform::Result BadHandle(const char* operation, Handle handle) {
        ADD_FAILURE() << operation << " of a handle that is not open: " << handle;
        return Platform::Result::Failure(ErrorBadHandle);
    }

    Socket* Find(Handle handle) {
        const auto found = sockets.find(handle);
        return found == sockets.end() ? nullptr : &found->second;
    }

    static Platform::NumericName NameOf(const Entry& address) {
        const std::string bytes(address.address.begin(), address.address.end());
        const std::size_t bar = bytes.find('|');
        if (bar == std::string::npos) return {bytes, ""};
        return {bytes.substr(0, bar), bytes.substr(bar + 1)};
    }

    static std::string Text(const Entry& address) {
        const Platform::NumericName name = NameOf(address);
        return name.host + ':' + name.service;
    }

    static std::string SetText(const Platform::SocketSet* set) {
        if (!set) return "-";
        std::string text = "{";
        for (const Handle handle : *set)
            text += (text.size() > 1 ? " " : "") + std::to_string(handle);
        return text + '}';
    }

    template <class Ready>
    static int Count(const Platform::SocketSet* set, Ready ready) {
        return set ? static_cast<int>(std::count_if(set->begin(), set->end(), ready)) : 0;
    }

    template <class Ready>
    static void Keep(Platform::SocketSet* set, Ready ready) {
        if (!set) return;
        const Platform::SocketSet all = *set;
        set->Clear();
        for (const Handle handle : all) {
            if (ready(handle)) set->Add(handle);
        }
    }

    bool IsReadable(Handle handle) { return Find(handle) && Find(handle)->Readable(); }
    bool IsWritable(Handle handle) { return Find(handle) && Find(handle)->Writable(); }
    bool IsExceptional(Handle handle) { return Find(handle) && Find(handle)->Exceptional(); }

    int CountReady(const Platform::SocketSet* read, const Platform::SocketSet* write,
                   const Platform::SocketSet* except) {
        return Count(read, [&](Handle handle) { return IsReadable(handle); }) +
               Count(write, [&](Handle handle) { return IsWritable(handle); }) +
               Count(except, [&](Handle handle) { return IsExceptional(handle); });
    }

    void KeepReady(Platform::SocketSet* read, Platform::SocketSet* write, Platform::SocketSet* except) {
        Keep(read, [&](Handle handle) { return IsReadable(handle); });
        Keep(write, [&](Handle handle) { return IsWritable(handle); });
        Keep(except, [&](Handle handle) { return IsExceptional(handle); });
    }

    Platform::SelectResult TakeScripted(Platform::SocketSet* read, Platform::SocketSet* write,
                                        Platform::SocketSet* except) {
        const ScriptedSelect script = selects.front();
        selects.pop_front();
        const auto fill = [](Platform::SocketSet* set, const std::vector<Handle>& handles) {
            if (!set) return;
            set->Clear();
            for (const Handle handle : handles)
                set->Add(handle);
        };
        fill(read, script.read);
        fill(write, script.write);
        fill(except, script.except);
        return script.result;
    }

    mutable std::mutex mutex;
    // Guarded by mutex:
    std::vector<std::string> calls;
    std::vector<Failure> failures;
    std::optional<std::pair<std::uint16_t, int>> offered;
    std::map<std::string, std::vector<Entry>> hosts;
    std::map<std::string, ConnectScript> connects;
    std::map<Handle, Socket> sockets;
    std::map<Handle, std::string> sent;
    std::deque<ScriptedSelect> selects;
    std::function<void(std::int64_t)> onIdle;
    std::function<void(Handle, const std::string&)> onSend;
    Handle nextHandle = 100;
    int references = 0;
    int idleWaits = 0;
};

}  // namespace Ombry::Tests
