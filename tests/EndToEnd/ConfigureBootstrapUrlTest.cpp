// `configure-bootstrap-url`: what it leaves on the machine, and what stays when it fails.

#include "tests/EndToEnd/Sandbox.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/Linux/TlsStream.h"

namespace Ombry::Tests {
namespace {

const Words TwoDatacenters = {"--datacenter", "1-a=East",     "--datacenter",
                              "2-b=West",     "--datacenter", "3-c=West"};

Words Configure(const Words& options) {
    Words words{"configure-bootstrap-url"};
    words.insert(words.end(), options.begin(), options.end());
    return words;
}

/// A plain server that lists one datacenter on its first connection and does on the second, where the
/// certificate is looked for, what the script says.
class ListsThen {
public:
    explicit ListsThen(LoopbackServer::Script second)
        : server({LoopbackServer::Answering(LoopbackServer::Response(R"([{"id":"i","name":"n"}])")),
                  std::move(second)}) {}

    std::string Url() const { return server.Url(); }
    std::string CaptureFailed(int code) const {
        return "Unable to connect to 127.0.0.1:" + std::to_string(server.Port()) + " due to error " +
               std::to_string(code);
    }

private:
    LoopbackServer server;
};

TEST(ConfigureBootstrapUrlTest, LeavesTheCertificateTheUrlAndTheDatacenter) {
    Sandbox sandbox(TwoDatacenters);
    const Machine machine{};

    ExpectSuccess(machine.Run(Configure({"-u", "admin", "-p", "secret", "-d", "2-b", "-r", sandbox.Url()})));

    EXPECT_EQ(machine.Files(), ConfiguredTree(sandbox.Url(), "2-b", sandbox.Certificate()));
    EXPECT_EQ(sandbox.Requests(),
              "POST /securityframeworkservice/v1/auth/users/servicetokens 200\n"
              "GET /securityframeworkservice/v1/ddb/datacenters 200\n");
}

TEST(ConfigureBootstrapUrlTest, CertificateIsReadableByOpenSSLWithItsAlias) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("the store of Windows is no folder");
    Sandbox sandbox;
    const Machine machine{};
    machine.Run(Configure({"-u", "admin", "-p", "secret", "-dn", "Sandbox", "-r", sandbox.Url()}));

    const ProcessOutcome shown =
        RunProcess({"openssl", "x509", "-in",
                    machine.Folder() / (StoreFolder + "/" + FingerprintOf(sandbox.Certificate())), "-noout",
                    "-alias", "-fingerprint", "-sha256"});

    ExpectSuccess(shown, "DiscoveryServiceBootstrap\nsha256 Fingerprint=" + sandbox.Fingerprint() + "\n");
}

TEST(ConfigureBootstrapUrlTest, DatacenterIsFoundByIdOrElseByName) {
    struct Case {
        Words options;
        std::string id;
    };
    Sandbox sandbox(TwoDatacenters);
    for (const Case& each :
         {Case{{"-d", "3-c"}, "3-c"}, Case{{"-dn", "East"}, "1-a"},
          Case{{"-dn", "West"}, "2-b"},  // the first of two
          Case{{"-d", "3-c", "-dn", "East"}, "3-c"}, Case{{"-d", "wrong", "-dn", "East"}, "1-a"},
          Case{{"-d", "", "-dn", "East"}, "1-a"}}) {
        const Machine machine{};
        Words words = Configure({"-t", "any", "-r", sandbox.Url()});
        words.insert(words.end(), each.options.begin(), each.options.end());

        ExpectSuccess(machine.Run(words));

        EXPECT_EQ(machine.Files(), ConfiguredTree(sandbox.Url(), each.id, sandbox.Certificate()));
    }
}

TEST(ConfigureBootstrapUrlTest, UnknownDatacenterEndsBeforeAnythingIsWritten) {
    Sandbox sandbox(TwoDatacenters);
    const Machine machine{};
    const auto run = [&](const std::string& id, const std::string& name) {
        ExpectException(machine.Run(Configure({"-t", "t", "-d", id, "-dn", name, "-r", sandbox.Url()})),
                        "Unknown datacenter id '" + id + "' or name '" + name + "'");
    };

    run("nowhere", "");
    run("", "east");
    run("EAST", "1-a");
    run("1-A", "");

    EXPECT_EQ(machine.Files(), Tree());
}

TEST(ConfigureBootstrapUrlTest, HostOptionGetsSchemeAndPathAndIsLowerCased) {
    Sandbox sandbox;
    const std::string port = std::to_string(sandbox.Port());
    const Machine machine{};

    ExpectSuccess(machine.Run(Configure({"-t", "t", "-dn", "Sandbox", "-h", "LocalHost:" + port})));

    EXPECT_EQ(machine.Files(), ConfiguredTree("https://localhost:" + port + "/securityframeworkservice",
                                              Sandbox::DatacenterId, sandbox.Certificate()));
}

TEST(ConfigureBootstrapUrlTest, UrlWinsOverHost) {
    Sandbox sandbox;
    const Machine machine{};

    ExpectSuccess(machine.Run(
        Configure({"-t", "t", "-dn", "Sandbox", "-h", "nowhere.invalid:1", "-r", sandbox.Url()})));

    EXPECT_EQ(machine.Files(), ConfiguredTree(sandbox.Url(), Sandbox::DatacenterId, sandbox.Certificate()));
}

TEST(ConfigureBootstrapUrlTest, UrlIsKeptAsItWasGiven) {
    Sandbox sandbox;
    const std::string url =
        "https://LOCALHOST:" + std::to_string(sandbox.Port()) + "/securityframeworkservice";
    const Machine machine{};

    ExpectSuccess(machine.Run(Configure({"-t", "t", "-dn", "Sandbox", "-r", url})));

    EXPECT_EQ(machine.Files(), ConfiguredTree(url, Sandbox::DatacenterId, sandbox.Certificate()));
}

TEST(ConfigureBootstrapUrlTest, SecondRunReplacesTrustAndFiles) {
    Sandbox first;
    Sandbox second({"--datacenter", "other=Other"});
    const Machine machine{};
    machine.Run(Configure({"-t", "t", "-dn", "Sandbox", "-r", first.Url()}));

    ExpectSuccess(machine.Run(Configure({"-t", "t", "-dn", "Other", "-r", second.Url()})));

    EXPECT_EQ(machine.Files(), ConfiguredTree(second.Url(), "other", second.Certificate()));
}

TEST(ConfigureBootstrapUrlTest, SameRunTwiceLeavesTheSame) {
    Sandbox sandbox;
    const Machine machine{};
    for (int run = 0; run < 2; ++run) {
        ExpectSuccess(machine.Run(Configure({"-t", "t", "-dn", "Sandbox", "-r", sandbox.Url()})));
        EXPECT_EQ(machine.Files(),
                  ConfiguredTree(sandbox.Url(), Sandbox::DatacenterId, sandbox.Certificate()));
    }
}

TEST(ConfigureBootstrapUrlTest, OtherCertificatesAndFilesAreLeftAlone) {
    if (ToolUnderTest::IsForWindows()) return LeaveOut("the store of Windows is no folder");
    Sandbox sandbox;
    const TestCertificate other = MakeCertificate({});
    const TestCertificate old = MakeCertificate({.commonName = "old"});
    const Machine machine{};
    machine.Folder().Write(StoreFolder + "/other", StoredCertificate(other, "SomethingElse"));
    machine.Folder().Write(StoreFolder + "/nameless", PemOf(other));
    machine.Folder().Write(StoreFolder + "/long", StoredCertificate(other, std::string(40, 'n')));
    machine.Folder().Write(StoreFolder + "/none", "this is no certificate");
    machine.Folder().Write(StoreFolder + "/old-1", StoredCertificate(old));
    machine.Folder().Write(StoreFolder + "/old-2", StoredCertificate(other));
    machine.Folder().Write(SecurityFolder + "/common.config", "kept");
    Tree expected = machine.Files();
    expected.erase(StoreFolder + "/old-1");
    expected.erase(StoreFolder + "/old-2");
    Tree configured = ConfiguredTree(sandbox.Url(), Sandbox::DatacenterId, sandbox.Certificate());
    expected.merge(configured);

    ExpectSuccess(machine.Run(Configure({"-t", "t", "-dn", "Sandbox", "-r", sandbox.Url()})));

    EXPECT_EQ(machine.Files(), expected);
}

TEST(ConfigureBootstrapUrlTest, FailureOfEveryKindKeepsEarlierTrustAndFiles) {
    Sandbox sandbox;
    const Machine machine{};
    machine.Run(Configure({"-t", "t", "-dn", "Sandbox", "-r", sandbox.Url()}));
    const Tree before = machine.Files();
    ASSERT_EQ(before, ConfiguredTree(sandbox.Url(), Sandbox::DatacenterId, sandbox.Certificate()));
    const auto fails = [&](const Words& options, const std::string& text) {
        ExpectException(machine.Run(Configure(options)), text);
        EXPECT_EQ(machine.Files(), before) << text;
    };

    fails({"-u", "admin", "-p", "wrong", "-d", "x", "-r", sandbox.Url()},
          "OAuth2 request failed with response code 401 and response body "
          R"({"error":"invalid_client","error_description":"Name or secret is wrong."})");
    fails({"-t", "t", "-d", "x", "-r", sandbox.Url()}, "Unknown datacenter id 'x' or name ''");
    fails({"-t", "t", "-d", "x", "-r", sandbox.Url() + "/no"},
          "GET /v1/ddb/datacenters failed with http status 404.");
    fails({"-t", "t", "-d", "x", "-r", "https://" + NoHost}, "Error 11.0");
    {
        const ListsThen resets([](LoopbackServer::Connection& connection) {
            connection.ReadBytes(1);
            connection.Reset();
        });
        fails({"-t", "t", "-d", "i", "-r", resets.Url()}, resets.CaptureFailed(11));
    }
    {
        const ListsThen closes([](LoopbackServer::Connection& connection) { connection.ReadBytes(10); });
        fails({"-t", "t", "-d", "i", "-r", closes.Url()}, closes.CaptureFailed(11));
    }
    {
        const ListsThen isPlain([](LoopbackServer::Connection& connection) {
            connection.Send("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
            connection.AwaitClose();
        });
        // Wine takes anything for the start of a record, and waits for the rest until the time is over.
        const int code = ToolUnderTest::IsForWindows() ? 13 : 11;
        fails({"-t", "t", "-d", "i", "-r", isPlain.Url()}, isPlain.CaptureFailed(code));
    }
    sandbox.Stop();
    fails({"-t", "t", "-dn", "Sandbox", "-r", sandbox.Url()}, "Error 11.0");
}

TEST(ConfigureBootstrapUrlWireTest, ListIsAskedForAndThenTheCertificateOnAConnectionOfItsOwn) {
    const TestCertificate certificate = MakeCertificate({});
    LoopbackServer server(LoopbackServer::Answering(LoopbackServer::Response(R"([{"id":"i","name":"n"}])")),
                          TlsServerRecipe{.certificate = certificate});
    const Machine machine{};

    ExpectSuccess(machine.Run(Configure({"-t", "tok", "-d", "i", "-r", server.Url() + "/b/"})));

    server.AwaitEnds(2);
    EXPECT_EQ(server.Requests(), Words{"GET /b/v1/ddb/datacenters HTTP/1.1\r\n"
                                       "Host: 127.0.0.1:" +
                                       std::to_string(server.Port()) +
                                       "\r\n"
                                       "Content-Length: 0\r\n"
                                       "Authorization: Bearer tok\r\n"
                                       "Contract-Version: 1\r\n"
                                       "\r\n"});
    EXPECT_EQ(server.Connections(), 2u);
    EXPECT_EQ(machine.Files(), ConfiguredTree(server.Url() + "/b/", "i", certificate));
}

}  // namespace
}  // namespace Ombry::Tests
