// All clients in one process, against one server on the same processor. Each round runs every client once, in
// an order that turns from round to round; a figure is the median over the rounds of a peer's time divided by
// ours, so what disturbs a round disturbs all. The processor time is that of this process, without the
// server's.
//
//   bench_http [rounds]      101 unless told otherwise

#include "bench/HttpClients.h"
#include "bench/LocalServer.h"
#include "bench/Measurement.h"

#include <array>
#include <cstdio>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <vector>

namespace Ombry::Bench {
namespace {

constexpr int DefaultRounds = 101;

constexpr const char* Peers[] = {"libcurl", "Beast", "OpenSSL alone", "OpenSSL in our steps"};
constexpr std::size_t PeerCount = std::size(Peers);

struct Clients {
    explicit Clients(const Target& target) : ours(MakeOmbryClient(target)) {
        for (const char* name : Peers)
            peers.push_back(MakeClient(name, target));
    }

    std::unique_ptr<HttpClient> ours;
    std::vector<std::unique_ptr<HttpClient>> peers;
};

/// For each peer, what its time divided by ours is to reach; 0 for any.
using Goals = std::array<double, PeerCount>;
using Work = std::function<void(HttpClient&)>;

/// Seconds, by round.
struct Times {
    std::vector<double> passed;
    std::vector<double> ofProcessor;
};

void Time(HttpClient& client, int count, const Work& work, Times& times) {
    const double start = Now(), processorStart = ProcessorTime();
    for (int i = 0; i < count; ++i)
        work(client);
    times.ofProcessor.push_back(ProcessorTime() - processorStart);
    times.passed.push_back(Now() - start);
}

double MedianRatio(const std::vector<double>& over, const std::vector<double>& under) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < over.size(); ++i)
        ratios.push_back(over[i] / under[i]);
    return Median(std::move(ratios));
}

/// Runs `count` times the work a round on each side and reports the ratios; what it took by client, ours
/// first.
std::vector<Times> Compare(Report& report, const std::string& name, const Goals& goals, Clients& clients,
                           int rounds, int count, const Work& work) {
    std::vector<HttpClient*> all{clients.ours.get()};
    for (const auto& peer : clients.peers)
        all.push_back(peer.get());
    std::vector<Times> times(all.size());
    for (HttpClient* client : all)
        work(*client);
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < all.size(); ++i) {
            const std::size_t turn = (i + static_cast<std::size_t>(round)) % all.size();
            Time(*all[turn], count, work, times[turn]);
        }
    }
    for (std::size_t peer = 0; peer < PeerCount; ++peer) {
        const Times& ours = times[0];
        const Times& theirs = times[peer + 1];
        char remark[96];
        std::snprintf(remark, sizeof remark, "%.1f us against %.1f us; processor time %.2f",
                      Median(ours.passed) / count * 1e6, Median(theirs.passed) / count * 1e6,
                      MedianRatio(theirs.ofProcessor, ours.ofProcessor));
        const std::string line = name + ", " + Peers[peer];
        const double ratio = MedianRatio(theirs.passed, ours.passed);
        if (goals[peer] > 0) {
            report.AtLeast(line, ratio, goals[peer], remark);
        } else {
            report.Plain(line, ratio, remark);
        }
    }
    return times;
}

void RunAll(int rounds) {
    StayOnOneProcessor();
    const LocalServer server;
    const Target target{server.Port(), server.Certificate(), server.PublicKeyPin()};
    Clients clients(target);
    const std::string body(500, 'b');

    Report report("HTTPS, a peer's time divided by ours");
    const auto ofGet = Compare(report, "small GET, kept alive", {1.5, 1.0}, clients, rounds, 100,
                               [](HttpClient& client) { client.Get("/small"); });
    report.AtMost("small GET, kept alive, our processor time of Beast's",
                  MedianRatio(ofGet[0].ofProcessor, ofGet[2].ofProcessor), 0.95);
    Compare(report, "POST of 500 bytes, kept alive", {1.4}, clients, rounds, 100,
            [&](HttpClient& client) { client.Post("/submit", body); });
    const auto ofFull = Compare(report, "GET on a new connection, full handshake", {1.2}, clients, rounds, 10,
                                [](HttpClient& client) { client.GetAnew("/small", Handshake::Full); });
    const auto ofResumed =
        Compare(report, "GET on a new connection, resumed session (libcurl's too)", {1.1}, clients, rounds,
                10, [](HttpClient& client) { client.GetAnew("/small", Handshake::Resumed); });
    char remark[48];
    std::snprintf(remark, sizeof remark, "processor time %.2f",
                  MedianRatio(ofResumed[0].ofProcessor, ofFull[0].ofProcessor));
    report.AtMost("GET on a new connection, our resumed session of our full handshake",
                  MedianRatio(ofResumed[0].passed, ofFull[0].passed), 0.5, remark);
    Compare(report, "download of 100 MB", {1.0}, clients, rounds / 10 + 1, 1, [](HttpClient& client) {
        if (client.Get("/large") != LocalServer::LargeBytes) throw std::runtime_error("The body was cut.");
    });
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    return RunBenchmark("bench_http", RunAll, DefaultRounds, argc, argv);
}
