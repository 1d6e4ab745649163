#include "ClientCommunications/Impl/BootstrapCertificate.h"
#include "OmbryZephCore/ZephIOTaskManager_Sync.h"
#include "OmbryZephCore/ZephResultCodes.h"
#include "OmbryZephCore/ZephSSLIO.h"
#include "OmbryZephCore/ZephSSLManagerProvider.h"
#include "OmbryZephCore/ZephSocketConnector.h"
#include "OmbryZephCore/ZephSocketIO.h"
#include "Platform/Base64Text.h"
#include "Platform/ICertificates.h"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace Ombry::ClientCommunications {
namespace {

using namespace OmbryZephCore;

constexpr std::uint32_t SilenceSeconds = 15;

// Wants no notifications: all that matters happens in the check of the certificate.
class NotifReceiver : public ZephIOCompletionHandlerIf, public ZephSSLNotifierIf {
public:
    void CompleteTask(std::uint32_t, bool, std::uint32_t) override {}
    void AbortTask(std::uint32_t) override {}
    void OnDrained() override {}
    void OnSSLStopped() override {}
    void OnSSLFatalError() override {}
};

[[noreturn]] void ThrowUnableToConnect(const ZephSorrelConnectionParameters& connection, std::uint32_t code) {
    throw std::runtime_error("Unable to connect to " + connection.GetHost() + ":" +
                             std::to_string(connection.GetPort()) + " due to error " + std::to_string(code));
}

// Copies the certificate and its text; accepts it, whatever it is, since this is the moment of first trust.
bool TakeCertificate(const Platform::CertificateContext& shown, ZephIOBuffer& certificate,
                     std::string& text) {
    if (certificate.SetLength(shown.encodedLength) != eRC_Success) return true;
    std::memcpy(certificate.GetData(), shown.encoded, shown.encodedLength);
    auto converted = Platform::Base64Text({shown.encoded, shown.encodedLength});
    if (converted) text = std::move(*converted);
    return true;
}

// Runs one handshake over the connected socket. Returns the code of the network core; what was shown is in
// the validator's hands by then.
std::uint32_t RunHandshake(ZephSocketConnector& connector, std::uint32_t silenceSeconds,
                           const Cancellation::Token& token, std::shared_ptr<LibraryLogger::ILogger> logger,
                           ZephSSLConnectionManagerIf& manager, bool verbose) {
    ZephIOTaskManager_Sync taskManager(logger);
    ZephSocketIO socketIO;
    ZephSSLIO sslIO(logger);
    NotifReceiver receiver;
    taskManager.SetVerbose(verbose);
    sslIO.SetVerbose(verbose);
    std::uint32_t code = socketIO.Initialize(connector.GetSocket(), &taskManager, &taskManager, nullptr);
    if (code == eRC_Success) {
        code = sslIO.Initialize(&manager, &socketIO, &taskManager, 0, &receiver, &taskManager, nullptr);
    }
    if (code == eRC_Success) code = sslIO.RegisterIOCompletionHandler(&receiver);
    if (code == eRC_Success) {
        sslIO.StartSSL();
        code = taskManager.DoPendingIO(silenceSeconds, token);
    }
    sslIO.UnRegisterIOCompletionHandler();
    sslIO.Terminate();
    socketIO.UnRegisterIOCompletionHandler();
    return code;
}

}  // namespace

std::uint32_t captureCertificate(ZephSocketConnector& connector, const std::string& host,
                                 std::uint32_t silenceSeconds, const Cancellation::Token& token,
                                 std::shared_ptr<LibraryLogger::ILogger> logger, bool verbose,
                                 ZephIOBuffer& certificate, std::string& text) {
    const auto manager = ZephSSLManagerProvider().MakeManager(logger, verbose);
    const std::uint32_t code =
        manager->Initialize(host, true, [&](Platform::CertificateContextPointer* ppShown) {
            return TakeCertificate(**ppShown, certificate, text);
        });
    if (code != eRC_Success) return code;
    return RunHandshake(connector, silenceSeconds, token, logger, *manager, verbose);
}

std::string getCertificateByConnecting(ZephIOBuffer& certificate,
                                       std::shared_ptr<LibraryLogger::ILogger> logger,
                                       ZephSorrelConnectionParameters& connection, bool verbose) {
    const std::string host = connection.GetHost();
    ZephSocketConnector connector(logger);
    std::uint32_t code =
        connector.Connect(host.c_str(), connection.GetPort(), connection.GetConnectTimeout(), nullptr, 0);
    if (code != eRC_Success) ThrowUnableToConnect(connection, code);

    std::string text;
    code = captureCertificate(connector, host, SilenceSeconds, Cancellation::Token(), logger, verbose,
                              certificate, text);
    connector.Close();
    // Whoever is not seen is not trusted: without a certificate nothing is written, and the earlier trust
    // stays.
    if (text.empty()) ThrowUnableToConnect(connection, code == eRC_TimedOut ? code : eRC_IO_ConnectionFailed);
    return text;
}

}  // namespace Ombry::ClientCommunications
