#pragma once

#include "ClientCommunications/IOAuth2Client.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// A token service that hands out "token-1", "token-2" and so on, or does what a test says. Without
/// an answer of the test's own, a cancelled token ends the call as it would end a real one. Any thread may
/// call it.
class FakeOAuth2Client : public ClientCommunications::IOAuth2Client {
public:
    struct Call {
        std::string serviceName;
        std::optional<std::map<std::string, std::string>> metaData;  ///< nothing for a null pointer
        bool cancelled;                                              ///< the token, when the call came
    };
    using Answer = std::function<ClientCommunications::OAuth2Token(const Call&, Cancellation::Token)>;

    ClientCommunications::OAuth2Token GetToken(
        const std::string& serviceName, std::shared_ptr<ClientCommunications::IRootRequestMetaData> metaData,
        Cancellation::Token token) override {
        Call call{serviceName, std::nullopt, token.IsCancelled()};
        if (metaData) {
            call.metaData.emplace();
            metaData->ForEachValue([&](const std::string& key, const std::string& value) {
                call.metaData->emplace(key, value);
            });
        }
        Answer chosen;
        ClientCommunications::OAuth2Token result;
        {
            std::lock_guard guard(mutex);
            calls.push_back(call);
            chosen = answer;
            result = Token("token-" + std::to_string(calls.size()), expiresIn);
        }
        if (chosen) return chosen(call, token);
        token.ThrowIfCancelled();
        return result;
    }

    static ClientCommunications::OAuth2Token Token(const std::string& accessToken, unsigned long expiresIn) {
        ClientCommunications::OAuth2Token token;
        token.tokenType = "bearer";
        token.accessToken = accessToken;
        token.expiresIn = expiresIn;
        token.scope = "all";
        return token;
    }

    void AnswerWith(Answer newAnswer) {
        std::lock_guard guard(mutex);
        answer = std::move(newAnswer);
    }
    void SetExpiresIn(unsigned long seconds) {
        std::lock_guard guard(mutex);
        expiresIn = seconds;
    }

    std::vector<Call> Calls() const {
        std::lock_guard guard(mutex);
        return calls;
    }
    std::vector<std::string> ServiceNames() const {
        std::vector<std::string> names;
        for (const Call& call : Calls())
            names.push_back(call.serviceName);
        return names;
    }

private:
    mutable std::mutex mutex;
    // Guarded by mutex:
    std::vector<Call> calls;
    Answer answer;
    unsigned long expiresIn = 3600;
};

}  // namespace Ombry::Tests
