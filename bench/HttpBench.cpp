// All clients in one process, against one server on the same processor. Each round runs every client once, in
// an order that turns from round to round; a figure is the median over the rounds of a peer's time divided by
// ours, so what disturbs a round disturbs all.
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

constexpr const char* Peers[] = {"libcurl", "Beast", "OpenSSL alone"};
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

double Time(HttpClient& client, int count, const Work& work) {
    const double start = Now();
    for (int i = 0; i < count; ++i)
        work(client);
    return Now() - start;
}

/// Runs `count` times the work a round on each side and reports the ratios.
void Compare(Report& report, const std::string& name, const Goals& goals, Clients& clients, int rounds,
             int count, const Work& work) {
    std::vector<HttpClient*> all{clients.ours.get()};
    for (const auto& peer : clients.peers)
        all.push_back(peer.get());
    std::vector<std::vector<double>> times(all.size());
    std::vector<std::vector<double>> ratios(PeerCount);
    for (HttpClient* client : all)
        Time(*client, 1, work);
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < all.size(); ++i) {
            const std::size_t turn = (i + static_cast<std::size_t>(round)) % all.size();
            times[turn].push_back(Time(*all[turn], count, work));
        }
        for (std::size_t peer = 0; peer < PeerCount; ++peer)
            ratios[peer].push_back(times[peer + 1].back() / times[0].back());
    }
    for (std::size_t peer = 0; peer < PeerCount; ++peer) {
        char remark[96];
        std::snprintf(remark, sizeof remark, "%.1f us against %.1f us", Median(times[0]) / count * 1e6,
                      Median(times[peer + 1]) / count * 1e6);
        const std::string line = name + ", " + Peers[peer];
        if (goals[peer] > 0) {
            report.AtLeast(line, Median(ratios[peer]), goals[peer], remark);
        } else {
            report.Plain(line, Median(ratios[peer]), remark);
        }
    }
}

void RunAll(int rounds) {
    StayOnOneProcessor();
    const LocalServer server;
    const Target target{server.Port(), server.Certificate(), server.PublicKeyPin()};
    Clients clients(target);
    const std::string body(500, 'b');

    Report report("HTTPS, a peer's time divided by ours");
    Compare(report, "small GET, kept alive", {1.5, 1.0, 0}, clients, rounds, 100,
            [](HttpClient& client) { client.Get("/small"); });
    Compare(report, "POST of 500 bytes, kept alive", {1.4, 0, 0}, clients, rounds, 100,
            [&](HttpClient& client) { client.Post("/submit", body); });
    Compare(report, "GET on a new connection, full handshake", {1.2, 0, 0}, clients, rounds, 10,
            [](HttpClient& client) { client.GetAnew("/small", Handshake::Full); });
    Compare(report, "GET on a new connection, resumed session (libcurl's too)", {1.1, 0, 0}, clients, rounds,
            10, [](HttpClient& client) { client.GetAnew("/small", Handshake::Resumed); });
    Compare(report, "download of 100 MB", {1.0, 0, 0}, clients, rounds / 10 + 1, 1, [](HttpClient& client) {
        if (client.Get("/large") != LocalServer::LargeBytes) throw std::runtime_error("The body was cut.");
    });
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    return RunBenchmark("bench_http", RunAll, DefaultRounds, argc, argv);
}
