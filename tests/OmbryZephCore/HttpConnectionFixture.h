#pragma once

#include "OmbryZephCore/ZephHttpClientConnection.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "tests/Fakes/FakeIOObject.h"
#include "tests/OmbryZephCore/ReplacedAllocator.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Ombry::Tests {

/// Writes every callback into one list, with the data. Continues, fails or calls back as told.
class RecordingExchange : public OmbryZephCore::ZephHttpResponseHandlerIf,
                          public OmbryZephCore::ZephHttpRequestNotifierIf,
                          public OmbryZephCore::ZephHttpNotifierIf {
public:
    RecordingExchange(std::vector<std::string>& log, OmbryZephCore::ZephHttpClientConnection& connection,
                      std::string prefix = "")
        : log(log), connection(connection), prefix(std::move(prefix)) {}

    std::uint32_t OnResponseStart(std::uint32_t nStatus, std::uint32_t nLength) override {
        return Streamed("Start", "Start " + std::to_string(nStatus) + " " + std::to_string(nLength));
    }
    std::uint32_t OnResponseData(std::uint32_t nBytes, const std::uint8_t* pData) override {
        body.append(reinterpret_cast<const char*>(pData), nBytes);
        return Streamed("Data", "Data " + std::string(reinterpret_cast<const char*>(pData), nBytes));
    }
    std::uint32_t OnResponseEnd() override { return Ended("End", "End"); }
    std::uint32_t OnCompleteResponse(std::uint32_t nStatus, const std::uint8_t* pData,
                                     std::uint32_t nBytes) override {
        body.append(reinterpret_cast<const char*>(pData), nBytes);
        return Ended("Complete", "Complete " + std::to_string(nStatus) + " " +
                                     std::string(reinterpret_cast<const char*>(pData), nBytes));
    }
    void OnResponseFailed() override { Note("ResponseFailed"); }
    void OnRequestSent() override { Note("RequestSent"); }
    void OnRequestFailed() override { Note("RequestFailed"); }
    void OnReadyForBody() override {
        Note("ReadyForBody");
        if (onReadyForBody) onReadyForBody();
    }

    /// Whether to call `ContinueReceive` from inside `OnResponseStart` and `OnResponseData`.
    bool continues = true;
    /// The callback that returns an error: "Start", "Data", "End" or "Complete".
    std::string failing;
    std::function<void()> onReadyForBody;
    std::function<void()> onStreamed;
    std::function<void()> onEnded;
    std::string body;

private:
    std::uint32_t Streamed(const char* name, std::string text) {
        Note(std::move(text));
        if (onStreamed) onStreamed();
        if (continues) connection.ContinueReceive();
        return failing == name ? 999U : 0U;
    }
    std::uint32_t Ended(const char* name, std::string text) {
        Note(std::move(text));
        if (onEnded) onEnded();
        return failing == name ? 999U : 0U;
    }
    void Note(std::string text) { log.push_back(prefix + std::move(text)); }

    std::vector<std::string>& log;
    OmbryZephCore::ZephHttpClientConnection& connection;
    const std::string prefix;
};

class RecordingTerminator : public OmbryZephCore::ZephTerminatorIf {
public:
    explicit RecordingTerminator(std::vector<std::string>& log) : log(log) {}
    void Terminate() override { log.push_back("Terminate"); }

private:
    std::vector<std::string>& log;
};

class RecordingSSLControl : public OmbryZephCore::ZephSSLControlIf {
public:
    explicit RecordingSSLControl(std::vector<std::string>& log) : log(log) {}
    bool IsSSLEnabled() override { return true; }
    void EnableSSL() override { log.push_back("EnableSSL"); }
    void DisableSSL() override { log.push_back("DisableSSL"); }

private:
    std::vector<std::string>& log;
};

/// One open connection over a fake stage. `log` holds the calls of all neighbours in one order.
class HttpConnectionFixture : public ::testing::Test {
protected:
    using Log = std::vector<std::string>;

    HttpConnectionFixture() {
        EXPECT_EQ(0U, connection.Initialize(&io, &terminator, "host:443", nullptr, &ssl));
        log.clear();
    }
    ~HttpConnectionFixture() override { EXPECT_EQ(0, io.emptyTransfers); }

    /// A GET whose head has been sent; the log is empty behind it.
    void SendGet(RecordingExchange& by, bool bClose = false) {
        EXPECT_EQ(0U, connection.SendRequest("GET", "/", bClose, &by, &by, nullptr, false, 0));
        io.CompleteWrite();
        log.clear();
    }
    void SendGet(bool bClose = false) { SendGet(exchange, bClose); }

    /// The log without what the stage below was asked for.
    Log Events() const {
        Log events;
        for (const std::string& entry : log) {
            if (!entry.starts_with("Start") || entry.starts_with("Start ")) events.push_back(entry);
        }
        return events;
    }

    Log log;
    FakeIOObject io{&log};
    RecordingTerminator terminator{log};
    RecordingSSLControl ssl{log};
    OmbryZephCore::ZephHttpClientConnection connection;
    RecordingExchange exchange{log, connection};
};

}  // namespace Ombry::Tests
