#pragma once

#include "Sandbox/Calls.h"
#include "Sandbox/Faults.h"
#include "Sandbox/Identity.h"
#include "Sandbox/Options.h"
#include "Sandbox/Registration.h"
#include "Sandbox/Server.h"
#include "Sandbox/State.h"

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace Ombry::Sandbox {

/// Serves the calls of a Security Framework service over HTTP, and the faults that it was asked for. Requests
/// run on the threads of the server.
class Service {
public:
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

    void AddRoutes();
    bool InjectFault(const Request& request, Response& response);
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
    std::mutex mutex;
    std::condition_variable condition;
    // Guarded by mutex:
    bool serving = false;
    bool stopping = false;
    bool served = false;
    std::set<int> answering;  ///< ports of the clients whose requests were read and not yet answered
};

}  // namespace Ombry::Sandbox
