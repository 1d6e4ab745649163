#pragma once

#include "tests/EndToEnd/Machine.h"

#include <algorithm>
#include <memory>
#include <string>

namespace Ombry::Tests {

/// A running sandbox service on a port of its own. Two may share one state folder.
class Sandbox {
public:
    static inline const std::string DatacenterId = "5ad7b0c2-0001-4c00-8000-000000000001";

    explicit Sandbox(const Words& options = {},
                     std::shared_ptr<TemporaryDirectory> state = std::make_shared<TemporaryDirectory>())
        : state(std::move(state)), process(WordsOf(options, *this->state)), ready(process.AwaitLine()) {}

    ~Sandbox() {
        if (!process.HasBeenWaitedFor()) Stop();
    }
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    std::string Url() const { return TextMember("baseUrl"); }
    /// Of the certificate, as upper-case pairs between colons.
    std::string Fingerprint() const { return TextMember("fingerprint"); }
    const std::string& ReadyLine() const { return ready; }
    int Port() const { return std::stoi(ready.substr(ready.find("\"port\":") + 7)); }
    /// "127.0.0.1:PORT".
    std::string HostAndPort() const { return "127.0.0.1:" + std::to_string(Port()); }

    TestCertificate Certificate() const { return CertificateFromPem(state->Read("identity.pem")); }
    const std::shared_ptr<TemporaryDirectory>& State() const { return state; }

    /// Ends the service as an administrator would. What it logged is the outcome's error text. A service that
    /// has ended before, or ends badly, fails the test: its clients see only a port that refuses, and try it
    /// again for minutes.
    const ProcessOutcome& Stop() {
        process.Signal(SIGTERM);
        const ProcessOutcome& outcome = process.Wait();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.error;
        return outcome;
    }
    ChildProcess& Process() { return process; }

    /// The log of a stopped service without its times.
    std::string Requests() {
        std::string log = Stop().error;
        std::string lines;
        for (std::size_t begin = 0; begin < log.size();) {
            const std::size_t end = std::min(log.find('\n', begin), log.size() - 1);
            lines += log.substr(begin + 9, end + 1 - begin - 9);
            begin = end + 1;
        }
        return lines;
    }

private:
    static Words WordsOf(const Words& options, const TemporaryDirectory& state) {
        Words words{OMBRY_SANDBOX_SERVICE, "--state", state.Path()};
        words.insert(words.end(), options.begin(), options.end());
        return words;
    }

    std::string TextMember(const std::string& key) const {
        const std::size_t begin = ready.find("\"" + key + "\":\"") + key.size() + 4;
        return ready.substr(begin, ready.find('"', begin) - begin);
    }

    const std::shared_ptr<TemporaryDirectory> state;
    ChildProcess process;
    const std::string ready;
};

}  // namespace Ombry::Tests
