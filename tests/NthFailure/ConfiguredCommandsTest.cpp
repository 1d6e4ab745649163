// The five commands of a configured machine with each allocation, each start of a thread and each call of the
// platform failing: the command ends, says so, and leaves a machine on which it can be run again.

#include "tests/Fakes/Linux/MemorySecurityFramework.h"
#include "tests/Fakes/MemoryServiceRecords.h"
#include "tests/NthFailure/FailingPlatform.h"
#include "tests/NthFailure/QuickestServer.h"
#include "tests/NthFailure/StarvedRun.h"
#include "tests/Ombry.SecClientConfig/ConfiguredMachine.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <algorithm>
#include <functional>

namespace Ombry::Tests {
namespace {

using Texts = std::vector<std::string>;

const std::string Address = Security + "/ombrysecurity.config";
const std::string Datacenter = Security + "/CS/datacenterid.config";
const std::string RecordFile = Security + "/Components/c1/Services/Svc.config";
const std::string NewCredentials = Security + "/Components/New/ombrycomponent.config";
const std::string Credentials = Security + "/Components/c1/ombrycomponent.config";

class ConfiguredWorld {
public:
    ConfiguredWorld() : ConfiguredWorld("certificate", std::nullopt) {}
    /// The service shows the certificate that the machine trusts.
    explicit ConfiguredWorld(const TlsServerRecipe& server)
        : ConfiguredWorld(DerOf(server.certificate), server) {}

    void PutRecord() {
        memory.PutService("g-1");
        machine.files.Put(RecordFile, "{\"Version\": \"1.0\", \"Guid\": \"g-1\"}");
    }
    bool Has(const std::string& file) const { return machine.files.Exists(file); }
    bool KnowsService() const {
        return Has(RecordFile) &&
               memory.Services() == std::set{MemoryServiceRecords::Between(*machine.files.Content(RecordFile),
                                                                           "\"Guid\": \"")};
    }
    /// Nothing was removed, neither here nor at the service.
    bool StandsAsBefore() const {
        return Has(Credentials) && memory.Clients().contains("c1-id") &&
               Has(RecordFile) == !memory.Services().empty();
    }
    bool KnowsNewClient() const {
        return Has(NewCredentials) &&
               memory.Clients().contains(decltype(machine)::Store()->Load("New")->GetClientId());
    }

    /// What the machine has changed since then, and what the service knows, as a hash.
    std::size_t StateSince(const std::map<std::string, std::string>& before) const {
        std::string text;
        for (const auto& [path, content] : machine.files.Contents()) {
            const auto old = before.find(path);
            text += path + (old != before.end() && old->second == content ? "=" : content) + "\n";
        }
        for (const auto& known : {memory.Clients(), memory.Services()}) {
            for (const std::string& id : known)
                text += id + "\n";
            text += "\n";
        }
        return std::hash<std::string>()(text);
    }

    MemoryServiceRecords memory;
    ConfiguredMachineOn<MemorySecurityFramework> machine;
    JumpingClock clock;
    FailingPlatform platform{{.files = true, .sockets = true}};

private:
    ConfiguredWorld(const std::string& certificate, const std::optional<TlsServerRecipe>& server)
        : machine(certificate, server) {
        machine.web.first = [this](const std::string& request) { return memory.Answer(request); };
    }
};

/// One command, the state that it begins with, and how one sees that it was done.
struct Subject {
    Texts words;
    std::function<void(ConfiguredWorld&)> prepare;
    std::function<bool(const ConfiguredWorld&)> isDone;
    bool takesItsIdentity = false;
    /// What can't be loaded counts as not enrolled from here: on purpose, there is nothing to do then.
    bool mayFindNothing = false;
    bool protects = false;  ///< and so is to lack the crypto library's memory as well
    /// What it says where it is sent once more, and the first time had arrived.
    std::string saysOfTheSecond{};
};

void FailEverywhereOf(const Subject& subject) {
    // States, as hashes, that the next run was seen to mend. They are not to be taken for lost memory.
    std::vector<std::size_t> proven;
    proven.reserve(10000);
    std::set<std::string> stated{"Caught exception: No IServiceResponse from any servers.\n",
                                 "Caught exception: Operation timed out.\n"};
    if (!subject.saysOfTheSecond.empty())
        stated.insert("Caught exception: " + subject.saysOfTheSecond + "\n");
    const auto onceIn = [&](ConfiguredWorld&& world, const NthFailure::Plan& plan) {
        subject.prepare(world);
        const auto before = world.machine.files.Contents();

        const StarvedRun run = RunStarved(subject.words, plan);

        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.exitCode, run.error.empty() ? 0 : -1) << run.error;
        ExpectStatedIfCut(plan, run, stated);
        if (run.exitCode == 0 && !world.platform.HasFailedUnseen()) {
            EXPECT_TRUE(subject.isDone(world) || (subject.mayFindNothing && world.StandsAsBefore()));
            return run.happened;
        }
        EXPECT_TRUE(run.exitCode == 0 || run.error.starts_with("Caught exception: ")) << run.error;
        for (const std::string& file : {Address, Datacenter, Credentials}) {
            if (subject.takesItsIdentity && file == Credentials) continue;
            EXPECT_EQ(world.machine.files.Content(file), before.at(file));
        }
        if (const std::size_t state = world.StateSince(before); std::ranges::count(proven, state) > 0) {
            return run.happened;
        } else {
            proven.push_back(state);
        }
        // What the service has done already, an administrator does at the machine.
        const bool isForgotten = subject.takesItsIdentity && !world.memory.Clients().contains("c1-id");
        const ToolRun again =
            Tool(isForgotten ? Texts{"unenroll-client", "-t", "t", "-un", "c1"} : subject.words);
        EXPECT_EQ(again.error, "") << "after " << run.error;
        EXPECT_TRUE(subject.isDone(world));
        return run.happened;
    };
    const auto once = [&](const NthFailure::Plan& plan) { return onceIn(ConfiguredWorld(), plan); };
    const auto onceOverTls = [&](const NthFailure::Plan& plan) {
        return onceIn(ConfiguredWorld(QuickestServer(1)), plan);
    };
    FailEverywhere(0, once);
    onceOverTls({});
    FailEachByte(0, TlsWidth, onceOverTls);
    if (subject.protects) FailEach(NthFailure::Of::CryptoAllocation, 0, once);
}

TEST(NthFailureOfConfiguredCommandsTest, ClientIsEnrolledOrTheNextRunEnrollsIt) {
    FailEverywhereOf({.words = {"enroll-client", "-n", "c1", "-nn", "New"},
                      .prepare = [](ConfiguredWorld&) {},
                      .isDone = [](const ConfiguredWorld& world) { return world.KnowsNewClient(); },
                      .protects = true,
                      .saysOfTheSecond = "EnrollClient: unexpected http status 409 body = ''"});
}

TEST(NthFailureOfConfiguredCommandsTest, ServiceIsEnrolledOrTheNextRunEnrollsIt) {
    FailEverywhereOf({.words = {"enroll-service", "-n", "c1", "-owner", "c1", "-name", "Svc", "-url",
                                "https://h:1/x", "-namespace", "ns", "-hostname", "h"},
                      .prepare = [](ConfiguredWorld& world) { world.PutRecord(); },
                      .isDone = [](const ConfiguredWorld& world) { return world.KnowsService(); },
                      .saysOfTheSecond = "EnrollService: unexpected http status 409 body = ''"});
}

TEST(NthFailureOfConfiguredCommandsTest, ServiceIsRemovedOrTheNextRunRemovesIt) {
    FailEverywhereOf({{"unenroll-service", "-n", "c1", "-on", "c1", "-s", "Svc"},
                      [](ConfiguredWorld& world) { world.PutRecord(); },
                      [](const ConfiguredWorld& world) {
                          return !world.Has(RecordFile) && world.memory.Services().empty();
                      },
                      false,
                      true});
}

const auto ClientIsGone = [](const ConfiguredWorld& world) {
    return !world.Has(Credentials) && world.memory.Clients().empty();
};

TEST(NthFailureOfConfiguredCommandsTest, ClientIsRemovedOrTheNextRunRemovesIt) {
    FailEverywhereOf(
        {{"unenroll-client", "-t", "t", "-un", "c1"}, [](ConfiguredWorld&) {}, ClientIsGone, true, true});
}

TEST(NthFailureOfConfiguredCommandsTest, ClientThatRemovesItselfIsRemovedByItOrByAnAdministrator) {
    FailEverywhereOf({.words = {"unenroll-client-self", "-n", "c1"},
                      .prepare = [](ConfiguredWorld&) {},
                      .isDone = ClientIsGone,
                      .takesItsIdentity = true,
                      .saysOfTheSecond = "DeleteClient: unexpected http status 401 body = ''"});
}

}  // namespace
}  // namespace Ombry::Tests
