#include "Platform/OpenSSLInit.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

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

// A process loads the configuration once at most, so each case needs a process of its own.
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
