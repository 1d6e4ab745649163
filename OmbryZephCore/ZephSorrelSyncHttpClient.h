#pragma once

#include "Cancellation/Token.h"
#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSorrelSyncConnectionIf.h"
#include "OmbryZephCore/ZephSyncDataIf.h"

#include <functional>
#include <memory>
#include <string>

/// The network core: HTTP/1.1 over sockets and TLS.
namespace OmbryZephCore {

class ZephHttpHeaderCopy;
class ZephSorrelSyncHttpClient_Impl;

/// Performs one HTTP exchange at a time, blocking, on the caller's thread; one thread at a time. Time-out,
/// token, reader, writer and request headers hold for one `DoRequest` and are then reset; results stay until
/// the next that finds a connection.
class ZephSorrelSyncHttpClient {
public:
    /// `logger` may be null. `pPool` is not owned and must outlive the client; null makes a trivial pool of
    /// one connection. `bVerbose`: whether that connection logs each step of its stages at level 0, and what
    /// comes over TLS deciphered; a pool that is given has a switch of its own.
    ZephSorrelSyncHttpClient(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose,
                             ZephSorrelConnectionParameters params, ZephSorrelSyncConnectionPoolIf* pPool);
    /// The same for parameters that many clients have; not null.
    ZephSorrelSyncHttpClient(std::shared_ptr<Ombry::LibraryLogger::ILogger> logger, bool bVerbose,
                             std::shared_ptr<const ZephSorrelConnectionParameters> params,
                             ZephSorrelSyncConnectionPoolIf* pPool);
    virtual ~ZephSorrelSyncHttpClient();
    ZephSorrelSyncHttpClient(const ZephSorrelSyncHttpClient&) = delete;
    ZephSorrelSyncHttpClient& operator=(const ZephSorrelSyncHttpClient&) = delete;

    /// Replaces the value of a header of exactly that name. "Host" and those of the body's length are the
    /// core's.
    void SetHeader(const std::string& name, const std::string& value);
    /// Prefix of each path, from now on and not for one request alone; empty by default. "/" counts as empty,
    /// a missing "/" in front is added, one at the end removed.
    void SetBasePath(const std::string& path);
    /// Ends the exchange when it fires; never, by default.
    void SetToken(Ombry::Cancellation::Token token);
    /// Seconds of silence allowed, 15 by default, 0 for no limit.
    void SetTimeout(std::uint32_t nSeconds);
    /// The request's body; null, as by default, for none. Not owned; used until `DoRequest` returns.
    void SetDataReader(ZephSyncDataReaderIf* pReader);
    /// Where the answer's body goes; null, as by default, for nowhere. Not owned; used until `DoRequest`
    /// returns.
    void SetDataWriter(ZephSyncDataWriterIf* pWriter);

    /// 0 for a status from 200 to 299; `eRC_HTTP_StatusFailure` for any other answer;
    /// `eRC_IO_ConnectionFailed` if there was none (`GetIOResult` is then `eRC_TimedOut` after a time-out or
    /// a fired token); or a code of the reader's road. A connection that broke is replaced once, and the
    /// request is then sent again, a POST too. What reader or writer throw comes out of here. Where no
    /// connection can be made, the results of the request before it stay: status, headers and `GetIOResult`
    /// then tell nothing of this one.
    std::uint32_t DoRequest(const std::string& method, const std::string& path);

    /// Why the exchange on a connection ended without an answer, as a `ResultCode`: `eRC_TimedOut`, or 0 for
    /// anything else.
    std::uint32_t GetIOResult() const;
    /// 0 before the head of an answer has come on a connection.
    std::uint32_t GetHttpStatus() const;
    /// Calls `callback` for each header, in ascending byte order of the names; of a name that came twice the
    /// first. Names that differ in case are two.
    void ForEachResponseHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const;
    /// The same in one piece (`ZephHttpHeaderCopy.h`), for who keeps them: valid until the next request.
    const ZephHttpHeaderCopy& GetResponseHeaders() const;
    /// The same for the last who asks: the client has none any more.
    ZephHttpHeaderCopy TakeResponseHeaders();

private:
    std::unique_ptr<ZephSorrelSyncHttpClient_Impl> m_Impl;
};

}  // namespace OmbryZephCore
