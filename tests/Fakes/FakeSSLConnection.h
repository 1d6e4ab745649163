#pragma once

#include "OmbryZephCore/ZephSSLConnectionIf.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// A TLS engine that does what its fields say. Each operation that moves bytes or the shutdown is noted in
/// `calls`, with the count offered; an operation named in `failing` returns -1.
class FakeSSLConnection : public OmbryZephCore::ZephSSLConnectionIf {
public:
    // What the pump put in and may take out.
    std::string injected;
    std::string output;
    std::string plaintext;
    std::string written;
    std::string unprocessed;
    // How the engine behaves.
    std::string failing;
    std::int32_t acceptAtMost = 1 << 20;
    std::int32_t writeAtMost = 1 << 20;
    bool wants = false;
    bool blocked = false;  // also says so when there is output
    bool shutdownComplete = false;
    bool shuttingDown = false;
    bool unread = false;                       // also says so when there is plaintext
    std::deque<std::int32_t> shutdownResults;  // 0 when empty
    std::function<void()> onInject;
    std::function<void()> onReadPlaintext;
    std::function<void()> onWritePlaintext;
    std::function<void()> onShutdown;
    // What was seen.
    std::vector<std::string> calls;
    std::vector<bool> verbose;
    std::vector<bool> waits;
    int idleReleases = 0;

    void SetVerbose(bool b) override { verbose.push_back(b); }

    std::int32_t read_plaintext(std::uint8_t* pBuffer, std::int32_t nBytes) override {
        if (Note("read_plaintext", nBytes)) return -1;
        if (onReadPlaintext) onReadPlaintext();
        return Take(plaintext, pBuffer, nBytes);
    }

    std::int32_t write_plaintext(const std::uint8_t* pBuffer, std::int32_t nBytes) override {
        if (Note("write_plaintext", nBytes)) return -1;
        if (onWritePlaintext) onWritePlaintext();
        const std::int32_t n = std::min(nBytes, writeAtMost);
        written.append(reinterpret_cast<const char*>(pBuffer), static_cast<std::size_t>(n));
        return n;
    }

    std::int32_t inject_ciphertext(const std::uint8_t* pBuffer, std::int32_t nBytes) override {
        if (Note("inject_ciphertext", nBytes)) return -1;
        const std::int32_t n = std::min(nBytes, acceptAtMost);
        injected.append(reinterpret_cast<const char*>(pBuffer), static_cast<std::size_t>(n));
        if (onInject) onInject();
        return n;
    }

    std::int32_t extract_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) override {
        if (Note("extract_ciphertext", nBytes)) return -1;
        return Take(output, pBuffer, nBytes);
    }

    bool WantsCiphertext() override { return wants; }
    bool IsOutputBlocked() override { return blocked || !output.empty(); }
    std::int32_t request_renegotiate() override { return 0; }

    std::int32_t shutdown(bool bWaitForPeer) override {
        waits.push_back(bWaitForPeer);
        if (Note("shutdown", bWaitForPeer ? 1 : 0)) return -1;
        if (onShutdown) onShutdown();
        if (shutdownResults.empty()) return 0;
        const std::int32_t nResult = shutdownResults.front();
        shutdownResults.pop_front();
        return nResult;
    }

    bool IsShutdownComplete() override { return shutdownComplete; }
    bool IsShuttingDown() override { return shuttingDown; }

    std::int32_t extract_unprocessed_ciphertext(std::uint8_t* pBuffer, std::int32_t nBytes) override {
        Note("extract_unprocessed_ciphertext", nBytes);
        return Take(unprocessed, pBuffer, nBytes);
    }

    bool HasUnread() override { return unread || !plaintext.empty(); }
    void ReleaseIdleMemory() override { ++idleReleases; }

    /// How often an operation was called.
    std::size_t Count(const std::string& name) const {
        return static_cast<std::size_t>(std::count_if(
            calls.begin(), calls.end(),
            [&](const std::string& call) { return call.compare(0, name.size() + 1, name + " ") == 0; }));
    }

private:
    bool Note(const std::string& name, std::int32_t n) {
        calls.push_back(name + " " + std::to_string(n));
        return failing == name;
    }

    static std::int32_t Take(std::string& from, std::uint8_t* pBuffer, std::int32_t nBytes) {
        const std::size_t n = std::min(from.size(), static_cast<std::size_t>(nBytes));
        std::memcpy(pBuffer, from.data(), n);
        from.erase(0, n);
        return static_cast<std::int32_t>(n);
    }
};

/// Hands out the engines of `next` in order, then null.
class FakeSSLConnectionManager : public OmbryZephCore::ZephSSLConnectionManagerIf {
public:
    std::deque<OmbryZephCore::ZephSSLConnectionIf*> next;
    std::vector<OmbryZephCore::ZephSSLConnectionIf*> released;
    int asked = 0;
    std::function<void()> onRelease;

    OmbryZephCore::ZephSSLConnectionIf* GetConnection() override {
        ++asked;
        if (next.empty()) return nullptr;
        OmbryZephCore::ZephSSLConnectionIf* const pEngine = next.front();
        next.pop_front();
        return pEngine;
    }

    void ReleaseConnection(OmbryZephCore::ZephSSLConnectionIf* pConnection) override {
        released.push_back(pConnection);
        if (onRelease) onRelease();
    }
};

}  // namespace Ombry::Tests
