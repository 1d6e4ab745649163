#pragma once

#include "Doctor/Finding.h"
#include "Doctor/Machine.h"

#include <string>
#include <string_view>

namespace Ombry::Doctor {

/// The certificate that the machine's trust begins with. `warnDays`: before a certificate ends.
Findings CheckTrust(const Machine& machine, long long warnDays);

/// SHA-256 of the bytes as upper-case pairs between colons; empty if it cannot be made.
std::string FingerprintOf(std::string_view encoded);

/// A view of the bytes of a certificate, valid as long as they are.
Platform::CertificateContext ContextOf(const std::string& encoded);

/// The name that the store gives to the file of a certificate.
std::string CertificateFileOf(std::string_view encoded);

/// Whole days from the one time to the other, rounded down.
long long DaysBetween(TimePoint from, TimePoint to);

}  // namespace Ombry::Doctor
