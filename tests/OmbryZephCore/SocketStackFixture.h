#pragma once

#include "OmbryZephCore/ZephIOTaskManager_Sync.h"
#include "OmbryZephCore/ZephSocketConnector.h"
#include "OmbryZephCore/ZephSocketIO.h"
#include "tests/Fakes/LoopbackPeer.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Ombry::Tests {

using namespace OmbryZephCore;
using Cancellation::Token;

class Stage : public ZephIOCompletionHandlerIf {
public:
    void CompleteTask(std::uint32_t nTaskType, bool bSuccess, std::uint32_t nBytes) override {
        events.push_back(std::string(nTaskType == 0 ? "read " : "write ") +
                         (bSuccess ? std::to_string(nBytes) : "failed"));
        lastBytes = nBytes;
        if (onComplete) onComplete(nTaskType, bSuccess, nBytes);
    }
    void AbortTask(std::uint32_t) override { events.push_back("abort"); }
    void OnDrained() override { events.push_back("drained"); }

    std::vector<std::string> events;
    std::uint32_t lastBytes = 0;
    std::function<void(std::uint32_t, bool, std::uint32_t)> onComplete;
};

class SocketStackLoopbackTest : public ::testing::Test {
protected:
    LoopbackPeer ConnectPair() {
        EXPECT_EQ(connector.Connect("127.0.0.1", listener.Port(), 3, nullptr, 0), 0u);
        EXPECT_EQ(socket.Initialize(connector.GetSocket(), &manager, &manager, nullptr), 0u);
        EXPECT_EQ(socket.RegisterIOCompletionHandler(&stage), 0u);
        return listener.Accept();
    }
    /// Asked of another connection, below what is tested.
    bool TellsAResetFromAnEnd() {
        ZephSocketConnector other{logger};
        EXPECT_EQ(other.Connect("127.0.0.1", listener.Port(), 3, nullptr, 0), 0u);
        listener.Accept().Reset();
        Platform::SocketSet readable;
        readable.Add(other.GetSocket());
        EXPECT_EQ(Platform::Sockets().Select(&readable, nullptr, nullptr, 10000).count, 1);
        char byte = 0;
        return Platform::Sockets().Receive(other.GetSocket(), &byte, 1).count < 0;
    }
    std::uint32_t Run() { return manager.DoPendingIO(10, Token()); }

    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>(1);
    LoopbackListener listener;
    ZephSocketConnector connector{logger};
    ZephIOTaskManager_Sync manager{logger};
    ZephSocketIO socket;
    Stage stage;
    std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(4096);
};

}  // namespace Ombry::Tests
