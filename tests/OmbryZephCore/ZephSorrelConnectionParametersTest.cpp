#include "OmbryZephCore/ZephSorrelConnectionParameters.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <vector>

namespace Ombry::Tests {
namespace {

using OmbryZephCore::ZephCertificateValidation;
using OmbryZephCore::ZephSorrelConnectionParameters;
using OmbryZephCore::ZephSorrelConnectionParametersIf;

// Another implementation of the interface, to see that values are read through it.
class ForeignParameters : public ZephSorrelConnectionParameters {
public:
    ForeignParameters() : ZephSorrelConnectionParameters("hidden", 1) {}
    std::string GetHost() const override { return "seen"; }
    std::uint16_t GetPort() const override { return 8443; }
    bool GetUseSSL() const override { return true; }
    std::uint32_t GetConnectTimeout() const override { return 77; }
    std::string GetBindAddress() const override { return "::1"; }
    std::uint16_t GetBindPort() const override { return 99; }
    ZephCertificateValidation GetCertificateValidation() const override { return {2, "AAAA"}; }
};

void ExpectForeign(const ZephSorrelConnectionParameters& params) {
    EXPECT_EQ(params.GetHost(), "seen");
    EXPECT_EQ(params.GetPort(), 8443);
    EXPECT_TRUE(params.GetUseSSL());
    EXPECT_EQ(params.GetConnectTimeout(), 77u);
    EXPECT_EQ(params.GetBindAddress(), "::1");
    EXPECT_EQ(params.GetBindPort(), 99);
    EXPECT_EQ(params.GetCertificateValidation().m_Mode, 2);
    EXPECT_EQ(params.GetCertificateValidation().m_Certificate, "AAAA");
}

// As a map of them sees it, and as the one look without the map does.
bool Equal(const ZephSorrelConnectionParameters& left, const ZephSorrelConnectionParameters& right) {
    const bool equal = !(left < right) && !(right < left);
    EXPECT_EQ(left == right, equal);
    return equal;
}

ZephSorrelConnectionParameters WithRule(std::int32_t nMode, std::string certificate) {
    ZephSorrelConnectionParameters params("host", 443);
    params.SetCertificateValidation({nMode, std::move(certificate)});
    return params;
}

TEST(ZephSorrelConnectionParametersTest, ConstructorSetsHostAndPortAndTheDefaults) {
    const ZephSorrelConnectionParameters params("server", 65535);
    EXPECT_EQ(params.GetHost(), "server");
    EXPECT_EQ(params.GetPort(), 65535);
    EXPECT_FALSE(params.GetUseSSL());
    EXPECT_EQ(params.GetConnectTimeout(), 3u);
    EXPECT_EQ(params.GetBindAddress(), "");
    EXPECT_EQ(params.GetBindPort(), 0);
    EXPECT_EQ(params.GetCertificateValidation().m_Mode, 1);
    EXPECT_EQ(params.GetCertificateValidation().m_Certificate, "");
}

TEST(ZephSorrelConnectionParametersTest, DefaultIsAnUnconfiguredConnection) {
    EXPECT_TRUE(Equal(ZephSorrelConnectionParameters(), ZephSorrelConnectionParameters("", 0)));
}

TEST(ZephSorrelConnectionParametersTest, SettersChainThroughTheInterfaceAndReachTheirFields) {
    ZephSorrelConnectionParameters params("a", 1);
    ZephSorrelConnectionParametersIf& interface = params;
    ZephSorrelConnectionParametersIf& last = interface.SetHost("b")
                                                 .SetUseSSL(true)
                                                 .SetConnectTimeout(4'000'000'000u)
                                                 .SetBindAddress("127.0.0.2")
                                                 .SetBindPort(7)
                                                 .SetCertificateValidation({0, "text"});
    EXPECT_EQ(&last, &interface);
    EXPECT_EQ(params.GetHost(), "b");
    EXPECT_EQ(params.GetPort(), 1);
    EXPECT_TRUE(params.GetUseSSL());
    EXPECT_EQ(params.GetConnectTimeout(), 4'000'000'000u);
    EXPECT_EQ(params.GetBindAddress(), "127.0.0.2");
    EXPECT_EQ(params.GetBindPort(), 7);
    EXPECT_EQ(params.GetCertificateValidation().m_Mode, 0);
    EXPECT_EQ(params.GetCertificateValidation().m_Certificate, "text");
    interface.SetUseSSL(false);
    EXPECT_FALSE(params.GetUseSSL());
}

TEST(ZephSorrelConnectionParametersTest, ConstructionAndAssignmentReadEveryValueThroughTheInterface) {
    const ForeignParameters foreign;
    const ZephSorrelConnectionParametersIf& interface = foreign;
    ExpectForeign(ZephSorrelConnectionParameters(interface));
    ZephSorrelConnectionParameters assigned("old", 5);
    EXPECT_EQ(&(assigned = interface), &assigned);
    ExpectForeign(assigned);
}

TEST(ZephSorrelConnectionParametersTest, CopiesAreEqualAndIndependent) {
    const ZephSorrelConnectionParameters source{
        static_cast<const ZephSorrelConnectionParametersIf&>(ForeignParameters())};
    ZephSorrelConnectionParameters copy(source);
    ExpectForeign(copy);
    ZephSorrelConnectionParameters assigned;
    assigned = source;
    ExpectForeign(assigned);
    copy.SetHost("other");
    EXPECT_EQ(source.GetHost(), "seen");
}

TEST(ZephSorrelConnectionParametersTest, AssigningAnObjectToItselfDoesNothing) {
    ForeignParameters foreign;  // would take the values of its overrides if anything were read
    const ZephSorrelConnectionParametersIf& self = foreign;
    foreign.ZephSorrelConnectionParameters::operator=(self);
    EXPECT_EQ(foreign.ZephSorrelConnectionParameters::GetHost(), "hidden");
    EXPECT_EQ(foreign.ZephSorrelConnectionParameters::GetPort(), 1);
}

TEST(ZephSorrelConnectionParametersTest, EachFieldDecidesOnlyWhenAllBeforeItAreEqual) {
    // From the least to the most significant field, each smaller or larger than in the base.
    using Change = std::function<ZephSorrelConnectionParameters(ZephSorrelConnectionParameters, bool)>;
    const auto withPort = [](const ZephSorrelConnectionParameters& from, std::uint16_t nPort) {
        ZephSorrelConnectionParameters params(from.GetHost(), nPort);
        params.SetUseSSL(from.GetUseSSL()).SetConnectTimeout(from.GetConnectTimeout());
        params.SetBindAddress(from.GetBindAddress()).SetBindPort(from.GetBindPort());
        params.SetCertificateValidation(from.GetCertificateValidation());
        return params;
    };
    const std::vector<Change> changes = {
        [](auto p, bool up) {
            return p.SetCertificateValidation({up ? 2 : 0, ""});
        },
        [](auto p, bool up) { return p.SetBindPort(up ? 60000 : 1); },
        [](auto p, bool up) { return p.SetBindAddress(up ? "9" : "1"); },
        [](auto p, bool up) { return p.SetConnectTimeout(up ? 3'000'000'000u : 1); },
        [](auto p, bool up) { return p.SetUseSSL(up); },
        [&](auto p, bool up) { return withPort(p, up ? 60000 : 1); },
        [](auto p, bool up) { return p.SetHost(up ? "\xFF" : "A"); },
    };
    ZephSorrelConnectionParameters low("M", 100);
    ZephSorrelConnectionParameters high("M", 100);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        // All less significant fields say the opposite.
        low = changes[i](low, false);
        high = changes[i](high, true);
        EXPECT_TRUE(low < high) << i;
        EXPECT_FALSE(high < low) << i;
        std::swap(low, high);
        ASSERT_TRUE(high < low) << i;
    }
}

TEST(ZephSorrelConnectionParametersTest, OneFieldThatDiffersMakesThemUnequal) {
    const ZephSorrelConnectionParameters base = WithRule(2, "A");
    std::vector<ZephSorrelConnectionParameters> others(6, base);
    others[0].SetHost("other");
    others[1].SetUseSSL(true);
    others[2].SetConnectTimeout(4);
    others[3].SetBindAddress("::1");
    others[4].SetBindPort(1);
    others[5] = ZephSorrelConnectionParameters("host", 444);
    others[5].SetCertificateValidation({2, "A"});
    others.push_back(WithRule(2, "B"));
    others.push_back(WithRule(0, "A"));
    for (std::size_t i = 0; i < others.size(); ++i) {
        EXPECT_FALSE(Equal(base, others[i])) << i;
        EXPECT_TRUE(Equal(others[i], ZephSorrelConnectionParameters(others[i]))) << i;
    }
}

TEST(ZephSorrelConnectionParametersTest, CertificateTextCountsOnlyWhenBothModesAreTwo) {
    for (std::int32_t nMode : {0, 1, 3, -1})
        EXPECT_TRUE(Equal(WithRule(nMode, "A"), WithRule(nMode, "B"))) << nMode;
    EXPECT_TRUE(WithRule(2, "A") < WithRule(2, "B"));
    EXPECT_FALSE(WithRule(2, "B") < WithRule(2, "A"));
    EXPECT_TRUE(Equal(WithRule(2, "A"), WithRule(2, "A")));
    EXPECT_TRUE(WithRule(1, "B") < WithRule(2, "A"));
    EXPECT_FALSE(WithRule(2, "A") < WithRule(1, "B"));
    EXPECT_TRUE(WithRule(2, "B") < WithRule(3, "A"));
    EXPECT_FALSE(WithRule(3, "A") < WithRule(2, "B"));
}

TEST(ZephSorrelConnectionParametersTest, WorksAsAMapKey) {
    std::map<ZephSorrelConnectionParameters, int> pool;
    pool[WithRule(1, "A")] = 1;
    pool[WithRule(1, "B")] = 2;
    pool[WithRule(2, "A")] = 3;
    pool[WithRule(2, "B")] = 4;
    EXPECT_EQ(pool.size(), 3u);
    EXPECT_EQ(pool[WithRule(1, "C")], 2);
}

}  // namespace
}  // namespace Ombry::Tests
