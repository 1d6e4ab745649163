#include "Sandbox/Service.h"

#include "Platform/IClock.h"
#include "Sandbox/BrowserGuard.h"
#include "Sandbox/EventStream.h"
#include "Sandbox/HttpConnection.h"
#include "Sandbox/HttpHelpers.h"

#include <chrono>
#include <memory>
#include <set>
#include <stdexcept>
#include <utility>

namespace Ombry::Sandbox {
namespace {

constexpr std::size_t LargestBody = 1 << 20;
constexpr auto HangUpInterval = std::chrono::milliseconds(100);  // between two looks at a connection

// Answers that have no body, whatever they say (RFC 9110, section 6.4.1).
bool IsWithoutContent(int status) {
    return status == 204 || status == 205 || status == 304;
}

Peer PeerOf(const httplib::Request& request) {
    return {request.remote_addr, request.remote_port};
}

// What the library found wrong with a request.
const char* DescribeStatus(int status) {
    switch (status) {
        case 404:
            return "There is no such call.";
        case 408:
            return "The body took too long.";
        case 413:
            return "The body is too large.";
        case 414:
            return "The address is too long.";
        case 431:
            return "The headers are too many or too large.";
        default:
            return "The request cannot be understood.";
    }
}

// Reads the body of a request. What is beyond the limit is read and forgotten: it may be much more than was
// announced, if anything was (chunks, compression), and left unread it would be taken for the next request.
// Answers itself if there is no good body.
bool ReadBody(const httplib::Request& request, httplib::Response& response,
              const httplib::ContentReader& reader, std::string& body) {
    // The library would wait for the end of the connection, but such a request has no body (RFC 9112,
    // section 6.3).
    if (!request.has_header("Content-Length") && !request.has_header("Transfer-Encoding")) return true;
    const Duration start = Platform::Clock().SteadyNow();
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
    if (!good) Server::LeaveBodyUnread();
    // The library has set the status of what it could not read.
    const bool tooSlow = Platform::Clock().SteadyNow() - start > HttpConnection::LongestBodyTime;
    const int status = tooLarge ? 413 : tooSlow ? 408 : response.status < 400 ? 400 : response.status;
    SendError(response, status, "invalid_request", DescribeStatus(status));
    return false;
}

}  // namespace

Service::Service(const Options& options, const Identity& identity, State& state)
    : options(options),
      identity(identity),
      state(state),
      server(options.plainHttp ? nullptr : &identity),
      calls(options, identity, state, faults),
      page(options, state, faults, journal) {
    for (const std::string& fault : options.faults)
        faults.Add(fault);
    server.set_tcp_nodelay(true);
    server.set_payload_max_length(LargestBody);
    // The library asks for its threads when it begins to serve.
    server.new_task_queue = [this, threads = static_cast<std::size_t>(options.threads) + MostStreams] {
        std::lock_guard guard(mutex);
        serving = true;
        condition.notify_all();
        return server.MakeQueue(threads).release();  // the library deletes it
    };
    // Without the library's default, which lets a second service listen on a port that is taken.
    server.set_socket_options([](socket_t socket) {
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    server.set_pre_routing_handler([this](const Request& request, Response& response) {
        {
            std::lock_guard guard(mutex);
            underWay[PeerOf(request)] = UnderWay{Platform::Clock().SteadyNow()};
        }
        if (!Server::HasTooLargeHead(request)) return httplib::Server::HandlerResponse::Unhandled;
        response.status = 431;
        return httplib::Server::HandlerResponse::Handled;
    });
    // The library's own logger runs behind the answer, when the caller may have sent its next request
    // already: the lines would not stand in the order of the requests.
    server.set_post_routing_handler(
        [](const Request& request, const Response& response) { LogRequest(request, response); });
    server.set_logger([this](const Request& request, const Response& response) { Note(request, response); });
    server.set_exception_handler([](const Request&, Response& response, std::exception_ptr) {
        SendError(response, 500, "server_error", "The request could not be carried out.");
    });
    server.set_error_handler([](const Request&, Response& response) {
        if (response.body.empty())
            SendError(response, response.status, "invalid_request", DescribeStatus(response.status));
    });
    AddRoutes();
    AddPage();
}

int Service::Bind() {
    port = options.port;
    if (port == 0) {
        port = server.bind_to_any_port(options.address);
    } else if (!server.bind_to_port(options.address, port)) {
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
    registration.emplace(state, InstanceRecord{baseUrl, options.plainHttp ? "" : identity.CertificateBase64(),
                                               options.ownDatacenter});
    return port;
}

void Service::Serve() {
    const bool stopped = server.listen_after_bind();
    {
        std::lock_guard guard(mutex);
        served = true;
        condition.notify_all();
    }
    registration->Withdraw();
    if (!stopped) throw std::runtime_error("Connections can no longer be accepted.");
}

void Service::Stop() {
    {
        std::lock_guard guard(mutex);
        stopping = true;
        condition.notify_all();
    }
    journal.Close();
    {
        // The library forgets a stop that comes before it serves.
        std::unique_lock lock(mutex);
        condition.wait(lock, [this] { return serving; });
    }
    server.stop();
    // What is being answered is waited for, but neither connections that idle nor requests that never end.
    // One that was accepted at the last moment, or has its answer now, is found in a later round.
    do {
        std::set<Peer> answered;
        {
            std::lock_guard guard(mutex);
            for (const auto& [peer, request] : underWay) {
                if (request.isRead) answered.insert(peer);
            }
        }
        EndReading(port, answered);
    } while (!Await(HangUpInterval, served));
}

void Service::AddRoutes() {
    const std::string base = EscapeForRegex(options.basePath);
    for (const Calls::Call& call : Calls::All()) {
        const auto answer = [this, carryOut = call.carryOut](const Request& request, Response& response) {
            if (!Refuse(request, response) && !InjectFault(request, response))
                (calls.*carryOut)(request, response);
        };
        const auto answerBody = [answer](const Request& head, Response& response,
                                         const httplib::ContentReader& reader) {
            Request request = head;
            if (ReadBody(head, response, reader, request.body)) answer(request, response);
        };
        if (call.method == "GET") server.Get(base + call.path, answer);
        if (call.method == "POST") server.Post(base + call.path, answerBody);
        if (call.method == "DELETE") server.Delete(base + call.path, answer);
    }
}

void Service::AddPage() {
    server.Get("/", [this](const Request& request, Response& response) {
        if (!Refuse(request, response) && page.Admit(request, response)) page.Show(response);
    });
    server.Get("/page/events", [this](const Request& request, Response& response) {
        if (!Refuse(request, response) && page.Admit(request, response)) StreamEvents(request, response);
    });
    server.Post("/page/faults",
                [this](const Request& head, Response& response, const httplib::ContentReader& reader) {
                    Request request = head;
                    if (!ReadBody(head, response, reader, request.body)) return;
                    if (!Refuse(request, response) && page.Admit(request, response))
                        page.SwitchFault(request, response);
                });
}

// What no page of another origin may do, whatever it knows: a browser that was given the user's name and
// password sends them along with its requests. Behind the reading of the body, as below.
bool Service::Refuse(const Request& request, Response& response) const {
    if (!BrowserGuard::IsFromAnotherOrigin(request, options.plainHttp)) return false;
    SendError(response, 403, "access_denied", "Pages of other origins have no access.");
    return true;
}

void Service::StreamEvents(const Request&, Response& response) {
    if (streams.fetch_add(1) >= MostStreams) {
        --streams;
        response.set_header("Retry-After", "5");
        return SendError(response, 503, "temporarily_unavailable", "Too many pages are open.");
    }
    const auto stream = std::make_shared<EventStream>(page, journal, baseUrl);
    const auto provide = [stream](std::size_t, httplib::DataSink& sink) {
        if (!sink.is_writable()) return false;
        try {
            const auto piece = stream->Next();
            if (!piece) {
                sink.done();
                return true;
            }
            return piece->empty() || sink.write(piece->data(), piece->size());
        } catch (const std::runtime_error&) {
            return false;  // of the database; the page tries again
        }
    };
    response.set_chunked_content_provider("text/event-stream", provide, [this](bool) { --streams; });
}

// Behind the answer: what it was, and how long it took.
void Service::Note(const Request& request, const Response& response) {
    UnderWay ended;
    const Duration now = Platform::Clock().SteadyNow();
    ended.begin = now;
    {
        std::lock_guard guard(mutex);
        const auto found = underWay.find(PeerOf(request));
        if (found != underWay.end()) {
            ended = std::move(found->second);
            underWay.erase(found);
        }
    }
    if (request.path == "/" || request.path.starts_with("/page/")) return;
    JournalEntry entry;
    entry.time = Platform::WallSeconds();
    entry.method = request.method;
    entry.path = BelowBase(request.path);
    entry.status = response.status;
    entry.duration = now - ended.begin;
    entry.fault = std::move(ended.fault);
    journal.Add(std::move(entry));
}

// Waits for one of the guarded members to become true; returns what it is.
bool Service::Await(std::chrono::milliseconds atMost, const bool& member) {
    std::unique_lock lock(mutex);
    return Platform::WaitFor(condition, lock, atMost, [&] { return member; });
}

std::string Service::BelowBase(const std::string& path) const {
    return path.starts_with(options.basePath) ? path.substr(options.basePath.size()) : path;
}

// Runs before the work of each call, but behind the reading of its body: bytes that are left unread would be
// taken for the next request. Whether the fault was all that there is to the call.
bool Service::InjectFault(const Request& request, Response& response) {
    const auto fault = faults.Take(BelowBase(request.path));
    {
        std::lock_guard guard(mutex);
        UnderWay& own = underWay[PeerOf(request)];
        own.isRead = true;
        if (fault) own.fault = TextOf(*fault);
    }
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
