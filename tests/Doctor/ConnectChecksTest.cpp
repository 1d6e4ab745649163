#include "Doctor/CacheChecks.h"
#include "Doctor/ConnectChecks.h"
#include "Platform/Base64Text.h"
#include "tests/Doctor/DoctorFixture.h"
#include "tests/Doctor/SilentPort.h"
#include "tests/Fakes/HeldPort.h"

namespace Ombry::Tests {
namespace {

using namespace Doctor;
using testing::HasSubstr;

/// The service is at an address that refuses, and another server answers. Both are called in clear text, so
/// that a connection is all there is to them.
class ConnectChecksTest : public DoctorFixture {
protected:
    ConnectChecksTest() { TieTo(RefusingUrl()); }

    void TieTo(const std::string& url) const { folder.Write(Address, "{\"ssdsUri\": \"" + url + "\"}"); }
    std::string Trusted() {
        const auto certificates = ClientCommunications::getBootstrapCertificates(
            ClientCommunications::CommunicationsParameters(std::string()));
        const std::string& der = certificates.at(0);
        return *Platform::Base64Text({reinterpret_cast<const std::uint8_t*>(der.data()), der.size()});
    }
    static std::string Server(const std::string& url, const std::string& certificate = "") {
        std::string text = certificate;
        for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; ++at)
            text.replace(at, 1, "\\n");
        std::erase(text, '\r');
        return "{\"endpointUrl\": \"" + url + "\", \"endpointCert\": \"" + text + "\"}";
    }
    /// Keeps a list for an owner, whose folder of caches ends in "/" or is that of users and tokens.
    void Keep(const std::string& owner, const std::string& servers) const {
        folder.Write(Caches + owner + "v1-service.cache-p",
                     "{\"expiryTime\": 1, \"local\": [" + servers + "]}");
    }
    Findings Connect() { return Run(CheckConnections, 30LL); }
    /// Of the service itself.
    Finding OfTheService() { return Connect().at(0); }

    const SilentPort other;
    const std::string living = "http://" + other.HostAndPort();
};

TEST_F(ConnectChecksTest, AddressThatAnswersIsEnough) {
    TieTo(living);
    Keep("", Server(living, Trusted()) + "," + Server(RefusingUrl()));
    const Findings findings = Connect();
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_THAT(findings[0].message, HasSubstr("clear text"));
    EXPECT_EQ(findings[1].severity, Severity::Warning);
    EXPECT_EQ(findings[1].remedy, "rm -f -- " + (folder / (Caches + "v1-service.cache-p")));
    EXPECT_EQ(Text(findings[1], "cut_off"), "0");
}

TEST_F(ConnectChecksTest, AddressThatRefusesIsCriticalWithoutAnyList) {
    const Finding finding = OfTheService();
    EXPECT_EQ(finding.severity, Severity::Critical);
    EXPECT_EQ(Text(finding, "cut_off"), "2");
    EXPECT_THAT(finding.remedy, testing::EndsWith(" -d dc-1 -r URL")) << "it would be asked in vain again";
}

TEST_F(ConnectChecksTest, ListOfAnotherTieIsThrownAwayAndHelpsNobody) {
    for (const std::string& list :
         {Server(living), Server(RefusingUrl(), "other") + "," + Server(living),
          Server(RefusingUrl(), Trusted()) + "," + Server(RefusingUrl(), "other") + "," + Server(living)}) {
        Keep("", list);
        Keep("c1/", list);
        EXPECT_EQ(OfTheService().severity, Severity::Critical) << list;
    }
}

TEST_F(ConnectChecksTest, ListHelpsItsOwnerAlone) {
    const std::string list = Server(RefusingUrl(), Trusted()) + "," + Server(living);
    Keep("", list);
    Finding finding = OfTheService();
    EXPECT_EQ(finding.severity, Severity::Error);
    EXPECT_THAT(finding.message, HasSubstr("; the commands of client c1 reach nobody else"));
    EnrollClient("c2");
    EXPECT_THAT(OfTheService().message, HasSubstr("; the commands of client c1 and 1 other reach nobody"));
    Keep("c1/", list);
    Keep("c2/", list);
    finding = OfTheService();
    EXPECT_EQ(finding.severity, Severity::Warning);
    EXPECT_EQ(Text(finding, "cut_off"), "0");
}

TEST_F(ConnectChecksTest, ListOfAClientThatIsGoneCountsForNobody) {
    const std::string list = Server(RefusingUrl(), Trusted()) + "," + Server(living);
    Keep("gone/", list);
    EXPECT_EQ(OfTheService().severity, Severity::Critical);
    std::filesystem::remove(folder / Credentials);
    Keep("", list);
    EXPECT_EQ(OfTheService().severity, Severity::Warning);
}

TEST_F(ConnectChecksTest, WithoutATrustedCertificateNoCommandAsksAnybody) {
    TieTo(living);
    std::filesystem::remove_all(folder / Store);
    EXPECT_EQ(OfTheService().severity, Severity::Critical);
}

TEST_F(ConnectChecksTest, WithoutAnAddressListsAreNotAsked) {
    Keep("", Server(living));
    std::filesystem::remove(folder / Address);
    const Finding finding = RunForOne(CheckConnections, 30LL);
    EXPECT_EQ(finding.severity, Severity::Critical);
    EXPECT_EQ(finding.message, "There is no address to connect to");
}

TEST_F(ConnectChecksTest, ServersBeyondTheMostAreCountedAndMayAnswer) {
    std::string list = Server(RefusingUrl(), Trusted());
    for (int number = 1; number <= 64; ++number)
        list += "," + Server(RefusingUrl() + "/" + std::to_string(number));
    Keep("", list);
    Keep("c1/", list);
    const Findings findings = Connect();
    ASSERT_EQ(findings.size(), 65u);
    EXPECT_EQ(findings[0].severity, Severity::Warning);
    EXPECT_EQ(Text(findings[64], "left_out"), "1");
}

}  // namespace
}  // namespace Ombry::Tests
