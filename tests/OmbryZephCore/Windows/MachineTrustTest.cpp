#include "OmbryZephCore/ZephSorrelSyncConnectionPool.h"
#include "OmbryZephCore/ZephSorrelSyncHttpClient.h"
#include "tests/Fakes/LeftOut.h"
#include "tests/Fakes/RecordingLogger.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace Ombry::Tests {
namespace {

using namespace OmbryZephCore;

/// The system's own judgement of a server's chain, which only a system can show that knows whom it trusts:
/// with servers that the environment names, each as HOST:PORT.
class MachineTrustTest : public testing::Test {
protected:
    /// Whether there is a server by that name; leaves the test out if not.
    bool Find(const char* variable) {
        const char* const value = std::getenv(variable);
        if (!value) {
            LeaveOut(std::string(variable) + " names no server");
            return false;
        }
        const std::string text = value;
        const std::size_t colon = text.rfind(':');
        host = text.substr(0, colon);
        port = static_cast<std::uint16_t>(std::stoul(text.substr(colon + 1)));
        return true;
    }

    /// Whether the server is asked, and answers whatever it likes.
    bool Answers(std::int32_t mode) {
        ZephSorrelConnectionParameters parameters(host, port);
        parameters.SetUseSSL(true).SetCertificateValidation({mode, ""});
        ZephSorrelSyncConnectionPool pool(logger);
        ZephSorrelSyncHttpClient client(logger, false, parameters, &pool);
        client.SetTimeout(15);
        client.DoRequest("GET", "/");
        return client.GetHttpStatus() != 0;
    }

    std::string host;
    std::uint16_t port = 0;
    std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>(1);
};

TEST_F(MachineTrustTest, ServerOfAChainThatTheMachineTrustsIsTaken) {
    if (!Find("OMBRY_TRUSTED_SERVER")) return;
    EXPECT_TRUE(Answers(ValidateByPlatform));
}

TEST_F(MachineTrustTest, ServerThatSignedItselfIsRefused) {
    if (!Find("OMBRY_SELF_SIGNED_SERVER")) return;
    EXPECT_TRUE(Answers(ValidateNothing));
    EXPECT_FALSE(Answers(ValidateByPlatform));
}

}  // namespace
}  // namespace Ombry::Tests
