#include "ClientCommunications/Impl/FoundServices.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Ombry.SecClientConfig/EnrollmentManagerFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ombry::Tests {
namespace {

using SecClientConfig::ServiceEnrollmentRequest;

const std::string ServicesPath = "/v1/services/services";

class EnrollmentManagerServiceTest : public EnrollmentManagerFixture {
protected:
    EnrollmentManagerServiceTest() { PutClient("Owner", "owner-id"); }

    /// As the tool fills it.
    static ServiceEnrollmentRequest Request() {
        ServiceEnrollmentRequest request;
        request.clientName = "Owner";
        request.serviceName = "Svc";
        request.directUrl = "https://h:1/x";
        request.endpointUrl = "https://h:1/x";
        request.serviceHostname = "Host";
        request.serviceNamespace = "Space";
        return request;
    }

    void AddFound(const std::string& id) {
        ClientCommunications::ServiceDto dto;
        dto.id = id;
        communications->found.push_back(dto);
    }

    /// The ids in the order in which the search gives them.
    Texts FoundOrder() const {
        ClientCommunications::FoundServicesDto dto;
        dto.local = communications->found;
        Texts ids;
        for (const auto& service : ClientCommunications::FoundServices(dto).GetAll())
            ids.push_back(service->GetId());
        return ids;
    }

    static Texts Search() {
        return {"finder name Svc namespace Space host Host", "find name Svc namespace Space host Host"};
    }
    static Texts EnrollCall() { return Call("v1-service", "1.0.0.0", "POST", ServicesPath); }
    static Texts DeleteCall(const std::string& id) {
        return Call("v1-service", "1.0.0.0", "DELETE", ServicesPath + "/" + id);
    }
    static std::string ReadOwner() { return "Read " + CredentialsPath("Owner"); }
};

TEST_F(EnrollmentManagerServiceTest, NewServiceIsEnrolledAndRecorded) {
    Answer({{"POST " + ServicesPath, {201, FakeCommunications::Unreadable}}});

    Manager().EnrollService(Request());

    EXPECT_EQ(
        steps,
        Join({{ReadOwner()}, Search(), ReadDatacenter(), EnrollCall(), Save(RecordPath("Owner", "Svc"))}));
    EXPECT_EQ(communications->bodies, Texts{"{\n"
                                            "    \"serviceId\": \"" +
                                            FakeRandom::GuidText(1) +
                                            "\",\n"
                                            "    \"serviceName\": \"Svc\",\n"
                                            "    \"clientId\": \"owner-id\",\n"
                                            "    \"directUrl\": \"https://h:1/x\",\n"
                                            "    \"directCert\": null,\n"
                                            "    \"endpointUrl\": \"https://h:1/x\",\n"
                                            "    \"endpointCert\": null,\n"
                                            "    \"serviceHostname\": \"Host\",\n"
                                            "    \"serviceNamespace\": \"Space\",\n"
                                            "    \"datacenterID\": \"dc-1\",\n"
                                            "    \"links\": null,\n"
                                            "    \"roles\": null,\n"
                                            "    \"ttlSeconds\": null,\n"
                                            "    \"status\": null,\n"
                                            "    \"serviceProps\": null\n"
                                            "}"});
    EXPECT_EQ(files.Content(RecordPath("Owner", "Svc")), RecordText(FakeRandom::GuidText(1)));
}

TEST_F(EnrollmentManagerServiceTest, EnrollmentLeavesNoIdOfTheOwnerInTheMemoryThatItFrees) {
    const std::string id = "an id too long for a string object";
    PutClient("Owner", id);
    Answer({{"POST " + ServicesPath, {201, ""}}});

    const FreedMemory freed(id);
    Manager().EnrollService(Request());

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_NE(communications->bodies.at(0).find(id), std::string::npos);
}

TEST_F(EnrollmentManagerServiceTest, EveryOptionalFieldThatIsSetGoesIntoTheBody) {
    Answer({{"POST " + ServicesPath, {201, ""}}});
    ServiceEnrollmentRequest request = Request();
    request.endpointUrl = "https://other";
    request.directCert = "dc";
    request.endpointCert = "ec";
    request.roles = {"r2", "r1"};
    request.ttlSeconds = 60;
    request.serviceProps = {{"b", "2"}, {"a", "1"}};

    Manager().EnrollService(request);

    EXPECT_EQ(communications->bodies, Texts{"{\n"
                                            "    \"serviceId\": \"" +
                                            FakeRandom::GuidText(1) +
                                            "\",\n"
                                            "    \"serviceName\": \"Svc\",\n"
                                            "    \"clientId\": \"owner-id\",\n"
                                            "    \"directUrl\": \"https://h:1/x\",\n"
                                            "    \"directCert\": \"dc\",\n"
                                            "    \"endpointUrl\": \"https://other\",\n"
                                            "    \"endpointCert\": \"ec\",\n"
                                            "    \"serviceHostname\": \"Host\",\n"
                                            "    \"serviceNamespace\": \"Space\",\n"
                                            "    \"datacenterID\": \"dc-1\",\n"
                                            "    \"links\": null,\n"
                                            "    \"roles\": [\n"
                                            "        \"r2\",\n"
                                            "        \"r1\"\n"
                                            "    ],\n"
                                            "    \"ttlSeconds\": 60,\n"
                                            "    \"status\": null,\n"
                                            "    \"serviceProps\": [\n"
                                            "        {\n"
                                            "            \"key\": \"a\",\n"
                                            "            \"value\": \"1\"\n"
                                            "        },\n"
                                            "        {\n"
                                            "            \"key\": \"b\",\n"
                                            "            \"value\": \"2\"\n"
                                            "        }\n"
                                            "    ]\n"
                                            "}"});
}

TEST_F(EnrollmentManagerServiceTest, OptionalFieldsThatAreSetToNothingGoIntoTheBodyAllTheSame) {
    Answer({{"POST " + ServicesPath, {201, ""}}});
    ServiceEnrollmentRequest request = Request();
    request.directUrl = "";
    request.directCert = "";
    request.endpointCert = "";
    request.roles.emplace();
    request.ttlSeconds = 0;
    request.serviceProps.emplace();

    Manager().EnrollService(request);

    ASSERT_EQ(communications->bodies.size(), 1u);
    for (const std::string line : {R"("directUrl": "")", R"("directCert": "")", R"("endpointCert": "")",
                                   R"("roles": [])", R"("ttlSeconds": 0)", R"("serviceProps": [])"})
        EXPECT_THAT(communications->bodies[0], testing::HasSubstr("\n    " + line)) << line;
}

TEST_F(EnrollmentManagerServiceTest, EarlierRegistrationsAreDeletedFirstInTheOrderFound) {
    for (const char* id : {"s1", "s2", "s3"})
        AddFound(id);
    const Texts order = FoundOrder();
    Answer({{"POST " + ServicesPath, {201, ""}},
            {"DELETE " + ServicesPath + "/s1", {200, ""}},
            {"DELETE " + ServicesPath + "/s2", {404, ""}},
            {"DELETE " + ServicesPath + "/s3", {200, ""}}});

    Manager().EnrollService(Request());

    EXPECT_EQ(steps, Join({{ReadOwner()},
                           Search(),
                           DeleteCall(order[0]),
                           DeleteCall(order[1]),
                           DeleteCall(order[2]),
                           ReadDatacenter(),
                           EnrollCall(),
                           Save(RecordPath("Owner", "Svc"))}));
}

TEST_F(EnrollmentManagerServiceTest, EarlierRegistrationsInOtherDatacentersAreDeletedBehindThoseOfThisOne) {
    AddFound("near");
    communications->foundRemotely.resize(1);
    communications->foundRemotely.front().id = "far";
    Answer({{"POST " + ServicesPath, {201, ""}},
            {"DELETE " + ServicesPath + "/near", {200, ""}},
            {"DELETE " + ServicesPath + "/far", {200, ""}}});

    Manager().EnrollService(Request());

    EXPECT_EQ(steps, Join({{ReadOwner()},
                           Search(),
                           DeleteCall("near"),
                           DeleteCall("far"),
                           ReadDatacenter(),
                           EnrollCall(),
                           Save(RecordPath("Owner", "Svc"))}));
}

TEST_F(EnrollmentManagerServiceTest, DeletionThatFailsEndsTheCommandBeforeAnythingNew) {
    AddFound("s1");
    for (const int status : {204, 403, 500}) {
        steps.clear();
        Answer({{"POST " + ServicesPath, {201, ""}}, {"DELETE " + ServicesPath + "/s1", {status, "why"}}});

        EXPECT_EQ(Failure([&] { Manager().EnrollService(Request()); }),
                  "DeleteServiceById: unexpected http status " + std::to_string(status) + " body = 'why'");

        EXPECT_EQ(steps, Join({{ReadOwner()}, Search(), DeleteCall("s1")}));
        EXPECT_FALSE(files.Exists(RecordPath("Owner", "Svc")));
    }
}

TEST_F(EnrollmentManagerServiceTest, SearchThatFailsEndsTheCommand) {
    communications->onFind = [] { throw std::runtime_error("HTTP error 401: no"); };

    EXPECT_EQ(Failure([&] { Manager().EnrollService(Request()); }), "HTTP error 401: no");
    EXPECT_EQ(steps, Join({{ReadOwner()}, Search()}));
}

TEST_F(EnrollmentManagerServiceTest, RefusedEnrollmentLeavesTheOldRegistrationsDeletedAndNoRecord) {
    AddFound("s1");
    for (const int status : {200, 400, 500}) {
        steps.clear();
        Answer({{"POST " + ServicesPath, {status, "why"}}, {"DELETE " + ServicesPath + "/s1", {200, ""}}});

        EXPECT_EQ(Failure([&] { Manager().EnrollService(Request()); }),
                  "EnrollService: unexpected http status " + std::to_string(status) + " body = 'why'");

        EXPECT_EQ(steps, Join({{ReadOwner()}, Search(), DeleteCall("s1"), ReadDatacenter(), EnrollCall()}));
    }
}

TEST_F(EnrollmentManagerServiceTest, RecordThatCannotBeSavedLeavesAServiceThatOnlyTheServiceKnows) {
    Answer({{"POST " + ServicesPath, {201, ""}}});
    FailFile("BeginReplace", RecordPath("Owner", "Svc"));

    EXPECT_EQ(Failure([&] { Manager().EnrollService(Request()); }),
              "Ombry::ClientCommunications::FileStorage::Save: Failed to open file '" +
                  RecordPath("Owner", "Svc") + "' for write.");
    EXPECT_EQ(steps.back(), "BeginReplace " + RecordPath("Owner", "Svc") + " Synced");
}

TEST_F(EnrollmentManagerServiceTest, OwnerThatIsNotEnrolledHereFailsFirst) {
    ServiceEnrollmentRequest request = Request();
    request.clientName = "nosuch";
    EXPECT_EQ(Failure([&] { Manager().EnrollService(request); }),
              "Ombry::ClientCommunications::FileStorage::Load: Failed to open file '" +
                  CredentialsPath("nosuch") + "' for read.");

    files.Put(CredentialsPath("empty"), "");
    request.clientName = "empty";
    EXPECT_EQ(Failure([&] { Manager().EnrollService(request); }),
              "The credentials file of 'empty' is empty.");
    EXPECT_EQ(steps, (Texts{"Read " + CredentialsPath("nosuch"), "Read " + CredentialsPath("empty")}));
}

TEST_F(EnrollmentManagerServiceTest, EachRequiredFieldIsMissedAtItsStep) {
    struct Case {
        const char* name;
        std::function<void(ServiceEnrollmentRequest&)> remove;
        Texts stepsBefore;
    };
    const Texts upToBody = Join({{ReadOwner()}, Search(), DeleteCall("s1")});
    const std::vector<Case> cases = {
        {"clientName", [](auto& request) { request.clientName.reset(); }, {}},
        {"serviceNamespace", [](auto& request) { request.serviceNamespace.reset(); }, {ReadOwner()}},
        {"serviceHostname", [](auto& request) { request.serviceHostname.reset(); }, {ReadOwner()}},
        {"serviceName", [](auto& request) { request.serviceName.reset(); }, {ReadOwner()}},
        {"directUrl", [](auto& request) { request.directUrl.reset(); }, upToBody},
        {"endpointUrl", [](auto& request) { request.endpointUrl.reset(); }, upToBody},
    };
    AddFound("s1");
    Answer({{"POST " + ServicesPath, {201, ""}}, {"DELETE " + ServicesPath + "/s1", {200, ""}}});
    for (const Case& one : cases) {
        steps.clear();
        ServiceEnrollmentRequest request = Request();
        one.remove(request);

        EXPECT_EQ(Failure([&] { Manager().EnrollService(request); }), "property is not set") << one.name;

        EXPECT_EQ(steps, one.stepsBefore) << one.name;
    }
}

TEST_F(EnrollmentManagerServiceTest, MachineWithoutDatacenterFailsWhenTheOldRegistrationsAreGone) {
    AddFound("s1");
    Answer({{"DELETE " + ServicesPath + "/s1", {200, ""}}});
    FailFile("Read", Security + "/CS/datacenterid.config");

    EXPECT_NE(Failure([&] { Manager().EnrollService(Request()); }), "");

    EXPECT_EQ(steps, Join({{ReadOwner()}, Search(), DeleteCall("s1"), ReadDatacenter()}));
}

TEST_F(EnrollmentManagerServiceTest, SameServiceOnAnotherHostOverwritesTheRecordOfTheFirst) {
    Answer({{"POST " + ServicesPath, {201, ""}}});
    ServiceEnrollmentRequest other = Request();
    other.serviceHostname = "Other";

    Manager().EnrollService(Request());
    Manager().EnrollService(other);

    EXPECT_EQ(files.Content(RecordPath("Owner", "Svc")), RecordText(FakeRandom::GuidText(2)));
}

TEST_F(EnrollmentManagerServiceTest, UnenrollmentDeletesByTheRecordAndThenTheRecord) {
    for (const int status : {200, 404}) {
        files.Put(RecordPath("Owner", "Svc"), RecordText("id-1"));
        steps.clear();
        Answer({{"DELETE " + ServicesPath + "/id-1", {status, ""}}});

        Manager().UnenrollService("Owner", "Svc");

        EXPECT_EQ(steps, Join({{"Read " + RecordPath("Owner", "Svc")},
                               DeleteCall("id-1"),
                               {"Remove " + RecordPath("Owner", "Svc") + " Synced"}}));
        EXPECT_FALSE(files.Exists(RecordPath("Owner", "Svc")));
    }
}

TEST_F(EnrollmentManagerServiceTest, UnenrollmentNeedsNoVersionInTheRecord) {
    files.Put(RecordPath("Owner", "Svc"), R"({"Guid":"id-1"})");
    Answer({{"DELETE " + ServicesPath + "/id-1", {200, ""}}});

    Manager().UnenrollService("Owner", "Svc");

    EXPECT_FALSE(files.Exists(RecordPath("Owner", "Svc")));
}

TEST_F(EnrollmentManagerServiceTest, UnenrollmentByARecordWithoutAnIdAsksForTheDeletionOfNoIdOnPurpose) {
    const std::string text = R"({"Version":"1.0"})";
    files.Put(RecordPath("Owner", "Svc"), text);
    Answer({{"DELETE " + ServicesPath + "/", {405, "which?"}}});

    EXPECT_EQ(Failure([&] { Manager().UnenrollService("Owner", "Svc"); }),
              "DeleteServiceById: unexpected http status 405 body = 'which?'");

    EXPECT_EQ(steps, Join({{"Read " + RecordPath("Owner", "Svc")}, DeleteCall("")}));
    EXPECT_EQ(files.Content(RecordPath("Owner", "Svc")), text);
}

TEST_F(EnrollmentManagerServiceTest, UnenrollmentWithoutARecordDoesNothingAndSucceeds) {
    Manager().UnenrollService("Owner", "nosuch");
    Manager().UnenrollService("nobody", "Svc");

    EXPECT_EQ(steps, (Texts{"Read " + RecordPath("Owner", "nosuch"), "Read " + RecordPath("nobody", "Svc")}));
}

TEST_F(EnrollmentManagerServiceTest, EveryStandardExceptionWhileTheRecordIsReadEndsAnUnenrollmentInSilence) {
    files.Put(RecordPath("Owner", "Svc"), RecordText("id-1"));
    files.Decide([](const FileOperation&) -> std::optional<int> { throw std::logic_error("no sense"); });

    Manager().UnenrollService("Owner", "Svc");

    EXPECT_EQ(steps, Texts{});
    EXPECT_EQ(files.Content(RecordPath("Owner", "Svc")), RecordText("id-1"));
}

TEST_F(EnrollmentManagerServiceTest, SecondUnenrollmentDoesNothing) {
    files.Put(RecordPath("Owner", "Svc"), RecordText("id-1"));
    Answer({{"DELETE " + ServicesPath + "/id-1", {200, ""}}});
    Manager().UnenrollService("Owner", "Svc");
    steps.clear();

    Manager().UnenrollService("Owner", "Svc");

    EXPECT_EQ(steps, Texts{"Read " + RecordPath("Owner", "Svc")});
}

TEST_F(EnrollmentManagerServiceTest, UnenrollmentThatTheServiceRefusesKeepsTheRecord) {
    for (const int status : {204, 403, 500}) {
        files.Put(RecordPath("Owner", "Svc"), RecordText("id-1"));
        Answer({{"DELETE " + ServicesPath + "/id-1", {status, "why"}}});

        EXPECT_EQ(Failure([&] { Manager().UnenrollService("Owner", "Svc"); }),
                  "DeleteServiceById: unexpected http status " + std::to_string(status) + " body = 'why'");

        EXPECT_EQ(files.Content(RecordPath("Owner", "Svc")), RecordText("id-1"));
    }
}

TEST_F(EnrollmentManagerServiceTest, RecordThatIsNoJsonIsNotSwallowed) {
    for (const std::string text : {"", "{\"Guid\"", "[]"}) {
        files.Put(RecordPath("Owner", "Svc"), text);
        steps.clear();

        EXPECT_EQ(Failure([&] { Manager().UnenrollService("Owner", "Svc"); }).rfind("ERROR: ", 0), 0u)
            << text;

        EXPECT_EQ(steps, Texts{"Read " + RecordPath("Owner", "Svc")});
        EXPECT_EQ(files.Content(RecordPath("Owner", "Svc")), text);
    }
}

TEST_F(EnrollmentManagerServiceTest, NamesEnterPathsAsTheyAreGiven) {
    files.Put(RecordPath("Own/er", "S v?c"), RecordText("I D"));
    Answer({{"DELETE " + ServicesPath + "/I D", {200, ""}}});

    Manager().UnenrollService("Own/er", "S v?c");

    EXPECT_FALSE(files.Exists(RecordPath("Own/er", "S v?c")));
}

}  // namespace
}  // namespace Ombry::Tests
