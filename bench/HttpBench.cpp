// Both clients in one process, against one server on the same processor. Each round runs every client once,
// in an order that turns from round to round; a figure is the median over the rounds of libcurl's time
// divided by ours, so what disturbs a round disturbs both.
//
//   bench_http [rounds]      101 unless told otherwise

#include "bench/HttpClients.h"
#include "bench/LocalServer.h"
#include "bench/Measurement.h"

#include <cstdio>
#include <functional>
#include <stdexcept>

namespace Ombry::Bench {
namespace {

constexpr int DefaultRounds = 101;

struct Pair {
    std::unique_ptr<HttpClient> ours;
    std::unique_ptr<HttpClient> curls;
};

using Work = std::function<void(HttpClient&)>;

double Time(HttpClient& client, int count, const Work& work) {
    const double start = Now();
    for (int i = 0; i < count; ++i)
        work(client);
    return Now() - start;
}

/// Runs `count` times the work a round on each side and reports the ratio.
void Compare(Report& report, const std::string& name, double target, Pair& pair, int rounds, int count,
             const Work& work) {
    std::vector<double> ours, curls, ratios;
    Time(*pair.ours, 1, work);
    Time(*pair.curls, 1, work);
    for (int round = 0; round < rounds; ++round) {
        const bool oursFirst = round % 2 == 0;
        if (oursFirst) ours.push_back(Time(*pair.ours, count, work));
        curls.push_back(Time(*pair.curls, count, work));
        if (!oursFirst) ours.push_back(Time(*pair.ours, count, work));
        ratios.push_back(curls.back() / ours.back());
    }
    char remark[96];
    std::snprintf(remark, sizeof remark, "%.1f us against %.1f us", Median(ours) / count * 1e6,
                  Median(curls) / count * 1e6);
    if (target > 0) {
        report.AtLeast(name, Median(ratios), target, remark);
    } else {
        report.Plain(name, Median(ratios), remark);
    }
}

void RunAll(int rounds) {
    StayOnOneProcessor();
    const LocalServer server;
    const Target target{server.Port(), server.Certificate(), server.PublicKeyPin()};
    Pair pair{MakeOmbryClient(target), MakeCurlClient(target)};
    const std::string body(300, 'b');

    Report report("HTTPS, times libcurl's speed");
    Compare(report, "small GET, kept alive", 1.15, pair, rounds, 100,
            [](HttpClient& client) { client.Get("/small"); });
    Compare(report, "small POST, kept alive", 1.0, pair, rounds, 100,
            [&](HttpClient& client) { client.Post("/submit", body); });
    Compare(report, "GET on a new connection, full handshake", 1.0, pair, rounds, 10,
            [](HttpClient& client) { client.GetAnew("/small"); });
    Compare(report, "download of 100 MB", 0, pair, rounds / 10 + 1, 1, [](HttpClient& client) {
        if (client.Get("/large") != LocalServer::LargeBytes) throw std::runtime_error("The body was cut.");
    });
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    return RunBenchmark("bench_http", RunAll, DefaultRounds, argc, argv);
}
