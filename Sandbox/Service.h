#pragma once

#include <httplib.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "Sandbox/Faults.h"
#include "Sandbox/Identity.h"
#include "Sandbox/Options.h"
#include "Sandbox/State.h"

namespace Ombry::Sandbox {

/// The calls of a Security Framework service over HTTP. Requests run on the threads of the server.
class Service {
public:
    Service(const Options& options, const Identity& identity, State& state);

    /// Binds the listening socket; `std::runtime_error` if that fails. Returns the port.
    int Bind();
    /// Serves until `Stop`; `std::runtime_error` if it ends by itself.
    void Serve();
    /// From another thread than `Serve`; waits until that has begun and then until it has ended.
    void Stop();

    const std::string& BaseUrl() const { return baseUrl; }

private:
    /// Who a request comes from.
    struct Caller {
        enum class Kind { User, InstallToken, Client };
        Kind kind = Kind::User;
        std::string clientId;
    };
    using Request = httplib::Request;
    using Response = httplib::Response;

    void AddRoutes();

    void ListDatacenters(const Request& request, Response& response);
    void IssueToken(const Request& request, Response& response, bool forUsers);
    void EnrollClient(const Request& request, Response& response);
    void DeleteSelf(const Request& request, Response& response);
    void RemoveClient(const std::string& id, Response& response);
    void DeleteClient(const Request& request, Response& response);
    void EnrollService(const Request& request, Response& response);
    void DeleteService(const Request& request, Response& response);
    void FindOpen(const Request& request, Response& response);
    void FindSecure(const Request& request, Response& response);
    void AddFault(const Request& request, Response& response);

    std::optional<std::string> CheckBasic(const Request& request, bool forUsers);
    std::optional<Caller> Authenticate(const Request& request, Response& response,
                                       const std::string& serviceName);
    bool HasRight(const Caller& caller, const std::string& right, Response& response) const;
    bool IsKnownService(const std::string& name);
    bool IsDatacenter(const std::string& id) const;
    void SendFound(const Request& request, Response& response, const std::vector<ServiceRecord>& services);
    std::vector<ServiceRecord> OwnServices(const std::string& name);
    bool InjectFault(const Request& request, Response& response);
    bool Await(std::chrono::milliseconds atMost, const bool& member);

    const Options& options;
    const Identity& identity;
    State& state;
    const std::string ownCertificate;
    std::unique_ptr<httplib::Server> server;
    int port = 0;
    std::string baseUrl;
    Faults faults;
    std::mutex mutex;
    std::condition_variable condition;
    // Guarded by mutex:
    bool serving = false;
    bool stopping = false;
    bool served = false;
    std::set<int> answering;  ///< ports of the clients whose requests were read and not yet answered
};

}  // namespace Ombry::Sandbox
