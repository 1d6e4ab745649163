#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Cancellation/Token.h"
#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionIf.h"
#include "OmbryZephCore/ZephSyncDataIf.h"

namespace OmbryZephCore {

class ZephSorrelSyncHttpClient_Impl;

/// Performs one HTTP exchange at a time, blocking, on the caller's thread. Time-out, token, reader, writer
/// and request headers hold for one `DoRequest` and are then reset; results stay until the next.
class ZephSorrelSyncHttpClient {
public:
    /// `pPool` is not owned and must outlive the client; null makes a trivial pool of one connection.
    ZephSorrelSyncHttpClient(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose,
                             const ZephSorrelConnectionParameters& params,
                             ZephSorrelSyncConnectionPoolIf* pPool);
    virtual ~ZephSorrelSyncHttpClient();
    ZephSorrelSyncHttpClient(const ZephSorrelSyncHttpClient&) = delete;
    ZephSorrelSyncHttpClient& operator=(const ZephSorrelSyncHttpClient&) = delete;

    void SetHeader(const std::string& name, const std::string& value);
    /// Prefix of each path: "/" counts as empty, a missing "/" in front is added, one at the end removed.
    void SetBasePath(const std::string& path);
    void SetToken(Ombry::Cancellation::Token token);
    /// Seconds of silence allowed, 15 by default, 0 for no limit.
    void SetTimeout(std::uint32_t nSeconds);
    void SetDataReader(ZephSyncDataReaderIf* pReader);
    void SetDataWriter(ZephSyncDataWriterIf* pWriter);

    /// 0 for a status from 200 to 299; `eRC_HTTP_StatusFailure` for any other answer;
    /// `eRC_IO_ConnectionFailed` if there was none (`GetIOResult` is then `eRC_TimedOut` after a time-out or
    /// a fired token); or a code of the reader's road. A connection that broke is replaced once, and the
    /// request is then sent again, a POST too.
    std::uint32_t DoRequest(const std::string& method, const std::string& path);

    std::uint32_t GetIOResult() const;
    std::uint32_t GetHttpStatus() const;
    void ForEachResponseHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const;

private:
    std::unique_ptr<ZephSorrelSyncHttpClient_Impl> m_Impl;
};

}  // namespace OmbryZephCore
