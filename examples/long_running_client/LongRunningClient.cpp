#include "LongRunningClient.h"

#include "ClientCommunications/IClientCommunications.h"
#include "ClientCommunications/IService.h"
#include "ClientCommunications/IServiceResponse.h"
#include "Platform/IClock.h"
#include "StopSignals.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

namespace Example {
namespace {

using namespace Ombry;

constexpr const char* UsageText =
    "long_running_client CLIENT SERVICE PATH [MILLISECONDS]\n"
    "\n"
    "Calls GET PATH at the service SERVICE, as the client CLIENT that is enrolled on this machine, again and "
    "again\n"
    "with MILLISECONDS (5000) between two calls. Prints a line for each; Ctrl+C or SIGTERM ends it.\n";

struct Options {
    std::string client;
    std::string service;
    std::string path;
    std::chrono::milliseconds pause{5000};
};

bool ParseOptions(int argc, char** argv, Options& options) {
    if (argc < 4 || argc > 5) return false;
    options.client = argv[1];
    options.service = argv[2];
    options.path = argv[3];
    if (argc == 4) return true;
    const char* const end = argv[4] + std::strlen(argv[4]);
    int milliseconds = 0;
    const auto parsed = std::from_chars(argv[4], end, milliseconds);
    options.pause = std::chrono::milliseconds(milliseconds);
    return parsed.ec == std::errc() && parsed.ptr == end && milliseconds >= 0;
}

// Where the libraries report: one line on the standard error stream for what needs attention. Any thread
// calls it, so each line is one write of a stream that locks itself.
class StandardErrorLogger : public LibraryLogger::ILogger {
public:
    bool IsEnabled(int level) override { return level >= FailuresSurvived; }
    void Log(const char*, int, const char* function, int level, const std::string& message) override {
        std::fprintf(stderr, "level %d, %s: %s\n", level, function, message.c_str());
    }

private:
    static constexpr int FailuresSurvived = 3;
};

class Client {
public:
    Client(const Options& options, const Cancellation::Token& stop)
        : options(options), stop(stop), communications(Connect(options)) {
        // The gateway remembers which server works, so it is made once and not for each call.
        const auto finder = communications->GetServiceFinderFactory()->CreateByName(options.service);
        gateway = communications->GetServiceGatewayFactory()->Create(finder);
    }

    void Run() {
        std::cout << "Calling " << options.path << " at " << options.service << " as " << options.client
                  << "." << std::endl;
        for (long round = 1; !stop.IsCancelled(); ++round) {
            const std::string outcome = Call();
            if (stop.IsCancelled()) break;
            std::cout << round << ": " << outcome << std::endl;
            Pause();
        }
    }

private:
    static std::shared_ptr<ClientCommunications::IClientCommunications> Connect(const Options& options) {
        ClientCommunications::CommunicationsParameters parameters(options.client);
        parameters.logger = std::make_shared<StandardErrorLogger>();
        return ClientCommunications::MakeClientCommunications(parameters);
    }

    // One call. Discovery, the choice of a server, the next server after a failure, and a fresh token in the
    // place of an expired or refused one all happen below. What is left to the caller is to judge the
    // status, and to decide what to do when nobody answered: here, to try again in the next round.
    std::string Call() {
        const auto request = communications->GetServiceRequestFactory()->Create("GET", options.path, "1");
        request->SetOverallTimeout(std::chrono::seconds(30));
        try {
            const auto response = gateway->CallForString(request, stop);
            return std::to_string(response->GetStatusCode()) + ", " +
                   std::to_string(response->GetBody().size()) + " bytes from " +
                   response->GetService()->GetEndpointUrl();
        } catch (const std::exception& failure) {
            return std::string("no answer: ") + failure.what();
        }
    }

    void Pause() {
        try {
            Cancellation::SleepUntil(Platform::Clock().Now() + options.pause, stop);
        } catch (const Cancellation::OperationCancelledException&) {
            // The loop sees for itself that it is over.
        }
    }

    const Options& options;
    const Cancellation::Token stop;
    const std::shared_ptr<ClientCommunications::IClientCommunications> communications;
    std::shared_ptr<ClientCommunications::IServiceGateway> gateway;
};

}  // namespace

int RunLongRunningClient(int argc, char** argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        std::cerr << UsageText;
        return 2;
    }
    try {
        // First of all, before the libraries start their threads.
        const Cancellation::Token stop = Cancellation::CreateCancellable();
        const StopSignals signals(stop);
        Client(options, stop).Run();
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "long_running_client: " << failure.what() << "\n";
        return 1;
    }
}

}  // namespace Example
