#pragma once

#include "ClientCommunications/IClientCommunications.h"
#include "ClientCommunications/Impl/FoundServices.h"
#include "ClientCommunications/Impl/ServiceRequest.h"

#include <functional>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Ombry::Tests {

/// A composition without a network: it writes down each step in order, answers calls as a test says, and
/// finds the services that a test put there. For one thread.
class FakeCommunications : public ClientCommunications::IClientCommunications {
public:
    struct Answer {
        int status;
        std::string body;
    };
    /// `call` is "METHOD path". May throw.
    using Responder = std::function<Answer(const std::string& call)>;

    std::shared_ptr<ClientCommunications::IServiceGatewayFactory> GetServiceGatewayFactory() override {
        return std::make_shared<GatewayFactory>(*this);
    }
    std::shared_ptr<ClientCommunications::IServiceFinderFactory> GetServiceFinderFactory() override {
        return std::make_shared<FinderFactory>(*this);
    }
    std::shared_ptr<ClientCommunications::ILocalServiceFinderFactory> GetLocalServiceFinderFactory()
        override {
        throw std::logic_error("not used here");
    }
    std::shared_ptr<ClientCommunications::IServiceIteratePolicyFactory> GetServiceIteratePolicyFactory()
        override {
        throw std::logic_error("not used here");
    }
    std::shared_ptr<ClientCommunications::IServiceRequestFactory> GetServiceRequestFactory() override {
        return std::make_shared<RequestFactory>(*this);
    }
    std::shared_ptr<ClientCommunications::IAaSigningCertificateFinder> GetAaSigningCertificateFinder()
        override {
        throw std::logic_error("not used here");
    }

    Responder respond = [](const std::string&) { return Answer{200, ""}; };
    std::function<void()> onFind;  ///< called by each search before it answers; may throw
    std::list<ClientCommunications::ServiceDto> found;
    std::list<ClientCommunications::ServiceDto> foundRemotely;
    std::function<void(const std::string& step)> onStep = [this](const std::string& step) {
        steps.push_back(step);
    };
    std::vector<std::string> steps;
    std::vector<std::string> bodies;  ///< of each call; "none" for a call without one

private:
    using Request = std::shared_ptr<ClientCommunications::IServiceRequest>;

    class Finder : public ClientCommunications::IServiceFinder {
    public:
        Finder(FakeCommunications& owner, std::string what) : owner(owner), what(std::move(what)) {}
        std::shared_ptr<ClientCommunications::IFoundServices> Find(
            std::shared_ptr<ClientCommunications::IRootRequestMetaData>, Cancellation::Token) override {
            throw std::logic_error("not used here");
        }
        std::shared_ptr<ClientCommunications::IFoundServices> Find(Cancellation::Token token) override {
            owner.onStep("find " + what + (token.IsCancelled() ? " cancelled" : ""));
            if (owner.onFind) owner.onFind();
            ClientCommunications::FoundServicesDto dto;
            dto.local = owner.found;
            dto.remote = owner.foundRemotely;
            return std::make_shared<ClientCommunications::FoundServices>(dto);
        }

        FakeCommunications& owner;
        const std::string what;
    };

    class FinderFactory : public ClientCommunications::IServiceFinderFactory {
    public:
        explicit FinderFactory(FakeCommunications& owner) : owner(owner) {}
        using Pointer = std::shared_ptr<ClientCommunications::IServiceFinder>;
        Pointer CreateByUrl(const std::string& url) override { return Make("url " + url); }
        Pointer CreateById(const std::string& id) override { return Make("id " + id); }
        Pointer CreateByName(const std::string& name) override { return Make("name " + name); }
        Pointer CreateByNameAndParentId(const std::string& name, const std::string& parentId) override {
            return Make("name " + name + " parent " + parentId);
        }
        Pointer CreateByNameAndRole(const std::string& name, const std::string& role) override {
            return Make("name " + name + " role " + role);
        }
        Pointer CreateByNameNamespaceAndHost(const std::string& name, const std::string& serviceNamespace,
                                             const std::string& host) override {
            return Make("name " + name + " namespace " + serviceNamespace + " host " + host);
        }

    private:
        Pointer Make(const std::string& what) {
            owner.onStep("finder " + what);
            return std::make_shared<Finder>(owner, what);
        }

        FakeCommunications& owner;
    };

    class RequestFactory : public ClientCommunications::IServiceRequestFactory {
    public:
        explicit RequestFactory(FakeCommunications& owner) : owner(owner) {}
        Request Create(const std::string&, const std::string&, const std::string&,
                       std::shared_ptr<ClientCommunications::IRootRequestMetaData>) override {
            throw std::logic_error("not used here");
        }
        Request Create(const std::string& method, const std::string& path,
                       const std::string& contractVersion) override {
            owner.onStep("request " + method + " " + path + " " + contractVersion);
            return ClientCommunications::CreateServiceRequest(method, path, contractVersion);
        }

    private:
        FakeCommunications& owner;
    };

    class Response : public ClientCommunications::IStringServiceResponse {
    public:
        explicit Response(Answer answer) : answer(std::move(answer)) {}
        int GetStatusCode() const override { return answer.status; }
        std::shared_ptr<ClientCommunications::IService> GetService() const override { return nullptr; }
        bool HasHeader(const std::string&) const override { return false; }
        std::string GetHeader(const std::string&) const override { throw std::out_of_range("no header"); }
        void ForEachHeader(std::function<void(const std::string&, const std::string&)>) const override {}
        std::string GetBody() const override {
            if (answer.body == Unreadable) throw std::logic_error("the body is not to be read");
            return answer.body;
        }

    private:
        const Answer answer;
    };

    class Gateway : public ClientCommunications::IServiceGateway {
    public:
        Gateway(FakeCommunications& owner, std::string what) : owner(owner), what(std::move(what)) {}
        std::shared_ptr<ClientCommunications::IStringServiceResponse> CallForString(
            Request request, Cancellation::Token token) override {
            std::string headers;
            request->ForEachHeader([&](const std::string& name, const std::string& value) {
                headers += " " + name + "=" + value;
            });
            const std::string call = request->GetMethod() + " " + request->GetPath();
            owner.onStep("call " + what + " " + call + headers + (token.IsCancelled() ? " cancelled" : ""));
            owner.bodies.push_back(BodyOf(*request));
            return std::make_shared<Response>(owner.respond(call));
        }
        std::shared_ptr<ClientCommunications::IStreamServiceResponse> CallForStream(
            Request, std::shared_ptr<ClientCommunications::ISyncWriter>, Cancellation::Token) override {
            throw std::logic_error("not used here");
        }

    private:
        static std::string BodyOf(ClientCommunications::IServiceRequest& request) {
            const auto reader = request.GetBodyReader();
            if (!reader) return "none";
            std::string body(reader->GetLength(), '\0');
            reader->Rewind();
            body.resize(reader->Read(body.data(), body.size()));
            return body;
        }

        FakeCommunications& owner;
        const std::string what;
    };

    class GatewayFactory : public ClientCommunications::IServiceGatewayFactory {
    public:
        explicit GatewayFactory(FakeCommunications& owner) : owner(owner) {}
        std::shared_ptr<ClientCommunications::IServiceGateway> Create(
            std::shared_ptr<ClientCommunications::IServiceFinder>,
            std::shared_ptr<ClientCommunications::IServiceIteratePolicy>) override {
            throw std::logic_error("not used here");
        }
        std::shared_ptr<ClientCommunications::IServiceGateway> Create(
            std::shared_ptr<ClientCommunications::IServiceFinder> finder) override {
            const std::string what = dynamic_cast<Finder&>(*finder).what;
            owner.onStep("gateway " + what);
            return std::make_shared<Gateway>(owner, what);
        }

    private:
        FakeCommunications& owner;
    };

public:
    /// A body that fails the test's call if it is read.
    static inline const std::string Unreadable = "<unreadable>";
};

}  // namespace Ombry::Tests
