#include "ClientCommunications/CommunicationsError.h"
#include "ClientCommunications/Impl/OAuth2Exception.h"
#include "ClientCommunications/Impl/OAuth2ServiceGatewayClient.h"
#include "ClientCommunications/Impl/ServiceRequest.h"
#include "ClientCommunications/RootRequestMetaData.h"
#include "tests/Fakes/FreedMemory.h"
#include "tests/Fakes/RecordingLogger.h"
#include "tests/Fakes/ScriptedGateway.h"

#include <gmock/gmock.h>

#include <map>
#include <stdexcept>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// Makes plain requests and records what it was asked for.
class RecordingRequestFactory : public IServiceRequestFactory {
public:
    std::shared_ptr<IServiceRequest> Create(const std::string& method, const std::string& path,
                                            const std::string& contractVersion,
                                            std::shared_ptr<IRootRequestMetaData> metaData) override {
        asked.push_back(method + " " + path + " " + contractVersion + (metaData ? " with" : " without"));
        this->metaData = metaData;
        return CreateServiceRequest(method, path, contractVersion);
    }
    std::shared_ptr<IServiceRequest> Create(const std::string&, const std::string&,
                                            const std::string&) override {
        throw std::logic_error("the variant without metadata was asked");
    }
    std::vector<std::string> asked;
    std::shared_ptr<IRootRequestMetaData> metaData;  ///< of the last call
};

class OAuth2ServiceGatewayClientTest : public testing::Test {
protected:
    OAuth2Token GetToken(const std::string& name = "service") {
        return client.GetToken(name, nullptr, Cancellation::Token());
    }

    std::string FailureOf(const std::string& name = "service") {
        try {
            GetToken(name);
        } catch (const OAuth2Exception&) {
            return "an OAuth2Exception got out";
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
        return "no failure";
    }

    const std::shared_ptr<ScriptedGateway> gateway = std::make_shared<ScriptedGateway>();
    const std::shared_ptr<RecordingRequestFactory> factory = std::make_shared<RecordingRequestFactory>();
    const std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
    OAuth2ServiceGatewayClient client{gateway, factory, "/v1/auth/users/servicetokens", logger};
};

TEST_F(OAuth2ServiceGatewayClientTest, TheRequestIsAFormForAClientCredentialsGrant) {
    gateway->Answer(200, "{}");
    GetToken("v1-ddbmanagement");

    EXPECT_THAT(factory->asked, ElementsAre("POST /v1/auth/users/servicetokens 1 without"));
    ASSERT_EQ(gateway->calls.size(), 1u);
    const ScriptedGateway::Call& call = gateway->calls[0];
    EXPECT_EQ(call.method, "POST");
    EXPECT_EQ(call.path, "/v1/auth/users/servicetokens");
    EXPECT_THAT(call.headers, ElementsAre(Pair("Content-Type", "application/x-www-form-urlencoded"),
                                          Pair("Contract-Version", "1")));
    EXPECT_EQ(call.body, "grant_type=client_credentials&servicename=v1-ddbmanagement");
    EXPECT_FALSE(call.streamed);
}

TEST_F(OAuth2ServiceGatewayClientTest, TheRootOfTheCallGoesWithTheRequest) {
    gateway->Answer(200, "{}");
    const auto metaData = RootRequestMetaData::createInfrastructure("UpdateJwtToken");
    client.GetToken("service", metaData, Cancellation::Token());

    EXPECT_EQ(factory->metaData, metaData);
}

TEST_F(OAuth2ServiceGatewayClientTest, TheServiceNameGoesOutRawOnPurpose) {
    gateway->Answer(200, "{}");
    GetToken("a&b=c%20 d+\xff");

    EXPECT_EQ(gateway->calls[0].body, "grant_type=client_credentials&servicename=a&b=c%20 d+\xff");
}

TEST_F(OAuth2ServiceGatewayClientTest, TheAnswerIsReadIntoTheToken) {
    gateway->Answer(
        200, R"({"token_type":"Bearer","access_token":"t\u0041","expires_in":3600,"scope":"all","x":1})");
    const OAuth2Token token = GetToken();

    EXPECT_EQ(token.tokenType, "Bearer");
    EXPECT_EQ(token.accessToken, "tA");
    EXPECT_EQ(token.expiresIn, 3600u);
    EXPECT_EQ(token.scope, "all");
}

TEST_F(OAuth2ServiceGatewayClientTest, MissingKeysLeaveTheEmptyDefaults) {
    gateway->Answer(200, "{}");
    const OAuth2Token token = GetToken();

    EXPECT_EQ(token.tokenType + token.accessToken + token.scope, "");
    EXPECT_EQ(token.expiresIn, 0u);
}

TEST_F(OAuth2ServiceGatewayClientTest, ALifetimeMayBeAWholeDoubleButNoText) {
    gateway->Answer(200, R"({"expires_in":3600.0})");
    EXPECT_EQ(GetToken().expiresIn, 3600u);

    gateway->Answer(200, R"({"expires_in":"3600"})");
    EXPECT_EQ(FailureOf(),
              "ERROR: Expected type 'unsigned long' when processing '.expires_in' "
              "serialization_='{\"expires_in\":\"3600\"}'");
}

TEST_F(OAuth2ServiceGatewayClientTest, EveryStatusBelow300IsASuccess) {
    for (const int status : {0, 200, 201, 299}) {
        gateway->Answer(status, R"({"access_token":"t"})");
        EXPECT_EQ(GetToken().accessToken, "t") << status;
    }
}

TEST_F(OAuth2ServiceGatewayClientTest, EveryStatusFrom300OnIsAFailureWithOneWordingWhateverTheBody) {
    const std::vector<std::string> bodies = {
        R"({"error":"invalid_client","error_description":"d","error_uri":"u"})",
        "<html>no</html>",
        "",
        R"({"error":7})",
        "{}",
        "null"};
    for (const int status : {300, 301, 400, 401, 404, 500, 599}) {
        for (const std::string& body : bodies) {
            gateway->Answer(status, body);
            EXPECT_EQ(FailureOf(), "OAuth2 request failed with response code " + std::to_string(status) +
                                       " and response body " + body);
        }
    }
}

TEST_F(OAuth2ServiceGatewayClientTest, AGoodStatusWithABodyThatIsNoJsonFailsInTheWordsOfTheReader) {
    gateway->Answer(200, "<html>");
    EXPECT_EQ(FailureOf().find("ERROR: Parse failed at offset "), 0u) << FailureOf();
    EXPECT_THAT(logger->Messages(4), IsEmpty());
}

TEST_F(OAuth2ServiceGatewayClientTest, LogsTheRequestAndAFailureWithStatusAndBody) {
    gateway->Answer(401, "the body");
    FailureOf("the service");

    EXPECT_THAT(logger->Messages(), ElementsAre("Getting token for the service",
                                                "Failed to get token for the service.  HTTP status: 401, "
                                                "response body: the body"));
    EXPECT_THAT(logger->Messages(0), ElementsAre("Getting token for the service"));
    EXPECT_EQ(logger->Messages(4).size(), 1u);
    for (const RecordingLogger::Entry& entry : logger->Entries()) {
        EXPECT_EQ(entry.function, "Ombry::ClientCommunications::OAuth2ServiceGatewayClient::GetToken");
        EXPECT_EQ(entry.file, SourcePath("ClientCommunications/Impl/OAuth2ServiceGatewayClient.cpp"));
    }
}

TEST_F(OAuth2ServiceGatewayClientTest, TheRequestIsLoggedBeforeTheCall) {
    gateway->onCall = [&] { EXPECT_THAT(logger->Messages(), ElementsAre("Getting token for service")); };
    gateway->Answer(200, "{}");
    GetToken();
    EXPECT_EQ(gateway->calls.size(), 1u);
}

TEST_F(OAuth2ServiceGatewayClientTest, ATokenIsNeverLogged) {
    gateway->Answer(200, R"({"access_token":"very-secret"})");
    GetToken();
    for (const std::string& message : logger->Messages())
        EXPECT_EQ(message.find("very-secret"), std::string::npos);
}

/// A gateway that gives the same answer to each call, and has it still when it is gone.
class OneAnswerGateway : public IServiceGateway {
public:
    explicit OneAnswerGateway(std::shared_ptr<PlainResponse> answer) : answer(std::move(answer)) {}
    std::shared_ptr<IStringServiceResponse> CallForString(std::shared_ptr<IServiceRequest>,
                                                          Cancellation::Token) override {
        return answer;
    }
    std::shared_ptr<IStreamServiceResponse> CallForStream(std::shared_ptr<IServiceRequest>,
                                                          std::shared_ptr<ISyncWriter>,
                                                          Cancellation::Token) override {
        return answer;
    }

private:
    const std::shared_ptr<PlainResponse> answer;
};

// The body itself is its response's.
TEST_F(OAuth2ServiceGatewayClientTest, WhatIsMadeOfTheBodyLeavesNoTokenInFreedMemory) {
    const std::string secret = "a token too long for a string object";
    const auto answer = std::make_shared<PlainResponse>(200, R"({"access_token":")" + secret + "\"}");
    OAuth2ServiceGatewayClient asking(std::make_shared<OneAnswerGateway>(answer), factory, "/path", nullptr);

    const FreedMemory freed(secret);
    const OAuth2Token token = asking.GetToken("s", nullptr, Cancellation::Token());

    EXPECT_EQ(freed.BlocksWithTheSecret(), 0u);
    EXPECT_EQ(token.accessToken, secret);
}

TEST_F(OAuth2ServiceGatewayClientTest, WorksWithoutALogger) {
    OAuth2ServiceGatewayClient silent(gateway, factory, "/path", nullptr);
    gateway->Answer(200, R"({"access_token":"t"})");
    EXPECT_EQ(silent.GetToken("s", nullptr, Cancellation::Token()).accessToken, "t");
    gateway->Answer(500, "");
    EXPECT_THROW(silent.GetToken("s", nullptr, Cancellation::Token()), std::runtime_error);
}

TEST_F(OAuth2ServiceGatewayClientTest, FailuresOfTheCallPassThroughUnchanged) {
    gateway->Throw(CommunicationsError("no answer"));
    EXPECT_THROW(GetToken(), CommunicationsError);
    gateway->Throw(Cancellation::TimeoutException("late"));
    EXPECT_THROW(GetToken(), Cancellation::TimeoutException);
    gateway->Throw(Cancellation::OperationCancelledException());
    EXPECT_THROW(GetToken(), Cancellation::OperationCancelledException);
    gateway->Throw(std::runtime_error("Error 3.0"));
    EXPECT_EQ(FailureOf(), "Error 3.0");
    EXPECT_THAT(logger->Messages(4), IsEmpty());
}

TEST_F(OAuth2ServiceGatewayClientTest, ACancelledTokenAsksForNothing) {
    Cancellation::Token token = Cancellation::CreateCancellable();
    token.Cancel();

    EXPECT_THROW(client.GetToken("service", nullptr, token), Cancellation::OperationCancelledException);
    EXPECT_THAT(gateway->calls, IsEmpty());
    EXPECT_THAT(logger->Messages(), ElementsAre("Getting token for service")) << "it was asked for";
}

TEST_F(OAuth2ServiceGatewayClientTest, TheCallersTokenGoesWithTheCall) {
    Cancellation::Token token = Cancellation::CreateCancellable();
    gateway->onCall = [&] { token.Cancel(); };
    gateway->Answer(200, "{}");
    client.GetToken("service", nullptr, token);
    EXPECT_TRUE(gateway->calls[0].token.IsCancelled());
}

}  // namespace
}  // namespace Ombry::Tests
