// What is left in memory of the TLS sessions that were kept. It stands here, where memory that is freed is
// watched.

#include "OmbryZephCore/ZephOpenSSLSessions.h"
#include "Platform/Linux/OpenSSLInit.h"
#include "tests/Fakes/FreedMemory.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephOpenSSLSessions;

const std::string MasterKey = "the master key of a session, 48 bytes of it here";

ZephOpenSSLSessions::Session SessionWithTheKey() {
    Platform::InitializeOpenSSL();
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()),
                                                               SSL_CTX_free);
    const std::unique_ptr<SSL, void (*)(SSL*)> connection(SSL_new(context.get()), SSL_free);
    ZephOpenSSLSessions::Session session(SSL_SESSION_new());
    const std::string id(32, 'i');
    EXPECT_EQ(SSL_SESSION_set1_id(session.get(), reinterpret_cast<const unsigned char*>(id.data()), 32), 1);
    EXPECT_EQ(SSL_SESSION_set_protocol_version(session.get(), TLS1_2_VERSION), 1);
    EXPECT_EQ(
        SSL_SESSION_set_cipher(session.get(), sk_SSL_CIPHER_value(SSL_get_ciphers(connection.get()), 0)), 1);
    EXPECT_EQ(SSL_SESSION_set1_master_key(
                  session.get(), reinterpret_cast<const unsigned char*>(MasterKey.data()), MasterKey.size()),
              1);
    return session;
}

TEST(KeptSessionsTest, ThoseThatAreDroppedAreWiped) {
    const ZephOpenSSLSessions::Session session = SessionWithTheKey();
    auto sessions = std::make_unique<ZephOpenSSLSessions>();
    const FreedMemory freed(MasterKey);
    sessions->Keep("a", *session);
    ASSERT_NE(sessions->Take("a"), nullptr);
    sessions->Keep("a", *session);  // in place of the first
    sessions->Forget("a");
    sessions->Keep("b", *session);
    sessions.reset();
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

}  // namespace
}  // namespace Ombry::Tests
