// The program itself: what it asks of the system, and whom it connects to.

#include "tests/Doctor/EndToEnd/Patient.h"
#include "tests/Doctor/SilentPort.h"
#include "tests/Fakes/HeldPort.h"
#include "tests/Fakes/LeftOut.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <thread>

namespace Ombry::Tests {
namespace {

using testing::HasSubstr;

class DoctorProcessTest : public testing::Test {
protected:
    void TieToTheSandbox() {
        ExpectSuccess(
            machine.Run({"configure-bootstrap-url", "-t", "t", "-dn", "Sandbox", "-r", sandbox.Url()}));
        ExpectSuccess(machine.Run({"enroll-client", "-u", "admin", "-p", "secret", "-nn", "c1"}));
    }
    /// The lines of a trace of the doctor.
    Words Trace(const Words& options) const {
        Words words{"strace", "-f", "-qq", "-o", machine.Folder() / "trace", OMBRY_DOCTOR_HERE};
        words.insert(words.end(), options.begin(), options.end());
        RunProcess(words, {.folder = machine.Folder().Path()});
        std::istringstream text(machine.Folder().Read("trace"));
        std::filesystem::remove(machine.Folder() / "trace");
        Words lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }

    const Sandbox sandbox{Words{"--install-token", "t", "--client-rights", "enroll-clients"}};
    const Machine machine{};
};

TEST_F(DoctorProcessTest, NeitherWritesNorLocksAndConnectsOnlyIfAsked) {
    TieToTheSandbox();
    machine.Folder().Write(SecurityFolder + "/.ombry-0123456789abcdef.tmp", "left");
    machine.Folder().Write("Quennet/Keys/.ombry-0123456789abcdef.tmp", "left");
    machine.Folder().Write(SecurityFolder + "/CS-cpp/cache/c1/v1-service.cache-s", "left");
    const Tree before = machine.Files();
    int reads = 0;
    static const std::regex changes(
        "O_WRONLY|O_RDWR|O_CREAT|O_TRUNC|F_SETLK|F_OFD_SETLK| "
        "(mkdir|rmdir|rename|unlink|link|symlink|chmod|fchmod|chown|fchown|utime|ftruncate|fallocate|flock|"
        "mknod)[a-z0-9]*\\(");
    static const std::regex connections(" (socket|connect)\\(");
    for (const Words& options : {Words{}, Words{"--json"}, Words{"--check"}, Words{"--connect"}}) {
        const bool mayConnect = options == Words{"--connect"};
        bool connects = false;
        for (const std::string& line : Trace(options)) {
            reads += line.find("O_RDONLY") != std::string::npos && line.find("Quennet") != std::string::npos;
            EXPECT_FALSE(std::regex_search(line, changes)) << line;
            connects |= std::regex_search(line, connections);
        }
        EXPECT_EQ(connects, mayConnect) << testing::PrintToString(options);
    }
    EXPECT_GT(reads, 30);
    EXPECT_EQ(machine.Files(), before);
}

TEST_F(DoctorProcessTest, ServiceThatAnswersWithTheTrustedKeyIsTold) {
    TieToTheSandbox();
    const ProcessOutcome outcome =
        RunProcess({OMBRY_DOCTOR_HERE, "--connect"}, {.folder = machine.Folder().Path()});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("connect.server       " + sandbox.Url() + ": resolved in "));
    EXPECT_THAT(outcome.out, HasSubstr("its key is the trusted one; its certificate ends in 36"));
}

TEST_F(DoctorProcessTest, ServiceWithAnotherKeyIsCriticalUntilTheMachineIsTiedAgain) {
    const Sandbox other{Words{"--install-token", "t"}};
    ExpectSuccess(machine.Run({"configure-bootstrap-url", "-t", "t", "-dn", "Sandbox", "-r", other.Url()}));
    machine.Folder().Write(SecurityFolder + "/ombrysecurity.config",
                           "{\"ssdsUri\": \"" + sandbox.Url() + "\"}");
    RunProcess({"touch", machine.Folder() / DatacenterFile});
    RunProcess({"chmod", "-R", "go=", machine.Folder() / "Quennet"});
    EXPECT_TRUE(Examine(machine.Folder().Path()).IsFine());

    const Verdict verdict = Examine(machine.Folder().Path(), {"--connect"});
    EXPECT_TRUE(verdict.Says("connect.server", "critical")) << verdict.Text();
    // It would try again and again, for five minutes.
    EXPECT_EQ(CopiedMachine(machine.Folder().Path())
                  .RunBelow({"timeout", "2"}, {"enroll-client", "-t", "t", "-nn", "c"})
                  .exitCode,
              124);

    TypeRemedies(machine.Folder().Path(), verdict, sandbox.Url());
    EXPECT_TRUE(Examine(machine.Folder().Path(), {"--connect"}).IsFine());
    ExpectSuccess(machine.Run({"enroll-client", "-t", "t", "-nn", "c"}));
}

TEST_F(DoctorProcessTest, CertificateWhoseKeyWasChangedIsCriticalUntilTheMachineIsTiedAgain) {
    TieToTheSandbox();
    ExpectSuccess(machine.Run({"enroll-client", "-t", "t", "-nn", "c"}));
    machine.Folder().Write(StoreFolder + "/" + FingerprintOf(sandbox.Certificate()),
                           StoredCertificate(Bent(sandbox.Certificate(), true)));
    const Verdict verdict = Examine(machine.Folder().Path());
    EXPECT_TRUE(verdict.Says("trust.certificate", "critical")) << verdict.Text();
    // What was found before serves for a while.
    const CopiedMachine later(machine.Folder().Path());
    later.Remove(CacheFolder + "/finder_cache");
    EXPECT_EQ(later.RunBelow({"timeout", "2"}, {"enroll-client", "-t", "t", "-nn", "d"}).exitCode, 124);

    TypeRemedies(machine.Folder().Path(), verdict, sandbox.Url());
    EXPECT_TRUE(Examine(machine.Folder().Path(), {"--connect"}).IsFine());
    const CopiedMachine mended(machine.Folder().Path());
    mended.Remove(CacheFolder + "/finder_cache");
    ExpectSuccess(mended.Run({"enroll-client", "-t", "t", "-nn", "d"}));
}

TEST_F(DoctorProcessTest, ListOfServersHelpsWhoseItIsAndWhoKeepsItForThisService) {
    TieToTheSandbox();
    const auto caches = machine.Folder().Path() + "/" + SecurityFolder + "/CS-cpp/cache";
    const std::string list = caches + "/v1-service.cache-p";
    const std::string bootstrap = SecurityFolder + "/ombrysecurity.config";
    std::string gone = RefusingUrl();  // of the scheme of the service
    gone.replace(0, gone.find(':'), "https");
    const auto enrollsWith = [&](const Words& identity, const char* seconds) {
        Words words{"enroll-client", "-nn", "new"};
        words.insert(words.end(), identity.begin(), identity.end());
        const CopiedMachine copy(machine.Folder().Path());
        copy.Remove(SecurityFolder + "/CS-cpp/cache/finder_cache");  // whose searches would still serve
        const ProcessOutcome outcome = copy.RunBelow({"timeout", seconds}, words);
        EXPECT_EQ(outcome.error, "");
        return outcome.exitCode;
    };
    const std::string known = machine.Folder().Read(SecurityFolder + "/CS-cpp/cache/v1-service.cache-p");
    std::smatch certificate;
    ASSERT_TRUE(std::regex_search(known, certificate, std::regex("\"endpointCert\": *(\"[^\"]*\")")));
    const auto server = [&](const std::string& url) {
        return "{\"serviceName\": \"v1-service\", \"endpointUrl\": \"" + url +
               "\", \"endpointCert\": " + certificate[1].str() + "}";
    };
    // The service has gone from its address; the list that was kept knows nothing of the new tie.
    machine.Folder().Write(bootstrap, "{\"ssdsUri\": \"" + gone + "\"}");
    RunProcess({"touch", machine.Folder() / DatacenterFile});

    Verdict verdict = Examine(machine.Folder().Path(), {"--only", "connect", "--connect"});
    EXPECT_TRUE(verdict.Says("connect.server", "critical")) << "another service's list" << verdict.Text();
    EXPECT_EQ(enrollsWith({"-t", "t"}, "1"), 124);

    machine.Folder().Write(
        SecurityFolder + "/CS-cpp/cache/v1-service.cache-p",
        "{\"expiryTime\": 1, \"local\": [" + server(gone) + "," + server(sandbox.Url()) + "]}");
    verdict = Examine(machine.Folder().Path(), {"--only", "connect", "--connect"});
    EXPECT_TRUE(verdict.Says("connect.server", "error")) << "c1 has no list" << verdict.Text();
    EXPECT_EQ(enrollsWith({"-t", "t"}, "20"), 0);
    EXPECT_EQ(enrollsWith({"-n", "c1"}, "1"), 124);

    std::filesystem::create_directories(caches + "/c1");
    std::filesystem::copy(list, caches + "/c1/v1-service.cache-p");
    RunProcess({"chmod", "-R", "go=", caches});
    verdict = Examine(machine.Folder().Path(), {"--only", "connect", "--connect"});
    EXPECT_EQ(verdict.exitCode, 1) << verdict.Text();
    EXPECT_EQ(enrollsWith({"-n", "c1"}, "20"), 0);

    TypeRemedies(machine.Folder().Path(), verdict, sandbox.Url());
    const Verdict mended = Examine(machine.Folder().Path(), {"--connect"});
    EXPECT_TRUE(mended.IsFine()) << verdict.Text() << "and then\n" << mended.Text();
}

TEST_F(DoctorProcessTest, DiscoveryServerThatIsGoneIsAWarningWhileAnotherAnswers) {
    TieToTheSandbox();
    const std::string list = SecurityFolder + "/CS-cpp/cache/v1-service.cache-p";
    machine.Folder().Write(list,
                           "{\"expiryTime\": 1, \"local\": [{\"endpointUrl\": \"" + RefusingUrl() + "\"}]}");
    RunProcess({"chmod", "go=", machine.Folder() / list});
    const Verdict verdict = Examine(machine.Folder().Path(), {"--connect"});
    EXPECT_EQ(verdict.exitCode, 1);
    EXPECT_THAT(verdict.Text(), HasSubstr(RefusingUrl() + ": nobody can be connected to"));
    TypeRemedies(machine.Folder().Path(), verdict, sandbox.Url());
    EXPECT_TRUE(Examine(machine.Folder().Path(), {"--connect"}).IsFine());
}

TEST_F(DoctorProcessTest, CertificatesThatEndSoonAreToldWithARemedyThatForgetsWhoShowsThem) {
    const Sandbox second{Words{"--install-token", "t"}};
    TieToTheSandbox();
    const auto certificateOf = [](const Sandbox& server) { return Base64Of(DerOf(server.Certificate())); };
    const auto entryOf = [&](const Sandbox& server) {
        return R"({"serviceName": "v1-service", "endpointUrl": ")" + server.Url() +
               R"(", "endpointCert": ")" + certificateOf(server) + "\"}";
    };
    const std::string list = SecurityFolder + "/CS-cpp/cache/v1-service.cache-p";
    machine.Folder().Write(
        list, "{\"expiryTime\": 1, \"local\": [" + entryOf(sandbox) + "," + entryOf(second) + "]}");
    RunProcess({"chmod", "go=", machine.Folder() / list});
    const Words wellAhead{"--connect", "--only", "connect", "--warn-days", "36000"};
    const std::string folder = machine.Folder().Path();
    EXPECT_TRUE(Examine(folder, {"--connect"}).IsFine()) << Examine(folder, {"--connect"}).Text();

    const Verdict verdict = Examine(folder, wellAhead);
    EXPECT_EQ(verdict.exitCode, 1);
    ASSERT_EQ(verdict.findings.size(), 2u) << verdict.Text();
    for (const Diagnosis& finding : verdict.findings) {
        EXPECT_EQ(finding.severity, "warning");
        EXPECT_THAT(finding.message, HasSubstr("is for the service's administrator to renew"));
    }
    EXPECT_THAT(verdict.findings[0].remedy, HasSubstr("configure-bootstrap-url"));
    EXPECT_THAT(verdict.findings[0].remedy, testing::EndsWith(" -r " + sandbox.Url())) << "it is known";
    EXPECT_EQ(verdict.findings[1].remedy, "rm -f -- ./" + list);
    TypeRemedies(folder, verdict, sandbox.Url());
    EXPECT_EQ(Examine(folder, wellAhead).findings.size(), 1u)
        << "the server is asked for again when it is needed";
    EXPECT_TRUE(Examine(folder, {"--connect"}).IsFine());
    ExpectSuccess(machine.Run({"enroll-client", "-t", "t", "-nn", "c2"}));

    const Verdict trust = Examine(folder, {"--only", "trust", "--warn-days", "36000"});
    EXPECT_TRUE(trust.Says("trust.certificate", "warning")) << trust.Text();
    TypeRemedies(folder, trust, sandbox.Url());
    EXPECT_TRUE(Examine(folder).IsFine()) << Examine(folder).Text();
}

TEST_F(DoctorProcessTest, ServerWithoutACertificateIsForgotten) {
    const Sandbox second{};
    TieToTheSandbox();
    const std::string folder = machine.Folder().Path();
    const std::string list = SecurityFolder + "/CS-cpp/cache/v1-service.cache-p";
    machine.Folder().Write(list,
                           "{\"expiryTime\": 1, \"local\": [{\"endpointUrl\": \"" + second.Url() + "\"}]}");
    RunProcess({"chmod", "go=", machine.Folder() / list});
    const Verdict verdict = Examine(folder, {"--connect"});
    EXPECT_EQ(verdict.exitCode, 1);
    EXPECT_THAT(verdict.Text(), HasSubstr("no certificate is known for it"));
    TypeRemedies(folder, verdict, sandbox.Url());
    EXPECT_TRUE(Examine(folder, {"--connect"}).IsFine());
}

TEST_F(DoctorProcessTest, AddressInClearTextIsTiedAgain) {
    TieToTheSandbox();
    const SilentPort plain;
    const std::string folder = machine.Folder().Path();
    for (const std::string check : {"bootstrap.address", "connect.server"}) {
        machine.Folder().Write(SecurityFolder + "/ombrysecurity.config",
                               "{\"ssdsUri\": \"http://" + plain.HostAndPort() + "\"}");
        RunProcess({"touch", machine.Folder() / DatacenterFile});
        const Verdict verdict = Examine(folder, {"--connect", "--only", check});
        EXPECT_EQ(verdict.exitCode, 1);
        EXPECT_THAT(verdict.Text(), HasSubstr("called in clear text")) << check;
        TypeRemedies(folder, verdict, sandbox.Url());
        EXPECT_TRUE(Examine(folder, {"--connect"}).IsFine()) << check;
    }
}

TEST_F(DoctorProcessTest, WhoHoldsTheCertificatesIsWaitedFor) {
    TieToTheSandbox();
    const std::string folder = machine.Folder().Path();
    const int store = open((machine.Folder() / StoreFolder).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(store, LOCK_EX), 0);
    const Verdict verdict = Examine(folder);
    EXPECT_EQ(verdict.exitCode, 1);
    EXPECT_TRUE(verdict.Says("trust.certificate", "warning")) << verdict.Text();
    std::thread typing([&] { TypeRemedies(folder, verdict, sandbox.Url()); });
    close(store);
    typing.join();
    EXPECT_TRUE(Examine(folder).IsFine());
}

TEST_F(DoctorProcessTest, KeyThatCannotBeReadIsSetAsideAndTheClientsEnrolledAnew) {
    TieToTheSandbox();
    const std::string folder = machine.Folder().Path();
    const std::string key = "Quennet/Keys/protection.key";
    const Words brokenDisk{
        "strace", "-f", "--quiet=all", "-o", "/dev/null", "-P", "./" + key, "-e", "inject=openat:error=EIO"};
    const Words use{"enroll-client", "-n", "c1", "-nn", "c2"};
    const std::string before = machine.Folder().Read(key);
    const Verdict verdict = Examine(folder, {}, brokenDisk);
    EXPECT_TRUE(verdict.Says("clients.key", "error")) << verdict.Text();
    EXPECT_NE(CopiedMachine(folder).RunBelow(brokenDisk, use).exitCode, 0);
    TypeRemedies(folder, verdict, sandbox.Url());
    EXPECT_EQ(machine.Folder().Read(key + ".unreadable"), before);
    EXPECT_NE(machine.Folder().Read(key), before);
    EXPECT_TRUE(Examine(folder).IsFine()) << Examine(folder).Text();
    ExpectSuccess(machine.Run(use));
}

TEST_F(DoctorProcessTest, WhoMayNotLookIsToldToAskAsRoot) {
    if (geteuid() != 0) return LeaveOut("the rights of another user are taken by root alone");
    TieToTheSandbox();
    const std::string folder = machine.Folder().Path();
    const Verdict verdict =
        Examine(folder, {}, {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
    EXPECT_EQ(verdict.exitCode, 3);
    EXPECT_THAT(verdict.Text(), HasSubstr("\n  sudo ombry-doctor\n"));
    TypeRemedies(folder, verdict, sandbox.Url());
}

/// Runs `act` where a change below /etc is nobody else's; says why if the system does not let it.
std::string WithAnEtcOfItsOwn(const std::function<void()>& act) {
    std::string failure;
    // Mounts are a thread's own.
    std::thread([&] {
        const TemporaryDirectory etc;
        const bool isApart = unshare(CLONE_NEWNS) == 0 &&
                             mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             RunProcess({"cp", "-a", "/etc/.", etc.Path()}).exitCode == 0 &&
                             mount(etc.Path().c_str(), "/etc", nullptr, MS_BIND, nullptr) == 0;
        if (!isApart) {
            failure = std::strerror(errno);
            return;
        }
        act();
        umount2("/etc", MNT_DETACH);
    }).join();
    return failure;
}

TEST_F(DoctorProcessTest, LostIdentityOfTheMachineIsMadeAnewAndItsClientsToo) {
    TieToTheSandbox();
    const std::string folder = machine.Folder().Path();
    const std::string failure = WithAnEtcOfItsOwn([&] {
        std::filesystem::remove("/etc/machine-id");
        std::filesystem::create_symlink("nowhere/at/all", "/etc/machine-id");
        const Words use{"enroll-client", "-n", "c1", "-nn", "c2"};
        const Verdict verdict = Examine(folder);
        EXPECT_TRUE(verdict.Says("clients.key", "error")) << verdict.Text();
        EXPECT_NE(CopiedMachine(folder).Run(use).exitCode, 0);
        TypeRemedies(folder, verdict, sandbox.Url());
        EXPECT_TRUE(Examine(folder).IsFine()) << Examine(folder).Text();
        ExpectSuccess(machine.Run(use));
    });
    if (!failure.empty()) LeaveOut("/etc cannot be mounted over: " + failure);
}

}  // namespace
}  // namespace Ombry::Tests
