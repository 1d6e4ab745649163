#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/SfsGateway.h"
#include "tests/Fakes/FakeCommunications.h"
#include "tests/Fakes/FreedMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace Ombry::Tests {
namespace {

namespace SfsGateway = ClientCommunications::SfsGateway;
using Texts = std::vector<std::string>;

const std::string EmptyClient =
    "{\n"
    "    \"id\": null,\n"
    "    \"clientSecretId\": null,\n"
    "    \"publicCertPem\": null,\n"
    "    \"groups\": null,\n"
    "    \"description\": null,\n"
    "    \"datacenterId\": null,\n"
    "    \"rolesPerService\": null\n"
    "}";

const std::string EmptyService =
    "{\n"
    "    \"serviceId\": null,\n"
    "    \"serviceName\": null,\n"
    "    \"clientId\": null,\n"
    "    \"directUrl\": null,\n"
    "    \"directCert\": null,\n"
    "    \"endpointUrl\": null,\n"
    "    \"endpointCert\": null,\n"
    "    \"serviceHostname\": null,\n"
    "    \"serviceNamespace\": null,\n"
    "    \"datacenterID\": null,\n"
    "    \"links\": null,\n"
    "    \"roles\": null,\n"
    "    \"ttlSeconds\": null,\n"
    "    \"status\": null,\n"
    "    \"serviceProps\": null\n"
    "}";

/// One of the five functions and all that it is to do.
struct Function {
    std::string name;
    std::function<void(std::shared_ptr<FakeCommunications>)> call;
    std::string service;
    std::string contract;
    std::string method;
    std::string path;
    std::string body;
    std::vector<int> accepted;
};

const std::vector<Function> Functions = {
    {"EnrollClient",
     [](auto to) { SfsGateway::EnrollClient(to, {}); },
     "v1-auth",
     "1",
     "POST",
     "/v1/auth/locationawareclients",
     EmptyClient,
     {201}},
    {"DeleteClient",
     [](auto to) { SfsGateway::DeleteClient(to); },
     "v1-auth",
     "1",
     "DELETE",
     "/v1/auth/clients",
     "none",
     {204, 404}},
    {"DeleteClientById",
     [](auto to) { SfsGateway::DeleteClientById(to, "a b/c?d"); },
     "v1-auth",
     "1",
     "DELETE",
     "/v1/auth/clients/a b/c?d",
     "none",
     {204, 404}},
    {"EnrollService",
     [](auto to) { SfsGateway::EnrollService(to, {}); },
     "v1-service",
     "1.0.0.0",
     "POST",
     "/v1/services/services",
     EmptyService,
     {201}},
    {"DeleteServiceById",
     [](auto to) { SfsGateway::DeleteServiceById(to, "a b/c?d"); },
     "v1-service",
     "1.0.0.0",
     "DELETE",
     "/v1/services/services/a b/c?d",
     "none",
     {200, 404}},
};

TEST(SfsGatewayTest, EachFunctionMakesOneCallInTheSameSteps) {
    for (const Function& function : Functions) {
        const auto communications = std::make_shared<FakeCommunications>();
        communications->respond = [&](const std::string&) {
            return FakeCommunications::Answer{function.accepted[0], ""};
        };

        function.call(communications);

        const std::string finder = "name " + function.service;
        std::string headers = function.body == "none" ? "" : " Content-Type=application/json";
        headers += " Contract-Version=" + function.contract;
        EXPECT_EQ(communications->steps,
                  (Texts{"finder " + finder, "gateway " + finder,
                         "request " + function.method + " " + function.path + " " + function.contract,
                         "call " + finder + " " + function.method + " " + function.path + headers}))
            << function.name;
        EXPECT_EQ(communications->bodies, Texts{function.body}) << function.name;
    }
}

TEST(SfsGatewayTest, EachFunctionAcceptsItsOwnStatusesAndNoOther) {
    for (const Function& function : Functions) {
        for (int status = 100; status < 600; ++status) {
            const bool accepted = std::count(function.accepted.begin(), function.accepted.end(), status) > 0;
            const auto communications = std::make_shared<FakeCommunications>();
            communications->respond = [&](const std::string&) {
                return FakeCommunications::Answer{status,
                                                  accepted ? FakeCommunications::Unreadable : "a 'body'\n"};
            };
            std::string failure;
            try {
                function.call(communications);
            } catch (const std::runtime_error& caught) {
                failure = caught.what();
            }
            EXPECT_EQ(failure, accepted ? ""
                                        : function.name + ": unexpected http status " +
                                              std::to_string(status) + " body = 'a 'body'\n'");
        }
    }
}

TEST(SfsGatewayTest, EnrollmentLeavesNoSecretInTheMemoryThatItFrees) {
    const auto communications = std::make_shared<FakeCommunications>();
    communications->respond = [](const std::string&) { return FakeCommunications::Answer{201, ""}; };
    const std::string secret = "a secret too long for a string object";

    const FreedMemory freed(secret);
    {
        SfsGateway::LocationAwareClient client;
        client.description.Set(std::string(1000, 'd'));  // the text grows beyond its first buffer
        client.clientSecretId.Set(secret);
        client.datacenterId.Set(std::string(1000, 'd'));
        SfsGateway::EnrollClient(communications, client);
    }

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_NE(communications->bodies.at(0).find(secret), std::string::npos);
}

TEST(SfsGatewayTest, EnrollmentOfAServiceLeavesNoIdOfItsClientInTheMemoryThatItFrees) {
    const auto communications = std::make_shared<FakeCommunications>();
    communications->respond = [](const std::string&) { return FakeCommunications::Answer{201, ""}; };
    const std::string id = "an id too long for a string object";

    const FreedMemory freed(id);
    {
        SfsGateway::ServiceEnrollment service;
        service.clientId.Set(id);
        SfsGateway::EnrollService(communications, service);
    }

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_NE(communications->bodies.at(0).find(id), std::string::npos);
}

/// Writes a secret, and then cannot be written to its end.
class HalfWritten : public ObjectMapping::ObjectIf {
public:
    explicit HalfWritten(std::string secret) : secret(std::move(secret)) {}
    void Map(ObjectMapping::MapperIf& mapper) override {
        mapper.Field("secret", secret, nullptr);
        throw std::runtime_error("no more");
    }
    void Reset() override {}

private:
    std::string secret;
};

TEST(SfsGatewayTest, TextThatIsNotFinishedLeavesNoSecretInTheMemoryThatItFrees) {
    const std::string secret = "a secret too long for a string object";
    HalfWritten object(secret);
    const FreedMemory freed(secret);
    EXPECT_THROW(ObjectMapping::SerializeObject(object, nullptr), std::runtime_error);
    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
}

TEST(SfsGatewayTest, FailureOfTheGatewayPassesThrough) {
    for (const Function& function : Functions) {
        const auto communications = std::make_shared<FakeCommunications>();
        communications->respond = [](const std::string&) -> FakeCommunications::Answer {
            throw ClientCommunications::CommunicationsError("No IServiceResponse from any servers.");
        };

        EXPECT_THROW(function.call(communications), ClientCommunications::CommunicationsError)
            << function.name;
    }
}

}  // namespace
}  // namespace Ombry::Tests
