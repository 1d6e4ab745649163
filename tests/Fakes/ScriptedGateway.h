#pragma once

#include "ClientCommunications/IServiceGateway.h"

#include <deque>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Ombry::Tests {

/// A response made of what a test gives.
class PlainResponse : public ClientCommunications::IStringServiceResponse,
                      public ClientCommunications::IStreamServiceResponse {
public:
    PlainResponse(int status, std::string body, std::map<std::string, std::string> headers = {})
        : status(status), body(std::move(body)), headers(std::move(headers)) {}

    int GetStatusCode() const override { return status; }
    std::shared_ptr<ClientCommunications::IService> GetService() const override { return nullptr; }
    bool HasHeader(const std::string& name) const override { return headers.contains(name); }
    std::string GetHeader(const std::string& name) const override {
        const auto found = headers.find(name);
        if (found == headers.end()) throw std::out_of_range("invalid map<K, T> key");
        return found->second;
    }
    void ForEachHeader(
        std::function<void(const std::string& name, const std::string& value)> callback) const override {
        for (const auto& [name, value] : headers)
            callback(name, value);
    }
    std::string GetBody() const override { return body; }

private:
    const int status;
    const std::string body;
    const std::map<std::string, std::string> headers;
};

/// A gateway that answers as told, in order, and keeps what it was asked. For one thread.
class ScriptedGateway : public ClientCommunications::IServiceGateway {
public:
    struct Call {
        std::string method;
        std::string path;
        std::map<std::string, std::string> headers;
        std::string body;
        Cancellation::Token token;
        bool streamed = false;
        Cancellation::Token requestToken;  ///< the request's own, made at the time of the call
        Duration attemptTimeout{};
        int maxRetries = 0;
        std::shared_ptr<ClientCommunications::ISyncWriter> writer;  ///< of a stream call
    };

    void Answer(int status, std::string body, std::map<std::string, std::string> headers = {}) {
        answers.push_back([=] { return std::make_shared<PlainResponse>(status, body, headers); });
    }

    template <class Exception>
    void Throw(const Exception& exception) {
        answers.push_back([=]() -> std::shared_ptr<PlainResponse> { throw exception; });
    }

    std::shared_ptr<ClientCommunications::IStringServiceResponse> CallForString(
        std::shared_ptr<ClientCommunications::IServiceRequest> request, Cancellation::Token token) override {
        return Next(*request, std::move(token), false);
    }
    std::shared_ptr<ClientCommunications::IStreamServiceResponse> CallForStream(
        std::shared_ptr<ClientCommunications::IServiceRequest> request,
        std::shared_ptr<ClientCommunications::ISyncWriter> writer, Cancellation::Token token) override {
        return Next(*request, std::move(token), true, std::move(writer));
    }

    std::vector<Call> calls;
    std::function<void()> onCall;  ///< called before each answer

private:
    std::shared_ptr<PlainResponse> Next(const ClientCommunications::IServiceRequest& request,
                                        Cancellation::Token token, bool streamed,
                                        std::shared_ptr<ClientCommunications::ISyncWriter> writer = nullptr) {
        Call call{request.GetMethod(),
                  request.GetPath(),
                  {},
                  {},
                  std::move(token),
                  streamed,
                  request.GetCancellationToken(),
                  request.GetAttemptTimeout(),
                  request.GetMaxRetries(),
                  std::move(writer)};
        request.ForEachHeader(
            [&](const std::string& name, const std::string& value) { call.headers[name] = value; });
        if (const auto reader = request.GetBodyReader()) call.body = ReadAll(*reader);
        calls.push_back(std::move(call));
        if (onCall) onCall();
        if (answers.empty()) throw std::logic_error("a call that the test did not expect");
        const auto answer = std::move(answers.front());
        answers.pop_front();
        return answer();
    }

    static std::string ReadAll(ClientCommunications::ISyncReader& reader) {
        reader.Rewind();
        std::string text;
        char buffer[512];
        while (const std::size_t count = reader.Read(buffer, sizeof buffer))
            text.append(buffer, count);
        return text;
    }

    std::deque<std::function<std::shared_ptr<PlainResponse>()>> answers;
};

}  // namespace Ombry::Tests
