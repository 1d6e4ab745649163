#pragma once

#include "Sandbox/Faults.h"
#include "Sandbox/Journal.h"
#include "Sandbox/Json.h"
#include "Sandbox/Options.h"
#include "Sandbox/State.h"

#include <httplib.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Ombry::Sandbox {

/// The page at the root of the address, what it is told, and what it may switch. How requests come and
/// answers go is `Service`'s. Any thread may call it.
class Page {
public:
    using Request = httplib::Request;
    using Response = httplib::Response;

    static constexpr int MostShown = 50;  ///< clients, and services

    /// Nothing is copied: all of it must live as long as this.
    Page(const Options& options, State& state, Faults& faults, const Journal& journal);

    /// Whether the request may have anything of the page, by its host and by the user's name and password;
    /// answers itself if not. Every other call is for who was admitted.
    bool Admit(const Request& request, Response& response) const;

    void Show(Response& response) const;

    /// Takes {"fault": "status=503", "on": true, "path": "/v1/auth", "count": 1}, or {"fault": "status",
    /// "on": false}, which takes back all of this kind; answers with what is still to come.
    void SwitchFault(const Request& request, Response& response);

    /// Of datacenters and instances, clients, services, tokens and faults, as an event of a stream (HTML,
    /// section 9.2).
    std::string OverviewEvent(const std::string& ownUrl);
    /// Of requests behind a number, which is moved on; empty if there are none.
    std::string RequestsEvent(std::uint64_t& number) const;

    /// Headers of all that is the page's.
    void Harden(Response& response) const;

private:
    void WriteDatacenters(JsonWriter& writer, const std::string& ownUrl, std::int64_t now);
    void WriteSummary(JsonWriter& writer, std::int64_t now);
    void WriteFaults(JsonWriter& writer) const;

    const Options& options;
    State& state;
    Faults& faults;
    const Journal& journal;
    const std::string
        run;  ///< tells this run of the service from an earlier one, whose requests had the same numbers
    const std::string document;
    const std::string policy;
};

}  // namespace Ombry::Sandbox
