// Servers that we did not write: nginx and `openssl s_server`.

#include "tests/EndToEnd/Nginx.h"
#include "tests/EndToEnd/OpenSSLServer.h"

namespace Ombry::Tests {
namespace {

const std::string List = R"([{"id":"i","name":"n"}])";
const std::string ListLocation =
    "location = /v1/ddb/datacenters { default_type application/json; return 200 '" + List + "'; }\n";
const std::string TokenLocation =
    "location = /v1/auth/users/servicetokens { default_type application/json; return 200 "
    "'{\"access_token\":\"x\"}'; }\n";

Words ListAsUser(const std::string& url) {
    return {"get-datacenters", "-u", "u", "-p", "p", "-r", url};
}

Words ConfigureWithToken(const std::string& url) {
    return {"configure-bootstrap-url", "-t", "t", "-d", "i", "-r", url};
}

CertificateRecipe WithKey(const std::string& name) {
    CertificateRecipe recipe;
    recipe.key = KeyNamed(name);
    return recipe;
}

Nginx::Identity SelfSigned(const std::string& key) {
    return {MakeCertificate(WithKey(key)), KeyNamed(key)};
}

/// The versions of TLS to be tried; Wine speaks but one.
Words Spoken(const Words& versions, const std::string& below) {
    return ToolUnderTest::IsForWindows() ? Words{below} : versions;
}

TEST(NginxTest, EachProtocolVersionAndKindOfKeyIsListedAndCaptured) {
    for (const std::string& version : Spoken({"TLSv1.2", "TLSv1.3"}, "TLSv1.2")) {
        for (const std::string key : {"rsa2048", "ec256"}) {
            SCOPED_TRACE(version + " " + key);
            const Nginx::Identity identity = SelfSigned(key);
            Nginx nginx("ssl_protocols " + version + ";\n" + ListLocation + TokenLocation, identity);
            const std::string url = "https://" + nginx.HostAndPort();
            const Machine machine{};

            ExpectSuccess(machine.Run(ListAsUser(url)), "i\tn\n");
            ExpectSuccess(machine.Run(ConfigureWithToken(url)));

            EXPECT_EQ(machine.Files(), ConfiguredTree(url, "i", identity.certificate));
            EXPECT_EQ(nginx.AccessLog(), "1 " + version +
                                             " \"POST /v1/auth/users/servicetokens HTTP/1.1\" 200\n"
                                             "2 " +
                                             version +
                                             " \"GET /v1/ddb/datacenters HTTP/1.1\" 200\n"
                                             "1 " +
                                             version + " \"GET /v1/ddb/datacenters HTTP/1.1\" 200\n");
        }
    }
}

TEST(NginxTest, ServerThatClosesAfterEachAnswerIsConnectedAnew) {
    const std::string version = Spoken({"TLSv1.3"}, "TLSv1.2").front();
    for (const bool tls : {false, true}) {
        Nginx nginx("keepalive_timeout 0;\nssl_protocols " + version + ";\n" + ListLocation + TokenLocation,
                    tls ? std::optional(SelfSigned("ec256")) : std::nullopt);

        ExpectSuccess(Machine().Run(ListAsUser((tls ? "https://" : "http://") + nginx.HostAndPort())),
                      "i\tn\n");

        const std::string protocol = tls ? version : "-";
        EXPECT_EQ(nginx.AccessLog(), "1 " + protocol +
                                         " \"POST /v1/auth/users/servicetokens HTTP/1.1\" 200\n" + "1 " +
                                         protocol + " \"GET /v1/ddb/datacenters HTTP/1.1\" 200\n");
    }
}

TEST(NginxTest, ChunkedAnswerIsRead) {
    // A filter of the body makes its length unknown.
    Nginx nginx("sub_filter_types *;\nsub_filter_once off;\nsub_filter absent present;\n" + ListLocation);

    ExpectSuccess(Machine().Run({"get-datacenters", "-t", "t", "-r", "http://" + nginx.HostAndPort()}),
                  "i\tn\n");
}

TEST(NginxTest, LongAnswerFromAFileIsRead) {
    Nginx nginx("location /v1/ddb { alias files; }");
    std::string list = "[";
    std::string expected;
    for (int i = 0; i < 20000; ++i) {
        list += (i ? "," : "") + std::string(R"({"id":")") + std::to_string(i) + R"(","name":"datacenter"})";
        expected += std::to_string(i) + "\tdatacenter\n";
    }
    nginx.Folder().Write("files/datacenters", list + "]");

    ExpectSuccess(Machine().Run({"get-datacenters", "-t", "t", "-r", "http://" + nginx.HostAndPort()}),
                  expected);
}

TEST(NginxTest, StatusOtherThanOkIsTheTextOfTheFailure) {
    for (const std::string status : {"401", "403", "404", "500", "503"}) {
        Nginx nginx("location / { return " + status + "; }");
        const std::string url = "http://" + nginx.HostAndPort();
        const Machine machine{};

        ExpectException(machine.Run({"get-datacenters", "-t", "t", "-r", url}),
                        "GET /v1/ddb/datacenters failed with http status " + status + ".");
        ExpectException(machine.Run(ConfigureWithToken(url)),
                        "GET /v1/ddb/datacenters failed with http status " + status + ".");
        const ProcessOutcome asUser = machine.Run(ListAsUser(url));
        EXPECT_EQ(asUser.exitCode, 255);
        EXPECT_EQ(asUser.error.find("Caught exception: OAuth2 request failed with response code " + status +
                                    " and response body <html>\r\n<head><title>" + status + " "),
                  0u)
            << asUser.error;
        EXPECT_EQ(machine.Files(), Tree());
    }
}

TEST(NginxTest, ProtocolOfThePortMustBeThatOfTheUrl) {
    Nginx plain(ListLocation);
    ExpectException(Machine().Run({"get-datacenters", "-t", "t", "-r", "https://" + plain.HostAndPort()}),
                    "Error 11.0");

    Nginx tls(ListLocation, SelfSigned("ec256"));
    ExpectException(Machine().Run({"get-datacenters", "-t", "t", "-r", "http://" + tls.HostAndPort()}),
                    "GET /v1/ddb/datacenters failed with http status 400.");
}

/// A server that lists one datacenter, and certificate and files that it must have left on a machine.
void ExpectCaptured(const TestCertificate& certificate, const TestKey& key, const Words& options) {
    OpenSSLServer server(certificate, key, options);
    server.Write("v1/ddb/datacenters", "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " +
                                           std::to_string(List.size()) + "\r\n\r\n" + List);
    const std::string url = "https://" + server.HostAndPort();
    const Machine machine{};

    ExpectSuccess(machine.Run({"get-datacenters", "-t", "t", "-r", url}), "i\tn\n");
    ExpectSuccess(machine.Run(ConfigureWithToken(url)));

    EXPECT_EQ(machine.Files(), ConfiguredTree(url, "i", certificate));
}

TEST(OpenSSLServerTest, EachProtocolVersionAndKindOfKeyIsListedAndCaptured) {
    for (const std::string& version : Spoken({"-tls1", "-tls1_1", "-tls1_2", "-tls1_3"}, "-tls1_2")) {
        for (const std::string key : {"rsa2048", "ec256"}) {
            SCOPED_TRACE(version + " " + key);
            ExpectCaptured(MakeCertificate(WithKey(key)), KeyNamed(key), {version});
        }
    }
}

TEST(OpenSSLServerTest, CertificateIsCapturedWhateverItSays) {
    CertificateRecipe expired;
    expired.validFromSeconds = -172800;
    expired.validToSeconds = -86400;
    CertificateRecipe notYet;
    notYet.validFromSeconds = 86400;
    notYet.validToSeconds = 172800;
    CertificateRecipe wrongName;
    wrongName.commonName = "somebody.else";
    wrongName.alternativeNames = "DNS:somebody.else";
    for (const CertificateRecipe& recipe : {expired, notYet, wrongName, SignedByAuthority()}) {
        SCOPED_TRACE(recipe.commonName);
        ExpectCaptured(MakeCertificate(recipe), recipe.key, {});
    }
}

TEST(OpenSSLServerTest, RenewedCertificateAndNewKeyReplaceTheEarlierTrust) {
    const Machine machine{};
    CertificateRecipe recipe;
    for (const auto& [key, serial] :
         {std::pair("rsa2048", 1L), std::pair("rsa2048", 2L), std::pair("ec256", 3L)}) {
        recipe.key = KeyNamed(key);
        recipe.serial = serial;
        const TestCertificate certificate = MakeCertificate(recipe);
        OpenSSLServer server(certificate, recipe.key);
        server.Write("v1/ddb/datacenters", "HTTP/1.0 200 OK\r\nConnection: close\r\n\r\n" + List);
        const std::string url = "https://" + server.HostAndPort();

        ExpectSuccess(machine.Run(ConfigureWithToken(url)));

        EXPECT_EQ(machine.Files(), ConfiguredTree(url, "i", certificate));
    }
}

TEST(OpenSSLServerTest, ServerWithoutEncryptionOrIdentityIsRefused) {
    const Machine machine{};
    for (const std::string cipher : {"eNULL:@SECLEVEL=0", "aNULL:@SECLEVEL=0"}) {
        OpenSSLServer server(MakeCertificate({}), KeyNamed("rsa2048"), {"-tls1_2", "-cipher", cipher});
        const std::string url = "https://" + server.HostAndPort();

        ExpectException(machine.Run({"get-datacenters", "-t", "t", "-r", url}), "Error 11.0");
        ExpectException(machine.Run(ConfigureWithToken(url)), "Error 11.0");
    }
    EXPECT_EQ(machine.Files(), Tree());
}

}  // namespace
}  // namespace Ombry::Tests
