// Every byte that the five commands of a configured machine send.

#include "tests/EndToEnd/Machine.h"
#include "tests/Fakes/Linux/TlsStream.h"

#include <regex>

namespace Ombry::Tests {
namespace {

/// A service over TLS that finds itself under every name and grants everything, and a machine tied to it.
class EnrollmentWireTest : public testing::Test {
protected:
    EnrollmentWireTest()
        : certificate(MakeCertificate({})),
          server(LoopbackServer::AnsweringWith([this](const std::string& r) { return Answer(r); }),
                 TlsServerRecipe{.certificate = certificate}) {
        machine.Run({"configure-bootstrap-url", "-t", "t", "-d", "dc", "-r", server.Url()});
        asked = server.Requests().size();
    }

    /// Runs a command that must succeed and returns what it sent, without what its background thread asks
    /// for when it gets to it. Times do not show; what is new in each run is masked.
    Words Sent(const Words& command) {
        ExpectSuccess(machine.Run(command));
        const Words all = server.Requests();
        Words sent;
        for (; asked < all.size(); ++asked) {
            if (all[asked].find("/nonsecure/name/ssds ") == std::string::npos)
                sent.push_back(Masked(all[asked]));
        }
        return sent;
    }

    std::string Answer(const std::string& request) const {
        if (request.starts_with("GET /v1/ddb")) return LoopbackServer::Response(R"([{"id":"dc"}])");
        if (request.starts_with("GET ")) return LoopbackServer::Response(Found());
        if (request.find("/servicetokens ") != std::string::npos)
            return LoopbackServer::Response(R"({"access_token":"tok","expires_in":3600})");
        if (request.starts_with("POST ")) return LoopbackServer::Response("", "201 Created");
        return request.find("/v1/services/") != std::string::npos ? LoopbackServer::Response("")
                                                                  : "HTTP/1.1 204 No Content\r\n\r\n";
    }
    std::string Found() const {
        return R"({"expiryTime":1000,"local":[{"id":"sid","serviceName":"sname","serviceNamespace":"sspace",)"
               R"("endpointUrl":")" +
               server.Url() + R"(","endpointCert":")" + Base64Of(DerOf(certificate)) + R"("}],"remote":[]})";
    }

    /// Identifiers of this run become "GUID", Basic credentials their plain text. The discovery service is
    /// the one of the configuration until the background thread has read its own list, so a request to it
    /// does not show which of the two it was.
    static std::string Masked(std::string request) {
        static const std::regex guid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
        static const std::regex basic("Authorization: Basic ([A-Za-z0-9+/=]+)");
        static const std::regex destination("(SF-Destination-Service-(Id|Name|Namespace): )[^\r]*");
        if (std::smatch match; std::regex_search(request, match, basic)) {
            const std::string text = match[1];
            std::string plain(text.size(), '\0');
            EVP_DecodeBlock(reinterpret_cast<unsigned char*>(plain.data()),
                            reinterpret_cast<const unsigned char*>(text.data()),
                            static_cast<int>(text.size()));
            request.replace(static_cast<std::size_t>(match.position(1)), text.size(), plain.c_str());
        }
        if (request.starts_with("GET ")) request = std::regex_replace(request, destination, "$1*");
        return std::regex_replace(request, guid, "GUID");
    }

    struct Expected {
        std::string line;
        std::string authorization;
        std::string contract = "1";
        std::string type = "";
        std::string body = "";
        bool findsServices = false;
    };

    /// The bytes of a masked request of this client.
    std::string Bytes(const Expected& expected, const std::string& id, const std::string& name) const {
        std::size_t length = expected.body.size();
        for (std::size_t at = 0; (at = expected.body.find("GUID", at)) != std::string::npos; ++at)
            length += 32;  // the mask is shorter than what it stands for
        const bool get = expected.line.starts_with("GET ");
        return expected.line + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) +
               "\r\nContent-Length: " + std::to_string(length) + "\r\n" +
               (expected.authorization.empty() ? "" : "Authorization: " + expected.authorization + "\r\n") +
               (expected.type.empty() ? "" : "Content-Type: " + expected.type + "\r\n") +
               "Contract-Version: " + expected.contract +
               "\r\nDatacenter-Id: dc\r\nSF-Destination-Service-Id: " + (get ? "*" : "sid") +
               "\r\nSF-Destination-Service-Is-Local-DC: true\r\nSF-Destination-Service-Name: " +
               (get ? "*" : "sname") + "\r\nSF-Destination-Service-Namespace: " + (get ? "*" : "sspace") +
               "\r\nSF-Request-Id: GUID\r\nSF-Root-Attempt: 1\r\nSF-Root-Correlation-Id: "
               "ClientToService\r\n" +
               (expected.findsServices ? "SF-Root-Request-Type: FindServices\r\n" : "") +
               "SF-Source-Client-Id: " + id + "\r\nSF-Source-Client-Name: " + name +
               "\r\nSF-Source-Datacenter-Id: dc\r\n\r\n" + expected.body;
    }

    void ExpectSent(const Words& command, const std::vector<Expected>& requests, const std::string& id,
                    const std::string& name) {
        Words bytes;
        for (const Expected& expected : requests)
            bytes.push_back(Bytes(expected, id, name));
        EXPECT_EQ(Sent(command), bytes);
    }

    static Expected Find(const std::string& what) {
        return {"GET /services/services/secure/" + what, "Bearer tok", "1", "", "", true};
    }

    const TestCertificate certificate;
    const Machine machine{};
    std::size_t asked = 0;
    LoopbackServer server;  // last: its threads end before what they use
};

const std::string Json = "application/json";
const std::string Form = "application/x-www-form-urlencoded";

TEST_F(EnrollmentWireTest, EveryByteOfTheLifeOfAClientAndItsService) {
    const std::string client = R"({
    "id": "GUID",
    "clientSecretId": "GUID",
    "publicCertPem": null,
    "groups": null,
    "description": "d",
    "datacenterId": "dc",
    "rolesPerService": {}
})";
    ExpectSent(
        {"enroll-client", "-t", "tok", "-nn", "c1", "-desc", "d"},
        {Find("name/v1-auth"), {"POST /v1/auth/locationawareclients", "Bearer tok", "1", Json, client}},
        "FixedToken", "FixedToken");

    const std::string service = R"({
    "serviceId": "GUID",
    "serviceName": "S",
    "clientId": "GUID",
    "directUrl": "https://H/x",
    "directCert": null,
    "endpointUrl": "https://H/x",
    "endpointCert": null,
    "serviceHostname": "H",
    "serviceNamespace": "N",
    "datacenterID": "dc",
    "links": null,
    "roles": null,
    "ttlSeconds": null,
    "status": null,
    "serviceProps": null
})";
    const std::string token = "POST /v1/auth/clients/servicetokens";
    const std::string form = "grant_type=client_credentials&servicename=";
    ExpectSent({"enroll-service", "-n", "c1", "-owner", "c1", "-name", "S", "-url", "https://H/x",
                "-namespace", "N", "-hostname", "H"},
               {{"GET /services/services/nonsecure/name/aa", "", "1", "", "", true},
                {token, "Basic GUID:GUID", "1", Form, form + "v1-service", true},
                Find("name/S/namespace/N/host/H"),
                Find("name/v1-service"),
                {token, "Basic GUID:GUID", "1", Form, form + "sname"},
                {"DELETE /v1/services/services/sid", "Bearer tok", "1.0.0.0"},
                Find("name/v1-service"),
                {"POST /v1/services/services", "Bearer tok", "1.0.0.0", Json, service}},
               "GUID", "c1");

    ExpectSent({"unenroll-service", "-t", "tok", "-on", "c1", "-s", "S"},
               {Find("name/v1-service"), {"DELETE /v1/services/services/GUID", "Bearer tok", "1.0.0.0"}},
               "FixedToken", "FixedToken");
    ExpectSent({"unenroll-client", "-t", "tok", "-un", "c1"},
               {Find("name/v1-auth"), {"DELETE /v1/auth/clients/GUID", "Bearer tok"}}, "FixedToken",
               "FixedToken");
}

TEST_F(EnrollmentWireTest, EveryByteOfAClientThatRemovesItself) {
    ExpectSuccess(machine.Run({"enroll-client", "-t", "tok", "-nn", "c1"}));
    asked = server.Requests().size();
    const Words sent = Sent({"unenroll-client-self", "-n", "c1"});
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent.back(), Bytes({"DELETE /v1/auth/clients", "Bearer tok"}, "GUID", "c1"));
}

}  // namespace
}  // namespace Ombry::Tests
