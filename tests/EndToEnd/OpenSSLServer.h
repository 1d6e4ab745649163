#pragma once

#include "tests/EndToEnd/Machine.h"

#include <string>

namespace Ombry::Tests {

/// The `openssl s_server` of this machine, which answers a GET with the file of that path, head and all, and
/// closes. Weak protocol versions are on, so that whatever is refused was refused by the client.
class OpenSSLServer {
public:
    OpenSSLServer(const TestCertificate& certificate, const TestKey& key, const Words& options = {})
        : folder(certificate, key), process(WordsOf(options), {.folder = folder.Path()}) {
        const std::string line = process.AwaitLine("ACCEPT ");
        port = line.substr(line.rfind(':') + 1);
    }

    void Write(const std::string& path, const std::string& answer) { folder.Write(path, answer); }
    std::string HostAndPort() const { return "127.0.0.1:" + port; }

private:
    /// Nothing to copy or move: the folder is made in place.
    struct ServerFolder : TemporaryDirectory {
        ServerFolder(const TestCertificate& certificate, const TestKey& key) {
            Write("certificate.pem", PemOf(certificate));
            Write("key.pem", PemOf(key));
        }
    };

    static Words WordsOf(const Words& options) {
        Words words{"openssl", "s_server", "-accept", "127.0.0.1:0", "-cert",          "certificate.pem",
                    "-key",    "key.pem",  "-HTTP",   "-cipher",     "ALL:@SECLEVEL=0"};
        words.insert(words.end(), options.begin(), options.end());
        return words;
    }

    ServerFolder folder;
    ChildProcess process;
    std::string port;
};

}  // namespace Ombry::Tests
