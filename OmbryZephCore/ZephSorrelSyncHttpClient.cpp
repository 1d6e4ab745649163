#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"

#include "OmbryZephCore/ZephSorrelSyncHttpClient_Impl.h"

namespace OmbryZephCore {

ZephSorrelSyncHttpClient::ZephSorrelSyncHttpClient(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger,
                                                   bool bVerbose, ZephSorrelConnectionParameters params,
                                                   ZephSorrelSyncConnectionPoolIf* pPool)
    : ZephSorrelSyncHttpClient(std::move(logger), bVerbose,
                               std::make_shared<const ZephSorrelConnectionParameters>(std::move(params)),
                               pPool) {}

ZephSorrelSyncHttpClient::ZephSorrelSyncHttpClient(
    std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose,
    std::shared_ptr<const ZephSorrelConnectionParameters> params, ZephSorrelSyncConnectionPoolIf* pPool)
    : m_Impl(std::make_unique<ZephSorrelSyncHttpClient_Impl>(std::move(logger), bVerbose, std::move(params),
                                                             pPool)) {}

ZephSorrelSyncHttpClient::~ZephSorrelSyncHttpClient() = default;

void ZephSorrelSyncHttpClient::SetHeader(const std::string& name, const std::string& value) {
    m_Impl->SetHeader(name, value);
}

void ZephSorrelSyncHttpClient::SetBasePath(const std::string& path) {
    m_Impl->SetBasePath(path);
}

void ZephSorrelSyncHttpClient::SetToken(Ombry::Cancellation::Token token) {
    m_Impl->SetToken(std::move(token));
}

void ZephSorrelSyncHttpClient::SetTimeout(std::uint32_t nSeconds) {
    m_Impl->SetTimeout(nSeconds);
}

void ZephSorrelSyncHttpClient::SetDataReader(ZephSyncDataReaderIf* pReader) {
    m_Impl->SetDataReader(pReader);
}

void ZephSorrelSyncHttpClient::SetDataWriter(ZephSyncDataWriterIf* pWriter) {
    m_Impl->SetDataWriter(pWriter);
}

std::uint32_t ZephSorrelSyncHttpClient::DoRequest(const std::string& method, const std::string& path) {
    return m_Impl->DoRequest(method, path);
}

std::uint32_t ZephSorrelSyncHttpClient::GetIOResult() const {
    return m_Impl->GetIOResult();
}

std::uint32_t ZephSorrelSyncHttpClient::GetHttpStatus() const {
    return m_Impl->GetHttpStatus();
}

void ZephSorrelSyncHttpClient::ForEachResponseHeader(
    std::function<void(const std::string& name, const std::string& value)> callback) const {
    m_Impl->ForEachResponseHeader(callback);
}

const ZephHttpHeaderCopy& ZephSorrelSyncHttpClient::GetResponseHeaders() const {
    return m_Impl->GetResponseHeaders();
}

ZephHttpHeaderCopy ZephSorrelSyncHttpClient::TakeResponseHeaders() {
    return m_Impl->TakeResponseHeaders();
}

}  // namespace OmbryZephCore
