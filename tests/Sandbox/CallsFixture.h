#pragma once

#include "Sandbox/Calls.h"
#include "tests/Fakes/FakeClock.h"
#include "tests/Fakes/FakeRandom.h"
#include "tests/Fakes/Linux/TestCertificates.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <regex>
#include <string>
#include <vector>

namespace Ombry::Tests::SandboxService {

using Words = std::vector<std::string>;

struct Answer {
    int status = 0;  ///< 0 if there was none
    std::string body;
    httplib::Headers headers = {};

    std::string Header(const std::string& name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? "none" : found->second;
    }
};

struct Question {
    std::string method = "GET";
    std::string path;
    httplib::Headers headers = {};
    std::string body = {};
    std::string type = {};
};

inline std::string ErrorDocument(const std::string& error, const std::string& description) {
    return R"({"error":")" + error + R"(","error_description":")" + description + R"("})";
}

inline void ExpectAnswer(const Answer& answer, int status, const std::string& body) {
    EXPECT_EQ(answer.status, status);
    EXPECT_EQ(answer.body, body);
}

inline httplib::Headers Bearer(const std::string& token) {
    return {{"Authorization", "Bearer " + token}};
}
inline httplib::Headers Basic(const std::string& nameAndSecret) {
    return {{"Authorization", "Basic " + Base64Of(nameAndSecret)}};
}

inline const std::string FormType = "application/x-www-form-urlencoded";
inline const std::string JsonType = "application/json";
inline const std::string UserTokens = "/v1/auth/users/servicetokens";
inline const std::string ClientTokens = "/v1/auth/clients/servicetokens";
inline const std::string Clients = "/v1/auth/locationawareclients";
inline const std::string Services = "/v1/services/services";
inline const std::string Datacenters = "/v1/ddb/datacenters";
inline const std::string Found = "/services/services/secure/";

inline std::string FormOf(const std::string& service) {
    return "grant_type=client_credentials&servicename=" + service;
}

/// The calls of the service, without a server. Time and chance are the test's.
class SandboxCallsTest : public testing::Test {
protected:
    void Start(const Words& words = {}) {
        TakeOptions(words);
        state.AddInstance({baseUrl, {}, options.ownDatacenter}, 0);
        calls.emplace(options, identity, state, faults);
    }

    void TakeOptions(Words words) {
        words.insert(words.begin(), {"ombry-sandbox", "--plain-http", "--datacenter", "d=Here",
                                     "--datacenter", "e=There", "--base-path", "/b"});
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        options = Sandbox::ParseOptions(static_cast<int>(arguments.size()), arguments.data());
    }

    /// Carries the call out; a fixture that has a server asks that.
    virtual Answer Ask(const Question& question) {
        httplib::Request request = RequestOf(question);
        for (const Sandbox::Calls::Call& call : Sandbox::Calls::All()) {
            if (call.method != request.method ||
                !std::regex_match(request.path, request.matches, std::regex(call.path)))
                continue;
            httplib::Response response;
            ((*calls).*call.carryOut)(request, response);
            return {response.status, response.body, response.headers};
        }
        ADD_FAILURE() << "There is no call " << request.method << " " << request.path;
        return {};
    }
    static httplib::Request RequestOf(const Question& question) {
        httplib::Request request;
        request.method = question.method;
        request.path = question.path;
        request.headers = question.headers;
        request.body = question.body;
        if (!question.type.empty()) request.headers.emplace("Content-Type", question.type);
        return request;
    }
    Answer Get(const std::string& path, const httplib::Headers& headers = {}) {
        return Ask({.path = path, .headers = headers});
    }
    Answer Delete(const std::string& path, const std::string& token) {
        return Ask({.method = "DELETE", .path = path, .headers = Bearer(token)});
    }
    Answer Post(const std::string& path, const httplib::Headers& headers, const std::string& body,
                const std::string& type = JsonType) {
        return Ask({.method = "POST", .path = path, .headers = headers, .body = body, .type = type});
    }

    static std::string TokenIn(const Answer& answer) {
        const std::string key = R"("access_token":")";
        const std::size_t begin = answer.body.find(key);
        if (begin == std::string::npos) return "no token in " + answer.body;
        return answer.body.substr(begin + key.size(),
                                  answer.body.find('"', begin + key.size()) - begin - key.size());
    }
    std::string UserToken(const std::string& serviceName) {
        return TokenIn(Post(UserTokens, Basic("admin:secret"), FormOf(serviceName), FormType));
    }
    std::string ClientToken(const std::string& id, const std::string& serviceName) {
        return TokenIn(Post(ClientTokens, Basic(id + ":s3cr3t"), FormOf(serviceName), FormType));
    }

    static std::string ClientBody(const std::string& id) {
        return R"({"id":")" + id +
               R"(","clientSecretId":"s3cr3t","publicCertPem":null,"groups":null,"description":null,)"
               R"("datacenterId":"d","rolesPerService":{}})";
    }
    void Enroll(const std::string& id) {
        ExpectAnswer(Post(Clients, Bearer(UserToken("v1-auth")), ClientBody(id)), 201,
                     R"({"id":")" + id + "\"}");
    }
    /// The body of a service of client "c", with one text in the place of another.
    static std::string ServiceBody(const std::string& from = {}, const std::string& to = {}) {
        std::string body =
            R"({"serviceId":"i","serviceName":"n","clientId":"c","directUrl":"u","directCert":null,)"
            R"("endpointUrl":"u","endpointCert":null,"serviceHostname":"h","serviceNamespace":"s",)"
            R"("datacenterID":"d","links":null,"roles":null,"ttlSeconds":null,"status":null,"serviceProps":null})";
        if (!from.empty()) body.replace(body.find(from), from.size(), to);
        return body;
    }

    FakeClock clock;
    const Platform::Testing::Replace<Platform::IClock> replacedClock{clock};
    FakeRandom random;
    const Platform::Testing::Replace<Platform::IRandom> replacedRandom{random};
    const TemporaryDirectory folder;
    const Sandbox::Identity identity{folder.Path()};
    Sandbox::State state{folder.Path()};
    Sandbox::Options options;
    Sandbox::Faults faults;
    const std::string baseUrl = "http://127.0.0.1:8181/b";
    std::optional<Sandbox::Calls> calls;
};

inline std::string NeedsToken(const std::string& serviceName) {
    return ErrorDocument("invalid_token", "A valid token for '" + serviceName + "' is needed.");
}
inline std::string MissesRight(const std::string& right) {
    return ErrorDocument("insufficient_scope", "The right '" + right + "' is missing.");
}

}  // namespace Ombry::Tests::SandboxService
