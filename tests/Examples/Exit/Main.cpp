// A program on the libraries, with its state here, that ends with everything alive: a facade, its threads, a
// gateway and a connection that is kept.
//
//     program WAY CLIENT SERVICE PATH
//
// WAY says what holds them and how the process ends; the exit code is 7, and 1 for a call that failed.

#include "ClientCommunications/IClientCommunications.h"
#include "ClientCommunications/IServiceResponse.h"
#include "Ombry.SecClientConfig/Here/FoldersHere.h"
#include "Ombry.SecClientConfig/Here/SeedsHere.h"
#include "Platform/MadeOnce.h"

#include <cstdlib>
#include <iostream>
#include <map>
#include <thread>

namespace Ombry::Tests {
namespace {

using namespace ClientCommunications;

constexpr int ExitCode = 7;

/// The state here, until the end of the process.
struct Here {
    SecClientConfig::FoldersHere folders;
    SecClientConfig::SeedsHere seeds;
    Platform::Testing::Replace<Platform::IKnownFolders> foldersReplaced{folders};
    Platform::Testing::Replace<Platform::IRandom> seedsReplaced{seeds};
};

/// A facade and what a program makes with it, used once, so that each has something to give back.
struct Client {
    Client() = default;
    explicit Client(char** arguments) : path(arguments[2]) {
        communications = MakeClientCommunications(CommunicationsParameters(arguments[0]));
        requests = communications->GetServiceRequestFactory();
        const auto finder = communications->GetServiceFinderFactory()->CreateByName(arguments[1]);
        gateway = communications->GetServiceGatewayFactory()->Create(finder);
        Call();
    }

    void Call() const {
        const auto response = gateway->CallForString(requests->Create("GET", path, "1"), {});
        if (response->GetStatusCode() != 200) std::_Exit(1);
    }

    std::string path;
    std::shared_ptr<IClientCommunications> communications;
    std::shared_ptr<IServiceRequestFactory> requests;
    std::shared_ptr<IServiceGateway> gateway;
};

// Constructed before anything of the libraries, hence destroyed after all static objects that they make.
Client global;

[[noreturn]] void EndInGlobal(char** arguments) {
    global = Client(arguments);
    std::exit(ExitCode);
}

/// The facade goes first, and what was made with it serves on.
[[noreturn]] void EndInGlobalWithoutTheFacade(char** arguments) {
    global = Client(arguments);
    global.communications.reset();
    global.Call();
    std::exit(ExitCode);
}

/// Destroyed before the static objects that the libraries make later.
[[noreturn]] void EndInStaticLocal(char** arguments) {
    static const Client local(arguments);
    std::exit(ExitCode);
}

/// This thread goes on calling while another one destroys the static objects.
[[noreturn]] void EndInOtherThread(char** arguments) {
    global = Client(arguments);
    const Client mine = global;
    std::thread([] { std::exit(ExitCode); }).detach();
    for (;;)
        mine.Call();
}

}  // namespace
}  // namespace Ombry::Tests

int main(int argc, char** argv) {
    using namespace Ombry;
    const std::map<std::string, void (*)(char**)> ways{
        {"global", Tests::EndInGlobal},
        {"global-gateway", Tests::EndInGlobalWithoutTheFacade},
        {"static-local", Tests::EndInStaticLocal},
        {"other-thread", Tests::EndInOtherThread},
    };
    if (argc != 5 || ways.count(argv[1]) == 0) return 2;
    Platform::MadeOnce<Tests::Here>();
    try {
        ways.at(argv[1])(argv + 2);
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << "\n";
        return 1;
    }
}
