#pragma once

#include "Doctor/Finding.h"
#include "Doctor/Machine.h"

namespace Ombry::Doctor {

/// Whether the service and each discovery server that is known can be reached, and whether they show the key
/// that is trusted. `warnDays`: before a certificate ends.
Findings CheckConnections(const Machine& machine, long long warnDays);

}  // namespace Ombry::Doctor
