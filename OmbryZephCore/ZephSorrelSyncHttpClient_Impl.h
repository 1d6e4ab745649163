#pragma once

#include "OmbryZephCore/ZephHeaderMap.h"
#include "OmbryZephCore/ZephHttpClientConnectionIf.h"
#include "OmbryZephCore/ZephHttpHeaderCopy.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace OmbryZephCore {

/// The body of `ZephSorrelSyncHttpClient`: the handler of its own exchange. The callbacks run inside
/// `DoRequest`.
class ZephSorrelSyncHttpClient_Impl : private ZephHttpResponseHandlerIf,
                                      private ZephHttpRequestNotifierIf,
                                      private ZephHttpNotifierIf {
public:
    ZephSorrelSyncHttpClient_Impl(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose,
                                  std::shared_ptr<const ZephSorrelConnectionParameters> params,
                                  ZephSorrelSyncConnectionPoolIf* pPool);

    void SetHeader(const std::string& name, const std::string& value) { m_RequestHeaders.Set(name, value); }
    void SetBasePath(const std::string& path);
    void SetToken(Ombry::Cancellation::Token token) { m_Token = std::move(token); }
    void SetTimeout(std::uint32_t nSeconds) { m_TimeoutSeconds = nSeconds; }
    void SetDataReader(ZephSyncDataReaderIf* pReader) { m_Reader = pReader; }
    void SetDataWriter(ZephSyncDataWriterIf* pWriter) { m_Writer = pWriter; }
    std::uint32_t DoRequest(const std::string& method, const std::string& path);
    std::uint32_t GetIOResult() const { return m_IOResult; }
    std::uint32_t GetHttpStatus() const { return m_HttpStatus; }
    const ZephHttpHeaderCopy& GetResponseHeaders() const { return m_ResponseHeaders; }
    ZephHttpHeaderCopy TakeResponseHeaders() { return std::exchange(m_ResponseHeaders, {}); }
    void ForEachResponseHeader(
        const std::function<void(const std::string& name, const std::string& value)>& callback) const;

private:
    class RequestScope;
    static constexpr std::uint32_t DefaultTimeoutSeconds = 15;
    static constexpr std::uint32_t LargestBodyPiece = 0x100000;

    std::uint32_t OnResponseStart(std::uint32_t nStatus, std::uint32_t nLength) override;
    std::uint32_t OnResponseData(std::uint32_t nBytes, const std::uint8_t* pData) override;
    std::uint32_t OnResponseEnd() override;
    std::uint32_t OnCompleteResponse(std::uint32_t nStatus, const std::uint8_t* pData,
                                     std::uint32_t nBytes) override;
    void OnResponseFailed() override;
    std::uint32_t OnChunkAnnounced(std::uint32_t nBytes) override;
    void OnRequestSent() override { m_RequestSent = true; }
    void OnRequestFailed() override;
    void OnReadyForBody() override;

    void MakeUrl(const std::string& path);
    std::uint32_t PrepareBody(bool& bChunked, std::uint32_t& nLength);
    std::uint32_t Exchange(const std::string& method, bool bChunked, std::uint32_t nLength);
    std::uint32_t JudgeExchange();
    void ExtractResponseHeaders(std::uint32_t nStatus);
    template <class Call>
    std::uint32_t CallOut(Call call);

    std::shared_ptr<Ombry::LibraryLogger::ILogger> m_Logger;
    std::shared_ptr<const ZephSorrelConnectionParameters> m_Parameters;
    ZephSorrelSyncConnectionPoolIf* m_Pool;
    std::string m_BasePath;
    std::string m_Url;  // of the request at hand; keeps its memory
    bool m_CloseAfterRequest = false;
    std::uint32_t m_TimeoutSeconds = DefaultTimeoutSeconds;
    Ombry::Cancellation::Token m_Token;
    ZephSyncDataReaderIf* m_Reader = nullptr;
    ZephSyncDataWriterIf* m_Writer = nullptr;
    ZephHeaderMap m_RequestHeaders;
    std::uint32_t m_IOResult = 0;
    std::uint32_t m_RequestResult = 0;
    std::uint32_t m_HttpStatus = 0;
    ZephHttpHeaderCopy m_ResponseHeaders;
    std::unique_ptr<ZephSorrelSyncConnectionPoolIf> m_OwnedPool;
    ZephSorrelSyncConnectionIf* m_Connection = nullptr;
    ZephIOBuffer m_BodyBuffer;
    // Of the exchange at hand:
    bool m_RequestSent = false;
    bool m_ResponseEnded = false;
    std::exception_ptr m_CallerThrew;  // by the reader or the writer: passed on once the core is left
};

}  // namespace OmbryZephCore
