#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct ssl_session_st;

namespace OmbryZephCore {

/// The TLS sessions that later connections may resume (RFC 8446, section 2.2; RFC 5077), in memory alone.
/// Each belongs to a scope, a text that holds all that the connection was asked for, the trusted key
/// included, and is offered under no other. Any thread may call any operation; none throws, and without
/// memory a session is as good as not kept.
class ZephOpenSSLSessions {
public:
    static constexpr std::size_t MostOfAScope = 4;
    static constexpr std::size_t MostScopes = 64;

    struct SessionDeleter {
        void operator()(ssl_session_st* session) const;
    };
    using Session = std::unique_ptr<ssl_session_st, SessionDeleter>;

    /// Those of the process.
    static ZephOpenSSLSessions& Shared();

    /// Shares the session with its connection. Of too many in the scope the oldest is dropped, of too many
    /// scopes the one that was used longest ago. Up to TLS 1.2 a scope has one session, the latest. One that
    /// may not be resumed is not kept.
    void Keep(const std::string& scope, ssl_session_st& session) noexcept;

    /// The latest session of the scope that has not expired, or null. One of TLS 1.3 is gone then, since its
    /// ticket is to be used once (RFC 8446, appendix C.4); an earlier one stays.
    Session Take(const std::string& scope) noexcept;

    /// Drops all sessions of the scope. The library wipes one that nobody uses any more.
    void Forget(const std::string& scope) noexcept;

private:
    struct Kept {
        Session session;
        std::int64_t expires;  // in seconds of the system clock since 1970
    };
    struct Scope {
        std::vector<Kept> sessions;  // the oldest first
        std::uint64_t used = 0;
    };

    void DropScopeUsedLongestAgo();

    std::mutex m_Mutex;
    // Guarded by the mutex:
    std::map<std::string, Scope> m_Scopes;
    std::uint64_t m_Uses = 0;
};

}  // namespace OmbryZephCore
