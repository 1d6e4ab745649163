#include "Doctor/Probe.h"

#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "ClientCommunications/Impl/HttpClientServiceGateway.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSocketConnector.h"
#include "OmbryZephCore/ZephUrl.h"
#include "Platform/IClock.h"
#include "Platform/ISockets.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace Ombry::Doctor {
namespace {

using Step = ProbeOutcome::Step;
using Platform::Sockets;

// What the threads of the probes and the one that waits for them share, for as long as any of them lives.
struct Board {
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex:
    std::vector<ProbeOutcome> outcomes;
    std::size_t open = 0;
};

// What an action gives, and how long it took.
template <class Action>
auto Timed(Duration& length, Action action) {
    const Duration start = Platform::Clock().SteadyNow();
    auto result = action();
    length = Platform::Clock().SteadyNow() - start;
    return result;
}

// One connection. Its thread alone uses it; the outcome goes to the board step by step.
class Probe {
public:
    Probe(std::string url, std::size_t place, Duration end, std::shared_ptr<Board> board)
        : url(OmbryZephCore::ParseUrl(url)), place(place), end(end), board(std::move(board)) {}

    void Run() {
        try {
            Connect();
        } catch (const std::exception&) {  // no memory: the step is the one that failed
        }
        outcome.isOver = true;
        Show();
    }

private:
    void Connect() {
        const auto addresses = Timed(outcome.resolve, [this] { return Resolve(); });
        if (addresses.empty() || !Begin(Step::Connect)) return;
        OmbryZephCore::ZephSocketConnector connector(nullptr);
        if (!Timed(outcome.connect, [&] { return ConnectToOneOf(addresses, connector); })) return;
        outcome.peer = connector.GetPeerAddress();
        if (url.scheme == "https") {
            if (!Begin(Step::Handshake)) return;
            outcome.certificate = Timed(outcome.handshake, [&] { return Handshake(connector); });
            if (outcome.certificate.empty()) return;
        }
        Begin(Step::Done);
    }

    std::vector<std::string> Resolve() const {
        Platform::AddressHints hints;
        hints.family = Platform::FamilyUnspecified;
        hints.socketType = Platform::SocketTypeStream;
        hints.protocol = Platform::ProtocolTcp;
        const std::string port = std::to_string(Port());
        const auto resolved = Sockets().GetAddressInfo(url.host.c_str(), port.c_str(), hints);
        std::vector<std::string> addresses;
        if (!resolved) return addresses;
        for (const Platform::AddressEntry& entry : *resolved) {
            constexpr std::size_t hostRoom = 64, serviceRoom = 6;
            const auto name = Sockets().NumericNameOf(entry, hostRoom, serviceRoom);
            if (name) addresses.push_back(name->host);
        }
        return addresses;
    }

    bool ConnectToOneOf(const std::vector<std::string>& addresses,
                        OmbryZephCore::ZephSocketConnector& connector) const {
        for (const std::string& address : addresses) {
            if (Left() <= Duration::zero()) return false;
            const std::uint32_t code = connector.Connect(address.c_str(), Port(), SecondsLeft(), nullptr, 0);
            if (code == OmbryZephCore::eRC_Success) return true;
        }
        return false;
    }

    std::string Handshake(OmbryZephCore::ZephSocketConnector& connector) const {
        OmbryZephCore::ZephIOBuffer certificate(4096, 0x1000000);
        std::string text;
        ClientCommunications::captureCertificate(connector, url.host, SecondsLeft(),
                                                 Cancellation::CreateTimeout(Left()), nullptr, false,
                                                 certificate, text);
        if (text.empty()) return {};
        return {reinterpret_cast<const char*>(certificate.GetData()), certificate.GetLength()};
    }

    std::uint16_t Port() const { return ClientCommunications::ParsePort(url.port); }
    Duration Left() const { return end - Platform::Clock().SteadyNow(); }
    // Rounded up: a connect that has none must succeed at once.
    std::uint32_t SecondsLeft() const {
        const auto seconds = std::chrono::ceil<std::chrono::seconds>(Left()).count();
        return seconds < 1 ? 1 : static_cast<std::uint32_t>(seconds);
    }

    // False if the time is up.
    bool Begin(Step step) {
        outcome.reached = step;
        Show();
        return Left() > Duration::zero();
    }

    void Show() {
        const std::lock_guard guard(board->mutex);
        board->outcomes[place] = outcome;
        if (outcome.isOver) --board->open;
        board->changed.notify_all();
    }

    const OmbryZephCore::ZephUrlParts url;
    const std::size_t place;
    const Duration end;
    const std::shared_ptr<Board> board;
    ProbeOutcome outcome;
};

}  // namespace

std::vector<ProbeOutcome> ProbeAll(const std::vector<std::string>& urls, Duration limit) {
    const Duration end = Platform::Clock().SteadyNow() + limit;
    const auto board = std::make_shared<Board>();
    board->outcomes.resize(urls.size());
    board->open = urls.size();
    for (std::size_t place = 0; place < urls.size(); ++place) {
        const auto probe = std::make_shared<Probe>(urls[place], place, end, board);
        std::thread([probe] { probe->Run(); }).detach();
    }
    std::unique_lock lock(board->mutex);
    Platform::WaitFor(board->changed, lock, limit, [&] { return board->open == 0; });
    return board->outcomes;
}

}  // namespace Ombry::Doctor
