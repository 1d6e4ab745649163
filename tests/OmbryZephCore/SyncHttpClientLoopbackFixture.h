#pragma once

#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/ForwardingSockets.h"
#include "tests/Fakes/LoopbackServer.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/OmbryZephCore/LoopbackTls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

namespace Ombry::Tests {

using namespace OmbryZephCore;
using Connection = LoopbackServer::Connection;
using Script = LoopbackServer::Script;

class Text : public ZephSyncDataWriterIf {
public:
    void Begin() override { text.clear(); }
    void Write(const std::uint8_t* pData, std::uint32_t nBytes) override {
        text.append(reinterpret_cast<const char*>(pData), nBytes);
    }
    void End() override { ++ends; }

    std::string text;
    int ends = 0;
};

class Body : public ZephSyncDataReaderIf {
public:
    Body(std::string text, bool lengthKnown) : text(std::move(text)), lengthKnown(lengthKnown) {}
    bool HasData() override { return true; }
    std::uint32_t GetLength() override {
        position = 0;
        return lengthKnown ? static_cast<std::uint32_t>(text.size()) : 0;
    }
    bool Read(std::uint8_t* pBuffer, std::uint32_t* pnBytes) override {
        *pnBytes = static_cast<std::uint32_t>(std::min<std::size_t>(*pnBytes, text.size() - position));
        std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(position), *pnBytes, pBuffer);
        position += *pnBytes;
        return *pnBytes != 0;
    }

private:
    const std::string text;
    const bool lengthKnown;
    std::size_t position = 0;
};

/// Each test runs over plain TCP, and over TLS where there is a server for it.
class SyncHttpClientLoopbackTest : public ::testing::TestWithParam<bool> {
protected:
    static bool Tls() { return GetParam(); }
    void Serve(std::vector<Script> scripts) {
        server.emplace(std::move(scripts), Tls() ? LoopbackTls::Streams() : nullptr);
    }
    void Serve(Script script) { Serve(std::vector<Script>{std::move(script)}); }

    ZephSorrelConnectionParameters Params() const {
        ZephSorrelConnectionParameters params("127.0.0.1", server->Port());
        params.SetUseSSL(Tls());
        params.SetCertificateValidation({ValidateByPublicKey, LoopbackTls::Certificate()});
        return params;
    }

    struct Outcome {
        std::uint32_t nResult;
        std::uint32_t nIOResult;
        std::uint32_t nStatus;
        std::string body;
    };

    Outcome Request(const std::string& method, const std::string& path, ZephSyncDataReaderIf* pReader,
                    Cancellation::Token token = {}) {
        ZephSorrelSyncHttpClient client(logger, false, Params(), &pool);
        Text text;
        client.SetDataReader(pReader);
        client.SetDataWriter(&text);
        client.SetToken(std::move(token));
        client.SetTimeout(15);
        const std::uint32_t nResult = client.DoRequest(method, path);
        return {nResult, client.GetIOResult(), client.GetHttpStatus(), text.text};
    }
    Outcome Get(const std::string& path = "/") { return Request("GET", path, nullptr); }

    FakeClock clock;
    ForwardingSockets sockets;
    Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>(1);
    ZephSorrelSyncConnectionPool pool{logger};
    std::optional<LoopbackServer> server;
};

}  // namespace Ombry::Tests
