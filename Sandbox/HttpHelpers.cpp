#include "Sandbox/HttpHelpers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>

#include "Platform/ICertificates.h"
#include "Platform/IClock.h"

namespace Ombry::Sandbox {
namespace {

std::string DecodeBase64(const std::string& text) {
    const auto size = Platform::Certificates().Base64ToBinary(text, nullptr, 0);
    if (!size) return std::string();
    std::string data(*size, '\0');
    auto* const out = reinterpret_cast<std::uint8_t*>(data.data());
    if (!Platform::Certificates().Base64ToBinary(text, out, *size)) return std::string();
    return data;
}

std::vector<std::string> SplitPath(const std::string& path) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    while (true) {
        const std::size_t end = path.find('/', begin);
        parts.push_back(path.substr(begin, end - begin));
        if (end == std::string::npos) return parts;
        begin = end + 1;
    }
}

/// Whether the other end of a socket is this address and port.
bool IsPeer(int socket, const std::string& address, int port) {
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    if (getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &length) != 0) return false;
    char text[INET6_ADDRSTRLEN] = "";
    std::uint16_t peerPort = 0;
    if (peer.ss_family == AF_INET) {
        const auto& ip = reinterpret_cast<const sockaddr_in&>(peer);
        inet_ntop(AF_INET, &ip.sin_addr, text, sizeof text);
        peerPort = ntohs(ip.sin_port);
    } else if (peer.ss_family == AF_INET6) {
        const auto& ip = reinterpret_cast<const sockaddr_in6&>(peer);
        inet_ntop(AF_INET6, &ip.sin6_addr, text, sizeof text);
        peerPort = ntohs(ip.sin6_port);
    }
    return peerPort == port && address == text;
}

}  // namespace

void SendJson(httplib::Response& response, int status, const std::function<void(JsonWriter&)>& write) {
    response.status = status;
    response.set_content(WriteJson(write), "application/json");
}

void SendError(httplib::Response& response, int status, const std::string& error,
               const std::string& description) {
    SendJson(response, status, [&](JsonWriter& writer) {
        writer.StartObject();
        WriteMember(writer, "error", error);
        WriteMember(writer, "error_description", description);
        writer.EndObject();
    });
}

void SendCreated(httplib::Response& response, const std::string& id) {
    SendJson(response, 201, [&](JsonWriter& writer) {
        writer.StartObject();
        WriteMember(writer, "id", id);
        writer.EndObject();
    });
}

std::optional<std::pair<std::string, std::string>> ParseBasic(const httplib::Request& request) {
    const std::string value = request.get_header_value("Authorization");
    if (!value.starts_with("Basic ")) return std::nullopt;
    const std::string plain = DecodeBase64(value.substr(6));
    const std::size_t colon = plain.find(':');
    if (colon == std::string::npos) return std::nullopt;
    return std::pair(plain.substr(0, colon), plain.substr(colon + 1));
}

std::string ParseBearer(const httplib::Request& request) {
    const std::string value = request.get_header_value("Authorization");
    return value.starts_with("Bearer ") ? value.substr(7) : std::string();
}

bool ParseObject(const httplib::Request& request, httplib::Response& response, rapidjson::Document& body) {
    if (!request.get_header_value("Content-Type").starts_with("application/json")) {
        SendError(response, 415, "invalid_request", "The body must be JSON.");
        return false;
    }
    body.Parse(request.body.c_str());
    if (body.HasParseError() || !body.IsObject()) {
        SendError(response, 400, "invalid_request", "The body must be a JSON object.");
        return false;
    }
    return true;
}

bool HasObject(const rapidjson::Value& object, const char* key) {
    const auto member = object.FindMember(key);
    return member != object.MemberEnd() && member->value.IsObject();
}

std::vector<std::string> TextsMember(const rapidjson::Value& object, const char* key) {
    std::vector<std::string> texts;
    const auto member = object.FindMember(key);
    if (member == object.MemberEnd() || !member->value.IsArray()) return texts;
    for (const auto& value : member->value.GetArray()) {
        if (value.IsString()) texts.emplace_back(value.GetString(), value.GetStringLength());
    }
    return texts;
}

std::optional<ServiceQuery> ParseServiceQuery(const std::string& path) {
    const std::vector<std::string> parts = SplitPath(path);
    if (parts.size() % 2 != 0) return std::nullopt;
    ServiceQuery query;
    for (std::size_t i = 0; i < parts.size(); i += 2) {
        const std::string& key = parts[i];
        const std::string& value = parts[i + 1];
        if (key == "id") {
            query.id = value;
        } else if (key == "name") {
            query.name = value;
        } else if (key == "parent-id") {
            query.parentId = value;
        } else if (key == "role") {
            query.role = value;
        } else if (key == "namespace") {
            query.nameSpace = value;
        } else if (key == "host") {
            query.host = value;
        } else {
            return std::nullopt;
        }
    }
    return query;
}

void WriteService(JsonWriter& writer, const ServiceRecord& service, const std::string& signingCertificate) {
    writer.StartObject();
    WriteMember(writer, "serviceHostname", service.hostname);
    WriteMember(writer, "serviceNamespace", service.nameSpace);
    WriteMember(writer, "id", service.id);
    WriteMember(writer, "serviceName", service.name);
    WriteMember(writer, "endpointUrl", service.endpointUrl);
    WriteMember(writer, "endpointCert", service.endpointCert);
    writer.Key("properties");
    writer.StartArray();
    if (service.name == "v1-auth") {
        writer.StartObject();
        WriteMember(writer, "key", "AaSigningCert");
        WriteMember(writer, "value", signingCertificate);
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
}

void LogRequest(const httplib::Request& request, const httplib::Response& response) {
    const std::int64_t now = Platform::WallSeconds();
    const std::int64_t inDay = now % 86400;
    std::fprintf(stderr, "%02d:%02d:%02d %s %s %d\n", static_cast<int>(inDay / 3600),
                 static_cast<int>(inDay / 60 % 60), static_cast<int>(inDay % 60), request.method.c_str(),
                 request.path.c_str(), response.status);
}

std::string EscapeForRegex(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) escaped += '\\';
        escaped += c;
    }
    return escaped;
}

void ResetConnection(const httplib::Request& request) {
    // The library does not show its sockets, so the one with this peer is looked for.
    for (int socket = 3; socket < 1024; ++socket) {
        if (!IsPeer(socket, request.remote_addr, request.remote_port)) continue;
        const linger none{1, 0};  // closing without lingering is a reset
        setsockopt(socket, SOL_SOCKET, SO_LINGER, &none, sizeof none);
        shutdown(socket, SHUT_RDWR);
    }
}

}  // namespace Ombry::Sandbox
