#include "Sandbox/Calls.h"

#include "Platform/IClock.h"
#include "Platform/IRandom.h"
#include "Sandbox/BrowserGuard.h"
#include "Sandbox/HttpHelpers.h"
#include "Sandbox/Tokens.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace Ombry::Sandbox {
namespace {

constexpr const char* AuthService = "v1-auth";
constexpr const char* DiscoveryService = "v1-service";
constexpr const char* DatacenterService = "v1-ddbmanagement";

std::string NewId() {
    const Platform::Guid guid = Platform::Random().NewGuid();
    char text[37];
    std::snprintf(text, sizeof text, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", guid.data1,
                  guid.data2, guid.data3, guid.data4[0], guid.data4[1], guid.data4[2], guid.data4[3],
                  guid.data4[4], guid.data4[5], guid.data4[6], guid.data4[7]);
    return text;
}

// Where the authorisation of a request by name and secret failed.
void RefuseBasic(httplib::Response& response) {
    response.set_header("WWW-Authenticate", "Basic realm=\"sandbox\"");
    SendError(response, 401, "invalid_client", "Name or secret is wrong.");
}

constexpr Member ClientMembers[] = {
    {"id", Shape::Text},
    {"clientSecretId", Shape::Text},
    {"publicCertPem", Shape::Text},
    {"groups", Shape::Texts},
    {"description", Shape::Text},
    {"datacenterId", Shape::Text},
    {"rolesPerService", Shape::Object},
};

constexpr Member ServiceMembers[] = {
    {"serviceId", Shape::Text},    {"serviceName", Shape::Text},     {"clientId", Shape::Text},
    {"directUrl", Shape::Text},    {"directCert", Shape::Text},      {"endpointUrl", Shape::Text},
    {"endpointCert", Shape::Text}, {"serviceHostname", Shape::Text}, {"serviceNamespace", Shape::Text},
    {"datacenterID", Shape::Text}, {"links", Shape::Object},         {"roles", Shape::Texts},
    {"ttlSeconds", Shape::Number}, {"status", Shape::Text},          {"serviceProps", Shape::Array},
};

// The body as a JSON object whose members fit; answers itself if it is none.
bool ParseBody(const httplib::Request& request, httplib::Response& response, rapidjson::Document& body,
               std::span<const Member> members) {
    if (!ParseObject(request, response, body)) return false;
    const char* const unfit = FindUnfit(body, members);
    if (!unfit) return true;
    SendError(response, 400, "invalid_request", std::string("'") + unfit + "' is of the wrong type.");
    return false;
}

// The host of a base URL as it was made here: between "://" and the last colon before the path.
std::string HostOf(const std::string& baseUrl) {
    const std::size_t begin = baseUrl.find("://") + 3;
    const std::string authority = baseUrl.substr(begin, baseUrl.find('/', begin) - begin);
    const std::string host = authority.substr(0, authority.rfind(':'));
    return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
}

}  // namespace

Calls::Calls(const Options& options, const Identity& identity, State& state, Faults& faults)
    : options(options),
      identity(identity),
      state(state),
      faults(faults),
      ownCertificate(identity.CertificateBase64()) {}

std::span<const Calls::Call> Calls::All() {
    static constexpr Call All[] = {
        {"GET", "/v1/ddb/datacenters", &Calls::ListDatacenters},
        {"POST", "/v1/auth/users/servicetokens", &Calls::IssueUserToken},
        {"POST", "/v1/auth/clients/servicetokens", &Calls::IssueClientToken},
        {"POST", "/v1/auth/locationawareclients", &Calls::EnrollClient},
        {"DELETE", "/v1/auth/clients", &Calls::DeleteSelf},
        {"DELETE", "/v1/auth/clients/([^/]*)", &Calls::DeleteClient},
        {"POST", "/v1/services/services", &Calls::EnrollService},
        {"DELETE", "/v1/services/services/([^/]*)", &Calls::DeleteService},
        {"GET", "/services/services/nonsecure/name/([^/]*)", &Calls::FindOpen},
        {"GET", "/services/(services?)/secure/(.*)", &Calls::FindSecure},
        {"POST", "/sandbox/faults", &Calls::AddFault},
    };
    return All;
}

// The name in a Basic header whose password or secret is right.
std::optional<std::string> Calls::CheckBasic(const Request& request, bool forUsers) {
    const auto basic = ParseBasic(request);
    if (!basic) return std::nullopt;
    const auto& [name, secret] = *basic;
    const bool good = forUsers ? IsUser(options, name, secret) : state.IsClientSecret(name, secret);
    return good ? std::optional(name) : std::nullopt;
}

bool Calls::IsKnownService(const std::string& name) {
    if (name == AuthService || name == DiscoveryService || name == DatacenterService) return true;
    ServiceQuery query;
    query.name = name;
    return !state.FindServices(query).empty();
}

bool Calls::IsDatacenter(const std::string& id) const {
    return std::any_of(options.datacenters.begin(), options.datacenters.end(),
                       [&](const DatacenterOption& datacenter) { return datacenter.id == id; });
}

void Calls::IssueUserToken(const Request& request, Response& response) {
    IssueToken(request, response, true);
}

void Calls::IssueClientToken(const Request& request, Response& response) {
    IssueToken(request, response, false);
}

// RFC 6749, section 4.4, with the name of the service as a parameter of the system's own.
void Calls::IssueToken(const Request& request, Response& response, bool forUsers) {
    const auto name = CheckBasic(request, forUsers);
    if (!name) return RefuseBasic(response);
    if (!HasMediaType(request, "application/x-www-form-urlencoded"))
        return SendError(response, 415, "invalid_request", "The body must be a form.");
    auto form = ParseForm(request.body);
    if (!form) return SendError(response, 400, "invalid_request", "A parameter is given twice.");
    const std::string grantType = (*form)["grant_type"];
    if (grantType.empty()) return SendError(response, 400, "invalid_request", "grant_type is missing.");
    if (grantType != "client_credentials")
        return SendError(response, 400, "unsupported_grant_type", "Only client_credentials is known.");
    const std::string serviceName = (*form)["servicename"];
    if (serviceName.empty()) return SendError(response, 400, "invalid_request", "servicename is missing.");
    if (!IsKnownService(serviceName)) {
        return SendError(response, 400, "invalid_target", "There is no service of that name.");
    }
    const std::int64_t now = Platform::WallSeconds();
    const TokenClaims claims{NewId(), forUsers ? "user:" + *name : *name, serviceName,
                             now + options.tokenSeconds};
    state.AddToken(claims.id, claims.subject, now, claims.expires);
    response.set_header("Cache-Control", "no-store");
    response.set_header("Pragma", "no-cache");
    SendJson(response, 200, [&](JsonWriter& writer) {
        writer.StartObject();
        WriteMember(writer, "token_type", "Bearer");
        WriteMember(writer, "access_token", SignToken(claims, now, identity));
        writer.Key("expires_in");
        writer.Int64(options.tokenSeconds);
        WriteMember(writer, "scope", serviceName);
        writer.EndObject();
    });
}

// Who calls, by a Bearer token for the service; answers 401 itself.
std::optional<Calls::Caller> Calls::Authenticate(const Request& request, Response& response,
                                                 const std::string& serviceName) {
    const std::string token = ParseBearer(request);
    if (!token.empty()) {
        if (IsEqualSecret(token, options.installToken)) {
            return Caller{Caller::Kind::InstallToken, {}};
        }
        const auto claims = VerifyToken(token, Platform::WallSeconds(), identity);
        if (claims && claims->serviceName == serviceName && state.HasToken(claims->id)) {
            if (claims->subject.starts_with("user:")) return Caller{Caller::Kind::User, {}};
            if (state.HasClient(claims->subject)) return Caller{Caller::Kind::Client, claims->subject};
        }
    }
    response.set_header("WWW-Authenticate", "Bearer error=\"invalid_token\"");
    SendError(response, 401, "invalid_token", "A valid token for '" + serviceName + "' is needed.");
    return std::nullopt;
}

// Users and the install token may do everything; answers 403 itself.
bool Calls::HasRight(const Caller& caller, const std::string& right, Response& response) const {
    if (caller.kind != Caller::Kind::Client) return true;
    const auto& rights = options.clientRights;
    if (std::find(rights.begin(), rights.end(), right) != rights.end()) return true;
    SendError(response, 403, "insufficient_scope", "The right '" + right + "' is missing.");
    return false;
}

void Calls::ListDatacenters(const Request& request, Response& response) {
    if (options.tokenForDatacenters && !Authenticate(request, response, DatacenterService)) return;
    SendJson(response, 200, [&](JsonWriter& writer) {
        writer.StartArray();
        for (const DatacenterOption& datacenter : options.datacenters) {
            writer.StartObject();
            WriteMember(writer, "id", datacenter.id);
            WriteMember(writer, "name", datacenter.name);
            writer.EndObject();
        }
        writer.EndArray();
    });
}

void Calls::EnrollClient(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, AuthService);
    if (!caller || !HasRight(*caller, "enroll-clients", response)) return;
    rapidjson::Document body;
    if (!ParseBody(request, response, body, ClientMembers)) return;
    const ClientRecord client{TextMember(body, "id"), TextMember(body, "clientSecretId"),
                              TextMember(body, "description"), TextMember(body, "datacenterId")};
    if (client.id.empty() || client.secret.empty() || !IsDatacenter(client.datacenterId) ||
        !HasObject(body, "rolesPerService")) {
        return SendError(response, 400, "invalid_request",
                         "id, clientSecretId, a known datacenterId and rolesPerService are needed.");
    }
    // It could not log in, for a colon ends the name in its credentials (RFC 7617).
    if (client.id.find(':') != std::string::npos)
        return SendError(response, 400, "invalid_request", "id must not hold a colon.");
    if (!state.AddClient(client))
        return SendError(response, 409, "conflict", "There is a client of this id.");
    SendCreated(response, client.id);
}

void Calls::DeleteSelf(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, AuthService);
    if (!caller) return;
    if (caller->kind != Caller::Kind::Client) {
        return SendError(response, 403, "insufficient_scope", "Only a client can remove itself.");
    }
    RemoveClient(caller->clientId, response);
}

void Calls::RemoveClient(const std::string& id, Response& response) {
    if (!state.RemoveClient(id))
        return SendError(response, 404, "not_found", "There is no client of this id.");
    response.status = 204;
}

void Calls::DeleteClient(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, AuthService);
    if (!caller) return;
    const std::string id = request.matches[1];
    const bool isSelf = caller->kind == Caller::Kind::Client && caller->clientId == id;
    if (!isSelf && !HasRight(*caller, "unenroll-clients", response)) return;
    RemoveClient(id, response);
}

void Calls::EnrollService(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, DiscoveryService);
    if (!caller || !HasRight(*caller, "enroll-services", response)) return;
    rapidjson::Document body;
    if (!ParseBody(request, response, body, ServiceMembers)) return;
    const ServiceRecord service{TextMember(body, "serviceId"),
                                TextMember(body, "serviceName"),
                                TextMember(body, "clientId"),
                                TextMember(body, "endpointUrl"),
                                TextMember(body, "endpointCert"),
                                TextMember(body, "serviceHostname"),
                                TextMember(body, "serviceNamespace"),
                                TextMember(body, "datacenterID"),
                                TextsMember(body, "roles")};
    if (service.id.empty() || service.name.empty() || service.endpointUrl.empty() ||
        service.hostname.empty() || service.nameSpace.empty() || !IsDatacenter(service.datacenterId) ||
        !state.HasClient(service.clientId)) {
        return SendError(
            response, 400, "invalid_request",
            "serviceId, serviceName, endpointUrl, serviceHostname, serviceNamespace, a known datacenterID "
            "and the clientId of an enrolled client are needed.");
    }
    if (!state.AddService(service))
        return SendError(response, 409, "conflict", "There is a service of this id.");
    SendCreated(response, service.id);
}

void Calls::DeleteService(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, DiscoveryService);
    if (!caller || !HasRight(*caller, "unenroll-services", response)) return;
    if (!state.RemoveService(request.matches[1])) {
        return SendError(response, 404, "not_found", "There is no service of this id.");
    }
    response.status = 200;
}

// What needs no token: where the discovery service and the authorization service are.
void Calls::FindOpen(const Request& request, Response& response) {
    const std::string name = request.matches[1];
    if (name != "ssds" && name != "aa")
        return SendError(response, 404, "not_found", "There is no such open service.");
    SendFound(request, response, OwnServices(name == "ssds" ? DiscoveryService : AuthService));
}

void Calls::FindSecure(const Request& request, Response& response) {
    if (!Authenticate(request, response, DiscoveryService)) return;
    const auto query = ParseServiceQuery(request.matches[2]);
    if (!query || query->id.has_value() != (request.matches[1] == "service"))
        return SendError(response, 400, "invalid_request", "There is no such way to look a service up.");
    std::vector<ServiceRecord> found = state.FindServices(*query);
    const bool byNameAlone =
        query->name && !query->parentId && !query->role && !query->nameSpace && !query->host;
    if (byNameAlone && (*query->name == AuthService || *query->name == DiscoveryService)) {
        for (ServiceRecord& own : OwnServices(*query->name))
            found.push_back(std::move(own));
    }
    SendFound(request, response, found);
}

// The running instances of this service, under one of its names.
std::vector<ServiceRecord> Calls::OwnServices(const std::string& name) {
    std::vector<ServiceRecord> services;
    for (const InstanceRecord& instance : state.Instances()) {
        ServiceRecord service;
        service.id = name + "@" + instance.baseUrl;
        service.name = name;
        service.endpointUrl = instance.baseUrl;
        service.endpointCert = instance.certificate;
        service.hostname = HostOf(instance.baseUrl);
        service.nameSpace = "Ombry";
        service.datacenterId = instance.datacenterId;
        services.push_back(std::move(service));
    }
    return services;
}

// Services of the caller's datacenter are local; a caller that names none stands beside this instance.
void Calls::SendFound(const Request& request, Response& response,
                      const std::vector<ServiceRecord>& services) {
    std::string datacenter = request.get_header_value("Datacenter-Id");
    if (datacenter.empty()) datacenter = options.ownDatacenter;
    if (!options.cacheControl.empty()) response.set_header("Cache-Control", options.cacheControl);
    SendJson(response, 200, [&](JsonWriter& writer) {
        writer.StartObject();
        writer.Key("expiryTime");
        writer.Int64(Platform::WallSeconds() + 300);
        for (const bool local : {true, false}) {
            writer.Key(local ? "local" : "remote");
            writer.StartArray();
            for (const ServiceRecord& service : services) {
                if ((service.datacenterId == datacenter) == local)
                    WriteService(writer, service, ownCertificate);
            }
            writer.EndArray();
        }
        writer.EndObject();
    });
}

void Calls::AddFault(const Request& request, Response& response) {
    if (!CheckBasic(request, true)) return RefuseBasic(response);
    // Clients reach the service by whatever name. Its faults are switched as the page switches them.
    if (!BrowserGuard::HasKnownHost(request, options)) {
        return SendError(response, 421, "invalid_request",
                         "Faults are not switched by this name; see --page-host.");
    }
    try {
        faults.Add(request.body);
        response.status = 204;
    } catch (const std::invalid_argument& failure) {
        SendError(response, 400, "invalid_request", failure.what());
    }
}

}  // namespace Ombry::Sandbox
