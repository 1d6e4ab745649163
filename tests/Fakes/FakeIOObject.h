#pragma once

#include "OmbryZephCore/ZephIOObjectIf.h"
#include "OmbryZephCore/ZephResultCodes.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Ombry::Tests {

/// A stage that transfers nothing by itself: it records what is started, as a real one refuses what overlaps,
/// and completes when told. Every call is noted in `calls`, which tests may share with other fakes to assert
/// one order.
class FakeIOObject : public OmbryZephCore::ZephIOObjectIf {
public:
    explicit FakeIOObject(std::vector<std::string>* log = nullptr) : calls(log ? *log : ownCalls) {}

    std::uint32_t RegisterIOCompletionHandler(OmbryZephCore::ZephIOCompletionHandlerIf* pHandler) override {
        calls.push_back("Register");
        if (registerResult == 0) handler = pHandler;
        return registerResult;
    }

    void UnRegisterIOCompletionHandler() override {
        calls.push_back("UnRegister");
        handler = nullptr;
        read.reset();
        write.reset();
    }

    std::uint32_t StartRead(std::uint32_t nBytes, std::uint8_t* pBuffer) override {
        calls.push_back("StartRead " + std::to_string(nBytes));
        if (nBytes == 0 || !pBuffer) ++emptyTransfers;
        if (++reads == failRead) return readFailure;
        if (read) return OmbryZephCore::eRC_IO_ReadAlreadyInProgress;
        read = Read{nBytes, pBuffer};
        return 0;
    }

    std::uint32_t StartWrite(std::uint32_t nBytes, const std::uint8_t* pBuffer) override {
        calls.push_back("StartWrite " + std::to_string(nBytes));
        if (nBytes == 0 || !pBuffer) ++emptyTransfers;
        if (++writes == failWrite) return writeFailure;
        if (write) return OmbryZephCore::eRC_IO_WriteAlreadyInProgress;
        write = Write{nBytes, pBuffer};
        return 0;
    }

    std::uint32_t RequestDrainNotification() override {
        calls.push_back("RequestDrainNotification");
        return 0;
    }

    void ExpectSilenceUntilSent() override { readsBeforeSilence.push_back(reads); }
    bool HasUnread() override { return hasUnread; }

    bool IsReading() const { return read.has_value(); }
    bool IsWriting() const { return write.has_value(); }

    /// Completes the pending read with as much of `bytes` as it has room for; the count that went.
    std::size_t CompleteRead(std::string_view bytes) { return CompleteRead(bytes, bytes.size()); }

    /// The same with the first `most` bytes; those behind them stay with this stage while the handler runs.
    std::size_t CompleteRead(std::string_view bytes, std::size_t most) {
        const Read pending = *read;
        read.reset();
        const std::size_t count = std::min({std::size_t{pending.size}, bytes.size(), most});
        hasUnread = count < bytes.size();
        std::memcpy(pending.buffer, bytes.data(), count);
        handler->CompleteTask(OmbryZephCore::TaskTypeRead, true, static_cast<std::uint32_t>(count));
        return count;
    }

    /// Feeds all of `bytes` in pieces of at most `piece` for as long as a read is pending; the count that
    /// went.
    std::size_t Feed(std::string_view bytes, std::size_t piece = std::string_view::npos) {
        std::size_t fed = 0;
        while (fed < bytes.size() && IsReading())
            fed += CompleteRead(bytes.substr(fed), piece);
        return fed;
    }

    /// The peer closes in good order.
    void CompleteReadWithEnd() {
        read.reset();
        handler->CompleteTask(OmbryZephCore::TaskTypeRead, true, 0);
    }

    void FailPendingRead() {
        read.reset();
        handler->CompleteTask(OmbryZephCore::TaskTypeRead, false, 0xFFFFFFFF);
    }

    /// Completes the pending write, with at most `most` bytes of it.
    void CompleteWrite(std::size_t most = std::string_view::npos) {
        const Write pending = *write;
        write.reset();
        const std::size_t count = std::min<std::size_t>(pending.size, most);
        written.append(reinterpret_cast<const char*>(pending.buffer), count);
        handler->CompleteTask(OmbryZephCore::TaskTypeWrite, true, static_cast<std::uint32_t>(count));
    }

    void FailPendingWrite() {
        write.reset();
        handler->CompleteTask(OmbryZephCore::TaskTypeWrite, false, 0xFFFFFFFF);
    }

    /// Where the pending read puts its bytes.
    std::uint8_t* ReadingInto() const { return read ? read->buffer : nullptr; }

    /// The bytes of the pending write.
    std::string Writing() const {
        return write ? std::string(reinterpret_cast<const char*>(write->buffer), write->size) : std::string();
    }

    OmbryZephCore::ZephIOCompletionHandlerIf* handler = nullptr;
    std::uint32_t registerResult = 0;
    /// The how many-th read or write fails, counted from 1, 0 for none, and with what.
    int failRead = 0;
    int failWrite = 0;
    std::uint32_t readFailure = OmbryZephCore::eRC_IO_HandleNotRegistered;
    std::uint32_t writeFailure = OmbryZephCore::eRC_IO_HandleNotRegistered;
    int reads = 0;
    int writes = 0;
    /// Transfers of nothing, which no stage may start: a real one would never complete them.
    int emptyTransfers = 0;
    bool hasUnread = false;
    /// How many reads had been started at each `ExpectSilenceUntilSent`.
    std::vector<int> readsBeforeSilence;
    /// All bytes whose write completed.
    std::string written;

private:
    struct Read {
        std::uint32_t size;
        std::uint8_t* buffer;
    };
    struct Write {
        std::uint32_t size;
        const std::uint8_t* buffer;
    };
    std::optional<Read> read;
    std::optional<Write> write;
    std::vector<std::string> ownCalls;

public:
    std::vector<std::string>& calls;
};

}  // namespace Ombry::Tests
