#include "Sandbox/Page.h"

#include "Platform/Base64Text.h"
#include "Platform/IClock.h"
#include "Sandbox/BrowserGuard.h"
#include "Sandbox/HttpHelpers.h"
#include "Sandbox/PageContent.h"

#include <openssl/sha.h>

#include <chrono>
#include <stdexcept>
#include <string_view>

namespace Ombry::Sandbox {
namespace {

constexpr std::size_t LongestShownPath = 200;

constexpr Member SwitchMembers[] = {{"fault", Shape::Text}, {"path", Shape::Text}, {"count", Shape::Number}};

// The document refers to its style and its script, so that a browser shows it from the tree as well. What is
// sent holds them: one answer, and a policy that allows these two texts and no others.
std::string Assemble() {
    std::string document = PageHtml;
    const auto put = [&](std::string_view reference, const std::string& text) {
        const std::size_t at = document.find(reference);
        if (at == std::string::npos) throw std::logic_error("The page does not refer to its parts.");
        document.replace(at, reference.size(), text);
    };
    put(R"(<link rel="stylesheet" href="style.css">)", std::string("<style>") + PageStyle + "</style>");
    put(R"(<script src="script.js"></script>)", std::string("<script>") + PageScript + "</script>");
    return document;
}

// A source of a policy that is this text (Content Security Policy, section 2.3.1).
std::string HashSource(std::string_view text) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
    const auto base64 = Platform::Base64Text(digest);
    if (!base64) throw std::runtime_error("Cannot make the policy of the page.");
    return "'sha256-" + *base64 + "'";
}

std::string MakePolicy() {
    return "default-src 'none'; script-src " + HashSource(PageScript) + "; style-src " +
           HashSource(PageStyle) +
           "; img-src data:; connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors "
           "'none'; "
           "require-trusted-types-for 'script'; trusted-types 'none'";
}

void WriteMember(JsonWriter& writer, const char* key, std::int64_t number) {
    writer.Key(key);
    writer.Int64(number);
}
using Sandbox::WriteMember;

std::string Event(const char* name, const std::string& data) {
    return std::string("event: ") + name + "\ndata: " + data + "\n\n";
}

}  // namespace

Page::Page(const Options& options, State& state, Faults& faults, const Journal& journal)
    : options(options),
      state(state),
      faults(faults),
      journal(journal),
      run(std::to_string(Platform::Clock().Now().time_since_epoch().count())),
      document(Assemble()),
      policy(MakePolicy()) {}

bool Page::Admit(const Request& request, Response& response) const {
    Harden(response);
    if (!BrowserGuard::HasKnownHost(request, options)) {
        SendError(response, 421, "invalid_request", "The page is not reached by this name; see --page-host.");
        return false;
    }
    const auto basic = ParseBasic(request);
    if (basic && IsUser(options, basic->first, basic->second)) return true;
    response.set_header("WWW-Authenticate", R"(Basic realm="Ombry sandbox", charset="UTF-8")");
    SendError(response, 401, "invalid_client", "The user's name and password are needed.");
    return false;
}

void Page::Harden(Response& response) const {
    response.set_header("Content-Security-Policy", policy);
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_header("Referrer-Policy", "no-referrer");
    response.set_header("Cache-Control", "no-store");
    response.set_header("Cross-Origin-Opener-Policy", "same-origin");
    response.set_header("Cross-Origin-Resource-Policy", "same-origin");
}

void Page::Show(Response& response) const {
    response.set_content(document, "text/html; charset=utf-8");
}

void Page::SwitchFault(const Request& request, Response& response) {
    rapidjson::Document parsed;
    if (!ParseObject(request, response, parsed)) return;
    const rapidjson::Value& body = parsed;
    const auto on = body.FindMember("on");
    if (FindUnfit(body, SwitchMembers) || on == body.MemberEnd() || !on->value.IsBool())
        return SendError(response, 400, "invalid_request", "A switch is a fault, and whether it is on.");
    try {
        if (on->value.GetBool()) {
            const auto count = body.FindMember("count");
            const int times = count == body.MemberEnd() || count->value.IsNull() ? 1 : count->value.GetInt();
            faults.Add(TextMember(body, "path") + ":" + std::to_string(times) + ":" +
                       TextMember(body, "fault"));
        } else {
            faults.Remove(TextMember(body, "fault"));
        }
    } catch (const std::invalid_argument& failure) {
        return SendError(response, 400, "invalid_request", failure.what());
    }
    SendJson(response, 200, [this](JsonWriter& writer) { WriteFaults(writer); });
}

std::string Page::OverviewEvent(const std::string& ownUrl) {
    const std::int64_t now = Platform::WallSeconds();
    return Event("overview", WriteJson([&](JsonWriter& writer) {
                     writer.StartObject();
                     WriteMember(writer, "run", run);
                     WriteMember(writer, "now", now);
                     WriteDatacenters(writer, ownUrl, now);
                     WriteSummary(writer, now);
                     writer.Key("faults");
                     WriteFaults(writer);
                     writer.EndObject();
                 }));
}

void Page::WriteDatacenters(JsonWriter& writer, const std::string& ownUrl, std::int64_t now) {
    const std::vector<InstanceRecord> instances = state.Instances();
    writer.Key("datacenters");
    writer.StartArray();
    for (const DatacenterOption& datacenter : options.datacenters) {
        writer.StartObject();
        WriteMember(writer, "id", datacenter.id);
        WriteMember(writer, "name", datacenter.name);
        writer.Key("instances");
        writer.StartArray();
        for (const InstanceRecord& instance : instances) {
            if (instance.datacenterId != datacenter.id) continue;
            writer.StartObject();
            WriteMember(writer, "url", instance.baseUrl);
            WriteMember(writer, "silentSeconds", now - instance.seen);
            writer.Key("isThis");
            writer.Bool(instance.baseUrl == ownUrl);
            writer.EndObject();
        }
        writer.EndArray();
        writer.EndObject();
    }
    writer.EndArray();
}

void Page::WriteSummary(JsonWriter& writer, std::int64_t now) {
    const Summary summary = state.Summarize(now, MostShown);
    WriteMember(writer, "clientCount", summary.clients);
    writer.Key("clients");
    writer.StartArray();
    for (const Summary::Client& client : summary.newestClients) {
        writer.StartObject();
        WriteMember(writer, "id", client.id);
        WriteMember(writer, "description", client.description);
        WriteMember(writer, "datacenter", client.datacenterId);
        WriteMember(writer, "services", client.services);
        writer.EndObject();
    }
    writer.EndArray();
    WriteMember(writer, "serviceCount", summary.services);
    writer.Key("services");
    writer.StartArray();
    for (const ServiceRecord& service : summary.newestServices) {
        writer.StartObject();
        WriteMember(writer, "name", service.name);
        WriteMember(writer, "namespace", service.nameSpace);
        WriteMember(writer, "host", service.hostname);
        WriteMember(writer, "url", service.endpointUrl);
        WriteMember(writer, "client", service.clientId);
        WriteMember(writer, "datacenter", service.datacenterId);
        writer.EndObject();
    }
    writer.EndArray();
    writer.Key("tokens");
    writer.StartArray();
    for (const Summary::TokenAge& age : summary.tokens) {
        writer.StartObject();
        WriteMember(writer, "below", age.below);
        WriteMember(writer, "users", age.users);
        WriteMember(writer, "clients", age.clients);
        writer.EndObject();
    }
    writer.EndArray();
}

void Page::WriteFaults(JsonWriter& writer) const {
    writer.StartArray();
    for (const FaultRule& rule : faults.Waiting()) {
        writer.StartObject();
        WriteMember(writer, "path", rule.path);
        WriteMember(writer, "count", static_cast<std::int64_t>(rule.count));
        WriteMember(writer, "fault", TextOf(rule.fault));
        writer.EndObject();
    }
    writer.EndArray();
}

std::string Page::RequestsEvent(std::uint64_t& number) const {
    const std::vector<JournalEntry> entries = journal.After(number);
    if (entries.empty()) return std::string();
    number = entries.back().number;
    return Event("requests", WriteJson([&](JsonWriter& writer) {
                     writer.StartObject();
                     WriteMember(writer, "run", run);
                     writer.Key("requests");
                     writer.StartArray();
                     for (const JournalEntry& entry : entries) {
                         writer.StartObject();
                         WriteMember(writer, "number", static_cast<std::int64_t>(entry.number));
                         WriteMember(writer, "time", entry.time);
                         WriteMember(writer, "method", Printable(entry.method));
                         WriteMember(writer, "path",
                                     Printable(std::string_view(entry.path).substr(0, LongestShownPath)));
                         WriteMember(writer, "status", static_cast<std::int64_t>(entry.status));
                         writer.Key("milliseconds");
                         writer.Double(std::chrono::duration<double, std::milli>(entry.duration).count());
                         WriteMember(writer, "fault", entry.fault);
                         writer.EndObject();
                     }
                     writer.EndArray();
                     writer.EndObject();
                 }));
}

}  // namespace Ombry::Sandbox
