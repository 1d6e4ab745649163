#pragma once

#include "Platform/ISecurityProvider.h"

#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// Counts what a security provider hands out against what it gets back. Everything that is returned twice or
/// was never handed out is noted as misuse.
class SecurityProviderBooks {
public:
    std::uintptr_t Open(const std::string& kind) {
        live.insert({kind, ++last});
        ++opened[kind];
        return last;
    }

    void Close(const std::string& kind, std::uintptr_t handle) {
        if (live.erase({kind, handle}) == 0) misuse.push_back(kind + " returned that is not out");
    }

    void Use(const std::string& kind, std::uintptr_t handle) {
        if (live.count({kind, handle}) == 0) misuse.push_back(kind + " used that is not out");
    }

    int Opened(const std::string& kind) const {
        const auto found = opened.find(kind);
        return found == opened.end() ? 0 : found->second;
    }

    /// Empty if all came back once; otherwise what did not, and what was misused.
    std::vector<std::string> Faults() const {
        std::vector<std::string> faults = misuse;
        for (const auto& entry : live)
            faults.push_back(entry.first + " not returned");
        return faults;
    }

    std::vector<std::string> Live() const {
        std::vector<std::string> kinds;
        for (const auto& entry : live)
            kinds.push_back(entry.first);
        return kinds;
    }

private:
    std::set<std::pair<std::string, std::uintptr_t>> live;
    std::map<std::string, int> opened;
    std::vector<std::string> misuse;
    std::uintptr_t last = 0x1000;
};

/// A security provider that does what each test writes down for it, and notes how it was called. Without a
/// script a context step needs more, a message is incomplete and all else succeeds.
class ScriptedSecurityProvider : public Platform::ISecurityProvider, public Platform::SecurityFunctions {
public:
    using Status = Platform::SECURITY_STATUS;

    /// What one step of a context does.
    struct Step {
        Status status = Platform::SecEOk;
        std::string token{};  ///< the output token
        int extra = -1;       ///< bytes left over of the input; -1 for no such buffer
        std::uint32_t attributes = 0x77;
        std::size_t extraSlot = 1;  ///< which input buffer tells of them
        std::uint32_t surplus = 0;  ///< bytes of the token that are claimed and were not made
    };
    /// How one step was asked for.
    struct StepCall {
        std::string function;
        bool hasContext;
        bool hasInput;
        std::string offered;
        std::uint32_t flags;
        std::string targetName;
        std::uint32_t room;
        const Platform::CredHandle* credentials;
        std::vector<std::uint32_t> inputTypes;
    };
    /// What one decryption does: each buffer is a type, an offset in the input and a length.
    struct Piece {
        std::uint32_t type;
        std::uint32_t offset;
        std::uint32_t length;
    };
    struct Decryption {
        Status status = Platform::SecEOk;
        std::vector<Piece> pieces{};
    };

    // The script.
    std::map<std::string, int> loadErrors;
    int entryPointError = -1;  ///< -1 for none
    int initError = -1;
    bool nullTable = false;
    Status packageStatus = Platform::SecEOk;
    Status acquireStatus = Platform::SecEOk;
    Status completeStatus = Platform::SecEOk;
    Status controlStatus = Platform::SecEOk;
    Status encryptStatus = Platform::SecEOk;
    Status certificateStatus = Platform::SecEOk;
    Status sizesStatus = Platform::SecEOk;
    bool nullCertificate = false;
    std::uint32_t maxToken = 256;
    std::uint32_t trailerMade = 2;  ///< of the three bytes that the sizes promise
    Platform::SecPkgContext_StreamSizes sizes{5, 3, 64, 4, 1};
    std::deque<Step> steps;
    std::deque<Decryption> decryptions;
    std::function<void()> onStep;

    // The record.
    std::vector<std::string> calls;
    std::vector<StepCall> stepCalls;
    std::vector<std::string> decryptInputs;
    std::vector<std::uint32_t> decryptTypes;
    std::vector<std::uint32_t> encryptTypes;
    std::vector<std::uint32_t> encryptSizes;
    std::vector<std::ptrdiff_t> encryptOffsets;
    std::string controlToken;
    std::vector<std::uint32_t> controlTypes;
    std::string completedToken;
    Platform::SCHANNEL_CRED credentialData;
    std::string acquireArguments;
    SecurityProviderBooks books;

    Platform::ValueOr<Platform::SecurityModule> LoadModule(const char* name) override {
        calls.push_back(std::string("LoadModule ") + name);
        if (const auto found = loadErrors.find(name); found != loadErrors.end())
            return Platform::Result::Failure(found->second);
        return books.Open("module");
    }

    Platform::ValueOr<Platform::SecurityEntryPoint> FindEntryPoint(Platform::SecurityModule module,
                                                                   const char* name) override {
        calls.push_back(std::string("FindEntryPoint ") + name);
        books.Use("module", module);
        if (entryPointError >= 0) return Platform::Result::Failure(entryPointError);
        return Platform::SecurityEntryPoint{0x42};
    }

    Platform::ValueOr<Platform::SecurityFunctions*> CallEntryPoint(
        Platform::SecurityEntryPoint entryPoint) override {
        calls.push_back(entryPoint == 0x42 ? "CallEntryPoint" : "CallEntryPoint of something else");
        if (initError >= 0) return Platform::Result::Failure(initError);
        return nullTable ? nullptr : static_cast<Platform::SecurityFunctions*>(this);
    }

    void ReleaseModule(Platform::SecurityModule module) override {
        calls.push_back("ReleaseModule");
        books.Close("module", module);
    }

    void FreeCertificate(Platform::CertificateContextPointer) override {
        calls.push_back("FreeCertificate");
        books.Close("certificate", certificateHandle);
    }

    Status AcquireCredentialsHandleA(const char* pszPrincipal, const char* pszPackage,
                                     std::uint32_t fCredentialUse, void* pvLogonId, void* pAuthData,
                                     void* pGetKeyFn, void* pvGetKeyArgument,
                                     Platform::CredHandle* phCredential, Platform::SecTimeStamp*) override {
        calls.push_back("AcquireCredentialsHandleA");
        acquireArguments = std::string(pszPackage) + " use " + std::to_string(fCredentialUse);
        if (pszPrincipal || pvLogonId || pGetKeyFn || pvGetKeyArgument) acquireArguments += " and more";
        credentialData = *static_cast<Platform::SCHANNEL_CRED*>(pAuthData);
        if (acquireStatus >= 0) *phCredential = {books.Open("credentials"), 7};
        return acquireStatus;
    }

    Status FreeCredentialsHandle(Platform::CredHandle* phCredential) override {
        calls.push_back("FreeCredentialsHandle");
        books.Close("credentials", phCredential->dwLower);
        return Platform::SecEOk;
    }

    Status InitializeSecurityContextA(Platform::CredHandle* phCredential, Platform::CtxtHandle* phContext,
                                      const char* pszTargetName, std::uint32_t fContextReq,
                                      std::uint32_t Reserved1, std::uint32_t TargetDataRep,
                                      Platform::SecBufferDesc* pInput, std::uint32_t Reserved2,
                                      Platform::CtxtHandle* phNewContext, Platform::SecBufferDesc* pOutput,
                                      std::uint32_t* pfContextAttr, Platform::SecTimeStamp*) override {
        if (Reserved1 != 0 || Reserved2 != 0 || TargetDataRep != 0) calls.push_back("reserved not 0");
        return TakeStep({"InitializeSecurityContextA",
                         phContext != nullptr,
                         pInput != nullptr,
                         "",
                         fContextReq,
                         pszTargetName ? pszTargetName : "(null)",
                         0,
                         phCredential,
                         {}},
                        phContext, pInput, phNewContext, pOutput, pfContextAttr);
    }

    Status AcceptSecurityContext(Platform::CredHandle* phCredential, Platform::CtxtHandle* phContext,
                                 Platform::SecBufferDesc* pInput, std::uint32_t fContextReq,
                                 std::uint32_t TargetDataRep, Platform::CtxtHandle* phNewContext,
                                 Platform::SecBufferDesc* pOutput, std::uint32_t* pfContextAttr,
                                 Platform::SecTimeStamp*) override {
        if (TargetDataRep != 0) calls.push_back("reserved not 0");
        return TakeStep({"AcceptSecurityContext",
                         phContext != nullptr,
                         pInput != nullptr,
                         "",
                         fContextReq,
                         "(none)",
                         0,
                         phCredential,
                         {}},
                        phContext, pInput, phNewContext, pOutput, pfContextAttr);
    }

    Status CompleteAuthToken(Platform::CtxtHandle* phContext, Platform::SecBufferDesc* pToken) override {
        calls.push_back("CompleteAuthToken");
        books.Use("context", phContext->dwLower);
        completedToken.assign(static_cast<char*>(pToken->pBuffers[0].pvBuffer), pToken->pBuffers[0].cbBuffer);
        return completeStatus;
    }

    Status DeleteSecurityContext(Platform::CtxtHandle* phContext) override {
        calls.push_back("DeleteSecurityContext");
        books.Close("context", phContext->dwLower);
        return Platform::SecEOk;
    }

    Status ApplyControlToken(Platform::CtxtHandle*, Platform::SecBufferDesc* pInput) override {
        calls.push_back("ApplyControlToken");
        for (std::uint32_t n = 0; n < pInput->cBuffers; ++n)
            controlTypes.push_back(pInput->pBuffers[n].BufferType);
        controlToken.assign(static_cast<char*>(pInput->pBuffers[0].pvBuffer), pInput->pBuffers[0].cbBuffer);
        return controlStatus;
    }

    Status QueryContextAttributesA(Platform::CtxtHandle* phContext, std::uint32_t ulAttribute,
                                   void* pBuffer) override {
        calls.push_back("QueryContextAttributesA " + std::to_string(ulAttribute));
        books.Use("context", phContext->dwLower);
        if (ulAttribute == 4) {
            if (sizesStatus >= 0) *static_cast<Platform::SecPkgContext_StreamSizes*>(pBuffer) = sizes;
            return sizesStatus;
        }
        if (ulAttribute != 0x53) return Platform::SecEInternalError;
        if (certificateStatus < 0 || nullCertificate) return certificateStatus;
        certificateHandle = books.Open("certificate");
        *static_cast<Platform::CertificateContextPointer*>(pBuffer) = &certificate;
        return certificateStatus;
    }

    Status QuerySecurityPackageInfoA(const char* pszPackageName,
                                     Platform::SecPkgInfoA** ppPackageInfo) override {
        calls.push_back(std::string("QuerySecurityPackageInfoA ") + pszPackageName);
        if (packageStatus < 0) return packageStatus;
        packageInfo.cbMaxToken = maxToken;
        packageHandle = books.Open("package info");
        *ppPackageInfo = &packageInfo;
        return packageStatus;
    }

    Status FreeContextBuffer(void* pvContextBuffer) override {
        calls.push_back("FreeContextBuffer");
        books.Close("package info", pvContextBuffer == &packageInfo ? packageHandle : 0);
        return Platform::SecEOk;
    }

    /// Makes "<hhh>", the data in upper brackets of its own bytes plus one, and a shorter trailer.
    Status EncryptMessage(Platform::CtxtHandle* phContext, std::uint32_t fQOP,
                          Platform::SecBufferDesc* pMessage, std::uint32_t MessageSeqNo) override {
        calls.push_back(fQOP == 0 && MessageSeqNo == 0 ? "EncryptMessage" : "EncryptMessage with flags");
        books.Use("context", phContext->dwLower);
        Platform::SecBuffer* buffers = pMessage->pBuffers;
        encryptTypes.clear();
        encryptSizes.clear();
        encryptOffsets.clear();
        for (std::uint32_t n = 0; n < pMessage->cBuffers; ++n) {
            encryptTypes.push_back(buffers[n].BufferType);
            encryptSizes.push_back(buffers[n].cbBuffer);
            if (buffers[n].pvBuffer) {
                encryptOffsets.push_back(static_cast<char*>(buffers[n].pvBuffer) -
                                         static_cast<char*>(buffers[0].pvBuffer));
            }
        }
        if (encryptStatus < 0) return encryptStatus;
        std::memset(buffers[0].pvBuffer, '<', buffers[0].cbBuffer);
        for (std::uint32_t n = 0; n < buffers[1].cbBuffer; ++n)
            ++static_cast<char*>(buffers[1].pvBuffer)[n];
        std::memset(buffers[2].pvBuffer, '>', buffers[2].cbBuffer);
        buffers[2].cbBuffer = trailerMade;
        return encryptStatus;
    }

    Status DecryptMessage(Platform::CtxtHandle* phContext, Platform::SecBufferDesc* pMessage,
                          std::uint32_t MessageSeqNo, std::uint32_t*) override {
        calls.push_back(MessageSeqNo == 0 ? "DecryptMessage" : "DecryptMessage with a number");
        books.Use("context", phContext->dwLower);
        Platform::SecBuffer* buffers = pMessage->pBuffers;
        char* input = static_cast<char*>(buffers[0].pvBuffer);
        decryptInputs.emplace_back(input, buffers[0].cbBuffer);
        decryptTypes.clear();
        for (std::uint32_t n = 0; n < pMessage->cBuffers; ++n)
            decryptTypes.push_back(buffers[n].BufferType);
        if (decryptions.empty()) return Platform::SecEIncompleteMessage;
        const Decryption next = decryptions.front();
        decryptions.pop_front();
        if (!next.pieces.empty()) buffers[0].BufferType = Platform::SecBufferStreamHeader;
        for (std::size_t n = 0; n < next.pieces.size(); ++n) {
            const Piece& piece = next.pieces[n];
            buffers[n] = {piece.length, piece.type, input + piece.offset};
        }
        return next.status;
    }

    int CallsOf(const std::string& name) const {
        int count = 0;
        for (const std::string& call : calls)
            count += call == name;
        return count;
    }

    Platform::CertificateContext certificate;

private:
    Status TakeStep(StepCall call, Platform::CtxtHandle* phContext, Platform::SecBufferDesc* pInput,
                    Platform::CtxtHandle* phNewContext, Platform::SecBufferDesc* pOutput,
                    std::uint32_t* pfContextAttr) {
        calls.push_back(call.function);
        if (onStep) onStep();
        if (phContext) books.Use("context", phContext->dwLower);
        Platform::SecBuffer& output = pOutput->pBuffers[0];
        if (pOutput->cBuffers != 1 || output.BufferType != Platform::SecBufferToken)
            calls.push_back("output that is no token");
        call.room = output.cbBuffer;
        if (pInput) {
            call.offered.assign(static_cast<char*>(pInput->pBuffers[0].pvBuffer),
                                pInput->pBuffers[0].cbBuffer);
            for (std::uint32_t n = 0; n < pInput->cBuffers; ++n)
                call.inputTypes.push_back(pInput->pBuffers[n].BufferType);
        }
        stepCalls.push_back(call);
        Step step{Platform::SecEIncompleteMessage};
        if (!steps.empty()) {
            step = steps.front();
            steps.pop_front();
        }
        *pfContextAttr = step.attributes;
        if (step.status < 0) return step.status;
        if (!phContext) *phNewContext = {books.Open("context"), 9};
        std::memcpy(output.pvBuffer, step.token.data(), step.token.size());
        output.cbBuffer = static_cast<std::uint32_t>(step.token.size()) + step.surplus;
        if (pInput && step.extra >= 0) {
            pInput->pBuffers[step.extraSlot] = {static_cast<std::uint32_t>(step.extra),
                                                Platform::SecBufferExtra, nullptr};
        }
        return step.status;
    }

    Platform::SecPkgInfoA packageInfo;
    std::uintptr_t packageHandle = 0;
    std::uintptr_t certificateHandle = 0;
};

}  // namespace Ombry::Tests
