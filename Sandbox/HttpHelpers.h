#pragma once

#include "Sandbox/Json.h"
#include "Sandbox/Options.h"
#include "Sandbox/State.h"

#include <httplib.h>

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Ombry::Sandbox {

void SendJson(httplib::Response& response, int status, const std::function<void(JsonWriter&)>& write);

/// An OAuth2 error document (RFC 6749, section 5.2).
void SendError(httplib::Response& response, int status, const std::string& error,
               const std::string& description);

/// 201 with the id of what was made.
void SendCreated(httplib::Response& response, const std::string& id);

/// Name and secret of a Basic header (RFC 7617).
std::optional<std::pair<std::string, std::string>> ParseBasic(const httplib::Request& request);

/// The token of a Bearer header (RFC 6750); empty if there is none.
std::string ParseBearer(const httplib::Request& request);

/// Takes as long whatever they hold, and whether they are equal or not.
bool IsEqualSecret(std::string_view left, std::string_view right);

/// Whether these are the name and the password of the one user.
bool IsUser(const Options& options, const std::string& name, const std::string& password);

/// Whether the body is said to be of a media type, whatever its parameters (RFC 9110, section 8.3.1).
bool HasMediaType(const httplib::Request& request, std::string_view type);

using Form = std::map<std::string, std::string>;

/// The parameters of an "application/x-www-form-urlencoded" body. Nothing if one is given twice (RFC 6749,
/// section 3.2).
std::optional<Form> ParseForm(const std::string& body);

/// The body as a JSON object; answers 415 or 400 itself.
bool ParseObject(const httplib::Request& request, httplib::Response& response, rapidjson::Document& body);

/// What a member of a body may be, if it is there and not null.
enum class Shape { Text, Texts, Object, Array, Number };
using Member = std::pair<const char*, Shape>;

/// The first of these members that is there and of another shape; null if all fit.
const char* FindUnfit(const rapidjson::Value& object, std::span<const Member> members);

bool HasObject(const rapidjson::Value& object, const char* key);
std::vector<std::string> TextsMember(const rapidjson::Value& object, const char* key);

/// What a path behind "secure/" asks for: "id/ID", or "name/NAME" with any of "parent-id", "role",
/// "namespace" and "host" behind it, each once. Nothing for another path.
std::optional<ServiceQuery> ParseServiceQuery(const std::string& path);

void WriteService(JsonWriter& writer, const ServiceRecord& service, const std::string& signingCertificate);

/// The text with bytes that could end a line or command a terminal written as their numbers.
std::string Printable(std::string_view text);

/// One line on the standard error stream, whatever the path holds, without headers, queries or bodies, which
/// may hold secrets.
void LogRequest(const httplib::Request& request, const httplib::Response& response);

std::string EscapeForRegex(const std::string& text);

}  // namespace Ombry::Sandbox
