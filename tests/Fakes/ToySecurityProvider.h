#pragma once

#include "Platform/ISecurityProvider.h"
#include "tests/Fakes/ScriptedSecurityProvider.h"

#include <cstring>
#include <map>
#include <string>

namespace Ombry::Tests {

/// A security provider whose two ends really talk, over a protocol that protects nothing: a record is its
/// kind, two bytes of length and a body; data is disguised with a running key and carries a check sum. A
/// handshake is C(lient), S(erver), F(inished), D(one); R asks the client for another one.
class ToySecurityProvider : public Platform::ISecurityProvider, public Platform::SecurityFunctions {
public:
    using Status = Platform::SECURITY_STATUS;
    static constexpr std::uint32_t MaximumMessage = 100;

    SecurityProviderBooks books;
    int handshakes = 0;  ///< ends that finished one

    Platform::ValueOr<Platform::SecurityModule> LoadModule(const char*) override {
        return books.Open("module");
    }
    Platform::ValueOr<Platform::SecurityEntryPoint> FindEntryPoint(Platform::SecurityModule,
                                                                   const char*) override {
        return Platform::SecurityEntryPoint{1};
    }
    Platform::ValueOr<Platform::SecurityFunctions*> CallEntryPoint(Platform::SecurityEntryPoint) override {
        return static_cast<Platform::SecurityFunctions*>(this);
    }
    void ReleaseModule(Platform::SecurityModule module) override { books.Close("module", module); }
    void FreeCertificate(Platform::CertificateContextPointer) override {
        books.Close("certificate", certificateHandle);
    }

    Status AcquireCredentialsHandleA(const char*, const char*, std::uint32_t, void*, void*, void*, void*,
                                     Platform::CredHandle* phCredential, Platform::SecTimeStamp*) override {
        *phCredential = {books.Open("credentials"), 0};
        return Platform::SecEOk;
    }
    Status FreeCredentialsHandle(Platform::CredHandle* phCredential) override {
        books.Close("credentials", phCredential->dwLower);
        return Platform::SecEOk;
    }

    Status InitializeSecurityContextA(Platform::CredHandle*, Platform::CtxtHandle* phContext, const char*,
                                      std::uint32_t, std::uint32_t, std::uint32_t,
                                      Platform::SecBufferDesc* pInput, std::uint32_t,
                                      Platform::CtxtHandle* phNewContext, Platform::SecBufferDesc* pOutput,
                                      std::uint32_t* pfContextAttr, Platform::SecTimeStamp*) override {
        *pfContextAttr = 0x8010;
        if (!phContext) *phNewContext = {books.Open("context"), 0};
        if (!pInput) return SpeakFirst(phNewContext, pOutput, "C");
        return Answer(pInput, phNewContext, pOutput, {{'S', "F"}, {'D', ""}}, 'D');
    }

    Status AcceptSecurityContext(Platform::CredHandle*, Platform::CtxtHandle* phContext,
                                 Platform::SecBufferDesc* pInput, std::uint32_t, std::uint32_t,
                                 Platform::CtxtHandle* phNewContext, Platform::SecBufferDesc* pOutput,
                                 std::uint32_t* pfContextAttr, Platform::SecTimeStamp*) override {
        *pfContextAttr = 0x10010;
        if (!pInput) return SpeakFirst(phNewContext, pOutput, "R");
        std::uint32_t length = 0;
        if (!phContext && !FirstRecord(pInput->pBuffers[0], length)) return Platform::SecEIncompleteMessage;
        if (!phContext) *phNewContext = {books.Open("context"), 0};
        return Answer(pInput, phNewContext, pOutput, {{'C', "S"}, {'F', "D"}}, 'F');
    }

    Status CompleteAuthToken(Platform::CtxtHandle*, Platform::SecBufferDesc*) override {
        return Platform::SecEInternalError;
    }

    Status DeleteSecurityContext(Platform::CtxtHandle* phContext) override {
        books.Close("context", phContext->dwLower);
        states.erase(phContext->dwLower);
        return Platform::SecEOk;
    }

    Status ApplyControlToken(Platform::CtxtHandle* phContext, Platform::SecBufferDesc*) override {
        states[phContext->dwLower].closing = true;
        return Platform::SecEOk;
    }

    Status QueryContextAttributesA(Platform::CtxtHandle*, std::uint32_t ulAttribute, void* pBuffer) override {
        if (ulAttribute == Platform::SecPkgAttrStreamSizes) {
            *static_cast<Platform::SecPkgContext_StreamSizes*>(pBuffer) = {3, 1, MaximumMessage, 4, 1};
            return Platform::SecEOk;
        }
        certificateHandle = books.Open("certificate");
        *static_cast<Platform::CertificateContextPointer*>(pBuffer) = &certificate;
        return Platform::SecEOk;
    }

    Status QuerySecurityPackageInfoA(const char*, Platform::SecPkgInfoA** ppPackageInfo) override {
        packageInfo.cbMaxToken = 16;
        packageHandle = books.Open("package info");
        *ppPackageInfo = &packageInfo;
        return Platform::SecEOk;
    }
    Status FreeContextBuffer(void*) override {
        books.Close("package info", packageHandle);
        return Platform::SecEOk;
    }

    Status EncryptMessage(Platform::CtxtHandle* phContext, std::uint32_t, Platform::SecBufferDesc* pMessage,
                          std::uint32_t) override {
        Platform::SecBuffer* buffers = pMessage->pBuffers;
        const std::uint32_t body = buffers[1].cbBuffer + 1;
        auto* header = static_cast<std::uint8_t*>(buffers[0].pvBuffer);
        header[0] = 0x17;
        header[1] = static_cast<std::uint8_t>(body >> 8);
        header[2] = static_cast<std::uint8_t>(body);
        auto* data = static_cast<std::uint8_t*>(buffers[1].pvBuffer);
        *static_cast<std::uint8_t*>(buffers[2].pvBuffer) = Sum(data, buffers[1].cbBuffer);
        Disguise(data, buffers[1].cbBuffer, states[phContext->dwLower].sendKey);
        return Platform::SecEOk;
    }

    Status DecryptMessage(Platform::CtxtHandle* phContext, Platform::SecBufferDesc* pMessage, std::uint32_t,
                          std::uint32_t*) override {
        Platform::SecBuffer* buffers = pMessage->pBuffers;
        std::uint32_t length = 0;
        if (!FirstRecord(buffers[0], length)) return Platform::SecEIncompleteMessage;
        const std::uint32_t offered = buffers[0].cbBuffer;
        auto* record = static_cast<std::uint8_t*>(buffers[0].pvBuffer);
        const bool stays = record[0] == 0x16 && record[3] != 'R';
        const std::uint32_t extra = stays ? offered : offered - length;
        Status status = record[0] == 0x15   ? Platform::SecIContextExpired
                        : record[0] == 0x16 ? Platform::SecIRenegotiate
                                            : Platform::SecEOk;
        buffers[0].BufferType = Platform::SecBufferStreamHeader;
        if (status == Platform::SecEOk) {
            const std::uint32_t data = length - 4;
            Disguise(record + 3, data, states[phContext->dwLower].receiveKey);
            if (record[0] != 0x17 || record[length - 1] != Sum(record + 3, data))
                return Platform::SecEDecryptFailure;
            buffers[1] = {data, Platform::SecBufferData, record + 3};
            buffers[2] = {1, Platform::SecBufferStreamTrailer, record + length - 1};
        }
        if (extra != 0) buffers[3] = {extra, Platform::SecBufferExtra, record + offered - extra};
        return status;
    }

private:
    struct State {
        std::uint8_t sendKey = 0x5a;
        std::uint8_t receiveKey = 0x5a;
        bool closing = false;
    };

    static bool FirstRecord(const Platform::SecBuffer& input, std::uint32_t& length) {
        const auto* bytes = static_cast<const std::uint8_t*>(input.pvBuffer);
        if (input.cbBuffer < 3) return false;
        length = 3u + (static_cast<std::uint32_t>(bytes[1]) << 8) + bytes[2];
        return input.cbBuffer >= length;
    }

    static void Disguise(std::uint8_t* data, std::uint32_t count, std::uint8_t& key) {
        for (std::uint32_t n = 0; n < count; ++n)
            data[n] = static_cast<std::uint8_t>(data[n] ^ key++);
    }

    static std::uint8_t Sum(const std::uint8_t* data, std::uint32_t count) {
        std::uint8_t sum = 0;
        for (std::uint32_t n = 0; n < count; ++n)
            sum = static_cast<std::uint8_t>(sum + data[n]);
        return sum;
    }

    static bool Emit(Platform::SecBufferDesc* pOutput, char kind, const std::string& body) {
        const std::string record = std::string(1, kind) + '\0' + static_cast<char>(body.size()) + body;
        if (pOutput->pBuffers[0].cbBuffer < record.size()) return false;
        std::memcpy(pOutput->pBuffers[0].pvBuffer, record.data(), record.size());
        pOutput->pBuffers[0].cbBuffer = static_cast<std::uint32_t>(record.size());
        return true;
    }

    Status SpeakFirst(Platform::CtxtHandle* phContext, Platform::SecBufferDesc* pOutput,
                      const std::string& letter) {
        State& state = states[phContext->dwLower];
        if (!Emit(pOutput, state.closing ? 0x15 : 0x16, state.closing ? "bye" : letter))
            return Platform::SecEBufferTooSmall;
        if (!state.closing) return Platform::SecIContinueNeeded;
        state.closing = false;
        return Platform::SecEOk;
    }

    Status Answer(Platform::SecBufferDesc* pInput, Platform::CtxtHandle* phContext,
                  Platform::SecBufferDesc* pOutput, const std::map<char, std::string>& answers, char last) {
        Platform::SecBuffer& input = pInput->pBuffers[0];
        std::uint32_t length = 0;
        if (!FirstRecord(input, length)) return Platform::SecEIncompleteMessage;
        const auto* record = static_cast<const char*>(input.pvBuffer);
        Status status = Platform::SecIContextExpired;
        std::string answer;
        if (record[0] != 0x15) {
            const auto found = answers.find(record[3]);
            if (record[0] != 0x16 || found == answers.end()) return Platform::SecEInvalidToken;
            answer = found->second;
            status = record[3] == last ? Platform::SecEOk : Platform::SecIContinueNeeded;
        }
        if (answer.empty()) {
            pOutput->pBuffers[0].cbBuffer = 0;
        } else if (!Emit(pOutput, 0x16, answer)) {
            return Platform::SecEBufferTooSmall;
        }
        if (status == Platform::SecEOk) {
            ++handshakes;
            states[phContext->dwLower] = State{};
        }
        if (input.cbBuffer > length)
            pInput->pBuffers[1] = {input.cbBuffer - length, Platform::SecBufferExtra, nullptr};
        return status;
    }

    std::map<std::uintptr_t, State> states;
    Platform::SecPkgInfoA packageInfo;
    Platform::CertificateContext certificate;
    std::uintptr_t packageHandle = 0;
    std::uintptr_t certificateHandle = 0;
};

}  // namespace Ombry::Tests
