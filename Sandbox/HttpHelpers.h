#pragma once

#include <httplib.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Sandbox/Json.h"
#include "Sandbox/State.h"

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

/// The body as a JSON object; answers 415 or 400 itself.
bool ParseObject(const httplib::Request& request, httplib::Response& response, rapidjson::Document& body);

bool HasObject(const rapidjson::Value& object, const char* key);
std::vector<std::string> TextsMember(const rapidjson::Value& object, const char* key);

/// What a path behind "secure/" asks for.
std::optional<ServiceQuery> ParseServiceQuery(const std::string& path);

void WriteService(JsonWriter& writer, const ServiceRecord& service, const std::string& signingCertificate);

/// One line on the standard error stream, without headers or bodies, which may hold secrets.
void LogRequest(const httplib::Request& request, const httplib::Response& response);

std::string EscapeForRegex(const std::string& text);

/// Closes the socket that a request came over, with a reset.
void ResetConnection(const httplib::Request& request);

}  // namespace Ombry::Sandbox
