#pragma once

#include "ClientCommunications/CommunicationsParameters.h"
#include "LibraryLogger/ILogger.h"
#include "OmbryZephCore/ZephIOBuffer.h"
#include "OmbryZephCore/ZephSorrelConnectionParameters.h"

#include <memory>
#include <string>

namespace Ombry::ClientCommunications {

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

/// The stored bootstrap certificate as Base64 text without line breaks. `std::runtime_error` if there is
/// none.
std::string getBootstrapSsdsCertificate(const CommunicationsParameters& parameters);

}  // namespace Ombry::ClientCommunications
