#include "Doctor/Probe.h"
#include "Platform/IClock.h"
#include "tests/Fakes/HeldPort.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Ombry::Tests {
namespace {

using Doctor::ProbeAll;
using Step = Doctor::ProbeOutcome::Step;

constexpr Duration Long = std::chrono::seconds(60);

/// A server that takes connections, and says nothing.
class SilentPort {
public:
    SilentPort() : number(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(number, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(number, 8), 0);
        getsockname(number, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
    }
    ~SilentPort() { close(number); }
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;

    std::string HostAndPort() const { return "127.0.0.1:" + std::to_string(port); }

private:
    const int number;
    int port = 0;
};

TEST(ProbeTest, EachAddressTellsHowFarItCame) {
    const SilentPort open;
    const std::string noName(64, 'h');  // a label is longer than any may be, so that nobody is asked
    const auto outcomes =
        ProbeAll({"https://" + noName, RefusingUrl(), "http://" + open.HostAndPort()}, Long);
    ASSERT_EQ(outcomes.size(), 3u);
    const Step steps[] = {Step::Resolve, Step::Connect, Step::Done};
    for (std::size_t place = 0; place < 3; ++place) {
        EXPECT_EQ(outcomes[place].reached, steps[place]) << place;
        EXPECT_TRUE(outcomes[place].isOver);
    }
    EXPECT_EQ(outcomes[2].peer, open.HostAndPort());
    EXPECT_GT(outcomes[2].resolve, Duration::zero());
}

TEST(ProbeTest, ServerThatIsSilentIsGivenUpAtTheLimitAndHoldsNobodyUp) {
    const SilentPort silent, open;
    const Duration start = Platform::Clock().SteadyNow();
    const auto outcomes = ProbeAll({"https://" + silent.HostAndPort(), "http://" + open.HostAndPort()},
                                   std::chrono::milliseconds(300));
    EXPECT_LT(Platform::Clock().SteadyNow() - start, Duration(std::chrono::seconds(30)));
    EXPECT_EQ(outcomes[0].reached, Step::Handshake);
    EXPECT_FALSE(outcomes[0].isOver);
    EXPECT_EQ(outcomes[0].certificate, "");
    EXPECT_EQ(outcomes[1].reached, Step::Done);
}

}  // namespace
}  // namespace Ombry::Tests
