#pragma once

#include "Sandbox/Faults.h"
#include "Sandbox/Identity.h"
#include "Sandbox/Options.h"
#include "Sandbox/State.h"

#include <httplib.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Ombry::Sandbox {

/// What the calls of a Security Framework service do: each takes a request that was read and fills in the
/// answer. How requests come and answers go is `Service`'s. Any thread may call it. Failures of the database
/// are `std::runtime_error`.
class Calls {
public:
    using Request = httplib::Request;
    using Response = httplib::Response;

    struct Call {
        std::string_view method;
        const char*
            path;  ///< behind the base path; a regular expression whose groups are the request's matches
        void (Calls::*carryOut)(const Request& request, Response& response);
    };
    /// No two of them have a method and a path in common. POST alone has a body.
    static std::span<const Call> All();

    /// Nothing is copied: all of it must live as long as this.
    Calls(const Options& options, const Identity& identity, State& state, Faults& faults);

private:
    /// Who a request comes from.
    struct Caller {
        enum class Kind { User, InstallToken, Client };
        Kind kind = Kind::User;
        std::string clientId;
    };

    void ListDatacenters(const Request& request, Response& response);
    void IssueUserToken(const Request& request, Response& response);
    void IssueClientToken(const Request& request, Response& response);
    void EnrollClient(const Request& request, Response& response);
    void DeleteSelf(const Request& request, Response& response);
    void DeleteClient(const Request& request, Response& response);
    void EnrollService(const Request& request, Response& response);
    void DeleteService(const Request& request, Response& response);
    void FindOpen(const Request& request, Response& response);
    void FindSecure(const Request& request, Response& response);
    void AddFault(const Request& request, Response& response);

    void IssueToken(const Request& request, Response& response, bool forUsers);
    void RemoveClient(const std::string& id, Response& response);
    std::optional<std::string> CheckBasic(const Request& request, bool forUsers);
    std::optional<Caller> Authenticate(const Request& request, Response& response,
                                       const std::string& serviceName);
    bool HasRight(const Caller& caller, const std::string& right, Response& response) const;
    bool IsKnownService(const std::string& name);
    bool IsDatacenter(const std::string& id) const;
    void SendFound(const Request& request, Response& response, const std::vector<ServiceRecord>& services);
    std::vector<ServiceRecord> OwnServices(const std::string& name);

    const Options& options;
    const Identity& identity;
    State& state;
    Faults& faults;
    const std::string ownCertificate;
};

}  // namespace Ombry::Sandbox
