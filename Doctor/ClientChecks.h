#pragma once

#include "Doctor/Finding.h"
#include "Doctor/Machine.h"

namespace Ombry::Doctor {

/// The machine's half of the key to the credentials.
Findings CheckKey(const Machine& machine);
/// Whether the credentials of each client can be deciphered here.
Findings CheckCredentials(const Machine& machine);
/// The services that were enrolled here, and whether their clients are still there.
Findings CheckServices(const Machine& machine);

/// The names of the clients that have credentials here, whether those can be deciphered or not.
std::vector<std::string> ClientNamesOf(const Machine& machine);

}  // namespace Ombry::Doctor
