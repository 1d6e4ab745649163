#pragma once

#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSSLIO.h"
#include "tests/Fakes/FakeSSLConnection.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedLowerLayer.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {

/// The stage above and the notifier: what they hear, in order.
class SSLIOListener : public OmbryZephCore::ZephIOCompletionHandlerIf,
                      public OmbryZephCore::ZephSSLNotifierIf {
public:
    std::vector<std::string> events;
    std::function<void()> onComplete;
    std::function<void()> onStopped;

    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override {
        events.push_back(std::string(nTaskType == 0 ? "read" : "write") + (bSuccess ? " ok " : " failed ") +
                         std::to_string(nBytes));
        if (const auto hook = std::exchange(onComplete, nullptr)) hook();
    }
    void AbortTask(std::uint32_t nTaskType) override {
        events.push_back("abort " + std::to_string(nTaskType));
    }
    void OnDrained() override { events.push_back("drained"); }
    void OnSSLStopped() override {
        events.push_back("stopped");
        if (onStopped) onStopped();
    }
    void OnSSLFatalError() override { events.push_back("fatal"); }
};

class CountingGate : public OmbryZephCore::ZephTaskGateIf {
public:
    bool open = true;
    int acquired = 0;
    int released = 0;
    std::function<void()> onRelease;

    bool TryAcquire() override {
        if (open) ++acquired;
        return open;
    }
    void Release() override {
        ++released;
        if (onRelease) onRelease();
    }
};

/// A stage with scripted neighbours on every side, session id 7, silent unless told.
class SSLIOFixture : public testing::Test {
protected:
    using Events = std::vector<std::string>;

    static constexpr std::uint32_t BufferLength = 8096;

    void SetUp() override { Initialize(nullptr); }

    void TearDown() override {
        EXPECT_EQ(lower.zeroTransfers, 0);
        EXPECT_EQ(lower.doubleTransfers, 0);
    }

    void Initialize(OmbryZephCore::ZephTaskGateIf* pGate) {
        manager.next = {&engine, &second};
        ASSERT_EQ(ssl.Initialize(&manager, &lower, &scheduler, 7, &listener, &scheduler, pGate), 0u);
    }

    void Register() {
        ASSERT_EQ(ssl.RegisterIOCompletionHandler(&listener), 0u);
        lower.events.clear();
    }

    /// TLS on, with a handler.
    void TurnOn() {
        Register();
        ASSERT_EQ(ssl.StartSSL(), 0u);
        engine.calls.clear();
    }

    /// The engine sees the peer's close at its next plaintext operation, and is done at once.
    void SeeClose() {
        engine.shuttingDown = true;
        engine.onShutdown = [this] { engine.shutdownComplete = true; };
        engine.shutdownResults = {1};
    }

    std::uint32_t Read(std::uint32_t nBytes) { return ssl.StartRead(nBytes, readBuffer.data()); }

    std::uint32_t Write(const std::string& bytes) {
        writeBuffer = bytes;
        return ssl.StartWrite(static_cast<std::uint32_t>(bytes.size()),
                              reinterpret_cast<const std::uint8_t*>(writeBuffer.data()));
    }

    std::string ReadText(std::size_t nBytes) const {
        return std::string(readBuffer.begin(), readBuffer.begin() + static_cast<std::ptrdiff_t>(nBytes));
    }

    Events Take(Events& events) { return std::exchange(events, {}); }

    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    FakeSSLConnection engine;
    FakeSSLConnection second;
    FakeSSLConnectionManager manager;
    ScriptedLowerLayer lower;
    ScriptedScheduler scheduler;
    SSLIOListener listener;
    std::vector<std::uint8_t> readBuffer = std::vector<std::uint8_t>(20000, '.');
    std::string writeBuffer;
    OmbryZephCore::ZephSSLIO ssl{logger};
};

}  // namespace Ombry::Tests
