// How cost grows: calls a second by threads, against a server that takes its time; what a kept connection
// holds when it is idle; and what a call costs by the size of the answer, beside peers. Draws the first and
// the last.
//
//   bench_scaling [rounds] [folder]      11 rounds, and no pictures, unless told otherwise

#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "bench/HttpClients.h"
#include "bench/LocalServer.h"
#include "bench/Measurement.h"
#include "bench/Plot.h"

#include <arpa/inet.h>
#include <malloc.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <barrier>
#include <cstdio>
#include <exception>
#include <list>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace Ombry::Bench {
namespace {

using namespace OmbryZephCore;

constexpr int DefaultRounds = 11;
constexpr int AnswerMicroseconds = 5000;
constexpr int CallsOfAThread = 40;
constexpr int IdleConnections = 64;

/// Answers each request of a connection after five milliseconds, in clear text: what TLS costs is measured
/// elsewhere. One thread a connection; ends with its connections.
class SlowServer {
public:
    SlowServer() : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(listener, 64) != 0 ||
            getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            throw std::runtime_error("The slow server cannot listen.");
        port = ntohs(address.sin_port);
        acceptor = std::thread([this] { Accept(); });
    }
    ~SlowServer() {
        shutdown(listener, SHUT_RDWR);
        acceptor.join();
        for (std::thread& thread : threads)
            thread.join();
        close(listener);
    }
    SlowServer(const SlowServer&) = delete;
    SlowServer& operator=(const SlowServer&) = delete;

    std::uint16_t Port() const { return port; }

private:
    void Accept() {
        for (int peer; (peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
            threads.emplace_back([peer] { Answer(peer); });
    }

    static void Answer(int peer) {
        const int on = 1;
        setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        char request[4096];
        // A request is small, has no body, and comes whole.
        while (recv(peer, request, sizeof request, 0) > 0) {
            usleep(AnswerMicroseconds);
            constexpr std::string_view answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
            if (send(peer, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) break;
        }
        close(peer);
    }

    const int listener;
    std::uint16_t port = 0;
    std::list<std::thread> threads;  // the acceptor's until it has ended
    std::thread acceptor;
};

/// Calls a second of so many threads over one pool.
double CallsASecond(int count, const ZephSorrelConnectionParameters& parameters,
                    ZephSorrelSyncConnectionPool& pool) {
    std::barrier start(count + 1);
    std::exception_ptr failure;
    std::list<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            ZephSorrelSyncHttpClient client(nullptr, false, parameters, &pool);
            bool good = client.DoRequest("GET", "/") == 0;
            start.arrive_and_wait();
            for (int call = 0; call < CallsOfAThread; ++call)
                good = client.DoRequest("GET", "/") == 0 && good;
            if (!good)
                failure = std::make_exception_ptr(std::runtime_error("The slow server gave no answer."));
        });
    }
    start.arrive_and_wait();
    const double begin = Now();
    for (std::thread& thread : threads)
        thread.join();
    const double end = Now();
    if (failure) std::rethrow_exception(failure);
    return count * CallsOfAThread / (end - begin);
}

void MeasureThreads(Report& report, int rounds, const std::string& folder) {
    const SlowServer server;
    ZephSorrelSyncConnectionPool pool(
        nullptr);  // whose connections go before the server, which waits for that
    const ZephSorrelConnectionParameters parameters("127.0.0.1", server.Port());
    std::vector<std::pair<double, double>> points, ideal;
    for (const int threads : {1, 2, 4, 8, 16}) {
        std::vector<double> figures;
        for (int round = 0; round < rounds; ++round)
            figures.push_back(CallsASecond(threads, parameters, pool));
        const double figure = Median(figures);
        const double one = points.empty() ? figure : points.front().second;
        points.emplace_back(threads, figure);
        ideal.emplace_back(threads, threads * one);
        char remark[48];
        std::snprintf(remark, sizeof remark, "%.0f calls a second", figure);
        report.AtLeast("threads: " + std::to_string(threads) + ", of so many times one's",
                       figure / (threads * one), 0.95, remark);
    }
    if (folder.empty()) return;
    Plot plot("Calls a second by threads, a server that answers after 5 ms", "threads", "calls a second",
              true);
    plot.Line("measured", points);
    plot.Line("so many times one thread's", ideal);
    plot.Write(folder + "/calls-by-threads.svg");
}

/// What the heap holds of a connection between two requests, and once the pool has seen that it is idle.
void MeasureIdle(Report& report, const Target& target) {
    ZephSorrelSyncConnectionPool pool(nullptr);
    const auto connect = [&](int number) {
        ZephSorrelConnectionParameters parameters("127.0.0.1", target.port);
        // Each has a place of its own in the pool.
        parameters.SetUseSSL(true)
            .SetCertificateValidation({ValidateByPublicKey, target.certificate})
            .SetConnectTimeout(1000 + static_cast<std::uint32_t>(number));
        ZephSorrelSyncHttpClient client(nullptr, false, parameters, &pool);
        if (client.DoRequest("GET", "/small") != 0) throw std::runtime_error("A connection was refused.");
    };
    connect(0);  // and what the process makes once
    const double before = static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd);
    for (int i = 1; i <= IdleConnections; ++i)
        connect(i);
    const auto held = [&] {
        return (static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd) - before) / IdleConnections /
               1000;
    };
    report.Plain("KB a kept connection holds, just used", held());
    pool.Start(300, 1);
    for (const double end = Now() + 10, used = held(); Now() < end && held() > used * 0.9;)
        usleep(100'000);
    report.AtMost("KB a kept connection holds, found idle", held(), 40);
}

void MeasureSizes(Report& report, const Target& target, int rounds, const std::string& folder) {
    Plot plot("Time of a GET by the size of its answer, kept connection, TLS 1.3", "bytes of the answer",
              "microseconds", true);
    const std::vector<std::string> names{"ours", "libcurl", "Beast"};
    std::vector<std::unique_ptr<HttpClient>> clients;
    for (const std::string& name : names)
        clients.push_back(MakeClient(name, target));
    std::vector<std::vector<std::pair<double, double>>> points(names.size());
    for (const std::uint64_t size : LocalServer::Sizes) {
        const std::string path = "/size-" + std::to_string(size);
        const int calls = size > 100'000 ? 10 : 50;
        std::vector<std::vector<double>> times(names.size()), ratios(names.size());
        for (int round = 0; round <= rounds; ++round) {
            for (std::size_t i = 0; i < names.size(); ++i) {
                const double start = Now();
                for (int call = 0; call < calls; ++call) {
                    if (clients[i]->Get(path) != size) throw std::runtime_error("An answer was cut.");
                }
                if (round > 0) times[i].push_back((Now() - start) / calls * 1e6);
                if (round > 0) ratios[i].push_back(times[i].back() / times[0].back());
            }
        }
        for (std::size_t i = 0; i < names.size(); ++i)
            points[i].emplace_back(static_cast<double>(size), Median(times[i]));
        char remark[96];
        std::snprintf(remark, sizeof remark, "%.1f us; Beast's, divided by ours: %.2f", Median(times[0]),
                      Median(ratios[2]));
        report.Plain("answer of " + std::to_string(size) + ", libcurl's divided by ours", Median(ratios[1]),
                     remark);
    }
    for (std::size_t i = 0; i < names.size(); ++i)
        plot.Line(names[i], points[i]);
    if (!folder.empty()) plot.Write(folder + "/cost-by-size.svg");
}

void RunAll(int rounds, const std::string& folder) {
    Report threads("Calls a second, a server that answers after 5 ms");
    MeasureThreads(threads, rounds, folder);
    StayOnOneProcessor();
    const LocalServer server;
    const Target target{server.Port(), server.Certificate(), server.PublicKeyPin()};
    Report idle("An idle connection over TLS 1.3");
    MeasureIdle(idle, target);
    Report sizes("A GET by the size of its answer");
    MeasureSizes(sizes, target, rounds, folder);
}

}  // namespace
}  // namespace Ombry::Bench

int main(int argc, char** argv) {
    using namespace Ombry::Bench;
    try {
        const int rounds = argc > 1 ? std::stoi(argv[1]) : DefaultRounds;
        RunAll(rounds > 0 ? rounds : DefaultRounds, argc > 2 ? argv[2] : "");
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench_scaling: %s\n", failure.what());
        return 1;
    }
}
