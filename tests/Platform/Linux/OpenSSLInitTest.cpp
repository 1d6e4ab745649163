#include "Platform/ICertificates.h"
#include "Platform/IHash.h"
#include "Platform/IMachineProtection.h"
#include "Platform/IMemoryProtection.h"
#include "Platform/Linux/OpenSSLInit.h"
#include "Platform/Linux/X509.h"
#include "tests/Fakes/CertificateBytes.h"
#include "tests/Fakes/FakeKnownFolders.h"
#include "tests/Fakes/FakeMachineId.h"
#include "tests/Fakes/TemporaryDirectory.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace Ombry::Tests {
namespace {

/// Points OpenSSL to a configuration under which no algorithm of the default provider can be had.
void PutHostileConfiguration() {
    constexpr std::string_view text =
        "openssl_conf = init\n[init]\nalg_section = algorithms\n[algorithms]\ndefault_properties = "
        "fips=yes\n";
    const int file = memfd_create("openssl.cnf", 0);
    if (write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::_Exit(2);
    setenv("OPENSSL_CONF", ("/proc/self/fd/" + std::to_string(file)).c_str(), 1);
}

bool CanHash() {
    EVP_MD* const sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    EVP_MD_free(sha256);
    return sha256 != nullptr;
}

bool ProtectsMemory() {
    std::array<std::uint8_t, 16> bytes{};
    return bool{Platform::MemoryProtection().Protect(bytes, 0)};
}

/// With a key file and a machine of which this blob came once.
bool ProtectsOrUnprotects(bool protects) {
    constexpr std::uint32_t machineScope = 5;
    const std::string blob =
        "\x01\x20\x21\x22\x23\x24\x25\x26\x27\x28\x29\x2a\x2b\x15\xa6\x1d\x64\x22"
        "\xd5\x63\x93\xe1\x66\x35\xc8\xbe\xfc\x27\x55\x13\x4a\x4b\x47\x0f\xf6";
    const TemporaryDirectory directory;
    FakeKnownFolders folders(directory.Path());
    FakeMachineId machine("0123456789abcdef0123456789abcdef");
    const Platform::Testing::Replace<Platform::IKnownFolders> replacedFolders(folders);
    const Platform::Testing::Replace<Platform::IMachineId> replacedMachine(machine);
    std::string key;
    for (char byte = 0; byte < 32; ++byte)
        key += byte;
    directory.Write("Quennet/Keys/protection.key", key);
    std::filesystem::permissions(directory / "Quennet/Keys/protection.key", std::filesystem::perms(0600));
    Platform::IMachineProtection& protection = Platform::MachineProtection();
    return protects ? bool{protection.Protect("secret", "entropy", machineScope)}
                    : bool{protection.Unprotect(blob, "entropy", machineScope)};
}

bool Hashes() {
    const auto provider = Platform::Hash().AcquireProvider();
    return provider && (*provider)->CreateSha256();
}

/// Bytes that are no certificate, which is found out by the library alone.
const std::string NoCertificate = "none";

// None of these needs an algorithm: a configuration that they let in shows at whoever needs one next.

bool CanHashBehindComparingKeys() {
    const Platform::CertificateContext context = ContextOf(NoCertificate);
    return !Platform::Certificates().EqualPublicKeys(context, context) && CanHash();
}

bool CanHashBehindParsing() {
    return !Platform::Linux::ParseDer(BytesOf(NoCertificate)) && CanHash();
}

bool CanHashBehindParsingText() {
    return !Platform::Linux::ParsePem(NoCertificate) && CanHash();
}

// A process loads the configuration once at most, so each case needs a process of its own.
TEST(OpenSSLInitDeathTest, WhateverIsAskedForFirstKeepsTheConfigurationFileOut) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::pair<const char*, std::function<bool()>> firsts[] = {
        {"protecting memory", ProtectsMemory},
        {"protecting for the machine", [] { return ProtectsOrUnprotects(true); }},
        {"unprotecting for the machine", [] { return ProtectsOrUnprotects(false); }},
        {"a hash", Hashes},
        {"comparing public keys", CanHashBehindComparingKeys},
        {"parsing a certificate", CanHashBehindParsing},
        {"parsing the text of a certificate", CanHashBehindParsingText},
    };
    for (const auto& [name, works] : firsts) {
        EXPECT_EXIT(
            {
                PutHostileConfiguration();
                std::_Exit(works() ? 0 : 1);
            },
            testing::ExitedWithCode(0), "")
            << name;
    }
}

TEST(OpenSSLInitDeathTest, ConfigurationFileChangesNothing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            PutHostileConfiguration();
            Platform::InitializeOpenSSL();
            Platform::InitializeOpenSSL();
            OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
            std::_Exit(CanHash() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(OpenSSLInitDeathTest, StillWorksWhenWhatWasMadeEarlierIsDestroyedAtTheEndOfTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // Called after everything that was registered later.
            std::atexit([] { std::_Exit(CanHash() ? 0 : 1); });
            Platform::InitializeOpenSSL();
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}

TEST(OpenSSLInitDeathTest, ConfigurationFileWouldChangeEverythingOtherwise) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            PutHostileConfiguration();
            OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
            std::_Exit(CanHash() ? 0 : 1);
        },
        testing::ExitedWithCode(1), "");
}

}  // namespace
}  // namespace Ombry::Tests
