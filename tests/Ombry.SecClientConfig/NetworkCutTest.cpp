// The five commands of a configured machine with the network cut at each transfer: once, so that the next
// connection works, and for good.

#include "tests/Fakes/ForwardingSockets.h"
#include "tests/Fakes/MemoryServiceRecords.h"
#include "tests/Ombry.SecClientConfig/ConfiguredMachine.h"
#include "tests/Ombry.SecClientConfig/ToolRun.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

namespace Ombry::Tests {
namespace {

using Texts = std::vector<std::string>;

/// A machine, its service and the network between them.
class World {
public:
    World() {
        machine.web.first = [this](const std::string& request) { return memory.Answer(request); };
    }

    std::string Record() const {
        return MemoryServiceRecords::Between(machine.files.Content(RecordFile).value_or("\"Guid\": \"-\""),
                                             "\"Guid\": \"");
    }
    bool Has(const std::string& file) const { return machine.files.Exists(file); }
    static std::string IdOf(const std::string& client) {
        return ConfiguredMachine::Store()->Load(client)->GetClientId();
    }
    void PutRecord(const std::string& id) {
        memory.PutService(id);
        machine.files.Put(RecordFile, "{\"Version\": \"1.0\", \"Guid\": \"" + id + "\"}");
    }

    inline static const std::string RecordFile = Security + "/Components/c1/Services/Svc.config";
    inline static const std::string NewCredentials = Security + "/Components/New/ombrycomponent.config";
    inline static const std::string Credentials = Security + "/Components/c1/ombrycomponent.config";

    MemoryServiceRecords memory;
    ForwardingSockets sockets;
    const Platform::Testing::Replace<Platform::ISockets> replacedSockets{sockets};
    ConfiguredMachine machine;
};

/// One command, and the state that it begins with.
struct Subject {
    Texts words;
    std::function<void(World&)> prepare;
};

// While discovery is out of reach a call goes on until its limit; a server out of reach ends it at once.
const std::set<std::string> OutOfReach{"Caught exception: No IServiceResponse from any servers.\n",
                                       "Caught exception: Operation timed out.\n"};

class NetworkCutTest : public testing::TestWithParam<bool> {
protected:
    /// Cuts the network at each transfer of the command, each time in a world of its own, once or for good,
    /// and calls `check` with what came of it and with the network whole again.
    void CutEverywhere(const Subject& subject, const std::function<void(World&, const ToolRun& cut)>& check) {
        std::size_t transfers = 0;
        for (bool wasCut = true; wasCut; ++transfers) {
            World world;
            subject.prepare(world);
            world.sockets.CutAfter(transfers, GetParam());
            const ToolRun run = Tool(subject.words);
            wasCut = world.sockets.WasCut();
            world.sockets.Mend();
            SCOPED_TRACE("cut after " + std::to_string(transfers) + " transfers");
            EXPECT_EQ(run.out, "");
            EXPECT_EQ(run.exitCode, run.error.empty() ? 0 : -1);
            if (!run.error.empty()) failures.insert(run.error);
            check(world, run);
        }
        EXPECT_GE(transfers, 5u);  // two calls of a send and a receive each, and the whole run
    }

    /// A run of the tool that must succeed.
    static void ExpectSuccess(const Texts& words) {
        const ToolRun run = Tool(words);
        EXPECT_EQ(run.error, "");
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.exitCode, 0);
    }

    /// A cut that is made good at once is not noticed; one that stays ends the command.
    void ExpectOnlyOutOfReach() const {
        EXPECT_EQ(failures, (GetParam() ? OutOfReach : std::set<std::string>()));
    }

    std::set<std::string> failures;  // texts of the runs that were cut
};

const Texts EnrollSvc{"enroll-service", "-n",         "c1", "-owner",    "c1", "-name", "Svc", "-url",
                      "https://h:1/x",  "-namespace", "ns", "-hostname", "h"};
const std::string ClientExists = "Caught exception: EnrollClient: unexpected http status 409 body = ''\n";
const std::string Refused = "Caught exception: DeleteClient: unexpected http status 401 body = ''\n";
const std::string ServiceExists = "Caught exception: EnrollService: unexpected http status 409 body = ''\n";

TEST_P(NetworkCutTest, ClientIsEnrolledByTheNextRunAndOneWhoseAnswerWasLostStaysAtTheService) {
    std::set<std::size_t> known;
    CutEverywhere({EnrollNewAsClient, [](World&) {}}, [&](World& world, const ToolRun& cut) {
        const bool enrolled = cut.error.empty();
        EXPECT_EQ(world.Has(World::NewCredentials), enrolled);
        const std::size_t clients = world.memory.Clients().size();
        if (!enrolled) known.insert(clients);

        ExpectSuccess(EnrollNewAsClient);

        EXPECT_TRUE(world.memory.Clients().contains(World::IdOf("New")));
        EXPECT_EQ(world.memory.Clients().size(), enrolled ? clients : clients + 1);
    });
    EXPECT_EQ(failures, (GetParam() ? OutOfReach : std::set{ClientExists}));
    EXPECT_EQ(known, (GetParam() ? std::set<std::size_t>{1, 2} : std::set<std::size_t>{2}));
}

TEST_P(NetworkCutTest, ServiceIsEnrolledByTheNextRunInPlaceOfOneWhoseAnswerWasLost) {
    for (const bool again : {false, true}) {
        const auto prepare = [&](World& world) {
            if (again) world.PutRecord("g-1");
        };
        CutEverywhere({EnrollSvc, prepare}, [](World& world, const ToolRun& cut) {
            const bool enrolled = cut.error.empty();
            EXPECT_EQ(enrolled && world.memory.Services() == std::set{world.Record()}, enrolled);

            ExpectSuccess(EnrollSvc);

            EXPECT_EQ(world.memory.Services(), (std::set{world.Record()}));
        });
    }
    EXPECT_EQ(failures, (GetParam() ? OutOfReach : std::set{ServiceExists}));
}

TEST_P(NetworkCutTest, ServiceIsRemovedByTheNextRun) {
    const Texts words{"unenroll-service", "-n", "c1", "-on", "c1", "-s", "Svc"};
    const auto prepare = [](World& world) { world.PutRecord("g-1"); };
    CutEverywhere({words, prepare}, [&](World& world, const ToolRun& cut) {
        EXPECT_EQ(world.Has(World::RecordFile), !cut.error.empty());

        ExpectSuccess(words);

        EXPECT_FALSE(world.Has(World::RecordFile));
        EXPECT_EQ(world.memory.Services(), std::set<std::string>());
    });
    ExpectOnlyOutOfReach();
}

TEST_P(NetworkCutTest, ClientIsRemovedByTheNextRun) {
    const Texts words{"unenroll-client", "-t", "t", "-un", "c1"};
    CutEverywhere({words, [](World&) {}}, [&](World& world, const ToolRun& cut) {
        EXPECT_EQ(world.Has(World::Credentials), !cut.error.empty());

        ExpectSuccess(words);

        EXPECT_FALSE(world.Has(World::Credentials));
        EXPECT_EQ(world.memory.Clients(), std::set<std::string>());
    });
    ExpectOnlyOutOfReach();
}

TEST_P(NetworkCutTest, ClientThatRemovesItselfNeedsAnAdministratorOnceTheAnswerWasLost) {
    const Texts words{"unenroll-client-self", "-n", "c1"};
    std::set<std::string> later;
    CutEverywhere({words, [](World&) {}}, [&](World& world, const ToolRun& cut) {
        EXPECT_EQ(world.Has(World::Credentials), !cut.error.empty());
        if (cut.error.empty()) return;
        const bool isKnown = world.memory.Clients().contains("c1-id");

        const ToolRun next = Tool(words);

        EXPECT_EQ(next.exitCode, isKnown ? 0 : -1);
        if (!isKnown) {
            later.insert(next.error);
            ExpectSuccess({"unenroll-client", "-t", "t", "-un", "c1"});
        }
        EXPECT_FALSE(world.Has(World::Credentials));
        EXPECT_EQ(world.memory.Clients(), std::set<std::string>());
    });
    EXPECT_EQ(failures, (GetParam() ? OutOfReach : std::set{Refused}));
    EXPECT_EQ(later, std::set{Refused});
}

INSTANTIATE_TEST_SUITE_P(, NetworkCutTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "ForGood" : "Once"; });

}  // namespace
}  // namespace Ombry::Tests
