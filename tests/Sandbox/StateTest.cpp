#include "Sandbox/State.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace Ombry::Tests {
namespace {

using Sandbox::ClientRecord;
using Sandbox::InstanceRecord;
using Sandbox::ServiceQuery;
using Sandbox::ServiceRecord;
using Sandbox::State;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string StateFailureIn(const std::string& folder) {
    try {
        State state(folder);
        return {};
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
}

/// A second hand at the database.
class Hand {
public:
    explicit Hand(const TemporaryDirectory& folder) {
        EXPECT_EQ(sqlite3_open((folder / "state.sqlite").c_str(), &database), SQLITE_OK);
    }
    ~Hand() { sqlite3_close(database); }
    Hand(const Hand&) = delete;
    Hand& operator=(const Hand&) = delete;

    void Execute(const char* sql) {
        EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database);
    }
    /// The columns of all rows, each followed by a semicolon.
    std::string Ask(const char* sql) {
        std::string text;
        const auto collect = [](void* out, int count, char** values, char**) {
            for (int i = 0; i < count; ++i)
                *static_cast<std::string*>(out) += std::string(values[i] ? values[i] : "NULL") + ";";
            return 0;
        };
        EXPECT_EQ(sqlite3_exec(database, sql, collect, &text, nullptr), SQLITE_OK)
            << sqlite3_errmsg(database);
        return text;
    }

private:
    sqlite3* database = nullptr;
};

class SandboxStateTest : public testing::Test {
protected:
    /// The ids of what is found.
    std::vector<std::string> Find(const ServiceQuery& query) {
        std::vector<std::string> ids;
        for (const ServiceRecord& service : state.FindServices(query))
            ids.push_back(service.id);
        return ids;
    }

    const TemporaryDirectory folder;
    State state{folder.Path()};
};

TEST_F(SandboxStateTest, ClientIsKnownFromItsEnrollmentToItsRemoval) {
    EXPECT_FALSE(state.HasClient("c"));
    EXPECT_FALSE(state.IsClientSecret("c", "s"));
    EXPECT_TRUE(state.AddClient({"c", "s", "text", "d"}));
    EXPECT_TRUE(state.HasClient("c"));
    EXPECT_FALSE(state.HasClient("C"));
    EXPECT_FALSE(state.HasClient("c%"));
    EXPECT_TRUE(state.RemoveClient("c"));
    EXPECT_FALSE(state.HasClient("c"));
    EXPECT_FALSE(state.IsClientSecret("c", "s"));
    EXPECT_FALSE(state.RemoveClient("c"));
}

TEST_F(SandboxStateTest, SecondClientOfAnIdLeavesTheFirst) {
    EXPECT_TRUE(state.AddClient({"c", "first", "", "d"}));
    EXPECT_FALSE(state.AddClient({"c", "second", "", "d"}));
    EXPECT_TRUE(state.IsClientSecret("c", "first"));
    EXPECT_FALSE(state.IsClientSecret("c", "second"));
}

TEST_F(SandboxStateTest, OnlyTheWholeSecretOfTheClientIsTaken) {
    const std::string secret("s\0cret", 6);
    state.AddClient({"c", secret, "", "d"});
    state.AddClient({"other", "o", "", "d"});
    EXPECT_TRUE(state.IsClientSecret("c", secret));
    for (const std::string& wrong : {std::string(), std::string("s"), secret.substr(0, 5), secret + "x",
                                     std::string("s\0Cret", 6), std::string("o")})
        EXPECT_FALSE(state.IsClientSecret("c", wrong)) << wrong;
    EXPECT_FALSE(state.IsClientSecret("other", secret));
    EXPECT_FALSE(state.IsClientSecret("", secret));
}

TEST_F(SandboxStateTest, SecretIsStoredAsAHashWithASaltOfItsOwn) {
    state.AddClient({"a", "the-same-secret", "", "d"});
    state.AddClient({"b", "the-same-secret", "", "d"});
    Hand hand(folder);
    EXPECT_EQ(hand.Ask("SELECT count(DISTINCT salt), count(DISTINCT hash) FROM clients"), "2;2;");
    EXPECT_EQ(hand.Ask("SELECT length(CAST(salt AS BLOB)), length(CAST(hash AS BLOB)) FROM clients"),
              "16;32;16;32;");
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path()))
        EXPECT_EQ(folder.Read(entry.path().filename()).find("the-same-secret"), std::string::npos) << entry;
}

TEST_F(SandboxStateTest, HashIsTheStatedOne) {
    FakeRandom random;
    const Platform::Testing::Replace<Platform::IRandom> replaced(random);
    state.AddClient({"a", "secret", "", "d"});
    // PBKDF2 with HMAC-SHA-256, 10000 rounds, salt 00 to 0f.
    EXPECT_EQ(
        Hand(folder).Ask("SELECT hex(salt), hex(hash) FROM clients"),
        "000102030405060708090A0B0C0D0E0F;38898EC86290BC0F1630837C5B0B9C9546450F2929098FD1C5638B05339EF1F8;");
    // These have hashes that begin, and end, with the same byte.
    EXPECT_TRUE(state.IsClientSecret("a", "secret"));
    EXPECT_FALSE(state.IsClientSecret("a", "wrong-16"));
    EXPECT_FALSE(state.IsClientSecret("a", "wrong-672"));
}

TEST_F(SandboxStateTest, NothingIsStoredWithoutASalt) {
    FakeRandom random;
    random.FailBytes(5);
    const Platform::Testing::Replace<Platform::IRandom> replaced(random);
    EXPECT_THROW(state.AddClient({"a", "secret", "", "d"}), std::runtime_error);
    EXPECT_FALSE(state.HasClient("a"));
}

TEST_F(SandboxStateTest, TokensOfARemovedClientAreGoneAndNoOthers) {
    state.AddClient({"c", "s", "", "d"});
    state.AddClient({"other", "s", "", "d"});
    state.AddToken("1", "c", 0, 100);
    state.AddToken("2", "c", 0, 100);
    state.AddToken("3", "other", 0, 100);
    state.AddToken("4", "user:c", 0, 100);
    EXPECT_TRUE(state.HasToken("1"));
    EXPECT_FALSE(state.HasToken("5"));
    EXPECT_FALSE(state.HasToken(""));
    state.RemoveClient("c");
    EXPECT_FALSE(state.HasToken("1"));
    EXPECT_FALSE(state.HasToken("2"));
    EXPECT_TRUE(state.HasToken("3"));
    EXPECT_TRUE(state.HasToken("4"));
    state.AddClient({"c", "s", "", "d"});
    EXPECT_FALSE(state.HasToken("1"));
}

TEST_F(SandboxStateTest, RemovingWhatIsNoClientTakesNoTokens) {
    state.AddToken("1", "user:admin", 0, 100);
    EXPECT_FALSE(state.RemoveClient("user:admin"));
    EXPECT_TRUE(state.HasToken("1"));
}

TEST_F(SandboxStateTest, TokenIsStoredWithItsSubjectAndItsEndAsANumber) {
    state.AddToken("1", "c", 1'599'999'000, 1'600'000'000);
    EXPECT_EQ(Hand(folder).Ask("SELECT id, subject, issued, expires, typeof(expires) FROM tokens"),
              "1;c;1599999000;1600000000;integer;");
}

TEST_F(SandboxStateTest, ServiceComesBackAsItWasEnrolled) {
    EXPECT_TRUE(state.AddService({"i", "n", "c", "u", "e", "h", "s", "d", {"r"}}));
    const auto found = state.FindServices({});
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].id, "i");
    EXPECT_EQ(found[0].name, "n");
    EXPECT_EQ(found[0].clientId, "c");
    EXPECT_EQ(found[0].endpointUrl, "u");
    EXPECT_EQ(found[0].endpointCert, "e");
    EXPECT_EQ(found[0].hostname, "h");
    EXPECT_EQ(found[0].nameSpace, "s");
    EXPECT_EQ(found[0].datacenterId, "d");
}

TEST_F(SandboxStateTest, SecondServiceOfAnIdLeavesTheFirst) {
    EXPECT_TRUE(state.AddService({"i", "first", "c", "u", "", "h", "s", "d", {}}));
    EXPECT_FALSE(state.AddService({"i", "second", "c", "u", "", "h", "s", "d", {}}));
    EXPECT_EQ(state.FindServices({}).at(0).name, "first");
    EXPECT_FALSE(state.RemoveService("I"));
    EXPECT_TRUE(state.RemoveService("i"));
    EXPECT_FALSE(state.RemoveService("i"));
    EXPECT_THAT(Find({}), IsEmpty());
}

TEST_F(SandboxStateTest, EachGivenPartOfAQueryMustMatch) {
    const ServiceRecord base{"1", "n", "c", "u", "", "h", "s", "d", {"r"}};
    state.AddService(base);
    for (int i = 2; i <= 6; ++i) {
        ServiceRecord other = base;
        other.id = std::to_string(i);
        if (i == 2) other.name = "x";
        if (i == 3) other.clientId = "x";
        if (i == 4) other.hostname = "x";
        if (i == 5) other.nameSpace = "x";
        if (i == 6) other.roles = {"x"};
        state.AddService(other);
    }
    EXPECT_THAT(Find({}), ElementsAre("1", "2", "3", "4", "5", "6"));
    EXPECT_THAT(Find({.id = "3"}), ElementsAre("3"));
    EXPECT_THAT(Find({.name = "n"}), ElementsAre("1", "3", "4", "5", "6"));
    EXPECT_THAT(Find({.parentId = "c"}), ElementsAre("1", "2", "4", "5", "6"));
    EXPECT_THAT(Find({.role = "r"}), ElementsAre("1", "2", "3", "4", "5"));
    EXPECT_THAT(Find({.nameSpace = "s"}), ElementsAre("1", "2", "3", "4", "6"));
    EXPECT_THAT(Find({.host = "h"}), ElementsAre("1", "2", "3", "5", "6"));
    EXPECT_THAT(Find({.name = "n", .nameSpace = "s", .host = "h"}), ElementsAre("1", "3", "6"));
    EXPECT_THAT(Find({.name = "x", .host = "x"}), IsEmpty());
}

TEST_F(SandboxStateTest, PartThatIsGivenEmptyMatchesOnlyWhatIsEmpty) {
    state.AddService({"1", "n", "c", "u", "", "", "s", "d", {}});
    state.AddService({"2", "n", "c", "u", "", "h", "s", "d", {}});
    EXPECT_THAT(Find({.host = ""}), ElementsAre("1"));
    EXPECT_THAT(Find({.name = ""}), IsEmpty());
    EXPECT_THAT(Find({.role = ""}), IsEmpty());
}

TEST_F(SandboxStateTest, RoleIsFoundWholeWhateverItHolds) {
    state.AddService({"1", "n", "c", "u", "", "h", "s", "d", {"ab", "x|y", "\"q\"", "é"}});
    state.AddService({"2", "n", "c", "u", "", "h", "s", "d", {"a", "b"}});
    EXPECT_THAT(Find({.role = "ab"}), ElementsAre("1"));
    EXPECT_THAT(Find({.role = "a"}), ElementsAre("2"));
    EXPECT_THAT(Find({.role = "b"}), ElementsAre("2"));
    EXPECT_THAT(Find({.role = "a|b"}), IsEmpty());
    EXPECT_THAT(Find({.role = "x"}), IsEmpty());
    EXPECT_THAT(Find({.role = "x|y"}), ElementsAre("1"));
    EXPECT_THAT(Find({.role = "\"q\""}), ElementsAre("1"));
    EXPECT_THAT(Find({.role = "é"}), ElementsAre("1"));
    EXPECT_THAT(Find({.role = "%"}), IsEmpty());
}

TEST_F(SandboxStateTest, ValuesAreNeverReadAsStatements) {
    const std::string hostile = "'; DROP TABLE services; --";
    EXPECT_TRUE(state.AddService({hostile, hostile, hostile, "u", "", "h", "s", "d", {hostile}}));
    EXPECT_THAT(Find({.id = hostile, .name = hostile, .parentId = hostile, .role = hostile}),
                ElementsAre(hostile));
    EXPECT_TRUE(state.RemoveService(hostile));
}

TEST_F(SandboxStateTest, InstancesAreListedInOrderUntilTheyStop) {
    state.AddInstance({"https://b", "cert", "1"}, 0);
    state.AddInstance({"https://a", "", "2"}, 0);
    state.AddInstance({"https://b", "new", "3"}, 0);  // as after a kill, on the same port
    const auto instances = state.Instances();
    ASSERT_EQ(instances.size(), 2u);
    EXPECT_EQ(instances[0].baseUrl, "https://a");
    EXPECT_EQ(instances[0].certificate, "");
    EXPECT_EQ(instances[0].datacenterId, "2");
    EXPECT_EQ(instances[1].baseUrl, "https://b");
    EXPECT_EQ(instances[1].certificate, "new");
    EXPECT_EQ(instances[1].datacenterId, "3");
    state.RemoveInstance("https://a");
    state.RemoveInstance("https://nosuch");
    ASSERT_EQ(state.Instances().size(), 1u);
    EXPECT_EQ(state.Instances()[0].baseUrl, "https://b");
}

TEST_F(SandboxStateTest, SecondStateOnTheFolderSeesAllAndSoDoesALaterOne) {
    State beside(folder.Path());
    state.AddClient({"c", "s", "", "d"});
    state.AddToken("1", "c", 0, 100);
    beside.AddService({"i", "n", "c", "u", "", "h", "s", "d", {}});
    EXPECT_TRUE(beside.IsClientSecret("c", "s"));
    EXPECT_TRUE(beside.HasToken("1"));
    EXPECT_FALSE(beside.AddClient({"c", "s", "", "d"}));
    EXPECT_THAT(Find({}), ElementsAre("i"));
    EXPECT_TRUE(beside.RemoveClient("c"));
    EXPECT_FALSE(state.HasToken("1"));
    State later(folder.Path());
    EXPECT_EQ(later.FindServices({}).size(), 1u);
    EXPECT_FALSE(later.HasClient("c"));
}

TEST(SandboxStateFolderTest, DatabaseOfTheFirstVersionIsBroughtUpToDateWithWhatIsInIt) {
    const TemporaryDirectory folder;
    Hand(folder).Execute(
        "CREATE TABLE clients (id TEXT PRIMARY KEY, salt BLOB NOT NULL, hash BLOB NOT NULL, description TEXT,"
        " datacenter TEXT NOT NULL);"
        "CREATE TABLE tokens (id TEXT PRIMARY KEY, subject TEXT NOT NULL, expires INTEGER NOT NULL);"
        "CREATE TABLE instances (url TEXT PRIMARY KEY, cert TEXT NOT NULL, datacenter TEXT NOT NULL);"
        "INSERT INTO clients VALUES ('c', 'salt', 'hash', '', 'd');"
        "INSERT INTO tokens VALUES ('1', 'c', 100);"
        "INSERT INTO instances VALUES ('https://a', '', 'd')");
    for (int start = 0; start < 2; ++start) {
        State state(folder.Path());
        EXPECT_TRUE(state.HasClient("c"));
        EXPECT_TRUE(state.HasToken("1"));
        ASSERT_EQ(state.Instances().size(), 1u);
        EXPECT_EQ(state.Instances()[0].seen, 0);
        state.AddToken("2", "c", 50, 100);
        EXPECT_TRUE(state.HasToken("2"));
    }
}

TEST(SandboxStateFolderTest, StatesThatOpenAtOnceAllWriteAndOneIdIsTakenOnce) {
    for (int round = 0; round < 3; ++round) {
        const TemporaryDirectory folder;
        std::atomic<int> added = 0, taken = 0;
        std::vector<std::thread> instances;
        for (int i = 0; i < 6; ++i) {
            instances.emplace_back([&, i] {
                State state(folder.Path());
                (state.AddClient({"same", "s", "", "d"}) ? added : taken) += 1;
                for (int n = 0; n < 5; ++n)
                    state.AddToken(std::to_string(i) + "-" + std::to_string(n), "c", 0, 100);
            });
        }
        for (std::thread& instance : instances)
            instance.join();
        EXPECT_EQ(added, 1);
        EXPECT_EQ(taken, 5);
        EXPECT_EQ(Hand(folder).Ask("SELECT count(*) FROM tokens"), "30;");
    }
}

TEST_F(SandboxStateTest, DatabaseThatAnotherHandHoldsIsWaitedFor) {
    Hand hand(folder);
    hand.Execute("BEGIN IMMEDIATE");
    std::thread writer([&] { state.AddToken("1", "c", 0, 100); });
    hand.Execute("INSERT INTO tokens VALUES ('2', 'c', 1, 0)");
    hand.Execute("COMMIT");
    writer.join();
    EXPECT_TRUE(state.HasToken("1"));
    EXPECT_TRUE(state.HasToken("2"));
}

TEST_F(SandboxStateTest, FailuresOfTheDatabaseAreNamed) {
    Hand(folder).Execute("DROP TABLE tokens; DROP TABLE clients");
    const auto failureOf = [](const std::function<void()>& act) -> std::string {
        try {
            act();
            return {};
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
    };
    EXPECT_EQ(failureOf([&] { state.HasToken("1"); }), "Database: no such table: tokens");
    EXPECT_EQ(failureOf([&] { state.AddToken("1", "c", 0, 1); }), "Database: no such table: tokens");
    EXPECT_EQ(failureOf([&] { state.AddClient({"c", "s", "", "d"}); }), "Database: no such table: clients");
    // It holds no lock for that.
    EXPECT_TRUE(state.AddService({"i", "n", "c", "u", "", "h", "s", "d", {}}));
}

TEST(SandboxStateFolderTest, WhatIsNoDatabaseIsNamedAndStaysAsItIs) {
    const TemporaryDirectory folder;
    const std::string text = "this is no database, however long it is read " + std::string(4096, 'x');
    folder.Write("state.sqlite", text);
    EXPECT_EQ(StateFailureIn(folder.Path()),
              "Cannot open '" + folder / "state.sqlite" + "': file is not a database");
    EXPECT_EQ(folder.Read("state.sqlite"), text);
}

TEST(SandboxStateFolderTest, FolderThatIsMissingOrInThePlaceOfTheFileIsNamed) {
    const TemporaryDirectory folder;
    EXPECT_EQ(StateFailureIn(folder / "missing"), "Cannot open the folder '" + folder / "missing" + "'.");
    std::filesystem::create_directory(folder / "state.sqlite");
    EXPECT_THAT(StateFailureIn(folder.Path()), HasSubstr("Cannot open '" + folder / "state.sqlite" + "': "));
}

}  // namespace
}  // namespace Ombry::Tests
