#include "Platform/IFiles.h"
#include "Platform/Process.h"
#include "Sandbox/Identity.h"
#include "Sandbox/Json.h"
#include "Sandbox/Options.h"
#include "Sandbox/Password.h"
#include "Sandbox/Service.h"
#include "Sandbox/State.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <thread>

namespace Ombry::Sandbox {
namespace {

// Blocks the signals that end the service in every thread, so that one thread can wait for them.
sigset_t BlockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void PrintReadyLine(const Service& service, int port, const Identity& identity) {
    const std::string line = WriteJson([&](JsonWriter& writer) {
        writer.StartObject();
        WriteMember(writer, "baseUrl", service.BaseUrl());
        writer.Key("port");
        writer.Int(port);
        WriteMember(writer, "fingerprint", identity.Fingerprint());
        writer.EndObject();
    });
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

int Run(int argc, char** argv) {
    Options options = ParseOptions(argc, argv);
    if (!options.help.empty()) {
        std::fputs(options.help.c_str(), stdout);
        return 0;
    }
    Platform::HardenProcess();
    const sigset_t signals = BlockStopSignals();
    if (const auto made =
            Platform::Files().CreateDirectories(options.stateFolder, Platform::Durability::Unsynced);
        !made) {
        throw std::runtime_error("Cannot make the folder '" + options.stateFolder + "'.");
    }
    if (!options.passwordFile.empty()) options.password = ReadOrMakePassword(options.passwordFile);
    const Identity identity(options.stateFolder);
    State state(options.stateFolder);
    Service service(options, identity, state);
    const int port = service.Bind();
    PrintReadyLine(service, port, identity);
    std::thread stopper([&] {
        int signal = 0;
        sigwait(&signals, &signal);
        service.Stop();
    });
    std::exception_ptr failure;
    try {
        service.Serve();
    } catch (...) {
        failure = std::current_exception();
    }
    // If serving ended by itself, the stopper still waits for its signal.
    kill(getpid(), SIGTERM);
    stopper.join();
    if (failure) std::rethrow_exception(failure);
    return 0;
}

}  // namespace
}  // namespace Ombry::Sandbox

int main(int argc, char** argv) {
    try {
        return Ombry::Sandbox::Run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "ombry-sandbox: %s\n", failure.what());
        return 1;
    }
}
