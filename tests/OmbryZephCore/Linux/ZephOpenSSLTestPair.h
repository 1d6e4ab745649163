#pragma once

#include "OmbryZephCore/ZephOpenSSLClientContext.h"
#include "OmbryZephCore/ZephOpenSSLConnection.h"
#include "tests/Fakes/Linux/TlsServerEnd.h"
#include "tests/Fakes/RecordingLogger.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Ombry::Tests {

inline const std::uint8_t* Bytes(const std::string& text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

inline std::int32_t Inject(OmbryZephCore::ZephSSLConnectionIf& client, const std::string& bytes) {
    return client.inject_ciphertext(Bytes(bytes), static_cast<std::int32_t>(bytes.size()));
}

inline std::int32_t Write(OmbryZephCore::ZephSSLConnectionIf& client, const std::string& bytes) {
    return client.write_plaintext(Bytes(bytes), static_cast<std::int32_t>(bytes.size()));
}

/// What `fill`, which returns a count or a failure below 0, puts into memory of `room` bytes. None is written
/// ahead of it: a mebibyte of zeros for each call was half the time of these tests under the thread
/// sanitizer, and a third under that of addresses.
template <class Fill>
std::string Filled(std::size_t room, Fill fill) {
    const auto bytes = std::make_unique_for_overwrite<char[]>(room);
    const std::int32_t count =
        fill(reinterpret_cast<std::uint8_t*>(bytes.get()), static_cast<std::int32_t>(room));
    return std::string(bytes.get(), static_cast<std::size_t>(std::max(count, 0)));
}

/// One read; `result` is what the engine returned.
inline std::string Read(OmbryZephCore::ZephSSLConnectionIf& client, std::int32_t& result,
                        std::size_t room = 65536) {
    return Filled(
        room, [&](std::uint8_t* to, std::int32_t most) { return result = client.read_plaintext(to, most); });
}

inline std::string Extract(OmbryZephCore::ZephSSLConnectionIf& client, std::size_t room = 1 << 20) {
    return Filled(room,
                  [&](std::uint8_t* to, std::int32_t most) { return client.extract_ciphertext(to, most); });
}

inline std::string ExtractUnprocessed(OmbryZephCore::ZephSSLConnectionIf& client, std::int32_t& result,
                                      std::size_t room = 4096) {
    return Filled(room, [&](std::uint8_t* to, std::int32_t most) {
        return result = client.extract_unprocessed_ciphertext(to, most);
    });
}

/// TLS records of a byte stream that ends on a record boundary.
inline std::vector<std::string> Records(const std::string& stream) {
    std::vector<std::string> records;
    for (std::size_t at = 0; at + 5 <= stream.size();) {
        const std::size_t length =
            static_cast<std::uint8_t>(stream[at + 3]) * 256u + static_cast<std::uint8_t>(stream[at + 4]) + 5;
        records.push_back(stream.substr(at, length));
        at += length;
    }
    return records;
}

inline const TestCertificate& SelfSigned() {
    static const TestCertificate certificate = MakeCertificate({});
    return certificate;
}

inline TlsServerRecipe ServerOf(int version, const TestCertificate& certificate = SelfSigned()) {
    TlsServerRecipe recipe;
    recipe.version = version;
    recipe.certificate = certificate;
    return recipe;
}

/// The engine and a server, joined through memory.
class ZephOpenSSLTestPair {
public:
    explicit ZephOpenSSLTestPair(const TlsServerRecipe& recipe, const std::string& name = "server.test",
                                 bool manualValidation = true)
        : logger(std::make_shared<RecordingLogger>()), server(recipe), context(logger), client(logger) {
        if (context.Initialize(manualValidation) != 0) throw std::runtime_error("no client context");
        started = client.InitializeAsClient(context, name);
    }

    /// Moves ciphertext both ways, `chunk` bytes at a time, until nothing moves. False once the engine has
    /// failed.
    bool Exchange(std::size_t chunk = 1 << 20) {
        for (;;) {
            const std::string out = Extract(client, chunk);
            if (!out.empty()) server.Put(out);
            const std::string in = server.Take(chunk);
            if (!in.empty() && Inject(client, in) != static_cast<std::int32_t>(in.size())) return false;
            if (out.empty() && in.empty()) return true;
        }
    }

    bool Handshake(std::size_t chunk = 1 << 20) { return Exchange(chunk) && server.Ready() && ClientReady(); }

    /// Whether the engine would take data; nothing is sent.
    bool ClientReady() {
        std::int32_t result = 0;
        const bool needed = client.WantsCiphertext();
        Tests::Read(client, result, 0);
        return result == 0 && !needed && !client.IsShuttingDown();
    }

    std::shared_ptr<RecordingLogger> logger;
    TlsServerEnd server;
    OmbryZephCore::ZephOpenSSLClientContext context;
    OmbryZephCore::ZephOpenSSLConnection client;
    std::int32_t started = -1;
};

struct ProtocolVersion {
    int number;
    const char* name;
};

inline const std::vector<ProtocolVersion>& AllVersions() {
    static const std::vector<ProtocolVersion> versions = {{TLS1_VERSION, "TLSv1"},
                                                          {TLS1_1_VERSION, "TLSv1_1"},
                                                          {TLS1_2_VERSION, "TLSv1_2"},
                                                          {TLS1_3_VERSION, "TLSv1_3"}};
    return versions;
}

}  // namespace Ombry::Tests
