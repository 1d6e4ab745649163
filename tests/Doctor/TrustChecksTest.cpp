#include "Doctor/TrustChecks.h"
#include "Platform/Base64Text.h"
#include "tests/Doctor/DoctorFixture.h"
#include "tests/EndToEnd/CertificateTexts.h"

#include <gmock/gmock.h>

#include <sys/file.h>
#include <unistd.h>

namespace Ombry::Tests {
namespace {

using namespace Doctor;
using testing::HasSubstr;
using testing::MatchesRegex;

class TrustChecksTest : public DoctorFixture {
protected:
    Findings Check(long long warnDays = 30) { return Run(CheckTrust, warnDays); }
    /// The certificate's only file.
    std::string FileOfTrust() const {
        const std::filesystem::directory_iterator file(folder / Store);
        return file->path().lexically_relative(folder.Path());
    }
    Finding CheckForOne(long long warnDays = 30) { return RunForOne(CheckTrust, warnDays); }
};

const std::string ConfigureAgain =
    "Ombry.SecClientConfig configure-bootstrap-url -u USER -p PASSWORD -d dc-1 -r https://server1:8181/sfs";

TEST_F(TrustChecksTest, CertificateIsToldWithItsFingerprint) {
    const Finding finding = CheckForOne();
    EXPECT_EQ(finding.severity, Severity::Success);
    EXPECT_EQ(Text(finding, "alias"), "DiscoveryServiceBootstrap");
    EXPECT_EQ(Text(finding, "subject"), "CN=server1");
    EXPECT_EQ(Text(finding, "key_type"), "EC");
    EXPECT_EQ(Text(finding, "key_bits"), "256");
    EXPECT_EQ(Text(finding, "days"), "100");
    EXPECT_THAT(Text(finding, "sha256"), MatchesRegex("([0-9A-F]{2}:){31}[0-9A-F]{2}"));
    std::string name = Text(finding, "sha256");
    std::erase(name, ':');
    std::transform(name.begin(), name.end(), name.begin(), [](char c) { return std::tolower(c); });
    EXPECT_TRUE(std::filesystem::exists(folder / (Store + "/" + name)));
}

TEST_F(TrustChecksTest, MissingStoreAndMissingNameAreCritical) {
    for (const auto& entry : std::filesystem::directory_iterator(folder / Store))
        std::filesystem::remove(entry.path());
    folder.Write(Store + "/unnamed", StoredCertificate(MakeCertificate(RecipeOf(2)), ""));
    Finding finding = CheckForOne();
    EXPECT_EQ(finding.severity, Severity::Critical);
    EXPECT_THAT(finding.message, HasSubstr("is the one that the machine's trust begins with"));
    EXPECT_EQ(finding.remedy, ConfigureAgain);
    std::filesystem::remove_all(folder / Store);
    finding = CheckForOne();
    EXPECT_EQ(finding.severity, Severity::Critical);
    EXPECT_THAT(finding.message, HasSubstr("is missing"));
}

TEST_F(TrustChecksTest, CertificateThatCannotBeParsedIsCritical) {
    inspection.isNoCertificate = true;
    const Finding finding = CheckForOne();
    EXPECT_EQ(finding.severity, Severity::Critical);
    EXPECT_THAT(finding.message, HasSubstr("is damaged"));
    EXPECT_EQ(finding.remedy, ConfigureAgain);
}

TEST_F(TrustChecksTest, CertificateThatWasChangedSinceIsCriticalIfItsKeyIsKnownToHaveBeen) {
    const std::string file = FileOfTrust();
    const TestCertificate stored = CertificateFromPem(folder.Read(file));
    const std::string list = Caches + "v1-service.cache-p";
    const std::string der = DerOf(stored);
    const auto text = Platform::Base64Text({reinterpret_cast<const std::uint8_t*>(der.data()), der.size()});
    const auto listOf = [](const std::string& certificate) {
        return R"({"local": [{"endpointUrl": "https://a", "endpointCert": ")" + certificate + "\"}]}";
    };
    for (const bool inKey : {false, true}) {
        folder.Write(file, StoredCertificate(Bent(stored, inKey)));
        for (const std::string& content : {std::string(), listOf(""), listOf("YQ==")}) {
            folder.Write(list, content);
            const Finding finding = CheckForOne();
            EXPECT_EQ(finding.severity, Severity::Warning);
            EXPECT_THAT(finding.message, HasSubstr("changed since it was stored; if its key was"));
            EXPECT_EQ(finding.remedy, ConfigureAgain);
        }
        folder.Write(list, listOf(*text));
        const Finding finding = CheckForOne(1000);
        EXPECT_EQ(finding.severity, inKey ? Severity::Critical : Severity::Warning) << finding.message;
        EXPECT_THAT(finding.message, HasSubstr(inKey ? "stored, and its key" : "stored, but for its key"));
        EXPECT_EQ(finding.remedy, ConfigureAgain);
    }
    folder.Write(file, StoredCertificate(stored));
    EXPECT_EQ(CheckForOne().severity, Severity::Success);
}

TEST_F(TrustChecksTest, CertificateInAFileOfAnotherNameIsNoneThatWasChanged) {
    std::filesystem::rename(folder / FileOfTrust(), folder / (Store + "/zz"));
    EXPECT_EQ(CheckForOne().severity, Severity::Success);
}

TEST_F(TrustChecksTest, SecondCertificateOfTheNameIsAWarning) {
    folder.Write(Store + "/zz", StoredCertificate(MakeCertificate(RecipeOf(2))));
    const Findings findings = Check();
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0].severity, Severity::Success);
    EXPECT_EQ(findings[1].severity, Severity::Warning);
    EXPECT_EQ(Text(findings[1], "count"), "2");
    EXPECT_EQ(findings[1].remedy, ConfigureAgain);
}

TEST_F(TrustChecksTest, DatesAreWarningsAtTheMost) {
    EXPECT_EQ(CheckForOne(100).severity, Severity::Success);
    EXPECT_THAT(CheckForOne(101).message,
                HasSubstr("It ends soon; it is for the service's administrator to renew it first"));
    EXPECT_EQ(CheckForOne(101).severity, Severity::Warning);
    clock.Advance(std::chrono::hours(24 * 101));
    EXPECT_THAT(CheckForOne().message, HasSubstr("(-1 days)"));
    EXPECT_THAT(CheckForOne().message, HasSubstr("It has ended"));
    EXPECT_EQ(CheckForOne().remedy, ConfigureAgain);
    clock.SetNow(clock.Now() - std::chrono::hours(24 * 103));
    EXPECT_THAT(CheckForOne().message, HasSubstr("It begins in the future"));
}

TEST_F(TrustChecksTest, ReaderTakesNoLockAndSaysWhoHoldsIt) {
    const int store = open((folder / Store).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(store, LOCK_EX), 0);
    const Findings findings = Check();
    close(store);
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0].severity, Severity::Success);
    EXPECT_EQ(Text(findings[1], "process"), std::to_string(getpid()));
    EXPECT_EQ(findings[1].remedy, "flock --shared " + (folder / Store) + " true");
}

TEST_F(TrustChecksTest, WhatIsMissingWhileAWriterIsAtWorkIsLookedForAgain) {
    std::filesystem::rename(folder / Store, folder / "aside");
    std::filesystem::create_directory(folder / Store);
    inspection.holder = 4711;
    clock.OnSleep([&] {
        std::filesystem::remove(folder / Store);
        std::filesystem::rename(folder / "aside", folder / Store);
        inspection.holder.reset();
        clock.OnSleep({});
    });
    EXPECT_EQ(CheckForOne().severity, Severity::Success);
    EXPECT_EQ(clock.Sleeps().size(), 1u);
}

TEST_F(TrustChecksTest, WriterThatNeverEndsIsNotWaitedForForEver) {
    std::filesystem::remove_all(folder / Store);
    std::filesystem::create_directory(folder / Store);
    inspection.holder = 4711;
    EXPECT_EQ(CheckForOne().severity, Severity::Critical);
    EXPECT_EQ(clock.Sleeps().size(), 20u);
}

TEST(DaysBetweenTest, AreWholeAndRoundedDown) {
    const auto at = [](std::int64_t seconds) { return TimePoint(Duration(seconds * TicksPerSecond)); };
    EXPECT_EQ(DaysBetween(at(0), at(86400)), 1);
    EXPECT_EQ(DaysBetween(at(0), at(86399)), 0);
    EXPECT_EQ(DaysBetween(at(1), at(0)), -1);
    EXPECT_EQ(DaysBetween(at(86400), at(0)), -1);
}

}  // namespace
}  // namespace Ombry::Tests
