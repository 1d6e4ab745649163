#pragma once

#include "tests/Fakes/FakeSecurityFramework.h"

#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace Ombry::Tests {

/// What the service knows of clients and services, changed and judged by the requests as a real one does. The
/// token "t" is an administrator's; all others are those of the client "c1".
class MemoryServiceRecords {
public:
    std::optional<std::string> Answer(const std::string& request) {
        std::lock_guard guard(mutex);
        const bool lacksBody = request.starts_with("POST ") && request.ends_with("\r\n\r\n");
        if (lacksBody) return Empty("400 Bad Request");  // cut short; nobody reads this
        const bool isByClient = HeaderOf(request, "Authorization") != "Bearer t";
        const bool isOpen = request.find("/nonsecure/") != std::string::npos;
        if (isByClient && !isOpen && !clients.contains("c1-id")) return Empty("401 Unauthorized");
        if (request.starts_with("GET /services/services/secure/name/Svc/")) return Registrations(request);
        if (request.starts_with("POST /v1/auth/locationawareclients "))
            return Add(clients, Between(request, "\"id\": \""));
        if (request.starts_with("POST /v1/services/services "))
            return Add(services, Between(request, "\"serviceId\": \""));
        if (request.starts_with("DELETE /v1/auth/clients "))
            return Remove(clients, "c1-id", "204 No Content");
        if (request.starts_with("DELETE /v1/auth/clients/"))
            return Remove(clients, Between(request, "/clients/", ' '), "204 No Content");
        if (request.starts_with("DELETE /v1/services/services/"))
            return Remove(services, Between(request, "/services/services/", ' '), "200 OK");
        return std::nullopt;
    }

    std::set<std::string> Clients() const {
        std::lock_guard guard(mutex);
        return clients;
    }
    std::set<std::string> Services() const {
        std::lock_guard guard(mutex);
        return services;
    }
    void PutService(const std::string& id) {
        std::lock_guard guard(mutex);
        services.insert(id);
    }

    static std::string Between(const std::string& text, const std::string& start, char end = '"') {
        const std::size_t begin = text.find(start) + start.size();
        return text.substr(begin, text.find(end, begin) - begin);
    }

private:
    static std::string Empty(const std::string& status) {
        return status.starts_with("204") ? "HTTP/1.1 204 No Content\r\n\r\n"
                                         : LoopbackServer::Response("", status);
    }
    static std::string Add(std::set<std::string>& known, const std::string& id) {
        return Empty(known.insert(id).second ? "201 Created" : "409 Conflict");
    }
    static std::string Remove(std::set<std::string>& known, const std::string& id, const char* done) {
        return Empty(known.erase(id) > 0 ? done : "404 Not Found");
    }
    std::string Registrations(const std::string& request) const {
        std::string list;
        for (const std::string& id : services) {
            list += list.empty() ? "" : ", ";
            list += "{\"id\": \"" + id + "\", \"serviceName\": \"Svc\", \"endpointUrl\": \"http://" +
                    HeaderOf(request, "Host") + "\"}";
        }
        return LoopbackServer::Response("{\"local\": [" + list + "], \"remote\": []}", "200 OK",
                                        "Cache-Control: max-age=0, stale-while-revalidate=0\r\n");
    }

    mutable std::mutex mutex;
    // Guarded by mutex:
    std::set<std::string> clients{"c1-id"};
    std::set<std::string> services;
};

}  // namespace Ombry::Tests
