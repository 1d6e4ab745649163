#include "Sandbox/Service.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <span>
#include <stdexcept>

#include "Platform/IClock.h"
#include "Platform/IRandom.h"
#include "Sandbox/Connections.h"
#include "Sandbox/HttpHelpers.h"
#include "Sandbox/Tokens.h"

namespace Ombry::Sandbox {
namespace {

constexpr const char* AuthService = "v1-auth";
constexpr const char* DiscoveryService = "v1-service";
constexpr const char* DatacenterService = "v1-ddbmanagement";

constexpr std::size_t LargestBody = 1 << 20;
constexpr auto HangUpInterval = std::chrono::milliseconds(100);  ///< between two looks at a connection

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

/// Where the authorisation of a request by name and secret failed.
void RefuseBasic(httplib::Response& response) {
    response.set_header("WWW-Authenticate", "Basic realm=\"sandbox\"");
    SendError(response, 401, "invalid_client", "Name or secret is wrong.");
}

/// Answers that have no body, whatever they say (RFC 9110, section 6.4.1).
bool IsWithoutContent(int status) {
    return status == 204 || status == 205 || status == 304;
}

/// What the library found wrong with a request.
const char* DescribeStatus(int status) {
    switch (status) {
        case 404:
            return "There is no such call.";
        case 413:
            return "The body is too large.";
        case 414:
            return "The address is too long.";
        default:
            return "The request cannot be understood.";
    }
}

/// Reads the body of a request. What is beyond the limit is read and forgotten: it may be much more than was
/// announced, if anything was (chunks, compression), and left unread it would be taken for the next request.
/// Answers itself if there is no good body.
bool ReadBody(const httplib::Request& request, httplib::Response& response,
              const httplib::ContentReader& reader, std::string& body) {
    // The library would wait for the end of the connection, but such a request has no body (RFC 9112,
    // section 6.3).
    if (!request.has_header("Content-Length") && !request.has_header("Transfer-Encoding")) return true;
    bool tooLarge = false;
    const auto take = [&](const char* data, std::size_t size) {
        if (size > LargestBody - body.size())
            tooLarge = true;
        else
            body.append(data, size);
        return true;
    };
    const auto ignorePart = [](const httplib::MultipartFormData&) { return true; };
    const bool good = request.is_multipart_form_data() ? reader(ignorePart, take) : reader(take);
    if (good && !tooLarge) return true;
    // The library has set the status of what it could not read.
    const int status = tooLarge ? 413 : response.status < 400 ? 400 : response.status;
    SendError(response, status, "invalid_request", DescribeStatus(status));
    return false;
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

/// The body as a JSON object whose members fit; answers itself if it is none.
bool ParseBody(const httplib::Request& request, httplib::Response& response, rapidjson::Document& body,
               std::span<const Member> members) {
    if (!ParseObject(request, response, body)) return false;
    const char* const unfit = FindUnfit(body, members);
    if (!unfit) return true;
    SendError(response, 400, "invalid_request", std::string("'") + unfit + "' is of the wrong type.");
    return false;
}

/// The host of a base URL as it was made here: between "://" and the last colon before the path.
std::string HostOf(const std::string& baseUrl) {
    const std::size_t begin = baseUrl.find("://") + 3;
    const std::string authority = baseUrl.substr(begin, baseUrl.find('/', begin) - begin);
    const std::string host = authority.substr(0, authority.rfind(':'));
    return host.starts_with('[') ? host.substr(1, host.size() - 2) : host;
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
    server->set_payload_max_length(LargestBody);
    // The library asks for its threads when it begins to serve.
    server->new_task_queue = [this, threads = static_cast<std::size_t>(options.threads)] {
        std::lock_guard guard(mutex);
        serving = true;
        condition.notify_all();
        return new httplib::ThreadPool(threads);  // the library deletes it
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
    server->set_logger([this](const Request& request, const Response&) {
        std::lock_guard guard(mutex);
        answering.erase(request.remote_port);
    });
    server->set_exception_handler([](const Request&, Response& response, std::exception_ptr) {
        SendError(response, 500, "server_error", "The request could not be carried out.");
    });
    server->set_error_handler([](const Request&, Response& response) {
        if (response.body.empty())
            SendError(response, response.status, "invalid_request", DescribeStatus(response.status));
    });
    AddRoutes();
}

int Service::Bind() {
    port = options.port;
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
    const bool stopped = server->listen_after_bind();
    {
        std::lock_guard guard(mutex);
        served = true;
        condition.notify_all();
    }
    state.RemoveInstance(baseUrl);
    if (!stopped) throw std::runtime_error("Connections can no longer be accepted.");
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
    // What is being answered is waited for, but neither connections that idle nor requests that never end.
    // One that was accepted at the last moment, or has its answer now, is found in a later round.
    do {
        std::set<int> peerPorts;
        {
            std::lock_guard guard(mutex);
            peerPorts = answering;
        }
        EndReading(port, peerPorts);
    } while (!Await(HangUpInterval, served));
}

void Service::AddRoutes() {
    const auto bind = [this](void (Service::*handler)(const Request&, Response&)) {
        return [this, handler](const Request& request, Response& response) {
            if (!InjectFault(request, response)) (this->*handler)(request, response);
        };
    };
    const auto bindBody = [this](std::function<void(const Request&, Response&)> handler) {
        return
            [this, handler](const Request& head, Response& response, const httplib::ContentReader& reader) {
                Request request = head;
                if (!ReadBody(head, response, reader, request.body)) return;
                if (!InjectFault(request, response)) handler(request, response);
            };
    };
    const std::string base = EscapeForRegex(options.basePath);
    server->Get(base + "/v1/ddb/datacenters", bind(&Service::ListDatacenters));
    server->Post(base + "/v1/auth/locationawareclients",
                 bindBody(std::bind_front(&Service::EnrollClient, this)));
    server->Delete(base + "/v1/auth/clients", bind(&Service::DeleteSelf));
    server->Delete(base + "/v1/auth/clients/([^/]*)", bind(&Service::DeleteClient));
    server->Post(base + "/v1/services/services", bindBody(std::bind_front(&Service::EnrollService, this)));
    server->Delete(base + "/v1/services/services/([^/]*)", bind(&Service::DeleteService));
    server->Get(base + "/services/services/nonsecure/name/([^/]*)", bind(&Service::FindOpen));
    server->Get(base + "/services/(services?)/secure/(.*)", bind(&Service::FindSecure));
    server->Post(base + "/sandbox/faults", bindBody(std::bind_front(&Service::AddFault, this)));
    for (const bool forUsers : {true, false}) {
        server->Post(base + "/v1/auth/" + (forUsers ? "users" : "clients") + "/servicetokens",
                     bindBody([this, forUsers](const Request& request, Response& response) {
                         IssueToken(request, response, forUsers);
                     }));
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
    state.AddToken(claims.id, claims.subject, claims.expires);
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

/// Who calls, by a Bearer token for the service; answers 401 itself.
std::optional<Service::Caller> Service::Authenticate(const Request& request, Response& response,
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

void Service::DeleteSelf(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, AuthService);
    if (!caller) return;
    if (caller->kind != Caller::Kind::Client) {
        return SendError(response, 403, "insufficient_scope", "Only a client can remove itself.");
    }
    RemoveClient(caller->clientId, response);
}

void Service::RemoveClient(const std::string& id, Response& response) {
    if (!state.RemoveClient(id))
        return SendError(response, 404, "not_found", "There is no client of this id.");
    response.status = 204;
}

void Service::DeleteClient(const Request& request, Response& response) {
    const auto caller = Authenticate(request, response, AuthService);
    if (!caller) return;
    const std::string id = request.matches[1];
    const bool isSelf = caller->kind == Caller::Kind::Client && caller->clientId == id;
    if (!isSelf && !HasRight(*caller, "unenroll-clients", response)) return;
    RemoveClient(id, response);
}

void Service::EnrollService(const Request& request, Response& response) {
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

/// The running instances of this service, under one of its names.
std::vector<ServiceRecord> Service::OwnServices(const std::string& name) {
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
    if (!CheckBasic(request, true)) return RefuseBasic(response);
    try {
        faults.Add(request.body);
        response.status = 204;
    } catch (const std::invalid_argument& failure) {
        SendError(response, 400, "invalid_request", failure.what());
    }
}

/// Waits for one of the guarded members to become true; returns what it is.
bool Service::Await(std::chrono::milliseconds atMost, const bool& member) {
    std::unique_lock lock(mutex);
    return Platform::WaitFor(condition, lock, atMost, [&] { return member; });
}

/// Runs before the work of each call, but behind the reading of its body: bytes that are left unread would be
/// taken for the next request. Whether the fault was all that there is to the call.
bool Service::InjectFault(const Request& request, Response& response) {
    {
        std::lock_guard guard(mutex);
        answering.insert(request.remote_port);
    }
    const std::string path = request.path.starts_with(options.basePath)
                                 ? request.path.substr(options.basePath.size())
                                 : request.path;
    const auto fault = faults.Take(path);
    if (!fault) return false;
    const int connection = FindConnection(request);
    switch (fault->kind) {
        case Fault::Kind::Delay:
            Await(std::chrono::milliseconds(fault->argument), stopping);
            return false;
        case Fault::Kind::Status:
            response.status = fault->argument;
            if (!IsWithoutContent(fault->argument))
                SendError(response, fault->argument, "server_error", "A fault that was asked for.");
            return true;
        case Fault::Kind::Silence:
            // A client that gives up gives its thread back.
            while (!HasHungUp(connection) && !Await(HangUpInterval, stopping)) {
            }
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
    ResetConnection(connection);
    return true;
}

}  // namespace Ombry::Sandbox
