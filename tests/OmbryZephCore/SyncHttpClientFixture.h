#pragma once

#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "tests/Fakes/FakeSyncConnection.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace Ombry::Tests::SyncHttpClient {

using namespace OmbryZephCore;
using Calls = std::vector<std::string>;

class Reader : public ZephSyncDataReaderIf {
public:
    explicit Reader(std::string text, bool lengthKnown = true)
        : text(std::move(text)), lengthKnown(lengthKnown) {}
    bool HasData() override { return hasData; }
    std::uint32_t GetLength() override {
        position = 0;
        return lengthKnown ? static_cast<std::uint32_t>(text.size()) : 0;
    }
    bool Read(std::uint8_t* pBuffer, std::uint32_t* pnBytes) override {
        rooms.push_back(*pnBytes);
        if (onRead) onRead();
        *pnBytes = static_cast<std::uint32_t>(std::min<std::size_t>(*pnBytes, text.size() - position));
        std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(position), *pnBytes, pBuffer);
        position += *pnBytes;
        return *pnBytes != 0;
    }

    std::string text;
    bool lengthKnown;
    bool hasData = true;
    std::size_t position = 0;
    std::vector<std::uint32_t> rooms;
    std::function<void()> onRead;
};

class Writer : public ZephSyncDataWriterIf {
public:
    void Begin() override {
        Note("Begin");
        if (onBegin) onBegin();
    }
    void Expect(std::uint32_t nBytes) override { expected.push_back(nBytes); }
    void Write(const std::uint8_t* pData, std::uint32_t nBytes) override {
        Note("Write " + std::string(reinterpret_cast<const char*>(pData), nBytes));
    }
    void End() override { Note("End"); }

    Calls calls;
    std::vector<std::uint32_t> expected;
    std::function<void()> onBegin;
    std::string throwsAt;

private:
    void Note(const std::string& text) {
        calls.push_back(text);
        if (!throwsAt.empty() && text.starts_with(throwsAt)) throw std::runtime_error("of the caller");
    }
};

class ZephSorrelSyncHttpClientTest : public ::testing::Test {
protected:
    /// Plays the sending of a body, which ends when the client does not write any more, and an answer.
    static FakeSyncConnection::Exchange AskForBody(int nPieces, std::uint32_t nStatus = 200) {
        return [=](FakeSyncConnection& http) {
            for (int i = 0; i < nPieces; ++i)
                http.body->OnReadyForBody();
            return FakeSyncConnection::Answer(nStatus)(http);
        };
    }

    std::map<std::string, std::string> ResponseHeaders() const {
        std::map<std::string, std::string> headers;
        client.ForEachResponseHeader(
            [&](const std::string& name, const std::string& value) { headers[name] = value; });
        return headers;
    }

    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    FakeSyncConnection world;
    ZephSorrelSyncHttpClient client{logger, false, ZephSorrelConnectionParameters("host", 8080), &world};
};

}  // namespace Ombry::Tests::SyncHttpClient
