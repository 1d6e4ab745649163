#pragma once

#include "Cancellation/Token.h"
#include "ClientCommunications/CommunicationsParameters.h"
#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephSocketConnector.h"
#include "OmbryZephCore/ZephSorrelConnectionParameters.h"

#include <memory>
#include <string>
#include <vector>

namespace Ombry::ClientCommunications {

/// The friendly name that marks the certificate of the first contact in the machine's store.
inline constexpr char BootstrapCertificateName[] = "DiscoveryServiceBootstrap";

/// One TLS handshake over a connected socket with whoever answers there as `host`. The certificate that was
/// shown, whatever it is, lands in `certificate` as DER bytes and in `text` as Base64; `text` is empty if
/// none was seen. `silenceSeconds` and `token` limit it as in `ZephIOTaskManager_Sync::DoPendingIO`. The
/// result is a code of the network core.
std::uint32_t captureCertificate(OmbryZephCore::ZephSocketConnector& connector, const std::string& host,
                                 std::uint32_t silenceSeconds, const Cancellation::Token& token,
                                 std::shared_ptr<LibraryLogger::ILogger> logger, bool verbose,
                                 OmbryZephCore::ZephIOBuffer& certificate, std::string& text);

/// Trust on first use: connects, completes a TLS handshake with whoever answers, and returns the certificate
/// that was shown as Base64 text; its DER bytes land in `certificate`. Every certificate is accepted. Blocks;
/// gives up after 15 seconds of silence. `std::runtime_error` if no connection can be made or no certificate
/// is seen.
std::string getCertificateByConnecting(OmbryZephCore::ZephIOBuffer& certificate,
                                       std::shared_ptr<LibraryLogger::ILogger> logger,
                                       OmbryZephCore::ZephSorrelConnectionParameters& connection,
                                       bool verbose);

/// Puts the certificate in the place of every earlier bootstrap certificate of the machine's store; all other
/// entries stay. `std::runtime_error` with the number of the system.
void saveBootstrapCertificate(const CommunicationsParameters& parameters,
                              OmbryZephCore::ZephIOBuffer& certificate);

/// All certificates of the machine's store that bear the bootstrap name, as DER bytes: the first is the one
/// that counts. Takes no lock, so that a change under way may show half done. `std::runtime_error` if the
/// store cannot be read.
std::vector<std::string> getBootstrapCertificates(const CommunicationsParameters& parameters);

/// The stored bootstrap certificate as Base64 text without line breaks. `std::runtime_error` if there is
/// none.
std::string getBootstrapSsdsCertificate(const CommunicationsParameters& parameters);

}  // namespace Ombry::ClientCommunications
