#pragma once

namespace OmbryZephCore {

/// Hears of the end of a TLS session. `OnSSLStopped` is called with the stage's lock held and must not call
/// back into the stage; neither may take the stack down.
class ZephSSLNotifierIf {
public:
    virtual ~ZephSSLNotifierIf() = default;
    virtual void OnSSLStopped() = 0;
    virtual void OnSSLFatalError() = 0;
};

class ZephSSLStatusIf {
public:
    virtual ~ZephSSLStatusIf() = default;
    virtual bool IsSSLEnabled() = 0;
};

/// How the HTTP stage asks for a change of TLS state.
class ZephSSLControlIf : public ZephSSLStatusIf {
public:
    virtual void EnableSSL() = 0;
    virtual void DisableSSL() = 0;
};

}  // namespace OmbryZephCore
