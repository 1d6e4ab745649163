#pragma once

#include "OmbryZephCore/ZephHttpHeaderParser.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionIf.h"

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// A pool, its one connection, and the HTTP connection and reactor of that, in one object: the world below a
/// synchronous client. Every call is written into `calls`, in order. `exchanges` plays the waits: each
/// `DoPendingIO` runs the next entry, which may call the handlers of the request, and returns its result.
class FakeSyncConnection : public OmbryZephCore::ZephSorrelSyncConnectionPoolIf,
                           public OmbryZephCore::ZephSorrelSyncConnectionIf,
                           public OmbryZephCore::ZephHttpClientConnectionIf,
                           public OmbryZephCore::ZephSyncIOControllerIf {
public:
    using Code = std::uint32_t;
    using Exchange = std::function<Code(FakeSyncConnection&)>;

    /// An exchange that ends with a response whose body came with its head.
    static Exchange Answer(Code nStatus, const std::string& body = "") {
        return [=](FakeSyncConnection& http) {
            http.request->OnRequestSent();
            http.response->OnCompleteResponse(nStatus, reinterpret_cast<const std::uint8_t*>(body.data()),
                                              static_cast<Code>(body.size()));
            return Code{0};
        };
    }

    /// An exchange that fails as one on a broken connection does.
    static Exchange Break() {
        return [](FakeSyncConnection& http) {
            http.request->OnRequestFailed();
            http.response->OnResponseFailed();
            return Code{0};
        };
    }

    /// A wait with this result and no word to the handlers.
    static Exchange Return(Code nResult) {
        return [=](FakeSyncConnection&) { return nResult; };
    }

    // What happened.
    std::vector<std::string> calls;
    std::string written;  ///< by `WriteBody`
    std::vector<Code> timeouts;
    Cancellation::Token token;  ///< of the last wait
    OmbryZephCore::ZephSorrelConnectionParameters asked;

    // The script.
    std::deque<Exchange> exchanges;
    std::deque<Code> ensureResults;     ///< 0 when empty
    std::deque<Code> reconnectResults;  ///< 0 when empty
    std::deque<Code> sendResults;       ///< 0 when empty
    std::deque<Code> writeResults;      ///< 0 when empty
    Code endBodyResult = 0;
    std::function<void()> onGetConnection;
    std::vector<std::pair<std::string, std::string>> responseHeaders;

    // Of the last request.
    OmbryZephCore::ZephHttpResponseHandlerIf* response = nullptr;
    OmbryZephCore::ZephHttpRequestNotifierIf* request = nullptr;
    OmbryZephCore::ZephHttpNotifierIf* body = nullptr;

    // The pool

    ZephSorrelSyncConnectionIf* GetConnection(
        const OmbryZephCore::ZephSorrelConnectionParameters& params) override {
        calls.push_back("GetConnection");
        if (onGetConnection) onGetConnection();
        asked = params;
        return this;
    }
    Code ReleaseConnection(ZephSorrelSyncConnectionIf* pConnection) override {
        calls.push_back(pConnection == this ? "ReleaseConnection" : "ReleaseConnection of another");
        return 0;
    }

    // The connection

    const OmbryZephCore::ZephSorrelConnectionParameters& GetParameters() const override { return asked; }
    Code EnsureConnected() override {
        calls.push_back("EnsureConnected");
        return Next(ensureResults);
    }
    void Disconnect() override { calls.push_back("Disconnect"); }
    Code Reconnect() override {
        calls.push_back("Reconnect");
        return Next(reconnectResults);
    }
    bool IsConnected() override { return true; }
    ZephHttpClientConnectionIf& GetHttpConnection() override { return *this; }
    ZephSyncIOControllerIf& GetSyncIOController() override { return *this; }

    // Its HTTP connection

    void ContinueReceive() override { calls.push_back("ContinueReceive"); }
    Code SendRequest(const char* pMethod, const char* pUrl, bool bClose,
                     OmbryZephCore::ZephHttpResponseHandlerIf* pResponseHandler,
                     OmbryZephCore::ZephHttpRequestNotifierIf* pRequestNotifier,
                     OmbryZephCore::ZephHttpNotifierIf* pBodyNotifier, bool bChunked, Code nLength) override {
        calls.push_back(std::string("SendRequest ") + pMethod + " " + pUrl + (bClose ? " close" : "") +
                        (bChunked ? " chunked" : "") + " " + std::to_string(nLength));
        response = pResponseHandler;
        request = pRequestNotifier;
        body = pBodyNotifier;
        return Next(sendResults);
    }
    Code WriteBody(Code nBytes, const std::uint8_t* pData) override {
        calls.push_back("WriteBody " + std::to_string(nBytes));
        if (nBytes > 0) written.append(reinterpret_cast<const char*>(pData), nBytes);
        return Next(writeResults);
    }
    Code EndBody() override {
        calls.push_back("EndBody");
        return endBodyResult;
    }
    Code SendRequestWithBody(const char*, const char*, bool, OmbryZephCore::ZephHttpResponseHandlerIf*,
                             OmbryZephCore::ZephHttpRequestNotifierIf*, Code, const std::uint8_t*) override {
        calls.push_back("SendRequestWithBody");
        return 0;
    }
    Code AddHeader(const char* pName, const char* pValue) override {
        calls.push_back(std::string("AddHeader ") + pName + ": " + pValue);
        return 0;
    }
    const char* GetResponseHeader(const char*) override { return nullptr; }
    void ForEachResponseHeader(OmbryZephCore::ZephHeaderCallback callback) override {
        for (const auto& [name, value] : responseHeaders)
            callback(name.c_str(), value.c_str());
    }
    /// By way of the parser, which alone can fill one: of a name the first counts.
    void CopyResponseHeaders(OmbryZephCore::ZephHttpHeaderCopy& to) override {
        std::string head = "HTTP/1.1 200\r\n";
        for (const auto& [name, value] : responseHeaders)
            head += name + ": " + value + "\r\n";
        head += "\r\n";
        OmbryZephCore::ZephHttpHeaderParser parser(OmbryZephCore::ZephHttpHeaderParser::ModeResponse);
        parser.Parse(reinterpret_cast<const std::uint8_t*>(head.data()), static_cast<Code>(head.size()));
        parser.CopyHeaders(to);
    }
    void Abandon() override {
        calls.push_back("Abandon");
        request->OnRequestFailed();
        response->OnResponseFailed();
    }
    bool IsOpen() override { return true; }
    bool IsCloseRequested() override { return false; }

    // Its reactor

    bool HasPendingIO() const override { return false; }
    Code DoPendingIO(std::uint32_t nTimeoutSeconds, Cancellation::Token newToken) override {
        calls.push_back("DoPendingIO");
        timeouts.push_back(nTimeoutSeconds);
        token = std::move(newToken);
        if (exchanges.empty()) return 0;
        const Exchange exchange = std::move(exchanges.front());
        exchanges.pop_front();
        return exchange(*this);
    }

private:
    static Code Next(std::deque<Code>& results) {
        if (results.empty()) return 0;
        const Code result = results.front();
        results.pop_front();
        return result;
    }
};

}  // namespace Ombry::Tests
