#pragma once

#include "Doctor/Finding.h"
#include "Doctor/Machine.h"

namespace Ombry::Doctor {

/// Where the service is.
Findings CheckAddress(const Machine& machine);
/// Which datacenter the machine belongs to, and which file says so.
Findings CheckDatacenter(const Machine& machine);

/// Whether certificate, address and datacenter can come from one run of configure-bootstrap-url, which writes
/// them in this order. One that was cut off in between leaves some of the old and some of the new.
Findings CheckWhole(const Machine& machine);

}  // namespace Ombry::Doctor
