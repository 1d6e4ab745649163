#include "Sandbox/Service.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "Platform/IClock.h"
#include "Platform/IRandom.h"
#include "Sandbox/HttpHelpers.h"
#include "Sandbox/Tokens.h"

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

bool IsEqualSecret(const std::string& left, const std::string& right) {
    return left.size() == right.size() && CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

}  // namespace

Service::Service(const Options& options, const Identity& identity, State& state)
    : options(options), identity(identity), state(state), ownCertificate(identity.CertificateBase64()) {
    if (options.plainHttp) {
        server = std::make_unique<httplib::Server>();
    } else {
        server = std::make_unique<httplib::SSLServer>(identity.Certificate(), identity.Key());
    }
    if (!server->is_valid()) throw std::runtime_error("Cannot set TLS up.");
    for (const std::string& fault : options.faults)
        faults.Add(fault);
    server->set_tcp_nodelay(true);
    server->set_payload_max_length(1 << 20);
    // The library asks for its threads when it begins to serve.
    server->new_task_queue = [this] {
        std::lock_guard guard(mutex);
        serving = true;
        condition.notify_all();
        return new httplib::ThreadPool(CPPHTTPLIB_THREAD_POOL_COUNT);  // the library deletes it
    };
    // Without the library's default, which lets a second service listen on a port that is taken.
    server->set_socket_options([](socket_t socket) {
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    // The library's own logger runs behind the answer, when the caller may have sent its next request
    // already: the lines would not stand in the order of the requests.
    server->set_post_routing_handler(
        [](const Request& request, const Response& response) { LogRequest(request, response); });
    server->set_exception_handler([](const Request&, Response& response, std::exception_ptr) {
        SendError(response, 500, "server_error", "The request could not be carried out.");
    });
    server->set_error_handler([](const Request&, Response& response) {
        if (response.body.empty())
            SendError(response, response.status, "invalid_request", "There is no such call.");
    });
    AddRoutes();
}

int Service::Bind() {
    int port = options.port;
    if (port == 0) {
        port = server->bind_to_any_port(options.address);
    } else if (!server->bind_to_port(options.address, port)) {
        port = -1;
    }
    if (port < 0) {
        throw std::runtime_error("Cannot listen on " + options.address + ":" + std::to_string(options.port) +
                                 ".");
    }
    const bool isIPv6 = options.address.find(':') != std::string::npos;
    baseUrl = std::string(options.plainHttp ? "http://" : "https://") +
              (isIPv6 ? "[" + options.address + "]" : options.address) + ":" + std::to_string(port) +
              options.basePath;
    state.AddInstance({baseUrl, options.plainHttp ? std::string() : ownCertificate, options.ownDatacenter});
    return port;
}

void Service::Serve() {
    server->listen_after_bind();
    state.RemoveInstance(baseUrl);
}

void Service::Stop() {
    {
        std::lock_guard guard(mutex);
        stopping = true;
        condition.notify_all();
    }
    {
        // The library forgets a stop that comes before it serves.
        std::unique_lock lock(mutex);
        condition.wait(lock, [this] { return serving; });
    }
    server->stop();
}

void Service::AddRoutes() {
    const auto bind = [this](void (Service::*handler)(const Request&, Response&)) {
        return [this, handler](const Request& request, Response& response) {
            if (!InjectFault(request, response)) (this->*handler)(request, response);
        };
    };
    const std::string base = EscapeForRegex(options.basePath);
    server->Get(base + "/v1/ddb/datacenters", bind(&Service::ListDatacenters));
    server->Post(base + "/v1/auth/locationawareclients", bind(&Service::EnrollClient));
    server->Delete(base + "/v1/auth/clients", bind(&Service::DeleteSelf));
    server->Delete(base + "/v1/auth/clients/([^/]*)", bind(&Service::DeleteClient));
    server->Post(base + "/v1/services/services", bind(&Service::EnrollService));
    server->Delete(base + "/v1/services/services/([^/]*)", bind(&Service::DeleteService));
    server->Get(base + "/services/services/nonsecure/name/([^/]*)", bind(&Service::FindOpen));
    server->Get(base + "/services/services?/secure/(.*)", bind(&Service::FindSecure));
    server->Post(base + "/sandbox/faults", bind(&Service::AddFault));
    for (const bool forUsers : {true, false}) {
        server->Post(base + "/v1/auth/" + (forUsers ? "users" : "clients") + "/servicetokens",
                     [this, forUsers](const Request& request, Response& response) {
                         if (!InjectFault(request, response)) IssueToken(request, response, forUsers);
                     });
    }
}

/// The name in a Basic header whose password or secret is right.
std::optional<std::string> Service::CheckBasic(const Request& request, bool forUsers) {
    const auto basic = ParseBasic(request);
    if (!basic) return std::nullopt;
    const auto& [name, secret] = *basic;
    const bool good = forUsers ? name == options.user && IsEqualSecret(secret, options.password)
                               : state.IsClientSecret(name, secret);
    return good ? std::optional(name) : std::nullopt;
}

bool Service::IsKnownService(const std::string& name) {
    if (name == AuthService || name == DiscoveryService || name == DatacenterService) return true;
    ServiceQuery query;
    query.name = name;
    return !state.FindServices(query).empty();
}

bool Service::IsDatacenter(const std::string& id) const {
    return std::any_of(options.datacenters.begin(), options.datacenters.end(),
                       [&](const DatacenterOption& datacenter) { return datacenter.id == id; });
}

/// RFC 6749, section 4.4, with the name of the service as a parameter of the system's own.
void Service::IssueToken(const Request& request, Response& response, bool forUsers) {
    const auto name = CheckBasic(request, forUsers);
    if (!name) {
        response.set_header("WWW-Authenticate", "Basic realm=\"sandbox\"");
        return SendError(response, 401, "invalid_client", "Name or secret is wrong.");
    }
    const std::string type = request.get_header_value("Content-Type");
    if (!type.starts_with("application/x-www-form-urlencoded")) {
        return SendError(response, 415, "invalid_request", "The body must be a form.");
    }
    if (request.get_param_value("grant_type") != "client_credentials") {
        return SendError(response, 400, "unsupported_grant_type", "Only client_credentials is known.");
    }
    const std::string serviceName = request.get_param_value("servicename");
    if (serviceName.empty()) return SendError(response, 400, "invalid_request", "servicename is missing.");
    if (!IsKnownService(serviceName)) {
        return SendError(response, 400, "invalid_target", "There is no service of that name.");
    }
    const std::int64_t now = Platform::WallSeconds();
    const TokenClaims claims{NewId(), forUsers ? "user:" + *name : *name, serviceName,
                             now + options.tokenSeconds};
    state.AddToken(claims.id, claims.subject, claims.expires);
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

/// Who calls, by a Bearer token for the service; answers 401 itself.
std::optional<Service::Caller> Service::Authenticate(const Request& request, Response& response,
                                                     const std::string& serviceName) {
    const std::string token = ParseBearer(request);
    if (!token.empty()) {
        if (!options.installToken.empty() && IsEqualSecret(token, options.installToken)) {
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

/// Users and the install token may do everything; answers 403 itself.
bool Service::HasRight(const Caller& caller, const std::string& right, Response& response) const {
    if (caller.kind != Caller::Kind::Client) return true;
    const auto& rights = options.clientRights;
    if (std::find(rights.begin(), rights.end(), right) != rights.end()) return true;
    SendError(response, 403, "insufficient_scope", "The right '" + right + "' is missing.");
    return false;
}

void Service::ListDatacenters(const Request& request, Response& response) {
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

void Service::EnrollClient(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, AuthService);
    if (!caller || !HasRight(*caller, "enroll-clients", response)) return;
    rapidjson::Document body;
    if (!ParseObject(request, response, body)) return;
    const ClientRecord client{TextMember(body, "id"), TextMember(body, "clientSecretId"),
                              TextMember(body, "description"), TextMember(body, "datacenterId")};
    if (client.id.empty() || client.secret.empty() || !IsDatacenter(client.datacenterId) ||
        !HasObject(body, "rolesPerService")) {
        return SendError(response, 400, "invalid_request",
                         "id, clientSecretId, a known datacenterId and rolesPerService are needed.");
    }
    if (!state.AddClient(client))
        return SendError(response, 409, "conflict", "There is a client of this id.");
    SendCreated(response, client.id);
}

void Service::DeleteSelf(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, AuthService);
    if (!caller) return;
    if (caller->kind != Caller::Kind::Client) {
        return SendError(response, 403, "insufficient_scope", "Only a client can remove itself.");
    }
    response.status = state.RemoveClient(caller->clientId) ? 204 : 404;
}

void Service::DeleteClient(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, AuthService);
    if (!caller) return;
    const std::string id = request.matches[1];
    const bool isSelf = caller->kind == Caller::Kind::Client && caller->clientId == id;
    if (!isSelf && !HasRight(*caller, "unenroll-clients", response)) return;
    if (!state.RemoveClient(id))
        return SendError(response, 404, "not_found", "There is no client of this id.");
    response.status = 204;
}

void Service::EnrollService(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, DiscoveryService);
    if (!caller || !HasRight(*caller, "enroll-services", response)) return;
    rapidjson::Document body;
    if (!ParseObject(request, response, body)) return;
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

void Service::DeleteService(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, DiscoveryService);
    if (!caller || !HasRight(*caller, "unenroll-services", response)) return;
    if (!state.RemoveService(request.matches[1])) {
        return SendError(response, 404, "not_found", "There is no service of this id.");
    }
    response.status = 200;
}

/// What needs no token: where the discovery service and the authentication service are.
void Service::FindOpen(const Request& request, Response& response) {
    const std::string name = request.matches[1];
    if (name != "ssds" && name != "aa")
        return SendError(response, 404, "not_found", "There is no such open service.");
    SendFound(request, response, OwnServices(name == "ssds" ? DiscoveryService : AuthService));
}

void Service::FindSecure(const Request& request, Response& response) {
    if (!Authenticate(request, response, DiscoveryService)) return;
    const auto query = ParseServiceQuery(request.matches[1]);
    if (!query)
        return SendError(response, 400, "invalid_request", "There is no such way to look a service up.");
    std::vector<ServiceRecord> found = state.FindServices(*query);
    const bool byNameAlone = query->name && !query->parentId && !query->role && !query->nameSpace;
    if (byNameAlone && (*query->name == AuthService || *query->name == DiscoveryService)) {
        for (ServiceRecord& own : OwnServices(*query->name))
            found.push_back(std::move(own));
    }
    SendFound(request, response, found);
}

/// The running instances of this service, under one of its names.
std::vector<ServiceRecord> Service::OwnServices(const std::string& name) {
    std::vector<ServiceRecord> services;
    for (const InstanceRecord& instance : state.Instances()) {
        ServiceRecord service;
        service.id = name + "@" + instance.baseUrl;
        service.name = name;
        service.endpointUrl = instance.baseUrl;
        service.endpointCert = instance.certificate;
        service.hostname = options.address;
        service.nameSpace = "Ombry";
        service.datacenterId = instance.datacenterId;
        services.push_back(std::move(service));
    }
    return services;
}

/// Services of the caller's datacenter are local; a caller that names none stands beside this instance.
void Service::SendFound(const Request& request, Response& response,
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

void Service::AddFault(const Request& request, Response& response) {
    if (!CheckBasic(request, true))
        return SendError(response, 401, "invalid_client", "Name or secret is wrong.");
    try {
        faults.Add(request.body);
        response.status = 204;
    } catch (const std::invalid_argument& failure) {
        SendError(response, 400, "invalid_request", failure.what());
    }
}

bool Service::AwaitStop(std::chrono::milliseconds atMost) {
    std::unique_lock lock(mutex);
    return Platform::WaitFor(condition, lock, atMost, [this] { return stopping; });
}

/// Runs before the work of each call, but behind the reading of its body: bytes that are left unread would be
/// taken for the next request. Whether the fault was all that there is to the call.
bool Service::InjectFault(const Request& request, Response& response) {
    const std::string path = request.path.starts_with(options.basePath)
                                 ? request.path.substr(options.basePath.size())
                                 : request.path;
    const auto fault = faults.Take(path);
    if (!fault) return false;
    switch (fault->kind) {
        case Fault::Kind::Delay:
            AwaitStop(std::chrono::milliseconds(fault->argument));
            return false;
        case Fault::Kind::Status:
            SendError(response, fault->argument, "server_error", "A fault that was asked for.");
            return true;
        case Fault::Kind::Silence:
            AwaitStop(std::chrono::hours(1));
            break;
        case Fault::Kind::Cut:
            response.set_content_provider(1000, "application/json",
                                          [](std::size_t, std::size_t, httplib::DataSink& sink) {
                                              sink.write("[", 1);
                                              return false;  // breaks the connection off in the body
                                          });
            return true;
        case Fault::Kind::Reset:
            break;
    }
    ResetConnection(request);
    return true;
}

}  // namespace Ombry::Sandbox
