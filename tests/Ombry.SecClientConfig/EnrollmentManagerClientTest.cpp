#include "ClientCommunications/CommunicationsError.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Ombry.SecClientConfig/EnrollmentManagerFixture.h"

#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using SecClientConfig::ClientEnrollmentRequest;

const std::string ClientsPath = "/v1/auth/locationawareclients";
const std::string DeleteOld = "/v1/auth/clients/old-id";

class EnrollmentManagerClientTest : public EnrollmentManagerFixture {
protected:
    static ClientEnrollmentRequest Request(const std::string& name) {
        ClientEnrollmentRequest request;
        request.name = name;
        return request;
    }

    static std::string NewClient(std::uint32_t firstGuid = 1) {
        return FakeRandom::GuidText(firstGuid) + " " + FakeRandom::GuidText(firstGuid + 1);
    }

    static std::string Body(const std::string& description, std::uint32_t firstGuid = 1) {
        return "{\n"
               "    \"id\": \"" +
               FakeRandom::GuidText(firstGuid) +
               "\",\n"
               "    \"clientSecretId\": \"" +
               FakeRandom::GuidText(firstGuid + 1) +
               "\",\n"
               "    \"publicCertPem\": null,\n"
               "    \"groups\": null,\n"
               "    \"description\": " +
               description +
               ",\n"
               "    \"datacenterId\": \"dc-1\",\n"
               "    \"rolesPerService\": {}\n"
               "}";
    }

    static Texts EnrollCall() { return Call("v1-auth", "1", "POST", ClientsPath); }
    static Texts DeleteCall() { return Call("v1-auth", "1", "DELETE", DeleteOld); }
};

TEST_F(EnrollmentManagerClientTest, FirstEnrollmentLooksForAnEarlierOneAndGoesOn) {
    Answer({{"POST " + ClientsPath, {201, FakeCommunications::Unreadable}}});

    Manager().EnrollClient(Request("new one"));

    EXPECT_EQ(steps, Join({{"Read " + CredentialsPath("new one")},
                           ReadDatacenter(),
                           EnrollCall(),
                           Save(CredentialsPath("new one"))}));
    EXPECT_EQ(communications->bodies, Texts{Body("null")});
    EXPECT_EQ(StoredClient("new one"), NewClient());
}

TEST_F(EnrollmentManagerClientTest, SecondEnrollmentDeletesTheFirstByItsStoredId) {
    PutClient("a", "old-id");
    Answer({{"POST " + ClientsPath, {201, ""}}, {"DELETE " + DeleteOld, {204, ""}}});

    Manager().EnrollClient(Request("a"));

    EXPECT_EQ(steps, Join({{"Read " + CredentialsPath("a")},
                           DeleteCall(),
                           {"Remove " + CredentialsPath("a") + " Synced"},
                           ReadDatacenter(),
                           EnrollCall(),
                           Save(CredentialsPath("a"))}));
    EXPECT_EQ(StoredClient("a"), NewClient());
}

TEST_F(EnrollmentManagerClientTest, EnrollmentLeavesNeitherIdNorSecretInTheMemoryThatItFrees) {
    Answer({{"POST " + ClientsPath, {201, ""}}});
    for (const std::uint32_t first : {1U, 3U}) {
        const std::string plain = FakeRandom::GuidText(first == 1 ? 1 : 4);  // an id, and a secret
        const FreedMemory freed(plain);
        Manager().EnrollClient(Request("client " + std::to_string(first)));
        EXPECT_EQ(freed.BlocksWithTheSecret(), 0u) << first;
    }
    EXPECT_EQ(StoredClient("client 3"), NewClient(3));
}

TEST_F(EnrollmentManagerClientTest, IdOfAClientToRemoveIsLeftInFreedMemoryByThePathAlone) {
    const std::string id = "an id too long for a string object";
    PutClient("a", id);
    communications->onStep = [](const std::string&) { throw std::runtime_error("nobody is called"); };
    const FreedMemory freed(id);

    EXPECT_THROW(Manager().UnenrollClient("a"), std::runtime_error);
    EXPECT_THROW(Manager().EnrollClient(Request("a")), std::runtime_error);

    const std::size_t paths = 2;
    EXPECT_EQ(freed.BlocksWithTheSecret(), FreedMemory::Watches ? paths : 0);
}

TEST_F(EnrollmentManagerClientTest, EachEnrollmentHasANewIdAndANewSecret) {
    communications->respond = [](const std::string& call) {
        return FakeCommunications::Answer{call.starts_with("POST") ? 201 : 204, ""};
    };

    Manager().EnrollClient(Request("a"));
    Manager().EnrollClient(Request("a"));

    EXPECT_EQ(communications->bodies, (Texts{Body("null", 1), "none", Body("null", 3)}));
    EXPECT_EQ(StoredClient("a"), NewClient(3));
    EXPECT_EQ(std::count(steps.begin(), steps.end(),
                         "request DELETE /v1/auth/clients/" + FakeRandom::GuidText(1) + " 1"),
              1);
}

TEST_F(EnrollmentManagerClientTest, DeletionThatFailsIsSwallowedAndTheOldCredentialsStayUntilTheNewAreSaved) {
    for (const int status : {500, 401, 200}) {
        PutClient("a", "old-id");
        communications->respond = [&](const std::string& call) {
            if (call != "POST " + ClientsPath) return FakeCommunications::Answer{status, "no"};
            EXPECT_EQ(StoredClient("a"), "old-id secret");
            return FakeCommunications::Answer{201, ""};
        };

        Manager().EnrollClient(Request("a"));

        EXPECT_EQ(steps, Join({{"Read " + CredentialsPath("a")},
                               DeleteCall(),
                               ReadDatacenter(),
                               EnrollCall(),
                               Save(CredentialsPath("a"))}))
            << status;
        EXPECT_NE(StoredClient("a"), "old-id secret");
    }
}

TEST_F(EnrollmentManagerClientTest, DeletionOfWhatTheServiceNoLongerKnowsIsDone) {
    PutClient("a", "old-id");
    Answer({{"POST " + ClientsPath, {201, ""}}, {"DELETE " + DeleteOld, {404, ""}}});

    Manager().EnrollClient(Request("a"));

    EXPECT_EQ(std::count(steps.begin(), steps.end(), "Remove " + CredentialsPath("a") + " Synced"), 1);
}

TEST_F(EnrollmentManagerClientTest, NetworkThatFailsDuringTheDeletionIsSwallowed) {
    PutClient("a", "old-id");
    communications->respond = [](const std::string& call) -> FakeCommunications::Answer {
        if (call.starts_with("DELETE")) throw ClientCommunications::CommunicationsError("no server");
        return {201, ""};
    };

    Manager().EnrollClient(Request("a"));

    EXPECT_EQ(StoredClient("a"), NewClient());
}

TEST_F(EnrollmentManagerClientTest, EveryStandardExceptionDuringTheDeletionIsSwallowed) {
    PutClient("a", "old-id");
    communications->respond = [](const std::string& call) -> FakeCommunications::Answer {
        if (call.starts_with("DELETE")) throw std::logic_error("no sense");
        return {201, ""};
    };

    Manager().EnrollClient(Request("a"));

    EXPECT_EQ(StoredClient("a"), NewClient());
}

TEST_F(EnrollmentManagerClientTest, EarlierCredentialsThatCannotBeReadAreSwallowedAndOverwritten) {
    Answer({{"POST " + ClientsPath, {201, ""}}});
    for (const std::string& content : {std::string("of another machine"), std::string()}) {
        files.Put(CredentialsPath("a"), content);
        steps.clear();

        Manager().EnrollClient(Request("a"));

        EXPECT_EQ(steps, Join({{"Read " + CredentialsPath("a")},
                               ReadDatacenter(),
                               EnrollCall(),
                               Save(CredentialsPath("a"))}))
            << content;
    }
}

TEST_F(EnrollmentManagerClientTest, FailureToRemoveTheOldFileIsNoFailure) {
    PutClient("a", "old-id");
    Answer({{"POST " + ClientsPath, {201, ""}}, {"DELETE " + DeleteOld, {204, ""}}});
    FailFile("Remove", CredentialsPath("a"));

    Manager().EnrollClient(Request("a"));

    EXPECT_EQ(StoredClient("a"), NewClient());
}

TEST_F(EnrollmentManagerClientTest, RefusedEnrollmentLeavesTheOldClientGoneAndNothingOfTheNewOne) {
    for (const int status : {200, 204, 400, 403, 409, 500}) {
        PutClient("a", "old-id");
        Answer({{"POST " + ClientsPath, {status, "why"}}, {"DELETE " + DeleteOld, {204, ""}}});

        EXPECT_EQ(Failure([&] { Manager().EnrollClient(Request("a")); }),
                  "EnrollClient: unexpected http status " + std::to_string(status) + " body = 'why'");

        EXPECT_EQ(StoredClient("a"), "");
        EXPECT_EQ(steps.back(), EnrollCall().back());
    }
}

TEST_F(EnrollmentManagerClientTest, MachineWithoutDatacenterFailsWhenTheOldClientIsAlreadyGone) {
    PutClient("a", "old-id");
    Answer({{"DELETE " + DeleteOld, {204, ""}}});
    FailFile("Read", Security + "/CS/datacenterid.config");

    EXPECT_EQ(Failure([&] { Manager().EnrollClient(Request("a")); }),
              "Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" + Security +
                  "/CS/datacenterid.config' for read.");

    EXPECT_EQ(steps, Join({{"Read " + CredentialsPath("a")},
                           DeleteCall(),
                           {"Remove " + CredentialsPath("a") + " Synced"},
                           ReadDatacenter()}));
}

TEST_F(EnrollmentManagerClientTest, CredentialsThatCannotBeSavedLeaveAClientThatOnlyTheServiceKnows) {
    Answer({{"POST " + ClientsPath, {201, ""}}});
    FailFile("BeginReplace", CredentialsPath("a"));

    EXPECT_EQ(Failure([&] { Manager().EnrollClient(Request("a")); }),
              "Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" + CredentialsPath("a") +
                  "' for write.");

    EXPECT_EQ(steps.back(), "BeginReplace " + CredentialsPath("a") + " Synced");  // and no deletion after it
}

TEST_F(EnrollmentManagerClientTest, RecordsLieWhereTheyLayWhenTheManagerWasMade) {
    Answer({{"POST " + ClientsPath, {201, ""}}});
    auto manager = Manager();
    FakeKnownFolders moved("/dev/null/moved");
    const Platform::Testing::Replace<Platform::IKnownFolders> replaced(moved);

    manager.EnrollClient(Request("a"));

    EXPECT_EQ(
        steps,
        Join({{"Read " + CredentialsPath("a")},
              {"Read /dev/null/moved/Quennet/common.config", "Read " + Security + "/CS/datacenterid.config"},
              EnrollCall(),
              Save(CredentialsPath("a"))}));
}

TEST_F(EnrollmentManagerClientTest, NameIsRequired) {
    EXPECT_EQ(Failure([&] { Manager().EnrollClient({}); }), "property is not set");
    EXPECT_EQ(steps, Texts{});
}

TEST_F(EnrollmentManagerClientTest, DescriptionGoesIntoTheBodyAndTheRolesReachNoPartOfIt) {
    Answer({{"POST " + ClientsPath, {201, ""}}});
    ClientEnrollmentRequest request = Request("a");
    request.description = "what \"it\" is";
    request.rolesPerService.emplace();
    (*request.rolesPerService)["service"] = {"role"};

    Manager().EnrollClient(request);

    EXPECT_EQ(communications->bodies, Texts{Body("\"what \\\"it\\\" is\"")});
}

TEST_F(EnrollmentManagerClientTest, HookOfTheRequestHearsOfTheSavedFile) {
    class Hook : public ClientCommunications::IPostSaveHook {
    public:
        void OnSaved(const std::string& path) override { paths.push_back(path); }
        Texts paths;
    };
    Answer({{"POST " + ClientsPath, {201, ""}}});
    const auto hook = std::make_shared<Hook>();
    ClientEnrollmentRequest request = Request("a");
    request.postSaveHook = hook;

    Manager().EnrollClient(request);

    EXPECT_EQ(hook->paths, Texts{CredentialsPath("a")});
}

TEST_F(EnrollmentManagerClientTest, UnenrollmentDeletesAtTheServiceAndThenHere) {
    for (const int status : {204, 404}) {
        PutClient("a", "old-id");
        Answer({{"DELETE " + DeleteOld, {status, ""}}});

        Manager().UnenrollClient("a");

        EXPECT_EQ(steps, Join({{"Read " + CredentialsPath("a")},
                               DeleteCall(),
                               {"Remove " + CredentialsPath("a") + " Synced"}}))
            << status;
        EXPECT_EQ(StoredClient("a"), "");
    }
}

TEST_F(EnrollmentManagerClientTest, UnenrollmentOfANameThatThisMachineDoesNotKnowDoesNothingAndSucceeds) {
    files.Put(CredentialsPath("foreign"), "of another machine");
    files.Put(CredentialsPath("empty"), "");
    for (const std::string name : {"nosuch", "foreign", "empty"}) {
        steps.clear();

        Manager().UnenrollClient(name);

        EXPECT_EQ(steps, Texts{"Read " + CredentialsPath(name)});
    }
    EXPECT_TRUE(files.Exists(CredentialsPath("foreign")));
}

TEST_F(EnrollmentManagerClientTest,
       EveryStandardExceptionWhileTheCredentialsAreReadEndsAnUnenrollmentInSilence) {
    PutClient("a", "old-id");
    memory.observe = [](std::span<std::uint8_t>) { throw std::logic_error("no sense"); };

    Manager().UnenrollClient("a");

    EXPECT_EQ(steps, Texts{"Read " + CredentialsPath("a")});
}

// The credentials are read, and then the id in them cannot be made plain.
TEST_F(EnrollmentManagerClientTest, AnIdThatCannotBeReadEndsAnUnenrollmentInSilence) {
    PutClient("a", "old-id");
    memory.failing = "Unprotect";
    memory.error = 5;

    Manager().UnenrollClient("a");

    EXPECT_EQ(steps, Texts{"Read " + CredentialsPath("a")});
}

TEST_F(EnrollmentManagerClientTest, AnIdThatCannotBeReadIsNoReasonNotToEnrollAnew) {
    PutClient("a", "old-id");
    Answer({{"POST " + ClientsPath, {201, ""}}});
    memory.failing = "Unprotect";
    memory.error = 5;

    Manager().EnrollClient(Request("a"));

    EXPECT_EQ(
        steps,
        Join({{"Read " + CredentialsPath("a")}, ReadDatacenter(), EnrollCall(), Save(CredentialsPath("a"))}));
}

TEST_F(EnrollmentManagerClientTest, UnenrollmentThatTheServiceRefusesKeepsTheCredentials) {
    for (const int status : {200, 401, 403, 500}) {
        PutClient("a", "old-id");
        Answer({{"DELETE " + DeleteOld, {status, "why"}}});

        EXPECT_EQ(Failure([&] { Manager().UnenrollClient("a"); }),
                  "DeleteClientById: unexpected http status " + std::to_string(status) + " body = 'why'");

        EXPECT_EQ(StoredClient("a"), "old-id secret");
    }
}

TEST_F(EnrollmentManagerClientTest, ClientRemovesItselfWithoutALookAtItsId) {
    for (const int status : {204, 404}) {
        PutClient("a", "old-id");
        Answer({{"DELETE /v1/auth/clients", {status, ""}}});

        Manager().UnenrollClientSelf("a");

        EXPECT_EQ(steps, Join({Call("v1-auth", "1", "DELETE", "/v1/auth/clients"),
                               {"Remove " + CredentialsPath("a") + " Synced"}}))
            << status;
        EXPECT_EQ(StoredClient("a"), "");
    }
}

TEST_F(EnrollmentManagerClientTest, ClientThatMayNotRemoveItselfKeepsItsCredentials) {
    PutClient("a", "old-id");
    Answer({{"DELETE /v1/auth/clients", {403, "why"}}});

    EXPECT_EQ(Failure([&] { Manager().UnenrollClientSelf("a"); }),
              "DeleteClient: unexpected http status 403 body = 'why'");

    EXPECT_EQ(StoredClient("a"), "old-id secret");
}

}  // namespace
}  // namespace Ombry::Tests
