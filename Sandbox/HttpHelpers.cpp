#include "Sandbox/HttpHelpers.h"

#include "Platform/Base64Text.h"
#include "Platform/IClock.h"
#include "Platform/LongExponents.h"

#include <openssl/crypto.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace Ombry::Sandbox {
namespace {

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

bool IsEqualIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    });
}

// What an Authorization header says behind its scheme, whose case does not matter (RFC 9110, section 11.1).
std::optional<std::string> CredentialsOf(const httplib::Request& request, std::string_view scheme) {
    const std::string value = request.get_header_value("Authorization");
    const std::size_t blank = value.find(' ');
    if (blank == std::string::npos || !IsEqualIgnoringCase(value.substr(0, blank), scheme))
        return std::nullopt;
    return value.substr(blank + 1);
}

bool IsListOfTexts(const rapidjson::Value& value) {
    return value.IsArray() && std::all_of(value.Begin(), value.End(),
                                          [](const rapidjson::Value& element) { return element.IsString(); });
}

// A member that is not set is sent as null.
bool Fits(const rapidjson::Value& value, Shape shape) {
    if (value.IsNull()) return true;
    switch (shape) {
        case Shape::Text:
            return value.IsString();
        case Shape::Texts:
            return IsListOfTexts(value);
        case Shape::Object:
            return value.IsObject();
        case Shape::Array:
            return value.IsArray();
        case Shape::Number:
            return value.IsInt();
    }
    return false;
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
    const auto credentials = CredentialsOf(request, "Basic");
    if (!credentials) return std::nullopt;
    const auto plain = Platform::BytesOfBase64(*credentials);
    const std::size_t colon = plain ? plain->find(':') : std::string::npos;
    if (colon == std::string::npos) return std::nullopt;
    return std::pair(plain->substr(0, colon), plain->substr(colon + 1));
}

std::string ParseBearer(const httplib::Request& request) {
    return CredentialsOf(request, "Bearer").value_or(std::string());
}

bool IsEqualSecret(std::string_view left, std::string_view right) {
    unsigned char digests[2][SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(left.data()), left.size(), digests[0]);
    SHA256(reinterpret_cast<const unsigned char*>(right.data()), right.size(), digests[1]);
    return CRYPTO_memcmp(digests[0], digests[1], SHA256_DIGEST_LENGTH) == 0;
}

bool IsUser(const Options& options, const std::string& name, const std::string& password) {
    const bool nameFits = IsEqualSecret(name, options.user);
    const bool passwordFits = IsEqualSecret(password, options.password);
    return nameFits && passwordFits;
}

bool HasMediaType(const httplib::Request& request, std::string_view type) {
    const std::string value = request.get_header_value("Content-Type");
    return IsEqualIgnoringCase(value.substr(0, value.find_first_of("; \t")), type);
}

std::optional<Form> ParseForm(const std::string& body) {
    Form form;
    for (std::size_t begin = 0; begin < body.size();) {
        const std::size_t end = std::min(body.find('&', begin), body.size());
        const std::string pair = body.substr(begin, end - begin);
        begin = end + 1;
        const std::size_t equals = std::min(pair.find('='), pair.size());
        const std::string value = pair.substr(std::min(equals + 1, pair.size()));
        const bool isNew = form.emplace(httplib::detail::decode_url(pair.substr(0, equals), true),
                                        httplib::detail::decode_url(value, true))
                               .second;
        if (!isNew) return std::nullopt;
    }
    return form;
}

bool ParseObject(const httplib::Request& request, httplib::Response& response, rapidjson::Document& body) {
    if (!HasMediaType(request, "application/json")) {
        SendError(response, 415, "invalid_request", "The body must be JSON.");
        return false;
    }
    // The parser ends at a zero byte, whatever comes behind it.
    constexpr unsigned flags = rapidjson::kParseDefaultFlags | rapidjson::kParseValidateEncodingFlag;
    std::string text = request.body;
    Platform::CutLongExponents(text);
    body.Parse<flags>(text.data(), text.size());
    if (body.HasParseError() || !body.IsObject() || request.body.find('\0') != std::string::npos) {
        SendError(response, 400, "invalid_request", "The body must be a JSON object.");
        return false;
    }
    return true;
}

const char* FindUnfit(const rapidjson::Value& object, std::span<const Member> members) {
    for (const auto& [key, shape] : members) {
        const auto member = object.FindMember(key);
        if (member != object.MemberEnd() && !Fits(member->value, shape)) return key;
    }
    return nullptr;
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
    static const std::map<std::string, std::optional<std::string> ServiceQuery::*> fields{
        {"id", &ServiceQuery::id},     {"name", &ServiceQuery::name},
        {"role", &ServiceQuery::role}, {"parent-id", &ServiceQuery::parentId},
        {"host", &ServiceQuery::host}, {"namespace", &ServiceQuery::nameSpace},
    };
    const std::vector<std::string> parts = SplitPath(path);
    if (parts.size() % 2 != 0) return std::nullopt;
    ServiceQuery query;
    for (std::size_t i = 0; i < parts.size(); i += 2) {
        const auto field = fields.find(parts[i]);
        if (field == fields.end() || query.*field->second) return std::nullopt;
        query.*field->second = parts[i + 1];
    }
    // One service is asked for by its id alone, several by their name and perhaps more.
    if (query.id ? parts.size() != 2 : parts[0] != "name") return std::nullopt;
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

std::string Printable(std::string_view text) {
    std::string line;
    for (const char c : text) {
        if (c >= ' ' && c <= '~') {
            line += c;
        } else {
            char number[5];
            std::snprintf(number, sizeof number, "\\x%02X",
                          static_cast<unsigned>(static_cast<unsigned char>(c)));
            line += number;
        }
    }
    return line;
}

void LogRequest(const httplib::Request& request, const httplib::Response& response) {
    const std::int64_t now = Platform::WallSeconds();
    const std::int64_t inDay = now % 86400;
    std::fprintf(stderr, "%02d:%02d:%02d %s %s %d\n", static_cast<int>(inDay / 3600),
                 static_cast<int>(inDay / 60 % 60), static_cast<int>(inDay % 60),
                 Printable(request.method).c_str(), Printable(request.path).c_str(), response.status);
}

std::string EscapeForRegex(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) escaped += '\\';
        escaped += c;
    }
    return escaped;
}

}  // namespace Ombry::Sandbox
