#include "ClientCommunications/Impl/Base64.h"
#include "ClientCommunications/Impl/ClientCredentials.h"
#include "ClientCommunications/Impl/ClientCredentialsStore.h"
#include "ClientCommunications/Impl/WindowsInMemoryDataProtection.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/FakeProtections.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/MemoryFiles.h"
#include "tests/Fakes/SystemProtection.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using testing::ElementsAre;
using testing::IsEmpty;

/// Marks what it protects and records each call.
class Marking : public IDataProtection {
public:
    explicit Marking(std::vector<std::string>& events) : events(events) {}
    void Protect(std::string& data) override {
        events.push_back("protect " + data);
        data = "#" + data;
    }
    void Unprotect(std::string& data) override {
        events.push_back("unprotect " + data);
        data.erase(0, 1);
    }

private:
    std::vector<std::string>& events;
};

class PlainCredentials : public IClientCredentials {
public:
    PlainCredentials(std::vector<std::string>& events, std::string name, std::string id, std::string secret)
        : events(events), name(std::move(name)), id(std::move(id)), secret(std::move(secret)) {}
    std::string GetName() override {
        events.push_back("name");
        return name;
    }
    std::string GetClientId() override {
        events.push_back("id");
        return id;
    }
    std::string GetClientSecret() override {
        events.push_back("secret");
        return secret;
    }

private:
    std::vector<std::string>& events;
    const std::string name, id, secret;
};

class PlainFactory : public IClientCredentialsFactory {
public:
    explicit PlainFactory(std::vector<std::string>& events) : events(events) {}
    std::shared_ptr<IClientCredentials> Create(const std::string& name, const std::string& id,
                                               const std::string& secret) override {
        events.push_back("create " + name + " " + id + " " + secret);
        return std::make_shared<PlainCredentials>(events, name, id, secret);
    }

private:
    std::vector<std::string>& events;
};

class MemoryNamedStorage : public INamedStorage {
public:
    explicit MemoryNamedStorage(std::vector<std::string>& events) : events(events) {}
    std::unique_ptr<IStorage> Get(const std::string& name) override {
        events.push_back("get " + name);
        return std::make_unique<Blob>(blob, events);
    }
    void Delete(const std::string& name) override { events.push_back("delete " + name); }
    void Rename(const std::string&, const std::string&) override { throw std::logic_error("rename"); }

    std::string blob;

private:
    class Blob : public IStorage {
    public:
        Blob(std::string& blob, std::vector<std::string>& events) : blob(blob), events(events) {}
        std::string Load() override {
            events.push_back("load");
            return blob;
        }
        void Save(const std::string& data) override {
            events.push_back("save");
            blob = data;
        }

    private:
        std::string& blob;
        std::vector<std::string>& events;
    };
    std::vector<std::string>& events;
};

const std::string StoredText =
    "{\n    \"ClientIdBytes\": \"#the id\",\n    \"ClientSecretBytes\": \"#the secret\"\n}";

class ClientCredentialsStoreTest : public testing::Test {
protected:
    std::string FailureOfLoad() {
        try {
            store.Load("name");
            return "no failure";
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
    }

    std::vector<std::string> events;
    const std::shared_ptr<MemoryNamedStorage> storage = std::make_shared<MemoryNamedStorage>(events);
    ClientCredentialsStore store{std::make_shared<Marking>(events), std::make_shared<PlainFactory>(events),
                                 storage};
};

TEST_F(ClientCredentialsStoreTest, SaveProtectsIdThenSecretAndStoresThemAsJsonUnderTheName) {
    store.Save(std::make_shared<PlainCredentials>(events, "name", "the id", "the secret"));

    EXPECT_THAT(events, ElementsAre("id", "protect the id", "secret", "protect the secret", "name",
                                    "get name", "save"));
    EXPECT_EQ(storage->blob, StoredText);
}

TEST_F(ClientCredentialsStoreTest, LoadMakesCredentialsAndScrubsItsPlainCopies) {
    storage->blob = StoredText;
    const auto credentials = store.Load("other name");

    EXPECT_THAT(events,
                ElementsAre("get other name", "load", "unprotect #the id", "unprotect #the secret",
                            "create other name the id the secret", "protect the id", "protect the secret"));
    ASSERT_TRUE(credentials);
    EXPECT_EQ(credentials->GetClientSecret(), "the secret");
}

TEST_F(ClientCredentialsStoreTest, AnEmptyTextIsNoCredentials) {
    EXPECT_EQ(store.Load("name"), nullptr);
    EXPECT_THAT(events, ElementsAre("get name", "load"));
}

TEST_F(ClientCredentialsStoreTest, BothKeysMustBeThere) {
    storage->blob = R"({"ClientIdBytes":"#id"})";
    EXPECT_EQ(FailureOfLoad().find("ERROR: Missing required field '"), 0u) << FailureOfLoad();
    storage->blob = R"({"ClientSecretBytes":"#secret"})";
    EXPECT_EQ(FailureOfLoad().find("ERROR: Missing required field '"), 0u) << FailureOfLoad();
    storage->blob = "{}";
    EXPECT_EQ(FailureOfLoad().find("ERROR: Missing required field '"), 0u) << FailureOfLoad();
    EXPECT_EQ(std::count(events.begin(), events.end(), "load"), 3);
    EXPECT_TRUE(std::none_of(events.begin(), events.end(),
                             [](const std::string& event) { return event.starts_with("unprotect"); }));
}

TEST_F(ClientCredentialsStoreTest, KeysMayComeInAnyOrderAndWithOthers) {
    storage->blob = R"({"ClientSecretBytes":"#s","Other":1,"ClientIdBytes":"#i"})";
    const auto credentials = store.Load("n");
    EXPECT_EQ(credentials->GetClientId(), "i");
    EXPECT_EQ(credentials->GetClientSecret(), "s");
}

TEST_F(ClientCredentialsStoreTest, AFileOfSomebodyElseFailsInTheWordsOfTheReaderAndStays) {
    storage->blob = "no json";
    EXPECT_EQ(FailureOfLoad().find("ERROR: Parse failed at offset "), 0u) << FailureOfLoad();
    EXPECT_EQ(storage->blob, "no json");
    EXPECT_EQ(std::count(events.begin(), events.end(), "delete name"), 0);
}

TEST_F(ClientCredentialsStoreTest, DeleteGoesToTheStorage) {
    store.Delete("name");
    EXPECT_THAT(events, ElementsAre("delete name"));
}

TEST_F(ClientCredentialsStoreTest, LoadExistingGivesCredentialsOrAFailureThatNamesThem) {
    try {
        LoadExisting(store, "a name");
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "The credentials file of 'a name' is empty.");
    }
    storage->blob = StoredText;
    EXPECT_EQ(LoadExisting(store, "a name")->GetName(), "a name");
}

/// Enciphers nothing and lays the same secret bare each time; the n-th call fails.
class Revealing : public IDataProtection {
public:
    Revealing(std::string secret, int n) : secret(std::move(secret)), left(n) {}
    void Protect(std::string&) override { Count(); }
    void Unprotect(std::string& data) override {
        Count();
        data = secret;
    }

private:
    void Count() {
        if (--left == 0) throw std::runtime_error("no protection");
    }
    const std::string secret;
    int left;
};

class NoFactory : public IClientCredentialsFactory {
public:
    std::shared_ptr<IClientCredentials> Create(const std::string&, const std::string&,
                                               const std::string&) override {
        return nullptr;
    }
};

TEST_F(ClientCredentialsStoreTest, NoPlainValueIsLeftInFreedMemoryWhereAStepFails) {
    const std::string secret = "a secret too long for a string object";
    storage->blob = StoredText;
    const auto idAsSecret = std::make_shared<PlainCredentials>(events, "name", secret, "");
    const auto credentials = std::make_shared<PlainCredentials>(events, "name", "id", secret);
    const auto blocksLeftBy = [&](int n, const std::function<void(ClientCredentialsStore&)>& act) {
        ClientCredentialsStore failing(std::make_shared<Revealing>(secret, n), std::make_shared<NoFactory>(),
                                       storage);
        const FreedMemory freed(secret);
        EXPECT_THROW(act(failing), std::runtime_error) << n;
        return freed.BlocksWithTheSecret();
    };
    EXPECT_EQ(blocksLeftBy(1, [&](auto& failing) { failing.Save(idAsSecret); }), 0u);
    EXPECT_EQ(blocksLeftBy(2, [&](auto& failing) { failing.Save(credentials); }), 0u);
    // Both values are laid bare, and then protected again one after the other.
    for (const int n : {1, 2, 3, 4})
        EXPECT_EQ(blocksLeftBy(n, [&](auto& failing) { failing.Load("name"); }), 0u) << n;
}

// --- the whole graph over fakes of the platform ---

class CreatedStoreTest : public testing::Test {
protected:
    static std::shared_ptr<IClientCredentials> Credentials(const std::string& name, const std::string& id,
                                                           const std::string& secret) {
        static std::vector<std::string> ignored;
        return std::make_shared<PlainCredentials>(ignored, name, id, secret);
    }

    MemoryFiles files;
    FakeMachineProtection machine;
    FakeMemoryProtection memory;
    Platform::Testing::Replace<Platform::IFiles> replacedFiles{files};
    Platform::Testing::Replace<Platform::IMachineProtection> replacedMachine{machine};
    Platform::Testing::Replace<Platform::IMemoryProtection> replacedMemory{memory};
};

TEST_F(CreatedStoreTest, TheFileIsTheTextUnderTheFileEntropyWithEachValueUnderTheValueEntropy) {
    CreateClientCredentialsStore("dir", true, nullptr)->Save(Credentials("name", "the id", "the secret"));

    EXPECT_THAT(files.Texts(), ElementsAre("CreateDirectories dir/Components/name Synced",
                                           "BeginReplace dir/Components/name/ombrycomponent.config Synced",
                                           "Complete dir/Components/name/ombrycomponent.config Synced"));
    const std::string blob = *files.Content("dir/Components/name/ombrycomponent.config");
    const std::string fileEntropy = blob.substr(0, 11);
    ASSERT_EQ(blob.substr(11, 3), "|5|");
    const std::string json(blob.rbegin(), blob.rend() - 14);
    const std::string idKey = "{\n    \"ClientIdBytes\": \"",
                      secretKey = "\",\n    \"ClientSecretBytes\": \"";
    ASSERT_EQ(json.find(idKey), 0u) << json;
    const std::size_t middle = json.find(secretKey);
    ASSERT_NE(middle, std::string::npos);
    ASSERT_TRUE(json.ends_with("\"\n}"));
    const std::string id = Base64Decode(json.substr(idKey.size(), middle - idKey.size()));
    const std::size_t second = middle + secretKey.size();
    const std::string secret = Base64Decode(json.substr(second, json.size() - second - 3));
    const std::string valueEntropy = id.substr(0, 12);
    EXPECT_EQ(id.substr(12), "|5|di eht");
    EXPECT_EQ(secret, valueEntropy + "|5|terces eht");
    EXPECT_NE(valueEntropy.substr(0, 11), fileEntropy);
    EXPECT_THAT(machine.calls, ElementsAre("Protect", "Protect", "Protect"));
}

TEST_F(CreatedStoreTest, TheEntropiesStayAsTheyAreSinceEveryStoredFileDependsOnThem) {
    CreateClientCredentialsStore("dir", true, nullptr)->Save(Credentials("name", "id", "secret"));

    const std::string blob = *files.Content("dir/Components/name/ombrycomponent.config");
    EXPECT_EQ(blob.substr(0, 11), std::string("\xb7\x9b\xce\x3f\xd8\x00\x8c\x0b\x94\xa8\x7d", 11));
    const std::string json(blob.rbegin(), blob.rend() - 14);
    EXPECT_NE(json.find("\"" + Base64Encode("\xad\x90\x6d\x25\x0c\xb9\x2d\xbf\xaa\xb2\x24\x06|5|di")),
              std::string::npos);
}

TEST_F(CreatedStoreTest, SaveThenLoadGivesTheSameForAnyNameIdAndSecret) {
    const auto store = CreateClientCredentialsStore("dir", true, nullptr);
    const std::string odd("\0\xff\n\"", 4);
    for (const std::string name : {"client", "a client of blanks", "deep/er", "n.x"}) {
        store->Save(Credentials(name, "id of " + name, "secret of " + name + odd));
    }
    for (const std::string name : {"client", "a client of blanks", "deep/er", "n.x"}) {
        const auto loaded = store->Load(name);
        EXPECT_EQ(loaded->GetName(), name);
        EXPECT_EQ(loaded->GetClientId(), "id of " + name);
        EXPECT_EQ(loaded->GetClientSecret(), "secret of " + name + odd);
        EXPECT_TRUE(files.Exists("dir/Components/" + name + "/ombrycomponent.config"));
    }
}

TEST_F(CreatedStoreTest, LoadedCredentialsAreProtectedInMemoryUnderFlagsZero) {
    const auto store = CreateClientCredentialsStore("dir", true, nullptr);
    store->Save(Credentials("name", "id", "secret"));
    EXPECT_THAT(memory.calls, IsEmpty());

    store->Load("name");
    ASSERT_EQ(memory.calls.size(), 2u);
    EXPECT_EQ(memory.calls[0].bytes, "id" + std::string(14, '\x0e'));
    EXPECT_EQ(memory.calls[1].bytes, "secret" + std::string(10, '\x0a'));
    EXPECT_EQ(memory.calls[0].flags, 0u);
}

TEST_F(CreatedStoreTest, ASecondSaveReplacesTheFile) {
    const auto store = CreateClientCredentialsStore("dir", true, nullptr);
    store->Save(Credentials("name", "id", "a much longer secret than the next"));
    store->Save(Credentials("name", "id2", "s2"));
    EXPECT_EQ(store->Load("name")->GetClientId() + store->Load("name")->GetClientSecret(), "id2s2");
    EXPECT_EQ(files.Contents().size(), 1u);
}

TEST_F(CreatedStoreTest, AnUnknownNameIsNullOrAFailureAsTheStoreWasMade) {
    EXPECT_EQ(CreateClientCredentialsStore("dir", false, nullptr)->Load("name"), nullptr);
    try {
        CreateClientCredentialsStore("dir", true, nullptr)->Load("name");
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(),
                     "Ombry::ClientCommunications::FileStorage::Load: Failed to open file "
                     "'dir/Components/name/ombrycomponent.config' for read.");
    }
}

TEST_F(CreatedStoreTest, AnEmptyFileIsNoCredentialsEvenWhereAMissingOneIsAFailure) {
    files.Put("dir/Components/name/ombrycomponent.config", "");
    const auto store = CreateClientCredentialsStore("dir", true, nullptr);
    EXPECT_EQ(store->Load("name"), nullptr);
    EXPECT_THROW(LoadExisting(*store, "name"), std::runtime_error);
}

TEST_F(CreatedStoreTest, DeleteRemovesTheFileAndLeavesTheEmptyFolder) {
    const auto store = CreateClientCredentialsStore("dir", true, nullptr);
    store->Save(Credentials("name", "id", "secret"));
    store->Delete("name");
    EXPECT_NO_THROW(store->Delete("name"));
    EXPECT_THAT(files.Contents(), IsEmpty());
    EXPECT_TRUE(files.Exists("dir/Components/name"));
}

TEST_F(CreatedStoreTest, TheHookHearsOfEachSavedFile) {
    class Hook : public IPostSaveHook {
    public:
        void OnSaved(const std::string& path) override { saved.push_back(path); }
        std::vector<std::string> saved;
    };
    const auto hook = std::make_shared<Hook>();
    CreateClientCredentialsStore("dir", true, hook)->Save(Credentials("name", "id", "secret"));
    EXPECT_THAT(hook->saved, ElementsAre("dir/Components/name/ombrycomponent.config"));
}

TEST_F(CreatedStoreTest, AFileThatCannotBeUnprotectedFailsWithTheNumberAndStays) {
    const auto store = CreateClientCredentialsStore("dir", true, nullptr);
    store->Save(Credentials("name", "id", "secret"));
    const auto before = files.Contents();
    machine.failing = "Unprotect";
    machine.error = 13;
    try {
        store->Load("name");
        FAIL() << "nothing thrown";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "CryptUnprotectData failed with error 13");
    }
    EXPECT_EQ(files.Contents(), before);
}

TEST_F(CreatedStoreTest, WhicheverFileOperationOfASaveFailsTheOldCredentialsOrTheNewAreThere) {
    const auto store = CreateClientCredentialsStore("dir", true, nullptr);
    for (std::size_t n = 1; n <= 4; ++n) {
        files.FailNth(0, 0);
        store->Save(Credentials("name", "old", "old secret"));
        files.ClearOperations();
        files.FailNth(n, ENOSPC);
        try {
            store->Save(Credentials("name", "new", "new secret"));
            EXPECT_GE(n, 3u);
        } catch (const std::runtime_error&) {
            EXPECT_LE(n, 2u);
        }
        files.FailNth(0, 0);
        EXPECT_EQ(store->Load("name")->GetClientId(), n == 4 ? "new" : "old") << n;
    }
}

// --- on the real system ---

class ClientCredentialsStoreOnSystemTest : public testing::Test {
protected:
    static std::shared_ptr<IClientCredentials> Credentials() {
        static std::vector<std::string> ignored;
        return std::make_shared<PlainCredentials>(ignored, "my client", "the-id", "the-secret");
    }

    const TemporaryDirectory directory;
    FakeKnownFolders folders{directory.Path()};
    FakeMachineId machineId{"0123456789abcdef0123456789abcdef"};
    Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders{folders};
    Platform::Testing::Replace<Platform::IMachineId> replacedId{machineId};
};

TEST_F(ClientCredentialsStoreOnSystemTest, NothingPlainStandsInTheFile) {
    CreateClientCredentialsStore(directory / "s", true, nullptr)->Save(Credentials());

    const std::string content = directory.Read("s/Components/my client/ombrycomponent.config");
    for (const std::string plain : {"the-id", "the-secret", "ClientIdBytes", "my client"})
        EXPECT_EQ(content.find(plain), std::string::npos) << plain;
    const auto loaded = CreateClientCredentialsStore(directory / "s", true, nullptr)->Load("my client");
    EXPECT_EQ(loaded->GetClientSecret(), "the-secret");
}

TEST_F(ClientCredentialsStoreOnSystemTest, SavingAndLoadingLeaveNoPlainValueInFreedMemory) {
    if (!SystemProtectsMemory()) return LeaveOut("this system leaves protected memory as it is");
    static std::vector<std::string> ignored;
    const std::string id = "an id too long for a string object";
    const std::string secret = "a secret too long for a string object";
    const auto store = CreateClientCredentialsStore(directory / "s", true, nullptr);
    for (const std::string& plain : {id, secret}) {
        const auto credentials = std::make_shared<PlainCredentials>(ignored, "n", id, secret);
        std::shared_ptr<IClientCredentials> loaded;
        {
            const FreedMemory freed(plain);
            store->Save(credentials);
            loaded = store->Load("n");
            EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << plain;
        }
        EXPECT_EQ(loaded->GetClientId(), id);
        EXPECT_EQ(loaded->GetClientSecret(), secret);
    }
}

/// Notes what it is to protect with.
class EntropyNotes : public FakeMachineProtection {
public:
    Outcome Protect(std::string_view plain, std::string_view entropy, std::uint32_t flags) override {
        entropies.emplace_back(entropy);
        return FakeMachineProtection::Protect(plain, entropy, flags);
    }

    std::vector<std::string> entropies;
};

TEST(ClientCredentialsStoreEntropyTest, StaysWhatTheFilesOfAllMachinesWereWrittenWith) {
    EntropyNotes protection;
    MemoryFiles files;
    const Platform::Testing::Replace<Platform::IMachineProtection> replacedProtection(protection);
    const Platform::Testing::Replace<Platform::IFiles> replacedFiles(files);
    const std::string value("\xad\x90\x6d\x25\x0c\xb9\x2d\xbf\xaa\xb2\x24\x06", 12);
    const std::string file("\xb7\x9b\xce\x3f\xd8\x00\x8c\x0b\x94\xa8\x7d", 11);

    CreateClientCredentialsStore("/m", true, nullptr)
        ->Save(std::make_shared<ClientCredentials>(std::make_shared<WindowsInMemoryDataProtection>(), "c",
                                                   "id", "secret"));

    EXPECT_EQ(protection.entropies, (std::vector<std::string>{value, value, file}));
}

}  // namespace
}  // namespace Ombry::Tests
