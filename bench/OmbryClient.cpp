#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "bench/HttpClients.h"

#include <stdexcept>

namespace Ombry::Bench {
namespace {

using namespace OmbryZephCore;

class CountingWriter : public ZephSyncDataWriterIf {
public:
    void Begin() override { count = 0; }
    void Write(const std::uint8_t*, std::uint32_t nBytes) override { count += nBytes; }
    void End() override {}
    std::uint64_t Count() const { return count; }

private:
    std::uint64_t count = 0;
};

class StringReader : public ZephSyncDataReaderIf {
public:
    explicit StringReader(const std::string& body) : body(body) {}
    bool HasData() override { return true; }
    std::uint32_t GetLength() override {
        position = 0;
        return static_cast<std::uint32_t>(body.size());
    }
    bool Read(std::uint8_t* pBuffer, std::uint32_t* pnBytes) override {
        *pnBytes =
            static_cast<std::uint32_t>(body.copy(reinterpret_cast<char*>(pBuffer), *pnBytes, position));
        position += *pnBytes;
        return *pnBytes > 0;
    }

private:
    const std::string& body;
    std::size_t position = 0;
};

ZephSorrelConnectionParameters MakeParameters(const Target& target) {
    ZephSorrelConnectionParameters parameters("127.0.0.1", target.port);
    parameters.SetUseSSL(true).SetCertificateValidation({ValidateByPublicKey, target.certificate});
    return parameters;
}

class OmbryClient : public HttpClient {
public:
    explicit OmbryClient(const Target& target)
        : parameters(MakeParameters(target)), pool(nullptr), client(nullptr, false, parameters, &pool) {}

    std::uint64_t Get(const std::string& path) override { return Get(client, path); }

    void Post(const std::string& path, const std::string& body) override {
        StringReader reader(body);
        CountingWriter writer;
        client.SetHeader("Content-Type", "application/json");
        client.SetDataReader(&reader);
        client.SetDataWriter(&writer);
        Require(client.DoRequest("POST", path));
    }

    void GetAnew(const std::string& path, Handshake handshake) override {
        // Parameters that no connection had have no session to resume.
        ZephSorrelConnectionParameters own = parameters;
        if (handshake == Handshake::Full) own.SetConnectTimeout(1000 + ++fullHandshakes);
        // Without a pool the connection is the client's own, and goes with it.
        ZephSorrelSyncHttpClient fresh(nullptr, false, own, nullptr);
        Get(fresh, path);
    }

private:
    static void Require(std::uint32_t result) {
        if (result != 0) throw std::runtime_error("Our exchange failed: " + std::to_string(result));
    }

    static std::uint64_t Get(ZephSorrelSyncHttpClient& client, const std::string& path) {
        CountingWriter writer;
        client.SetHeader("Accept", "*/*");
        client.SetDataWriter(&writer);
        Require(client.DoRequest("GET", path));
        return writer.Count();
    }

    const ZephSorrelConnectionParameters parameters;
    ZephSorrelSyncConnectionPool pool;
    ZephSorrelSyncHttpClient client;
    std::uint32_t fullHandshakes = 0;
};

}  // namespace

std::unique_ptr<HttpClient> MakeOmbryClient(const Target& target) {
    return std::make_unique<OmbryClient>(target);
}

}  // namespace Ombry::Bench
