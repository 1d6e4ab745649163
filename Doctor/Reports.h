#pragma once

#include "Doctor/Examination.h"

#include <string>

namespace Ombry::Doctor {

/// For a reader: a line for each finding, its remedy below it, and a line of totals. `colours`: for a
/// terminal.
std::string TableReport(const Machine& machine, const Findings& findings, bool colours);

/// For a program: one JSON document, as the schema beside this header has it.
std::string JsonReport(const Machine& machine, const Findings& findings);

/// For monitoring: one line of what is worst, and the figures behind it.
std::string MonitoringReport(const Findings& findings, const Wishes& wishes);

/// Likewise, of a machine that could not be looked at, or of options that are wrong.
std::string UnknownReport(const std::string& failure);

/// "success", "warning", "error" or "critical".
const char* NameOf(Severity severity);

}  // namespace Ombry::Doctor
