#pragma once

#include <optional>
#include <string>

#include "control/run_report.h"

namespace overseer::control {

/// ISO 8601 in UTC, as in "2026-11-23T03:04:05.678Z".
std::string toText(Instant instant);

/// Reads what toText writes, with or without the fraction; nothing for any other text.
std::optional<Instant> instantFromText(const std::string& text);

}  // namespace overseer::control
