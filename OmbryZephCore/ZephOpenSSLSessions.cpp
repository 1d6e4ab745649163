#include "OmbryZephCore/ZephOpenSSLSessions.h"

#include "Platform/IClock.h"
#include "Platform/MadeOnce.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <new>
#include <utility>

namespace OmbryZephCore {
namespace {

// A ticket of TLS 1.3 is, so that nobody who watches can tie connections together (RFC 8446, appendix C.4).
bool IsUsedOnce(const SSL_SESSION& session) {
    return SSL_SESSION_get_protocol_version(&session) >= TLS1_3_VERSION;
}

}  // namespace

void ZephOpenSSLSessions::SessionDeleter::operator()(ssl_session_st* session) const {
    SSL_SESSION_free(session);
}

ZephOpenSSLSessions& ZephOpenSSLSessions::Shared() {
    return Ombry::Platform::MadeOnce<ZephOpenSSLSessions>();
}

void ZephOpenSSLSessions::Keep(const std::string& scope, ssl_session_st& session) noexcept try {
    if (SSL_SESSION_is_resumable(&session) != 1 || SSL_SESSION_up_ref(&session) != 1) return;
    // The life of a ticket of TLS 1.3 may be none at all (RFC 8446, section 4.6.1).
    Kept kept{Session(&session), Ombry::Platform::WallSeconds() + SSL_SESSION_get_timeout(&session)};
    std::lock_guard guard(m_Mutex);
    if (m_Scopes.count(scope) == 0 && m_Scopes.size() == MostScopes) DropScopeUsedLongestAgo();
    Scope& found = m_Scopes[scope];
    found.used = ++m_Uses;
    const std::size_t others = IsUsedOnce(session) ? MostOfAScope - 1 : 0;
    while (found.sessions.size() > others)
        found.sessions.erase(found.sessions.begin());
    found.sessions.push_back(std::move(kept));
} catch (const std::bad_alloc&) {
    // The next connection makes a full handshake.
}

ZephOpenSSLSessions::Session ZephOpenSSLSessions::Take(const std::string& scope) noexcept {
    std::lock_guard guard(m_Mutex);
    const auto found = m_Scopes.find(scope);
    if (found == m_Scopes.end()) return nullptr;
    found->second.used = ++m_Uses;
    auto& sessions = found->second.sessions;
    const std::int64_t now = Ombry::Platform::WallSeconds();
    // An alert that ended a connection has spoilt its session as well.
    while (!sessions.empty() &&
           (sessions.back().expires <= now || SSL_SESSION_is_resumable(sessions.back().session.get()) != 1)) {
        sessions.pop_back();
    }
    if (sessions.empty()) return nullptr;
    SSL_SESSION* const latest = sessions.back().session.get();
    if (SSL_SESSION_up_ref(latest) != 1) return nullptr;
    Session session(latest);
    if (IsUsedOnce(*latest)) sessions.pop_back();
    return session;
}

void ZephOpenSSLSessions::Forget(const std::string& scope) noexcept {
    std::lock_guard guard(m_Mutex);
    m_Scopes.erase(scope);
}

void ZephOpenSSLSessions::DropScopeUsedLongestAgo() {
    m_Scopes.erase(std::min_element(
        m_Scopes.begin(), m_Scopes.end(),
        [](const auto& left, const auto& right) { return left.second.used < right.second.used; }));
}

}  // namespace OmbryZephCore
