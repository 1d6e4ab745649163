#pragma once

#include "ClientCommunications/IServiceRequest.h"

#include <map>
#include <string>

namespace Ombry::Tests {

inline std::map<std::string, std::string> HeadersOf(const ClientCommunications::IServiceRequest& request) {
    std::map<std::string, std::string> headers;
    request.ForEachHeader([&](const std::string& name, const std::string& value) { headers[name] = value; });
    return headers;
}

}  // namespace Ombry::Tests
