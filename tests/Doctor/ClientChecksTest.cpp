#include "Doctor/ClientChecks.h"
#include "tests/Doctor/DoctorFixture.h"

#include <gmock/gmock.h>

namespace Ombry::Tests {
namespace {

using namespace Doctor;
using testing::HasSubstr;

class ClientChecksTest : public DoctorFixture {
protected:
    std::string EnrollCommand(const std::string& client) {
        return "rm -rf -- " + (folder / (Caches + client + "/aa_token")) +
               " && Ombry.SecClientConfig enroll-client -u USER -p PASSWORD -nn " + client;
    }
    /// Makes the credentials older than the key.
    void Age(const std::string& path) {
        std::filesystem::last_write_time(
            folder / path, std::filesystem::last_write_time(folder / Key) - std::chrono::seconds(10));
    }
    void Bend(const std::string& path) {
        std::string content = folder.Read(path);
        content[content.size() / 2] ^= 1;
        folder.Write(path, content);
    }
    static std::string Cause(const Finding& finding) { return Text(finding, "cause"); }
};

TEST_F(ClientChecksTest, ClientThatIsWellIsTold) {
    EXPECT_EQ(RunForOne(CheckKey).severity, Severity::Success);
    const Finding client = RunForOne(CheckCredentials);
    EXPECT_EQ(client.severity, Severity::Success);
    EXPECT_EQ(Text(client, "client"), "c1");
    EXPECT_EQ(Text(client, "services"), "1");
    const Finding service = RunForOne(CheckServices);
    EXPECT_EQ(service.severity, Severity::Success);
    EXPECT_EQ(Text(service, "id"), "svc-guid");
}

TEST_F(ClientChecksTest, MachineWithoutClientsIsFine) {
    std::filesystem::remove_all(folder / (Security + "/Components"));
    std::filesystem::remove_all(folder / "Quennet/Keys");
    for (auto* check : {CheckKey, CheckCredentials, CheckServices})
        EXPECT_EQ(RunForOne(check).severity, Severity::Success);
}

TEST_F(ClientChecksTest, NamesWithASolidusAreFoundWhereTheyLie) {
    EnrollClient("a/b");
    EnrollClient("Services");
    folder.Write(Security + "/Components/a/b/Services/x/y.config", R"({"Version": "1.0", "Guid": "g"})");
    const Findings clients = Run(CheckCredentials);
    ASSERT_EQ(clients.size(), 3u);
    EXPECT_EQ(Text(clients[0], "client"), "Services");
    EXPECT_EQ(Text(clients[1], "client"), "a/b");
    const Findings services = Run(CheckServices);
    ASSERT_EQ(services.size(), 2u);
    EXPECT_EQ(Text(services[0], "client"), "a/b");
    EXPECT_EQ(Text(services[0], "service"), "x/y");
}

TEST_F(ClientChecksTest, FolderOfAClientThatWentIsNoClient) {
    std::filesystem::remove_all(folder / (Security + "/Components/c1/Services"));
    std::filesystem::remove(folder / Credentials);
    EXPECT_EQ(RunForOne(CheckCredentials).message, "No client is enrolled here");
}

TEST_F(ClientChecksTest, OneOfSeveralThatCannotBeDecipheredIsDamaged) {
    EnrollClient("c2");
    Bend(Credentials);
    Age(Credentials);
    const Findings findings = Run(CheckCredentials);
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0].severity, Severity::Success);
    EXPECT_EQ(findings[1].severity, Severity::Error);
    EXPECT_EQ(Cause(findings[1]), "damaged");
    EXPECT_EQ(findings[1].remedy, EnrollCommand("c1"));
}

TEST_F(ClientChecksTest, AllThatCannotBeDecipheredAreOfACloneUnlessTheKeyIsYounger) {
    EnrollClient("c2");
    machineId.id = "another machine";
    for (const Finding& finding : Run(CheckCredentials))
        EXPECT_EQ(Cause(finding), "cloned");
    Age(Credentials);
    for (const Finding& finding : Run(CheckCredentials))
        EXPECT_EQ(Cause(finding), Text(finding, "client") == "c1" ? "key-lost" : "cloned");
}

TEST_F(ClientChecksTest, TheOnlyOneThatCannotBeDecipheredIsOneOrTheOther) {
    Bend(Credentials);
    EXPECT_EQ(Cause(RunForOne(CheckCredentials)), "damaged-or-cloned");
    folder.Write(Credentials, "");
    EXPECT_EQ(Cause(RunForOne(CheckCredentials)), "damaged");
    EXPECT_EQ(RunForOne(CheckCredentials).remedy, EnrollCommand("c1"));
}

TEST_F(ClientChecksTest, WhatIsNoFileGoesBeforeTheClientIsEnrolledAnew) {
    std::filesystem::remove(folder / Credentials);
    std::filesystem::create_directory(folder / Credentials);
    const Finding finding = RunForOne(CheckCredentials);
    EXPECT_EQ(Cause(finding), "no-file");
    EXPECT_EQ(finding.remedy, "rm -rf -- " + (folder / Credentials) + " && " + EnrollCommand("c1"));
    EXPECT_EQ(RunForOne(CheckKey).severity, Severity::Success);
}

TEST_F(ClientChecksTest, KeyThatIsLostTakesAllCredentialsWithIt) {
    EnrollClient("c2");
    std::filesystem::remove(folder / Key);
    const Finding key = RunForOne(CheckKey);
    EXPECT_EQ(key.severity, Severity::Error);
    EXPECT_EQ(key.remedy, EnrollCommand("c1") + " && " + EnrollCommand("c2"));
    for (const Finding& finding : Run(CheckCredentials))
        EXPECT_EQ(Cause(finding), "key-lost");
    EXPECT_FALSE(std::filesystem::exists(folder / Key));
}

TEST_F(ClientChecksTest, KeyThatIsDamagedGoesFirst) {
    folder.Write(Key, "short");
    const Finding key = RunForOne(CheckKey);
    EXPECT_EQ(key.severity, Severity::Error);
    EXPECT_EQ(key.remedy, "rm -rf -- " + (folder / Key) + " && " + EnrollCommand("c1"));
    EXPECT_EQ(Cause(RunForOne(CheckCredentials)), "key-damaged");
}

TEST_F(ClientChecksTest, KeyThatOthersMayUseIsClosedToThemAndTheClientsStay) {
    Chmod(Key, 0640);
    const std::string chmod = "chmod 600 -- " + (folder / Key);
    EXPECT_EQ(RunForOne(CheckKey).severity, Severity::Error);
    EXPECT_EQ(RunForOne(CheckKey).remedy, chmod);
    EXPECT_EQ(RunForOne(CheckCredentials).remedy, chmod);
    EXPECT_EQ(Cause(RunForOne(CheckCredentials)), "key-not-private");
    inspection.owners[folder / Key] = 4711;
    EXPECT_EQ(RunForOne(CheckKey).remedy,
              "chown " + std::to_string(inspection.User()) + " -- " + (folder / Key) + " && " + chmod);
}

TEST_F(ClientChecksTest, IdentityThatCannotBeReadIsAnErrorWithOrWithoutAKey) {
    const std::string anew =
        "rm -rf -- /etc/machine-id && tr -d - < /proc/sys/kernel/random/uuid > /etc/machine-id && chmod 444 "
        "-- /etc/machine-id";
    machineId.error = ENOENT;  // as behind a link that leads nowhere
    Finding key = RunForOne(CheckKey);
    EXPECT_EQ(key.severity, Severity::Error);
    EXPECT_FALSE(key.isUndecided);
    EXPECT_EQ(key.remedy, anew + " && " + EnrollCommand("c1"));
    EXPECT_THAT(key.message,
                HasSubstr("/etc/machine-id, the machine's identity, cannot be read, with error 2"));
    const Finding client = RunForOne(CheckCredentials);
    EXPECT_EQ(Cause(client), "key-out-of-reach");
    EXPECT_FALSE(client.isUndecided);
    EXPECT_EQ(client.remedy, EnrollCommand("c1"));
    std::filesystem::remove_all(folder / (Security + "/Components"));
    std::filesystem::remove(folder / Key);
    key = RunForOne(CheckKey);
    EXPECT_EQ(key.severity, Severity::Error) << "enroll-client would fail behind the enrolment";
    EXPECT_EQ(key.remedy, anew);
}

TEST_F(ClientChecksTest, KeyThatCannotBeReadNowIsSetAside) {
    inspection.keyVerdict = Platform::KeyState::Verdict::OutOfReach;
    inspection.keyError = EIO;
    const Finding key = RunForOne(CheckKey);
    EXPECT_EQ(key.severity, Severity::Error);
    EXPECT_FALSE(key.isUndecided);
    const std::string path = folder / Key;
    EXPECT_EQ(key.remedy, "mv -- " + path + " " + path + ".unreadable && " + EnrollCommand("c1"));
}

TEST_F(ClientChecksTest, KeyOrIdentityThatTheUserMayNotReadLeavesItOpen) {
    using Verdict = Platform::KeyState::Verdict;
    machineId.id = "another machine";
    inspection.keyError = FakeInspection::Forbidden;
    for (const Verdict verdict : {Verdict::OutOfReach, Verdict::NoIdentity}) {
        inspection.keyVerdict = verdict;
        for (const Finding& finding : {RunForOne(CheckKey), RunForOne(CheckCredentials)}) {
            EXPECT_EQ(finding.severity, Severity::Error);
            EXPECT_TRUE(finding.isUndecided);
            EXPECT_EQ(finding.remedy, "sudo ombry-doctor");
        }
    }
}

TEST_F(ClientChecksTest, RecordWithoutItsClientIsAWarning) {
    std::filesystem::remove(folder / Credentials);
    const Finding finding = RunForOne(CheckServices);
    EXPECT_EQ(finding.severity, Severity::Warning);
    EXPECT_EQ(finding.remedy, "Ombry.SecClientConfig unenroll-service -u USER -p PASSWORD -on c1 -s svc");
    folder.Write(Record, "damaged");
    EXPECT_EQ(RunForOne(CheckServices).remedy, "rm -rf -- " + (folder / Record));
}

TEST_F(ClientChecksTest, RecordThatIsDamagedIsMadeAnewBehindAFreshSearch) {
    for (const std::string content : {"", "{\"Version\": \"1.0\", \"Gu", "[]"}) {
        folder.Write(Record, content);
        const Finding finding = RunForOne(CheckServices);
        EXPECT_EQ(finding.severity, Severity::Error) << content;
        EXPECT_EQ(finding.remedy,
                  "rm -rf -- " + (folder / (Caches + "finder_cache")) +
                      " && Ombry.SecClientConfig enroll-service -u USER -p PASSWORD -owner c1 -name svc -url "
                      "URL -namespace NAMESPACE -hostname HOST");
    }
}

TEST_F(ClientChecksTest, RecordThatTheToolTakesAndOthersDoNotIsAWarning) {
    for (const std::string content : {"{}", R"({"Version": "1.0", "Guid": ""})", R"({"Guid": "g"})"}) {
        folder.Write(Record, content);
        EXPECT_EQ(RunForOne(CheckServices).severity, Severity::Warning) << content;
    }
}

TEST_F(ClientChecksTest, NoSecretIsTold) {
    for (auto* check : {CheckKey, CheckCredentials, CheckServices}) {
        for (const Finding& finding : Run(check)) {
            for (const auto& [key, value] : finding.pairs)
                EXPECT_THAT(Text(finding, key),
                            testing::Not(testing::AnyOf(HasSubstr(Secret), HasSubstr("c1-id"))));
            EXPECT_THAT(finding.message, testing::Not(HasSubstr(Secret)));
        }
    }
}

}  // namespace
}  // namespace Ombry::Tests
