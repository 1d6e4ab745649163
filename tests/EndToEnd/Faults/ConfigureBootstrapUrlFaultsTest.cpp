// `configure-bootstrap-url` killed at each change of a file, and with each of its system calls failing in
// turn.

#include "tests/EndToEnd/Faults/DoctorsWord.h"
#include "tests/EndToEnd/Faults/Strace.h"
#include "tests/EndToEnd/Sandbox.h"

#include <atomic>

namespace Ombry::Tests {
namespace {

/// Below Wine a wait can take one request more than in the run that was traced.
const bool IsCountedLoosely = ToolUnderTest::IsForWindows();

/// The whole state of a machine that another service was configured on before.
class ConfigureBootstrapUrlFaultsTest : public testing::Test {
protected:
    Words Configure() const {
        return {"configure-bootstrap-url", "-u", "admin", "-p", "secret", "-dn", "New", "-r", newer.Url()};
    }
    Words ConfigureEarlier() const {
        return {"configure-bootstrap-url", "-t", "t", "-dn", "Old", "-r", older.Url()};
    }

    /// Every change that a run on an empty or on a configured machine makes.
    std::vector<TracedCall> Changes(bool configured) const {
        const Machine machine{};
        if (configured) machine.Run(ConfigureEarlier());
        return ChangesOf(machine, Configure());
    }

    /// Every system call of a run on a configured machine that `wanted` wants.
    std::vector<TracedCall> Calls(const std::function<bool(const TracedCall&)>& wanted) const {
        const Machine machine{};
        machine.Run(ConfigureEarlier());
        std::vector<TracedCall> calls;
        for (const TracedCall& call : TraceOf(machine, Configure())) {
            if (wanted(call)) calls.push_back(call);
        }
        return calls;
    }

    /// Runs `check` for each call, on a machine of its own; two at a time, but for Windows, all machines of
    /// which have one store.
    void ForEach(const std::vector<TracedCall>& calls, bool configured,
                 const std::function<void(const Machine&, const TracedCall&)>& check) const {
        std::atomic<std::size_t> next = 0;
        const auto work = [&] {
            for (std::size_t i; (i = next++) < calls.size();) {
                const Machine machine{};
                if (configured) ExpectSuccess(machine.Run(ConfigureEarlier()));
                check(machine, calls[i]);
            }
        };
        std::thread second;
        if (!ToolUnderTest::IsForWindows()) second = std::thread(work);
        work();
        if (second.joinable()) second.join();
    }

    /// Whichever of the two services the machine is tied to, if it is to one.
    static void ExpectTruth(const Machine& machine) {
        DoctorsWord::ExpectTruth(machine, {"enroll-client", "-t", "t", "-nn", "next"});
    }

    /// Each file is the earlier one or the new one, whole. Beside them stands at most one that has not got
    /// its name yet.
    void ExpectWholeFiles(const Machine& machine, bool configured, const std::string& when) const {
        const Tree before = configured ? ConfiguredTree(older.Url(), "old", older.Certificate()) : Tree();
        const Tree after = ConfiguredTree(newer.Url(), "new", newer.Certificate());
        int temporaries = 0;
        for (const auto& [path, content] : machine.Files()) {
            if (IsTemporary(path)) {
                ++temporaries;
                continue;
            }
            const bool isOld = before.count(path) && before.at(path) == content;
            const bool isNew = after.count(path) && after.at(path) == content;
            const bool isUnnamed =
                path == NewCertificate() && content == "600 " + StoredCertificate(newer.Certificate(), "");
            EXPECT_TRUE(isOld || isNew || isUnnamed) << when << "\n" << path << ": " << content;
        }
        EXPECT_LE(temporaries, 1) << when;
    }
    std::string NewCertificate() const { return StoreFolder + "/" + FingerprintOf(newer.Certificate()); }
    /// The machine exactly as a run without faults leaves it.
    void ExpectConfigured(const Machine& machine, const std::string& when) const {
        EXPECT_EQ(machine.Files(), ConfiguredTree(newer.Url(), "new", newer.Certificate())) << when;
    }

    Sandbox older{Words{"--datacenter", "old=Old", "--install-token", "t"}};
    Sandbox newer{Words{"--datacenter", "new=New", "--install-token", "t"}};
};

TEST_F(ConfigureBootstrapUrlFaultsTest, KilledAtAnyChangeOfAFileLeavesEachFileWholeAndTheNextRunWorks) {
    for (const bool configured : {false, true}) {
        if (!configured && ToolUnderTest::IsForWindows())
            continue;  // slow, and of the other no more than a part
        const std::vector<TracedCall> calls = Changes(configured);
        ASSERT_GT(calls.size(), ToolUnderTest::IsForWindows() ? 14u : 20u);
        std::atomic<std::size_t> killed = 0;
        ForEach(calls, configured, [&](const Machine& machine, const TracedCall& call) {
            const int exitCode = RunWithFate(machine, call, "signal=KILL", Configure()).exitCode;
            EXPECT_TRUE(exitCode == 137 || (IsCountedLoosely && exitCode == 0)) << exitCode << call.line;
            killed += exitCode == 137;
            ExpectWholeFiles(machine, configured, call.line);
            ExpectTruth(machine);
            ExpectSuccess(machine.Run(Configure()));
            ExpectConfigured(machine, call.line);
        });
        EXPECT_GT(killed, calls.size() / 2);
    }
}

TEST_F(ConfigureBootstrapUrlFaultsTest, SyncsEachNewFileThenItsFolder) {
    const Machine machine{};
    std::vector<std::string> synced;
    for (const TracedCall& call : TraceOf(machine, Configure())) {
        static const std::regex path("fsync\\([0-9]+<(.*)>\\).*");
        std::smatch found;
        if (!std::regex_match(call.line, found, path)) continue;
        const std::string name =
            std::filesystem::path(found[1].str()).lexically_relative(machine.Folder().Path());
        synced.push_back(
            IsTemporary("/" + name) ? std::filesystem::path(name).parent_path().string() + "/file" : name);
    }
    const std::vector<std::string> expected{SecurityFolder + "/file", SecurityFolder,
                                            SecurityFolder + "/CS/file", SecurityFolder + "/CS"};
    auto at = synced.begin();
    for (const std::string& name : expected) {
        at = std::find(at, synced.end(), name);
        EXPECT_NE(at, synced.end()) << name << ": " << testing::PrintToString(synced);
    }
    EXPECT_GE(std::count(synced.begin(), synced.end(), "Quennet"), 1);  // holds a new folder
}

/// Whether a call touches files or the network, after the program is loaded.
bool CanFail(const TracedCall& call) {
    static const std::regex network(
        "socket|setsockopt|ioctl|connect|poll|getsockopt|sendto|recvfrom|getrandom|flock|mkdir|chmod|fchmod|"
        "fallocate|fsync|rename|unlink|getdents64");
    return std::regex_match(call.name, network) ||
           (call.line.find("Quennet") != std::string::npos && call.name != "close");
}

TEST_F(ConfigureBootstrapUrlFaultsTest, AnySystemCallThatFailsEndsInATextOrInSuccessAndTheNextRunWorks) {
    const std::vector<TracedCall> calls = Calls(CanFail);
    ASSERT_GT(calls.size(), 60u);
    ForEach(calls, true, [&](const Machine& machine, const TracedCall& call) {
        const ProcessOutcome outcome = RunWithFate(machine, call, "error=EIO", Configure());
        if (outcome.exitCode == 0) {
            EXPECT_EQ(outcome.error, "") << call.line;
            // What fails once a file is open goes unreported, and a temporary file that cannot be removed
            // stays for the next run; nothing else does.
            static const std::regex unreported("write|fsync|unlink");
            if (!std::regex_match(call.name, unreported)) ExpectConfigured(machine, call.line);
        } else {
            EXPECT_EQ(outcome.exitCode, 255) << call.line;
            EXPECT_EQ(outcome.error.find("Caught exception: "), 0u) << call.line << outcome.error;
            EXPECT_EQ(outcome.error.find('\n'), outcome.error.size() - 1) << call.line << outcome.error;
        }
        EXPECT_EQ(outcome.out, "") << call.line;
        ExpectWholeFiles(machine, true, call.line);
        ExpectTruth(machine);
        ExpectSuccess(machine.Run(Configure()));
        ExpectConfigured(machine, call.line);
    });
}

TEST_F(ConfigureBootstrapUrlFaultsTest, NetworkThatIsCutAtAnySendOrReceiveIsSurvivedOrNamed) {
    // What Wine receives it asks its own process for by the same call, and is lost without the answer.
    const auto onWire = [](const TracedCall& call) {
        if (ToolUnderTest::IsForWindows())
            return call.name == "sendmsg" && call.line.find("<TCP:") != std::string::npos;
        return call.name == "sendto" || call.name == "recvfrom";
    };
    const std::vector<TracedCall> calls = Calls(onWire);
    ASSERT_GT(calls.size(), ToolUnderTest::IsForWindows() ? 4u : 8u);
    ForEach(calls, true, [&](const Machine& machine, const TracedCall& call) {
        const ProcessOutcome outcome = RunWithFate(machine, call, "error=ECONNRESET", Configure());
        if (outcome.exitCode == 0) {
            // The request went out once more on a new connection.
            ExpectConfigured(machine, call.line);
        } else {
            ExpectException(outcome, "Unable to connect to " + newer.HostAndPort() + " due to error 11");
            EXPECT_EQ(machine.Files(), ConfiguredTree(older.Url(), "old", older.Certificate())) << call.line;
        }
        ExpectTruth(machine);
    });
}

TEST_F(ConfigureBootstrapUrlFaultsTest, SignalsThatInterruptAnyCallDoNoHarm) {
    const std::vector<TracedCall> calls = Calls([](const TracedCall& call) {
        static const std::regex names("connect|poll|sendto|recvfrom|openat|read|write|fsync|flock|fallocate");
        return std::regex_match(call.name, names) &&
               (call.line.find("Quennet") != std::string::npos ||
                call.line.find("socket") != std::string::npos || call.name == "poll");
    });
    ASSERT_GT(calls.size(), 30u);
    ForEach(calls, true, [&](const Machine& machine, const TracedCall& call) {
        const ProcessOutcome outcome = RunWithFate(machine, call, "error=EINTR", Configure());
        // Without a signal behind it, the connect that the system says was interrupted never began.
        if (call.name == "connect") return;
        EXPECT_EQ(outcome.error, "") << call.line;
        EXPECT_EQ(outcome.exitCode, 0) << call.line;
        ExpectConfigured(machine, call.line);
    });
}

TEST(HostOptionTest, HostWithoutAPortIsAskedOnTheOneOfTheService) {
    const Machine machine{};
    // The connection fails before anything is sent, so it does not matter what listens there.
    const ProcessOutcome outcome =
        machine.RunBelow({"strace", "-qq", "-o", machine.Folder() / "trace", "-e", "trace=connect", "-e",
                          "inject=connect:error=ECONNREFUSED"},
                         {"configure-bootstrap-url", "-t", "t", "-d", "i", "-h", "127.0.0.1"});

    ExpectException(outcome, "Error 11.0");
    const std::string trace = machine.Folder().Read("trace");
    EXPECT_NE(trace.find("sin_port=htons(8181), sin_addr=inet_addr(\"127.0.0.1\")"), std::string::npos)
        << trace;
}

}  // namespace
}  // namespace Ombry::Tests
