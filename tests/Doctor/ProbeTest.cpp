#include "Doctor/Probe.h"
#include "Platform/IClock.h"
#include "tests/Doctor/SilentPort.h"
#include "tests/Fakes/HeldPort.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using Doctor::ProbeAll;
using Step = Doctor::ProbeOutcome::Step;

constexpr Duration Long = std::chrono::seconds(60);

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
