#pragma once

#include "Sandbox/Calls.h"
#include "Sandbox/Connections.h"
#include "Sandbox/Faults.h"
#include "Sandbox/Identity.h"
#include "Sandbox/Journal.h"
#include "Sandbox/Options.h"
#include "Sandbox/Page.h"
#include "Sandbox/Registration.h"
#include "Sandbox/Server.h"
#include "Sandbox/State.h"

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace Ombry::Sandbox {

/// Serves the calls of a Security Framework service over HTTP, the faults that it was asked for, and the page
/// that shows all that. Requests run on the threads of the server.
class Service {
public:
    static constexpr int MostStreams = 4;  ///< open pages; each has a thread beside those of the calls

    Service(const Options& options, const Identity& identity, State& state);

    /// Binds the listening socket; `std::runtime_error` if that fails. Returns the port.
    int Bind();
    /// Serves until `Stop`; `std::runtime_error` if it ends by itself.
    void Serve();
    /// From another thread than `Serve`; waits until that has begun and then until it has ended.
    void Stop();

    const std::string& BaseUrl() const { return baseUrl; }

private:
    using Request = httplib::Request;
    using Response = httplib::Response;

    /// A request whose head was read and that is not yet answered.
    struct UnderWay {
        Duration begin{};
        bool isRead = false;  ///< to its end
        std::string fault = {};
    };

    void AddRoutes();
    void AddPage();
    bool Refuse(const Request& request, Response& response) const;
    std::string BelowBase(const std::string& path) const;
    bool InjectFault(const Request& request, Response& response);
    void StreamEvents(const Request& request, Response& response);
    void Note(const Request& request, const Response& response);
    bool Await(std::chrono::milliseconds atMost, const bool& member);

    const Options& options;
    const Identity& identity;
    State& state;
    Server server;
    int port = 0;
    std::string baseUrl;
    std::optional<Registration> registration;  // from the binding to the end of the serving
    Faults faults;
    Calls calls;
    Journal journal;
    Page page;
    std::atomic<int> streams = 0;
    std::mutex mutex;
    std::condition_variable condition;
    // Guarded by mutex:
    bool serving = false;
    bool stopping = false;
    bool served = false;
    std::map<Peer, UnderWay> underWay;
};

}  // namespace Ombry::Sandbox
