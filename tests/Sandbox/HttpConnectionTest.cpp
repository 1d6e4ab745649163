// How long a client may take over what it sends, in clear text and under TLS, where a record may drip as
// well.

#include "Sandbox/HttpConnection.h"
#include "Sandbox/Identity.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <future>
#include <thread>

namespace Ombry::Tests {
namespace {

using Sandbox::HttpConnection;
using Head = HttpConnection::Head;

const std::string LongHead = "GET / HTTP/1.1\r\nX: " + std::string(1000, 'x');

class SandboxHttpConnectionTest : public testing::Test {
protected:
    using Context = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

    SandboxHttpConnectionTest() {
        // Between the two ends of such a pair nothing is ever on its way.
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        SSL_CTX_use_certificate(serverContext.get(), identity.Certificate());
        SSL_CTX_use_PrivateKey(serverContext.get(), identity.Key());
        SSL_set_fd(client.get(), ends[0]);
    }
    ~SandboxHttpConnectionTest() override {
        connection.reset();  // while there is somebody to take leave of
        close(ends[0]);
    }

    void Begin(bool underTls) {
        connection.emplace(ends[1], underTls ? serverContext.get() : nullptr);
        if (!underTls) return;
        auto begun = std::async(std::launch::async, [&] { return connection->Begin(); });
        EXPECT_EQ(SSL_connect(client.get()), 1);
        EXPECT_TRUE(begun.get());
        SSL_set0_wbio(client.get(), BIO_new(BIO_s_mem()));
    }

    /// A record that says this.
    std::string OnTheWire(const std::string& text) {
        EXPECT_GT(SSL_write(client.get(), text.data(), static_cast<int>(text.size())), 0);
        BIO* const written = SSL_get_wbio(client.get());
        std::string bytes(BIO_ctrl_pending(written), '\0');
        BIO_read(written, bytes.data(), static_cast<int>(bytes.size()));
        return bytes;
    }
    void Send(const std::string& bytes) {
        EXPECT_EQ(write(ends[0], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    /// What the connection's owner does, while bytes come one a second by the clock, each when the one before
    /// was taken, and end with the connection.
    template <typename Act>
    auto WhileItDrips(const std::string& bytes, const Act& act) {
        auto outcome = std::async(std::launch::async, act);
        dripped = 0;
        const auto isTaken = [&] {
            int unread = 0;
            while (ioctl(ends[1], FIONREAD, &unread) == 0 && unread > 0) {
                if (outcome.wait_for(std::chrono::seconds(0)) == std::future_status::ready) return false;
                std::this_thread::yield();
            }
            return true;
        };
        for (const char byte : bytes) {
            Send(std::string(1, byte));
            if (!isTaken()) break;
            ++dripped;
            clock.Advance(std::chrono::seconds(1));
        }
        shutdown(ends[0], SHUT_WR);
        return outcome.get();
    }
    /// One or two more are taken by who has not heard yet what time it is.
    void ExpectGivenUpAfterHalfAMinute() const {
        EXPECT_GE(dripped, 30);
        EXPECT_LE(dripped, 33);
    }

    FakeClock clock;
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    const TemporaryDirectory folder;
    const Sandbox::Identity identity{folder.Path()};
    const Context serverContext{SSL_CTX_new(TLS_server_method()), SSL_CTX_free};
    const Context clientContext{SSL_CTX_new(TLS_client_method()), SSL_CTX_free};
    const std::unique_ptr<SSL, decltype(&SSL_free)> client{SSL_new(clientContext.get()), SSL_free};
    std::array<int, 2> ends{};  ///< the client's, and the one that the connection owns
    std::optional<HttpConnection> connection;
    int dripped = 0;
};

TEST_F(SandboxHttpConnectionTest, HandshakeThatDripsIsGivenUp) {
    connection.emplace(ends[1], serverContext.get());
    // A first message of 16 KiB, in one record.
    const std::string hello = std::string("\x16\x03\x01\x40\x00\x01\x00\x3f\xfc\x03\x03", 11);
    EXPECT_FALSE(WhileItDrips(hello + std::string(100, '\0'), [&] { return connection->Begin(); }));
    ExpectGivenUpAfterHalfAMinute();
}

TEST_F(SandboxHttpConnectionTest, HeadThatDripsIsGivenUp) {
    Begin(false);
    EXPECT_EQ(WhileItDrips(LongHead.substr(0, 100), [&] { return connection->TakeHead(); }), Head::TooSlow);
    ExpectGivenUpAfterHalfAMinute();
}

TEST_F(SandboxHttpConnectionTest, RecordOfAHeadThatDripsIsGivenUp) {
    Begin(true);
    EXPECT_EQ(WhileItDrips(OnTheWire(LongHead).substr(0, 100), [&] { return connection->TakeHead(); }),
              Head::TooSlow);
    ExpectGivenUpAfterHalfAMinute();
}

TEST_F(SandboxHttpConnectionTest, RecordOfABodyThatDripsIsGivenUpAndAnswered) {
    Begin(true);
    const std::string head = "POST / HTTP/1.1\r\n\r\n";
    Send(OnTheWire(head));
    EXPECT_EQ(connection->TakeHead(), Head::Taken);
    std::string taken(head.size(), '\0');
    EXPECT_EQ(connection->read(taken.data(), taken.size()), static_cast<ssize_t>(head.size()));
    // A body has its own half minute.
    clock.Advance(std::chrono::hours(1));
    EXPECT_FALSE(connection->IsOutOfStep());
    char byte = 0;
    EXPECT_EQ(WhileItDrips(OnTheWire(std::string(1000, 'x')).substr(0, 100),
                           [&] { return connection->read(&byte, 1); }),
              0);
    ExpectGivenUpAfterHalfAMinute();
    EXPECT_TRUE(connection->IsOutOfStep());
    EXPECT_EQ(connection->write("late", 4), 4);
    char answer[4];
    EXPECT_EQ(SSL_read(client.get(), answer, sizeof answer), 4);
    EXPECT_EQ(std::string(answer, sizeof answer), "late");
}

TEST_F(SandboxHttpConnectionTest, EachHeadHasItsOwnTime) {
    Begin(true);
    for (int request = 0; request < 3; ++request) {
        clock.Advance(std::chrono::hours(1));
        const std::string head = "GET / HTTP/1.1\r\n\r\n";
        Send(OnTheWire(head));
        EXPECT_EQ(connection->TakeHead(), Head::Taken);
        std::string taken(head.size(), '\0');
        EXPECT_EQ(connection->read(taken.data(), taken.size()), static_cast<ssize_t>(head.size()));
        EXPECT_EQ(taken, head);
    }
}

TEST_F(SandboxHttpConnectionTest, BehindAnAnswerThatClosesNoMoreThanAMebibyteIsListenedTo) {
    Begin(false);
    auto closed = std::async(std::launch::async, [&] {
        connection->CloseGently();
        connection.reset();
    });
    const std::string rest(4 << 20, 'x');
    ssize_t sent = 0;
    for (ssize_t count = 1; count > 0 && sent < static_cast<ssize_t>(rest.size());
         sent += std::max<ssize_t>(count, 0))
        count = send(ends[0], rest.data() + sent, rest.size() - static_cast<std::size_t>(sent), MSG_NOSIGNAL);
    EXPECT_GE(sent, 1 << 20);
    EXPECT_LT(sent, 2 << 20);
    closed.get();
}

}  // namespace
}  // namespace Ombry::Tests
