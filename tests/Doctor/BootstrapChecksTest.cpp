#include "Doctor/BootstrapChecks.h"
#include "tests/Doctor/DoctorFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace Doctor;
using testing::HasSubstr;

class BootstrapChecksTest : public DoctorFixture {};

const std::string Configure = "Ombry.SecClientConfig configure-bootstrap-url -u USER -p PASSWORD ";

TEST_F(BootstrapChecksTest, AddressIsTold) {
    const Finding finding = RunForOne(CheckAddress);
    EXPECT_EQ(finding.severity, Severity::Success);
    EXPECT_EQ(Text(finding, "address"), "https://server1:8181/sfs");
}

TEST_F(BootstrapChecksTest, AddressThatIsDamagedIsCriticalAndTheDatacenterStays) {
    for (const std::string content :
         {"", "{\"ssdsUri\": \"http", "[]", "{}", "{\"ssdsUri\": \"\"}", "{\"ssdsUri\": \"https:///\"}"}) {
        SCOPED_TRACE(content);
        folder.Write(Address, content);
        const Finding finding = RunForOne(CheckAddress);
        EXPECT_EQ(finding.severity, Severity::Critical);
        EXPECT_EQ(finding.remedy, Configure + "-d dc-1 -r URL");
    }
}

TEST_F(BootstrapChecksTest, WhatIsInThePlaceOfTheAddressGoesFirst) {
    std::filesystem::remove(folder / Address);
    EXPECT_THAT(RunForOne(CheckAddress).message, HasSubstr("is missing"));
    folder.Write(Address + "/kept", "");
    const Finding finding = RunForOne(CheckAddress);
    EXPECT_THAT(finding.message, HasSubstr("is a folder"));
    EXPECT_EQ(finding.remedy, "rm -rf -- " + (folder / Address) + " && " + Configure + "-d dc-1 -r URL");
    std::filesystem::remove_all(folder / Address);
    std::filesystem::create_symlink("nowhere", folder / Address);
    EXPECT_THAT(RunForOne(CheckAddress).message, HasSubstr("is a symbolic link"));
}

TEST_F(BootstrapChecksTest, AddressBehindAnObstacleIsOutOfReachAndTheObstacleIsNotItsBusiness) {
    std::filesystem::remove_all(folder / Security);
    folder.Write(Security, "");
    const Finding finding = RunForOne(CheckAddress);
    EXPECT_THAT(finding.message, HasSubstr("is out of reach behind " + (folder / Security)));
    EXPECT_EQ(finding.remedy, Configure + "-dn DATACENTER -r URL");
}

TEST_F(BootstrapChecksTest, AddressInClearTextIsAWarning) {
    for (const std::string url : {"http://server1:8080", "HTTPS://server1", "server1"}) {
        folder.Write(Address, "{\"ssdsUri\": \"" + url + "\"}");
        EXPECT_EQ(RunForOne(CheckAddress).severity, Severity::Warning) << url;
    }
}

TEST_F(BootstrapChecksTest, DatacenterComesFromTheFileThatCounts) {
    EXPECT_EQ(Text(RunForOne(CheckDatacenter), "path"), folder / Datacenter);
    folder.Write("Quennet/common.config", "<X><DatacenterId>dc-2</DatacenterId></X>");
    const Finding finding = RunForOne(CheckDatacenter);
    EXPECT_EQ(finding.severity, Severity::Success);
    EXPECT_EQ(Text(finding, "datacenter"), "dc-2");
    EXPECT_EQ(Text(finding, "path"), folder / "Quennet/common.config");
    folder.Write("Quennet/common.config", "<X><DatacenterId></DatacenterId></X>");
    EXPECT_EQ(Text(RunForOne(CheckDatacenter), "datacenter"), "dc-1");
}

TEST_F(BootstrapChecksTest, DatacenterThatNoHeaderCanHoldIsCritical) {
    for (const std::string id : {"", "dc-1\n", " dc-1", "dc-1 ", "dc\r\nX: y"}) {
        SCOPED_TRACE(id);
        folder.Write(Datacenter, id);
        const Finding finding = RunForOne(CheckDatacenter);
        EXPECT_EQ(finding.severity, Severity::Critical);
        EXPECT_EQ(finding.remedy, Configure + "-dn DATACENTER -r https://server1:8181/sfs");
    }
    folder.Write(Datacenter, "dc-1");
    folder.Write("Quennet/common.config", "<DatacenterId> dc-2</DatacenterId>");
    const Finding finding = RunForOne(CheckDatacenter);
    EXPECT_EQ(finding.severity, Severity::Critical);
    EXPECT_THAT(finding.remedy, HasSubstr("sed -i -z "));
}

TEST_F(BootstrapChecksTest, FilesThatAreNotInTheOrderOfOneRunAreAWarning) {
    const auto age = [this](const std::string& path, int seconds) {
        std::filesystem::last_write_time(
            folder / path, std::filesystem::file_time_type::clock::now() - std::chrono::seconds(seconds));
    };
    const std::string certificate =
        Store + "/" + std::filesystem::directory_iterator(folder / Store)->path().filename().string();
    age(certificate, 30);
    age(Address, 20);
    age(Datacenter, 10);
    EXPECT_EQ(RunForOne(CheckWhole).severity, Severity::Success);
    age(Datacenter, 25);
    Finding finding = RunForOne(CheckWhole);
    EXPECT_EQ(finding.severity, Severity::Warning);
    EXPECT_EQ(Text(finding, "older"), folder / Datacenter);
    EXPECT_EQ(finding.remedy, Configure + "-dn DATACENTER -r URL");
    folder.Write("Quennet/common.config", "<DatacenterId>dc-2</DatacenterId>");
    EXPECT_EQ(RunForOne(CheckWhole).severity, Severity::Success);
    age(Address, 40);
    EXPECT_EQ(Text(RunForOne(CheckWhole), "younger"), folder / certificate);
}

TEST_F(BootstrapChecksTest, DatacenterThatIsMissingIsCritical) {
    std::filesystem::remove(folder / Datacenter);
    const Finding finding = RunForOne(CheckDatacenter);
    EXPECT_EQ(finding.severity, Severity::Critical);
    EXPECT_THAT(finding.message, HasSubstr("is missing"));
}

}  // namespace
}  // namespace Ombry::Tests
