#pragma once

#include "OmbryZephCore/ZephHttpClientConnectionIf.h"
#include "OmbryZephCore/ZephIOTaskManagerIf.h"
#include "OmbryZephCore/ZephSorrelConnectionParameters.h"

#include <memory>

namespace OmbryZephCore {

/// One connection that is made when needed, with everything a blocking exchange needs. One thread at a time.
/// Seam inside: a program hands the pool to a client and calls neither.
class ZephSorrelSyncConnectionIf {
public:
    virtual ~ZephSorrelSyncConnectionIf() = default;
    virtual const ZephSorrelConnectionParameters& GetParameters() const = 0;
    /// 0, `eRC_NotInitialized`, or `eRC_IO_ConnectionFailed` for every cause.
    virtual std::uint32_t EnsureConnected() = 0;
    virtual void Disconnect() = 0;
    virtual std::uint32_t Reconnect() = 0;
    virtual bool IsConnected() = 0;
    /// Owned by this connection.
    virtual ZephHttpClientConnectionIf& GetHttpConnection() = 0;
    virtual ZephSyncIOControllerIf& GetSyncIOController() = 0;
};

/// Lends connections.
class ZephSorrelSyncConnectionPoolIf {
public:
    virtual ~ZephSorrelSyncConnectionPoolIf() = default;
    /// The caller's until it is given back.
    virtual ZephSorrelSyncConnectionIf* GetConnection(const ZephSorrelConnectionParameters& params) = 0;
    /// Does not throw: requests give their connection back on every way out.
    virtual std::uint32_t ReleaseConnection(ZephSorrelSyncConnectionIf* pConnection) = 0;
};

}  // namespace OmbryZephCore
