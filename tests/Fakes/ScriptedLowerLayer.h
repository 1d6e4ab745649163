#pragma once

#include "OmbryZephCore/ZephIOObjectIf.h"
#include "OmbryZephCore/ZephUserTaskIf.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// The stage below the one under test: keeps one read and one write, which the test completes. `events` notes
/// every call in order; `results` is taken from at each start, 0 when empty.
class ScriptedLowerLayer : public OmbryZephCore::ZephIOObjectIf {
public:
    OmbryZephCore::ZephIOCompletionHandlerIf* pHandler = nullptr;
    std::vector<std::string> events;
    std::deque<std::uint32_t> results;
    std::uint32_t registerResult = 0;
    std::uint8_t* pRead = nullptr;
    std::uint32_t nRead = 0;
    const std::uint8_t* pWrite = nullptr;
    std::uint32_t nWrite = 0;
    int zeroTransfers = 0;
    int doubleTransfers = 0;
    std::function<void()> onUnregister;

    std::uint32_t RegisterIOCompletionHandler(OmbryZephCore::ZephIOCompletionHandlerIf* p) override {
        events.push_back("register");
        if (registerResult == 0) pHandler = p;
        return registerResult;
    }

    void UnRegisterIOCompletionHandler() override {
        events.push_back("unregister");
        if (onUnregister) onUnregister();
    }

    std::uint32_t StartRead(std::uint32_t nBytes, std::uint8_t* pBuffer) override {
        Note("read ", nBytes, pRead != nullptr);
        const std::uint32_t nResult = NextResult();
        if (nResult == 0) pRead = pBuffer, nRead = nBytes;
        return nResult;
    }

    std::uint32_t StartWrite(std::uint32_t nBytes, const std::uint8_t* pBuffer) override {
        Note("write ", nBytes, pWrite != nullptr);
        const std::uint32_t nResult = NextResult();
        if (nResult == 0) pWrite = pBuffer, nWrite = nBytes;
        return nResult;
    }

    std::uint32_t RequestDrainNotification() override {
        events.push_back("drain");
        return 0;
    }

    /// Delivers at most the asked number of bytes and returns how many.
    std::size_t CompleteRead(const std::string& bytes) {
        const std::size_t n = std::min<std::size_t>(bytes.size(), nRead);
        std::memcpy(std::exchange(pRead, nullptr), bytes.data(), n);
        pHandler->CompleteTask(OmbryZephCore::TaskTypeRead, true, static_cast<std::uint32_t>(n));
        return n;
    }

    /// Sends at most `nAtMost` bytes and returns them.
    std::string CompleteWrite(std::uint32_t nAtMost = 0xFFFFFFFF) {
        const std::uint32_t n = std::min(nWrite, nAtMost);
        const std::string sent(reinterpret_cast<const char*>(std::exchange(pWrite, nullptr)), n);
        pHandler->CompleteTask(OmbryZephCore::TaskTypeWrite, true, n);
        return sent;
    }

    void FailRead() {
        pRead = nullptr;
        pHandler->CompleteTask(OmbryZephCore::TaskTypeRead, false, 0);
    }

    void FailWrite() {
        pWrite = nullptr;
        pHandler->CompleteTask(OmbryZephCore::TaskTypeWrite, false, 0);
    }

private:
    void Note(const char* pWhat, std::uint32_t nBytes, bool bBusy) {
        events.push_back(pWhat + std::to_string(nBytes));
        if (nBytes == 0) ++zeroTransfers;
        if (bBusy) ++doubleTransfers;
    }

    std::uint32_t NextResult() {
        if (results.empty()) return 0;
        const std::uint32_t nResult = results.front();
        results.pop_front();
        return nResult;
    }
};

/// A queue of tasks that runs when told. Not for several threads.
class ScriptedScheduler : public OmbryZephCore::ZephUserTaskScheduleIf,
                          public OmbryZephCore::ZephUserTaskCancelIf {
public:
    std::deque<OmbryZephCore::ZephTaskIf*> tasks;
    std::uint32_t result = 0;
    int scheduled = 0;
    int cancelled = 0;
    std::function<void()> onCancel;  // before the task leaves the queue

    std::uint32_t ScheduleTask(OmbryZephCore::ZephTaskIf* pTask) override {
        ++scheduled;
        if (result == 0) tasks.push_back(pTask);
        return result;
    }

    void CancelTask(OmbryZephCore::ZephTaskIf* pTask) override {
        ++cancelled;
        if (onCancel) onCancel();
        std::erase(tasks, pTask);
    }

    void RunTasks() {
        while (!tasks.empty()) {
            OmbryZephCore::ZephTaskIf* const pTask = tasks.front();
            tasks.pop_front();
            pTask->DoTask();
        }
    }
};

}  // namespace Ombry::Tests
